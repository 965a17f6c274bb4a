#include "platform/debug_helpers.h"

#include <exception>
#include <mutex>
#include <string>

#include "platform/posix_helpers.h"

namespace DebugHelpers {

namespace {

constexpr const char* kKernelCommandLine = "/proc/cmdline";
constexpr std::string_view kDebugKey = "lm.debug";

bool WordEnablesDebugger(std::string_view word)
{
    std::string_view key = word.substr(0, word.find('='));
    if (key != kDebugKey)
        return false;
    if (key.size() == word.size())
        return true;
    std::string_view value = word.substr(key.size() + 1);
    return value.size() != 1 || value != "0";
}

} // namespace

bool CommandLineEnablesDebugger(std::string_view command_line)
{
    constexpr std::string_view kSeparators = " \t";
    size_t start = 0;
    while ((start = command_line.find_first_not_of(kSeparators, start)) != std::string_view::npos) {
        size_t end = command_line.find_first_of(kSeparators, start);
        std::string_view word = command_line.substr(start, end - start);
        if (WordEnablesDebugger(word))
            return true;
        if (end == std::string_view::npos)
            break;
        start = end;
    }
    return false;
}

bool IsDebuggerEnabled()
{
    static std::once_flag once;
    static bool enabled = false;
    std::call_once(once, [] {
        try {
            // The kernel ends the file with a line feed that is not part of
            // the last word.
            std::string command_line = ReadWholeFile(kKernelCommandLine);
            if (!command_line.empty() && command_line.back() == '\n')
                command_line.pop_back();
            enabled = CommandLineEnablesDebugger(command_line);
        } catch (const std::exception&) {
            enabled = false;
        }
    });
    return enabled;
}

} // namespace DebugHelpers
