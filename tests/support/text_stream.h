#pragma once

#include <cstdio>
#include <memory>
#include <string>

namespace test_support {

using FileStream = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

// A read stream over the given text, for code that scans kernel files.
inline FileStream TextStream(const std::string& text)
{
    FileStream stream(std::tmpfile(), std::fclose);
    if (stream) {
        std::fwrite(text.data(), 1, text.size(), stream.get());
        std::rewind(stream.get());
    }
    return stream;
}

} // namespace test_support
