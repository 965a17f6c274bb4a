#include "hardware/uboot_environment.h"

#include <algorithm>
#include <stdexcept>

#include <zlib.h>

namespace {

constexpr size_t kCrcSize = 4;

[[noreturn]] void Malformed()
{
    throw std::runtime_error("U-Boot environment malformed");
}

uint32_t StoredCrc(const uint8_t* data)
{
    return uint32_t{data[0]} | uint32_t{data[1]} << 8 | uint32_t{data[2]} << 16 | uint32_t{data[3]} << 24;
}

} // namespace

BootloaderEnvironment ParseUbootEnvironment(const uint8_t* data, size_t size)
{
    // The stored checksum alone needs four bytes.
    if (size < kCrcSize)
        throw std::runtime_error("U-Boot environment too small");

    // Every boot checks the whole erase block: zlib's CRC-32 (the standard
    // one) runs through it a word at a time.
    if (crc32_z(0, data + kCrcSize, size - kCrcSize) != StoredCrc(data))
        throw std::runtime_error("U-Boot environment CRC mismatch");

    const uint8_t* const end = data + size;
    const uint8_t* entry = data + kCrcSize;
    // Without even the end mark there is no entry list to read.
    if (entry == end)
        Malformed();

    BootloaderEnvironment environment;
    while (*entry != '\0') {
        // Every entry must end in a NUL inside the block; an unterminated one
        // runs off the end.
        const uint8_t* separator = std::find_if(entry, end, [](uint8_t c) { return c == '=' || c == '\0'; });
        if (separator == end)
            Malformed();
        const uint8_t* terminator = std::find(separator, end, '\0');
        if (terminator == end)
            Malformed();

        std::string name(entry, separator);
        std::string value = separator == terminator ? std::string() : std::string(separator + 1, terminator);
        environment.variables.emplace(std::move(name), std::move(value));

        entry = terminator + 1;
        // The block ended where the empty end entry should have been.
        if (entry == end)
            Malformed();
    }
    return environment;
}
