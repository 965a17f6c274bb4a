#pragma once

#include <cstdint>

// Whether the kernel kept a core image of the previous run. Throws
// ErrnoException when the core device cannot be opened, which ends the run.
bool CoreImageKept();

// The core image's size in bytes, counted by reading the device to its end:
// a character device reports no size. A device that cannot be opened counts
// as empty, a read error ends the count.
uint64_t CoreImageSize();
