// Version strings come from the boot loader and the image; any bytes at all.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "platform/posix_helpers.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string input(reinterpret_cast<const char*>(data), size);
    const size_t split = input.find('\n');
    const std::string a = input.substr(0, split);
    const std::string b = split == std::string::npos ? std::string() : input.substr(split + 1);
    try {
        const int forward = CompareVersions(a, b);
        const int backward = CompareVersions(b, a);
        if (forward < -1 || forward > 1 || forward != -backward)
            std::abort();
    } catch (const std::range_error&) {
    }
    return 0;
}
