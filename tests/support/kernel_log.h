#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

namespace test_support {

// Gives the calling process (and its children) its own view of /dev/kmsg:
// a private mount namespace with a file bound over the kernel log. Returns
// false when the process may not do that (not root), so the caller can skip.
// With read_only set, opening the kernel log for writing fails, which takes
// the reporters' standard-error paths.
bool RedirectKernelLog(const std::string& file, bool read_only = false);

struct ChildEnd {
    pid_t pid;
    int status; // as waitpid gives it
};

// Runs body in a child process whose kernel log is file (see
// RedirectKernelLog) and waits for it. The child ends with 255 when it cannot
// have a kernel log of its own, with 254 when body throws, else with 0 unless
// body ends it first.
ChildEnd RunWithOwnKernelLog(const std::string& file, bool read_only, const std::function<void()>& body);

// For death tests: makes the kernel log unwritable, so assertion reports take
// their standard-error path, where the death test's matcher looks. Without
// root the kernel log is not writable anyway.
void ForceReportsToStandardError();

} // namespace test_support
