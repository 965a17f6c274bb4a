#include "strace_log.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <map>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace sim {

namespace {

constexpr std::string_view kUnfinished = " <unfinished ...>";
constexpr std::string_view kResumedStart = "<... ";
constexpr std::string_view kResumedEnd = " resumed>";

bool CreatesProcess(const std::string& name)
{
    return name == "clone" || name == "clone3" || name == "fork" || name == "vfork";
}

std::string Trim(std::string_view text)
{
    const size_t first = text.find_first_not_of(' ');
    if (first == std::string_view::npos)
        return "";
    return std::string(text.substr(first, text.find_last_not_of(' ') - first + 1));
}

// strace -y's path after a descriptor, "3</dir/f(1)>" or "AT_FDCWD</dir>", with
// any '>' in it escaped; not a shift such as "1<<CAP_CHOWN".
bool IsAnnotation(std::string_view text, size_t i)
{
    return text[i] == '<' && i > 0 && (std::isdigit(static_cast<unsigned char>(text[i - 1])) || text[i - 1] == 'D')
        && i + 1 < text.size() && text[i + 1] != '<';
}

// Splits "a, {b, c}, \"d)\") = 3" into its top-level arguments; returns the
// position of the closing parenthesis.
size_t SplitArguments(std::string_view text, std::vector<std::string>& args)
{
    int depth = 0;
    bool quoted = false;
    size_t start = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (quoted) {
            if (c == '\\')
                ++i;
            else if (c == '"')
                quoted = false;
        } else if (c == '"') {
            quoted = true;
        } else if (IsAnnotation(text, i)) {
            i = text.find('>', i);
            if (i == std::string_view::npos)
                break;
        } else if (c == '(' || c == '[' || c == '{') {
            ++depth;
        } else if ((c == ']' || c == '}') || (c == ')' && depth > 0)) {
            --depth;
        } else if (c == ')' || (c == ',' && depth == 0)) {
            const std::string arg = Trim(text.substr(start, i - start));
            if (!arg.empty() || c == ',')
                args.push_back(arg);
            start = i + 1;
            if (c == ')')
                return i;
        }
    }
    throw std::runtime_error("strace log: no end of the arguments in '" + std::string(text) + "'");
}

// "ARGS) = RESULT [ERRNO (text)]" into the call; false for calls without a
// result, such as exit_group or an execve that never returned.
bool ParseCall(std::string_view text, Syscall& call)
{
    const size_t close = SplitArguments(text, call.args);
    const size_t equals = text.find('=', close);
    if (equals == std::string_view::npos)
        return false;
    const std::string result = Trim(text.substr(equals + 1));
    if (result.empty() || result[0] == '?')
        return false;
    call.result = std::strtoll(result.c_str(), nullptr, 0);
    return true;
}

struct Pending {
    std::string name;
    std::string head;
    size_t started = 0;
};

class LogParser {
public:
    void Line(const std::string& line, size_t index)
    {
        char* end = nullptr;
        const auto pid = static_cast<pid_t>(std::strtol(line.c_str(), &end, 10));
        const std::string rest = Trim(line.substr(static_cast<size_t>(end - line.c_str())));
        if (pid <= 0 || rest.empty())
            return;
        if (rest.rfind(kResumedStart, 0) == 0)
            Resume(pid, rest, index);
        else if (rest.size() >= kUnfinished.size()
                 && rest.compare(rest.size() - kUnfinished.size(), kUnfinished.size(), kUnfinished) == 0)
            Suspend(pid, rest.substr(0, rest.size() - kUnfinished.size()), index);
        else if (rest[0] != '-' && rest[0] != '+')
            Complete(pid, rest, index);
    }

    std::vector<Syscall> Ordered()
    {
        std::stable_sort(m_calls.begin(), m_calls.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
        std::vector<Syscall> calls;
        for (auto& entry : m_calls)
            calls.push_back(std::move(entry.second));
        return calls;
    }

private:
    void Suspend(pid_t pid, const std::string& text, size_t index)
    {
        const size_t open = text.find('(');
        m_pending[pid] = {text.substr(0, open), text.substr(open + 1), index};
    }

    void Resume(pid_t pid, const std::string& text, size_t index)
    {
        auto pending = m_pending.find(pid);
        const size_t end = text.find(kResumedEnd);
        if (pending == m_pending.end() || end == std::string::npos)
            throw std::runtime_error("strace log: a resumed call that never started: " + text);
        Add(pid, pending->second.name, pending->second.head + text.substr(end + kResumedEnd.size()),
            pending->second.started, index);
        m_pending.erase(pending);
    }

    void Complete(pid_t pid, const std::string& text, size_t index)
    {
        const size_t open = text.find('(');
        if (open == std::string::npos)
            return;
        Add(pid, text.substr(0, open), text.substr(open + 1), index, index);
    }

    void Add(pid_t pid, std::string name, const std::string& arguments, size_t started, size_t ended)
    {
        Syscall call;
        call.pid = pid;
        call.name = std::move(name);
        if (ParseCall(arguments, call))
            m_calls.emplace_back(CreatesProcess(call.name) ? started : ended, std::move(call));
    }

    std::map<pid_t, Pending> m_pending;
    std::vector<std::pair<size_t, Syscall>> m_calls;
};

// The text from just after `open` up to the unescaped `close`, with strace's
// escapes undone.
std::string Unescape(std::string_view argument, size_t open, char close)
{
    std::string text;
    for (size_t i = open + 1; i < argument.size() && argument[i] != close; ++i) {
        if (argument[i] != '\\' || i + 1 >= argument.size()) {
            text += argument[i];
            continue;
        }
        const char escape = argument[++i];
        int value = 0;
        if (escape == 'x') {
            value = std::stoi(std::string(argument.substr(i + 1, 2)), nullptr, 16);
            i += 2;
        } else if (escape >= '0' && escape <= '7') {
            size_t digits = 0;
            while (digits < 3 && i + digits < argument.size() && argument[i + digits] >= '0'
                   && argument[i + digits] <= '7')
                value = value * 8 + (argument[i + digits++] - '0');
            i += digits - 1;
        } else {
            static const std::string_view kFrom = "ntrvf", kTo = "\n\t\r\v\f";
            const size_t known = kFrom.find(escape);
            value = known == std::string_view::npos ? escape : kTo[known];
        }
        text += static_cast<char>(value);
    }
    return text;
}

} // namespace

std::vector<Syscall> ParseStraceLog(std::string_view log)
{
    LogParser parser;
    std::istringstream lines{std::string(log)};
    size_t index = 0;
    for (std::string line; std::getline(lines, line); ++index)
        parser.Line(line, index);
    return parser.Ordered();
}

std::string Unquote(std::string_view argument)
{
    const size_t open = argument.find('"');
    if (open == std::string_view::npos)
        throw std::runtime_error("strace log: not a string: " + std::string(argument));
    return Unescape(argument, open, '"');
}

std::optional<std::string> DescriptorPath(std::string_view argument)
{
    const size_t open = argument.find('<');
    if (argument.empty() || argument[0] == '"' || open == std::string_view::npos || !IsAnnotation(argument, open))
        return std::nullopt;
    return Unescape(argument, open, '>');
}

} // namespace sim
