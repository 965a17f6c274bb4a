#include "kernel_log.h"

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <fstream>

namespace test_support {

bool RedirectKernelLog(const std::string& file, bool read_only)
{
    std::ofstream(file, std::ios::app).close();
    if (unshare(CLONE_NEWNS) != 0)
        return false;
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return false;
    if (mount(file.c_str(), "/dev/kmsg", nullptr, MS_BIND, nullptr) != 0)
        return false;
    if (read_only && mount(nullptr, "/dev/kmsg", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) != 0)
        return false;
    return true;
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
