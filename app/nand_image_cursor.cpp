#include "app/nand_image_cursor.h"

#include <algorithm>
#include <cstring>
#include <utility>

NandImageCursor::NandImageCursor(NandAccess::Pointer nand) : m_nand(std::move(nand))
{
    m_head.reserve(kHeadSize);
    Restart();
}

void NandImageCursor::Read(uint64_t offset, size_t length, void* buffer)
{
    if (offset + length <= m_head.size()) {
        std::memcpy(buffer, m_head.data() + offset, length);
        return;
    }
    if (offset < m_position)
        Restart();
    SkipTo(offset);
    Take(static_cast<char*>(buffer), length);
}

void NandImageCursor::Restart()
{
    m_stream.reset();
    m_stream = std::make_unique<MaybeCompressedNandReader>(m_nand);
    m_position = 0;
}

void NandImageCursor::SkipTo(uint64_t offset)
{
    // Through the head the bytes are taken, to be kept; past it they are only
    // passed over.
    char piece[512];
    while (m_position < offset && m_position < kHeadSize) {
        const auto length = static_cast<size_t>(std::min<uint64_t>({sizeof piece, offset - m_position,
                                                                     kHeadSize - m_position}));
        Take(piece, length);
    }
    if (m_position < offset) {
        m_stream->Skip(offset - m_position);
        m_position = offset;
    }
}

void NandImageCursor::Take(char* buffer, size_t length)
{
    m_stream->ReadExactly(buffer, length);
    // Keep what extends the head; after a restart the head already holds the
    // first bytes again.
    const uint64_t end = m_position + length;
    const uint64_t keep_from = std::max<uint64_t>(m_position, m_head.size());
    const uint64_t keep_to = std::min<uint64_t>(end, kHeadSize);
    if (keep_from < keep_to)
        m_head.insert(m_head.end(), buffer + (keep_from - m_position), buffer + (keep_to - m_position));
    m_position = end;
}
