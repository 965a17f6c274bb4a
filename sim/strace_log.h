#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

// One system call from the log of "strace -f -y", with the "<unfinished ...>"
// and "<... resumed>" halves joined.
struct Syscall {
    pid_t pid = 0;
    std::string name;                // "openat", "write", "vfork"
    std::vector<std::string> args;   // top-level arguments as strace printed them
    long long result = 0;            // negative when the call failed
};

// The calls in the order their effects happened. A call that creates a
// process counts from its start, since the child may run before the parent's
// call returns; every other call counts from its end. Signal and exit notices
// and calls without a result ("= ?") are left out.
std::vector<Syscall> ParseStraceLog(std::string_view log);

// The text of a quoted strace string argument, with its escapes undone.
std::string Unquote(std::string_view argument);

// The path that -y prints after a descriptor argument ("3</var/x>",
// "AT_FDCWD</>"): the file it was open on, seen from the tracer's root.
std::optional<std::string> DescriptorPath(std::string_view argument);

} // namespace sim
