// libFuzzer's entry point, shared by the targets: each defines FuzzOne, which
// checks one input and aborts where a promise does not hold.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>

void FuzzOne(std::string_view input);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzOne({reinterpret_cast<const char*>(data), size});
    return 0;
}

namespace fuzz {

inline void Require(bool promise)
{
    if (!promise)
        std::abort();
}

// The input as an open file, for the scans of the kernel's text files.
inline std::unique_ptr<std::FILE, int (*)(std::FILE*)> OpenText(std::string_view input)
{
    return {fmemopen(const_cast<char*>(input.data()), input.size(), "r"), std::fclose};
}

} // namespace fuzz
