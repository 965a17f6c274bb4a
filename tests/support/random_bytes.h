#pragma once

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>

namespace test_support {

// What a worn flash or a wild write leaves: bytes without a pattern, the same
// on every call with the same seed, so that a failure repeats.
inline std::string RandomBytes(size_t size, uint32_t seed = 7)
{
    std::mt19937 engine(seed);
    std::string bytes(size, '\0');
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(engine()); });
    return bytes;
}

} // namespace test_support
