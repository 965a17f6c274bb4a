// The rescue partition may hold a damaged, truncated or foreign image; the
// walker must answer or refuse without reading outside what it was given.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

#include "app/fit_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const FitReadFunction read = [&](uint64_t offset, size_t length, void* buffer) {
        if (offset > size || size - offset < length)
            throw std::runtime_error("read past the image");
        std::memcpy(buffer, data + offset, length);
    };
    try {
        FindFitRootProperty(read, "version");
    } catch (const std::runtime_error&) {
    }
    return 0;
}
