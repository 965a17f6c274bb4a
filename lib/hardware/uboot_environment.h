#pragma once

#include <cstddef>
#include <cstdint>

#include "hardware/bootloader_environment.h"

// One erase block in the boot loader's environment format: a little-endian
// CRC-32 of the rest of the block, then NUL-terminated name=value entries
// ended by an empty one. The first of two entries with the same name wins.
// Throws std::runtime_error naming what is wrong with the image.
BootloaderEnvironment ParseUbootEnvironment(const uint8_t* data, size_t size);
