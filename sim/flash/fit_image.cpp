#include "fit_image.h"

#include <boost/iostreams/device/back_inserter.hpp>
#include <boost/iostreams/filter/gzip.hpp>
#include <boost/iostreams/filtering_stream.hpp>

namespace sim {

namespace {

constexpr uint32_t kFitMagic = 0xd00dfeed;
constexpr uint32_t kHeaderSize = 40;
// An empty memory reservation map: one all-zero entry of two 64-bit words.
constexpr uint32_t kReservationMapSize = 16;

void AppendBigEndian32(std::string& out, uint32_t value)
{
    out.push_back(static_cast<char>(value >> 24));
    out.push_back(static_cast<char>(value >> 16));
    out.push_back(static_cast<char>(value >> 8));
    out.push_back(static_cast<char>(value));
}

void PadTo4(std::string& out)
{
    out.append((4 - out.size() % 4) % 4, '\0');
}

// Half random bytes, half runs of zeros: roughly what a kernel and its
// initramfs give the compressor.
std::string Payload(size_t size)
{
    std::string payload(size, '\0');
    uint32_t state = 12345;
    for (size_t i = 0; i < size; ++i) {
        state = state * 1103515245u + 12345u;
        if (i / 64 % 2 == 0)
            payload[i] = static_cast<char>(state >> 24);
    }
    return payload;
}

} // namespace

FitBuilder& FitBuilder::BeginNode(const std::string& name)
{
    AppendBigEndian32(m_structure, kFitBeginNode);
    m_structure.append(name).push_back('\0');
    PadTo4(m_structure);
    return *this;
}

FitBuilder& FitBuilder::EndNode()
{
    return Token(kFitEndNode);
}

FitBuilder& FitBuilder::StringProperty(const std::string& name, const std::string& value)
{
    return Property(name, value + '\0');
}

FitBuilder& FitBuilder::Property(const std::string& name, const std::string& value)
{
    return PropertyAt(NameOffset(name), value);
}

FitBuilder& FitBuilder::PropertyAt(uint32_t name_offset, const std::string& value)
{
    AppendBigEndian32(m_structure, kFitProperty);
    AppendBigEndian32(m_structure, static_cast<uint32_t>(value.size()));
    AppendBigEndian32(m_structure, name_offset);
    m_structure.append(value);
    PadTo4(m_structure);
    return *this;
}

FitBuilder& FitBuilder::Token(uint32_t token)
{
    AppendBigEndian32(m_structure, token);
    return *this;
}

FitBuilder& FitBuilder::StringsBlockSize(uint32_t size)
{
    if (m_strings.size() < size)
        m_strings.resize(size, '\0');
    return *this;
}

uint32_t FitBuilder::NameOffset(const std::string& name)
{
    const size_t found = m_strings.find(name + '\0');
    if (found != std::string::npos)
        return static_cast<uint32_t>(found);
    const auto offset = static_cast<uint32_t>(m_strings.size());
    m_strings.append(name).push_back('\0');
    return offset;
}

std::string FitBuilder::Build() const
{
    std::string structure = m_structure;
    AppendBigEndian32(structure, kFitEnd);

    const uint32_t structure_offset = kHeaderSize + kReservationMapSize;
    const auto strings_offset = static_cast<uint32_t>(structure_offset + structure.size());
    const auto total_size = static_cast<uint32_t>(strings_offset + m_strings.size());

    std::string image;
    for (uint32_t field : {kFitMagic, total_size, structure_offset, strings_offset, kHeaderSize, 17u, 16u, 0u,
                           static_cast<uint32_t>(m_strings.size()), static_cast<uint32_t>(structure.size())})
        AppendBigEndian32(image, field);
    image.append(kReservationMapSize, '\0');
    return image + structure + m_strings;
}

void PutBigEndian32(std::string& image, size_t offset, uint32_t value)
{
    std::string bytes;
    AppendBigEndian32(bytes, value);
    image.replace(offset, 4, bytes);
}

std::string RescueFitImage(const std::string& version, size_t payload_size)
{
    return FitBuilder()
        .BeginNode("")
        .Property("timestamp", std::string("\x65\x00\x00\x00", 4))
        .StringProperty("description", "Rescue kernel and initramfs")
        .Property("#address-cells", std::string("\0\0\0\1", 4))
        .StringProperty("version", version)
        .BeginNode("images")
        .BeginNode("kernel-1")
        .StringProperty("description", "Rescue kernel")
        .Property("data", Payload(payload_size))
        .StringProperty("type", "kernel")
        .StringProperty("arch", "arm")
        .StringProperty("compression", "none")
        .EndNode()
        .EndNode()
        .BeginNode("configurations")
        .StringProperty("default", "conf-1")
        .BeginNode("conf-1")
        .StringProperty("kernel", "kernel-1")
        .EndNode()
        .EndNode()
        .EndNode()
        .Build();
}

std::string Gzip(const std::string& bytes)
{
    std::string compressed;
    {
        boost::iostreams::filtering_ostream out;
        out.push(boost::iostreams::gzip_compressor());
        out.push(boost::iostreams::back_inserter(compressed));
        out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }
    return compressed;
}

} // namespace sim
