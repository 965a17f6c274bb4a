#include "kernel_log.h"

#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

namespace test_support {

bool RedirectKernelLog(const std::string& file, bool read_only)
{
    std::ofstream(file, std::ios::app).close();
    return unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0
        && mount(file.c_str(), "/dev/kmsg", nullptr, MS_BIND, nullptr) == 0
        && (!read_only || mount(nullptr, "/dev/kmsg", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) == 0);
}

ChildEnd RunWithOwnKernelLog(const std::string& file, bool read_only, const std::function<void()>& body)
{
    const pid_t pid = fork();
    if (pid == 0) {
        if (!RedirectKernelLog(file, read_only))
            _exit(255);
        // Nothing may leave the child but its exit status: an exception would
        // run the rest of the test program a second time.
        try {
            body();
        } catch (...) {
            _exit(254);
        }
        _exit(0);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return {pid, status};
}

void ForceReportsToStandardError()
{
    char path[] = "/tmp/kmsg.XXXXXX";
    int fd = mkstemp(path);
    if (fd >= 0)
        close(fd);
    RedirectKernelLog(path, true);
    unlink(path);
}

} // namespace test_support
