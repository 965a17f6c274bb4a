#include "app/info_file.h"

#include <fstream>

void WriteInfoFile(const CrashInfo& info, const std::string& path)
{
    // A stream that failed to open ignores every write; flushing after each
    // line keeps as much as possible if the storage fills up part way.
    std::ofstream file(path, std::ios::out | std::ios::trunc | std::ios::binary);
    for (const auto& [key, value] : info)
        file << key << '=' << value << '\n' << std::flush;
}
