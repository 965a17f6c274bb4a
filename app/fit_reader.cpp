#include "app/fit_reader.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>

#include "app/nand_image_cursor.h"

namespace {

constexpr uint32_t kFitMagic = 0xd00dfeed;
constexpr size_t kHeaderSize = 40;

// The strings block is held in memory whole; one this large is no real image.
constexpr uint32_t kStringsLimit = 0x40000;

// A matching value is taken in pieces, so that a damaged length costs memory
// only as far as the image really holds bytes.
constexpr size_t kValuePiece = 64 * 1024;

constexpr uint32_t kBeginNode = 1;
constexpr uint32_t kEndNode = 2;
constexpr uint32_t kProperty = 3;
constexpr uint32_t kNop = 4;
constexpr uint32_t kEnd = 9;

// The image is big-endian whatever the host; the fields are assembled byte by
// byte, with no assumption about the buffer's alignment.
uint32_t BigEndian32(const unsigned char* bytes)
{
    return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | uint32_t{bytes[3]};
}

struct FitHeader {
    uint32_t structure_offset;
    uint32_t strings_offset;
    uint32_t strings_size;
    uint32_t structure_size;
};

FitHeader ReadHeader(const FitReadFunction& read)
{
    unsigned char bytes[kHeaderSize];
    read(0, sizeof bytes, bytes);
    if (BigEndian32(bytes) != kFitMagic)
        throw std::runtime_error("Not a FIT image");
    const FitHeader header{BigEndian32(bytes + 8), BigEndian32(bytes + 12), BigEndian32(bytes + 32),
                           BigEndian32(bytes + 36)};
    if (header.strings_size >= kStringsLimit)
        throw std::runtime_error("FIT string table too large");
    return header;
}

std::string ReadStrings(const FitReadFunction& read, const FitHeader& header)
{
    std::string strings(header.strings_size, '\0');
    if (!strings.empty())
        read(header.strings_offset, strings.size(), &strings[0]);
    return strings;
}

// A name runs to its NUL, or to the end of the block when it has none.
bool NameIs(const std::string& strings, uint32_t offset, const std::string& name)
{
    if (offset >= strings.size()) // outside the block: names nothing
        return false;
    const std::string_view rest(strings.data() + offset, strings.size() - offset);
    return rest.substr(0, rest.find('\0')) == name;
}

// The structure block, read in place from its start; nothing at or past its
// end is ever asked for.
class StructureWalk {
public:
    StructureWalk(const FitReadFunction& read, const FitHeader& header)
        : m_read(read),
          m_position(header.structure_offset),
          m_end(uint64_t{header.structure_offset} + header.structure_size)
    {
    }

    uint32_t Word()
    {
        Require(4);
        unsigned char bytes[4];
        m_read(m_position, sizeof bytes, bytes);
        m_position += sizeof bytes;
        return BigEndian32(bytes);
    }

    void SkipNodeName()
    {
        char c;
        do {
            Require(1);
            m_read(m_position++, 1, &c);
        } while (c != '\0');
        AlignTo4();
    }

    // Only moves the position: a damaged length is caught by the next read.
    void SkipValue(uint32_t length)
    {
        m_position += length;
        AlignTo4();
    }

    std::string StringValue(uint32_t length)
    {
        if (length == 0)
            throw std::runtime_error("FIT string property is empty");
        Require(length);
        std::string value;
        while (value.size() < length) {
            const size_t start = value.size();
            value.resize(start + std::min<size_t>(kValuePiece, length - start));
            m_read(m_position + start, value.size() - start, &value[start]);
        }
        if (value.back() != '\0')
            throw std::runtime_error("FIT string property is not terminated");
        value.pop_back();
        return value;
    }

private:
    void Require(uint64_t count) const
    {
        // A skipped value may already have carried the position past the end.
        if (m_position > m_end || m_end - m_position < count)
            throw std::runtime_error("FIT read beyond end of data");
    }

    void AlignTo4() { m_position = (m_position + 3) & ~uint64_t{3}; }

    const FitReadFunction& m_read;
    uint64_t m_position;
    const uint64_t m_end;
};

} // namespace

std::string FindFitRootProperty(const FitReadFunction& read, const std::string& name)
{
    const FitHeader header = ReadHeader(read);
    const std::string strings = ReadStrings(read, header);
    StructureWalk walk(read, header);
    bool in_root = false;
    for (;;) {
        switch (walk.Word()) {
        case kBeginNode:
            // A node's properties come before its subnodes: once the root's
            // first child begins, no root property can follow.
            if (in_root)
                return {};
            walk.SkipNodeName();
            in_root = true;
            break;
        case kEndNode:
            if (!in_root)
                throw std::runtime_error("FIT end node mismatch");
            in_root = false;
            break;
        case kProperty: {
            const uint32_t length = walk.Word();
            const uint32_t name_offset = walk.Word();
            if (NameIs(strings, name_offset, name))
                return walk.StringValue(length);
            walk.SkipValue(length);
            break;
        }
        case kNop:
            break;
        case kEnd:
            return {};
        default:
            throw std::runtime_error("Invalid FIT token");
        }
    }
}

std::string ReadFitRootProperty(std::shared_ptr<NandAccess> const& nand, std::string const& name)
{
    NandImageCursor image(nand);
    return FindFitRootProperty(
        [&image](uint64_t offset, size_t length, void* buffer) { image.Read(offset, length, buffer); }, name);
}
