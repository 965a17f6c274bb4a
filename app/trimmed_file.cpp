#include "app/trimmed_file.h"

#include "platform/posix_helpers.h"

std::string ReadTrimmedFile(const std::string& path)
{
    constexpr const char* kBlanks = " \t\n\v\r";
    const std::string content = ReadWholeFile(path);
    const size_t first = content.find_first_not_of(kBlanks);
    if (first == std::string::npos)
        return {};
    return content.substr(first, content.find_last_not_of(kBlanks) - first + 1);
}
