#include "platform/maybe_compressed_nand_reader.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include <boost/iostreams/filter/zlib.hpp>

#include "platform/assert_report.h"

namespace {

constexpr const char* kShortRead = "Short read from MaybeCompressedNandReader";

// Large enough that a pass over a multi-megabyte image is a few hundred
// partition reads, small enough to stay a fixed cost whatever the image size.
constexpr std::streamsize kBufferSize = 16 * 1024;

// zlib decodes the gzip wrapper itself (header, CRC-32 and length trailer)
// when its window size is raised by 16.
constexpr int kGzipWindowBits = 15 + 16;

// One gzip member, then end of data. The flashing tool leaves the rest of the
// partition erased (0xff); a decoder that went on looking for a further
// member, as the library's own gzip filter does, would take that erased flash
// for a broken header and fail an image that decompressed correctly. zlib
// stops at the end of the member and never looks at what follows.
class GzipMember : public boost::iostreams::zlib_decompressor {
    using Decompressor = boost::iostreams::zlib_decompressor;

public:
    GzipMember() : Decompressor(kGzipWindowBits, kBufferSize) {}

    template <typename Source>
    std::streamsize read(Source& source, char* buffer, std::streamsize count)
    {
        try {
            return Decompressor::read(source, buffer, count);
        } catch (const boost::iostreams::zlib_error&) {
            throw std::runtime_error("gzip error");
        }
    }
};

bool StartsWithGzipSignature(const NandAccess::Pointer& nand)
{
    MaybeCompressedNandReader::NandSource probe(nand);
    unsigned char signature[2];
    const std::streamsize got = probe.read(reinterpret_cast<char*>(signature), sizeof signature);
    return got == sizeof signature && signature[0] == 0x1f && signature[1] == 0x8b;
}

} // namespace

MaybeCompressedNandReader::NandSource::NandSource(NandAccess::Pointer nand) : m_nand(std::move(nand))
{
    // Bad-block stepping divides by the erase size.
    TESSEL_ASSERT(m_nand->EraseSize() != 0);
}

std::streamsize MaybeCompressedNandReader::NandSource::read(char* buffer, std::streamsize count)
{
    SkipBadBlocks();
    const uint64_t total = m_nand->TotalSize();
    if (m_offset >= total)
        return -1;
    if (count <= 0)
        return 0;

    const uint32_t erase_size = m_nand->EraseSize();
    const uint64_t left_in_block = erase_size - m_offset % erase_size;
    const size_t length = static_cast<size_t>(
        std::min({static_cast<uint64_t>(count), left_in_block, total - m_offset}));
    if (m_nand->Read(static_cast<uint32_t>(m_offset), buffer, length) != length)
        throw std::runtime_error(kShortRead);
    m_offset += length;
    return static_cast<std::streamsize>(length);
}

std::streamsize MaybeCompressedNandReader::NandSource::write(const char*, std::streamsize)
{
    TESSEL_ASSERT(false);
    return -1;
}

std::streampos MaybeCompressedNandReader::NandSource::seek(boost::iostreams::stream_offset, std::ios_base::seekdir)
{
    TESSEL_ASSERT(false);
    return -1;
}

void MaybeCompressedNandReader::NandSource::SkipBadBlocks()
{
    const uint64_t total = m_nand->TotalSize();
    const uint32_t erase_size = m_nand->EraseSize();
    while (m_offset < total && m_offset % erase_size == 0 && m_nand->IsBadBlock(static_cast<uint32_t>(m_offset)))
        m_offset += erase_size;
}

MaybeCompressedNandReader::MaybeCompressedNandReader(const NandAccess::Pointer& nand)
{
    if (StartsWithGzipSignature(nand))
        push(GzipMember(), kBufferSize);
    push(NandSource(nand), kBufferSize);
    // Errors of the partition and the decoder leave the stream through the
    // reading call instead of turning into a quiet end of data. (Only now: a
    // stream without its device counts as bad.)
    exceptions(std::ios_base::badbit);
}

void MaybeCompressedNandReader::ReadExactly(void* buffer, size_t length)
{
    read(static_cast<char*>(buffer), static_cast<std::streamsize>(length));
    if (static_cast<size_t>(gcount()) != length)
        throw std::runtime_error(kShortRead);
}

void MaybeCompressedNandReader::Skip(uint64_t count)
{
    // std::streamsize is 32 bits on the target, and its largest value asks
    // ignore() for "no limit": pass over the distance in smaller steps.
    constexpr uint64_t kStep = 1u << 30;
    while (count > 0) {
        const auto step = static_cast<std::streamsize>(std::min(count, kStep));
        ignore(step);
        if (gcount() != step)
            throw std::runtime_error(kShortRead);
        count -= static_cast<uint64_t>(step);
    }
}
