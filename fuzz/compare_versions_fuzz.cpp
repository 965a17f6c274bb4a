// Version strings come from the boot loader and the image; any bytes at all.

#include <stdexcept>
#include <string>

#include "fuzz_target.h"
#include "platform/posix_helpers.h"

void FuzzOne(std::string_view input)
{
    const size_t split = input.find('\n');
    const std::string a(input.substr(0, split));
    const std::string b(split == std::string_view::npos ? "" : input.substr(split + 1));
    try {
        const int forward = CompareVersions(a, b);
        fuzz::Require(forward >= -1 && forward <= 1 && forward == -CompareVersions(b, a));
    } catch (const std::range_error&) {
    }
}
