#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace sim {

// Prefixes bytes with their CRC-32 (the zlib and Ethernet one), little-endian,
// as the boot loader stores its environment.
std::string WithCrc(const std::string& bytes);

// An environment block as the boot loader writes it: "name=value" entries,
// each NUL-terminated, the empty end entry, 0xff up to the block size, and the
// CRC of all of that in front.
std::string UbootEnvironmentImage(const std::vector<std::pair<std::string, std::string>>& variables,
                                  size_t block_size);

} // namespace sim
