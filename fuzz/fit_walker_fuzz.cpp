// The rescue partition may hold a damaged, truncated or foreign image; the
// walker must answer or refuse without reading outside what it was given.

#include <cstring>
#include <stdexcept>

#include "app/fit_reader.h"
#include "fuzz_target.h"

void FuzzOne(std::string_view input)
{
    const FitReadFunction read = [&](uint64_t offset, size_t length, void* buffer) {
        if (offset > input.size() || input.size() - offset < length)
            throw std::runtime_error("read past the image");
        std::memcpy(buffer, input.data() + offset, length);
    };
    try {
        FindFitRootProperty(read, "version");
    } catch (const std::runtime_error&) {
    }
}
