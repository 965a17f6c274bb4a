// The dump trigger's text is read the way the target's 32-bit C library reads
// it with strtoul in base 0, by our own code so that the result does not
// depend on the library's version. This holds it to the host's 64-bit
// strtoull, narrowed as a 32-bit unsigned long is. The host's library predates
// the "0b" prefix, so binary digits after it are read in base 2 explicitly.
// The seeds (corpus/dump_trigger) are the edge cases: spaces, prefixes, signs, saturation.

#include <cerrno>
#include <string>

#include "app/dump_trigger.h"
#include "fuzz_target.h"

namespace {

// What strtoul(text, nullptr, 0) returns where unsigned long has 32 bits.
uint32_t Reference(const std::string& text)
{
    const char* at = text.c_str();
    while (*at == ' ' || (*at >= '\t' && *at <= '\r'))
        ++at;
    const bool negative = *at == '-';
    const char* digits = at + ((*at == '-' || *at == '+') ? 1 : 0);
    errno = 0;
    uint64_t magnitude = 0;
    if (digits[0] == '0' && (digits[1] == 'b' || digits[1] == 'B') && (digits[2] == '0' || digits[2] == '1')) {
        magnitude = std::strtoull(digits + 2, nullptr, 2);
    } else {
        // strtoull negates modulo 2^64; undo that to get the magnitude back.
        const uint64_t value = std::strtoull(text.c_str(), nullptr, 0);
        magnitude = negative ? 0 - value : value;
    }
    if (errno == ERANGE || magnitude > UINT32_MAX)
        return UINT32_MAX;
    return static_cast<uint32_t>(negative ? 0 - magnitude : magnitude);
}

} // namespace

void FuzzOne(std::string_view input)
{
    // The C library stops at the first NUL; so must the comparison.
    fuzz::Require(ParseUnsignedBase0(input) == Reference(std::string(input.substr(0, input.find('\0')))));
}
