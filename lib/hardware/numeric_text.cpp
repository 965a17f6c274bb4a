#include "hardware/numeric_text.h"

#include <cstdlib>

uint64_t ParseUnsigned64(const std::string& text)
{
    // strtoull, not strtoul: unsigned long is only 32 bits on the target.
    return std::strtoull(text.c_str(), nullptr, 0);
}

uint32_t ParseUnsigned32(const std::string& text)
{
    const uint64_t value = ParseUnsigned64(text);
    return value > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(value);
}
