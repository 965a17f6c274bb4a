#include "app/info_file.h"

#include <unistd.h>

#include "platform/errno_exception.h"
#include "platform/posix_helpers.h"

void WriteInfoFile(const CrashInfo& info, const std::string& path)
{
    std::string text;
    for (const auto& [key, value] : info)
        text += key + '=' + value + '\n';
    try {
        WriteFile(path, text.data(), text.size(), 0666);
    } catch (const ErrnoException& e) {
        // A truncated record reads as a whole one with fewer facts.
        ::unlink(path.c_str());
        throw ErrnoException(e.error(), path);
    }
}
