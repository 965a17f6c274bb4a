#include "app/dump_trigger.h"

#include <limits>

#include "app/fall_back.h"
#include "app/paths.h"
#include "platform/posix_helpers.h"

namespace {

// White space of the "C" locale.
bool IsSpace(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// The digit's value in bases up to 36, or 36 for anything that is no digit.
unsigned DigitValue(char c)
{
    if (c >= '0' && c <= '9')
        return static_cast<unsigned>(c - '0');
    if (c >= 'a' && c <= 'z')
        return static_cast<unsigned>(c - 'a') + 10;
    if (c >= 'A' && c <= 'Z')
        return static_cast<unsigned>(c - 'A') + 10;
    return 36;
}

bool HasPrefix(std::string_view text, size_t at, char lower)
{
    return at + 1 < text.size() && text[at] == '0' && (text[at + 1] | 0x20) == lower;
}

} // namespace

uint32_t ParseUnsignedBase0(std::string_view text)
{
    constexpr uint64_t kMax = std::numeric_limits<uint32_t>::max();

    size_t at = 0;
    while (at < text.size() && IsSpace(text[at]))
        ++at;

    bool negative = false;
    if (at < text.size() && (text[at] == '+' || text[at] == '-')) {
        negative = text[at] == '-';
        ++at;
    }

    // A prefix without a digit after it leaves just the "0", which is worth 0
    // either way; so taking the prefix unconditionally gives the same value.
    unsigned base = 10;
    if (HasPrefix(text, at, 'x')) {
        base = 16;
        at += 2;
    } else if (HasPrefix(text, at, 'b')) {
        base = 2;
        at += 2;
    } else if (at < text.size() && text[at] == '0') {
        base = 8;
    }

    uint64_t value = 0;
    for (; at < text.size() && DigitValue(text[at]) < base; ++at) {
        value = value * base + DigitValue(text[at]);
        // Saturated values stay saturated: further digits cannot undo an overflow.
        if (value > kMax)
            return static_cast<uint32_t>(kMax);
    }
    return static_cast<uint32_t>(negative ? (kMax + 1 - value) & kMax : value);
}

uint32_t ReadDumpTrigger()
{
    // The second message deliberately has no line end: kept exactly as
    // earlier releases printed it.
    return CallOrFallBack(uint32_t{0}, "Failed to determine trigger_dump state: {}\n",
                          "Failed to determine trigger_dump state: Unknown exception",
                          [] { return ParseUnsignedBase0(ReadWholeFile(paths::kDumpTrigger)); });
}
