#include "environment_image.h"

#include <zlib.h>

#include <stdexcept>

namespace sim {

std::string WithCrc(const std::string& bytes)
{
    const uLong crc = crc32(crc32(0, nullptr, 0), reinterpret_cast<const Bytef*>(bytes.data()),
                            static_cast<uInt>(bytes.size()));
    std::string image;
    for (int shift = 0; shift < 32; shift += 8)
        image += static_cast<char>((crc >> shift) & 0xff);
    return image + bytes;
}

std::string UbootEnvironmentImage(const std::vector<std::pair<std::string, std::string>>& variables,
                                  size_t block_size)
{
    std::string entries;
    for (const auto& [name, value] : variables)
        entries += name + "=" + value + '\0';
    entries += '\0';
    if (entries.size() + 4 > block_size)
        throw std::length_error("environment larger than its block");
    entries.resize(block_size - 4, '\xff');
    return WithCrc(entries);
}

} // namespace sim
