// The environment block is whatever the flash holds: erased, torn by a power
// cut during a write, or written by another boot loader version.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>

#include "hardware/uboot_environment.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    try {
        const BootloaderEnvironment environment = ParseUbootEnvironment(data, size);
        // Every entry lies inside the block: names and values together can
        // never be longer than it.
        size_t total = 0;
        for (const auto& [name, value] : environment.variables)
            total += name.size() + value.size();
        if (total > size)
            std::abort();
    } catch (const std::runtime_error&) {
    }
    return 0;
}
