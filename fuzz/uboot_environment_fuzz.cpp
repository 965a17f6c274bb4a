// The environment block is whatever the flash holds: erased, torn by a power
// cut during a write, or written by another boot loader version.

#include <stdexcept>

#include "fuzz_target.h"
#include "hardware/uboot_environment.h"

void FuzzOne(std::string_view input)
{
    try {
        const BootloaderEnvironment environment =
            ParseUbootEnvironment(reinterpret_cast<const uint8_t*>(input.data()), input.size());
        // Every entry lies inside the block: names and values together can
        // never be longer than it.
        size_t total = 0;
        for (const auto& [name, value] : environment.variables)
            total += name.size() + value.size();
        fuzz::Require(total <= input.size());
    } catch (const std::runtime_error&) {
    }
}
