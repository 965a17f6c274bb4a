// The child's side of SpawnProcess: everything between fork and exec. No
// exception may leave here, and the child never returns into the parent's
// code; every way out is exec or _exit.

#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <utility>

#include "platform/async_signals.h"
#include "platform/errno_exception.h"
#include "platform/posix_helpers.h"
#include "platform/print.h"
#include "platform/privileges.h"
#include "platform/spawn_process.h"

namespace {

// All cores of this SoC are alike, so neither variant moves a child; the
// hooks stay for platforms that pin their children to particular cores.
bool AdjustCpuSetVariantA(cpu_set_t&)
{
    return false;
}

bool AdjustCpuSetVariantB(cpu_set_t&)
{
    return false;
}

// The child's last words before _exit. When even the fallback report cannot
// be written (standard error closed, the kernel log out of reach), print
// throws; that exception must die here, or it would carry the child back into
// the parent's code past Execute.
template <typename... Args>
void ReportQuietly(fmt::format_string<Args...> format, Args&&... args) noexcept
{
    try {
        tessel::print(stderr, format, std::forward<Args>(args)...);
    } catch (...) {
    }
}

// A standard stream that cannot be set up ends the child with status 1 and a
// message of its own.
[[noreturn]] void ExitWithError(fmt::format_string<char*> message)
{
    ReportQuietly(message, std::strerror(errno));
    _exit(1);
}

// A descriptor that landed on 0, 1 or 2 (the parent ran with one of them
// closed) is in use as a standard stream now.
void CloseUnlessStandard(int fd)
{
    if (fd > STDERR_FILENO)
        close(fd);
}

void InstallStandardStreams(int stdin_source, const char* output, fmt::format_string<char*> open_failure)
{
    if (dup2(stdin_source, STDIN_FILENO) < 0)
        ExitWithError("Failed to dup stdin: {}\n");
    CloseUnlessStandard(stdin_source);
    const int fd = open(output, O_RDWR);
    if (fd < 0)
        ExitWithError(open_failure);
    if (dup2(fd, STDOUT_FILENO) < 0)
        ExitWithError("Failed to dup to stdout: {}\n");
    if (dup2(fd, STDERR_FILENO) < 0)
        ExitWithError("Failed to dup to stderr: {}\n");
    CloseUnlessStandard(fd);
}

} // namespace

void SpawnProcess::RunChild(char* const argv[], int stdin_source, int stdout_write_end)
{
    try {
        PrepareChild(stdin_source, stdout_write_end);
    } catch (const std::exception& e) {
        ReportChildFailure(e.what());
    } catch (...) {
        ReportChildFailure("unknown exception");
    }
    execvp(m_program.c_str(), argv);
    // Silent, as a shell is: the exit code alone tells the parent.
    _exit(127);
}

void SpawnProcess::PrepareChild(int stdin_source, int stdout_write_end)
{
    for (const auto& [name, value] : m_env)
        setenv(name.c_str(), value.c_str(), 1);

    // With inherited streams the stdin source is not installed (even a stdin
    // pipe); closefrom below disposes of it.
    switch (m_flags & StdioMask) {
    case StdioNull:
        InstallStandardStreams(stdin_source, "/dev/null", "Failed to open /dev/null: {}\n");
        break;
    case StdioKmsg:
        InstallStandardStreams(stdin_source, "/dev/kmsg", "Failed to open /dev/kmsg: {}\n");
        break;
    default:
        break;
    }

    if (m_flags & CaptureStdout) {
        m_stdout_fd.reset();
        if (dup2(stdout_write_end, STDOUT_FILENO) < 0)
            ExitWithError("Failed to dup to stdout: {}\n");
        CloseUnlessStandard(stdout_write_end);
    }

    // Nothing of the parent's but the standard streams reaches the program.
    closefrom(3);
    if (fcntl(STDIN_FILENO, F_SETFD, 0) != 0)
        throw ErrnoException(errno, "fcntl pipe");

    if ((m_flags & StderrToStdout) && dup2(STDOUT_FILENO, STDERR_FILENO) < 0)
        ExitWithError("Failed to dup to stderr: {}\n");
    if (m_flags & (NewSession | ForegroundProcessGroup))
        EnterSessionOrGroup();
    if (m_flags & (CpuSetVariantA | CpuSetVariantB)) {
        prctl(PR_SET_NAME, m_program.c_str());
        ConfigureCpuSet((m_flags & CpuSetVariantA) ? AdjustCpuSetVariantA : AdjustCpuSetVariantB);
    }
    if (m_drop_privileges)
        DropPrivilegesKeepingBindService(m_uid, m_gid, m_groups);
    if (!m_working_dir.empty() && chdir(m_working_dir.c_str()) != 0)
        throw ErrnoException(errno, "chdir");

    // The program keeps these blocked for its own handling; the new program
    // must start with them deliverable.
    tessel::ConfigureSignals(tessel::kUnblockSignals);
}

void SpawnProcess::EnterSessionOrGroup() const
{
    if (m_flags & NewSession)
        setsid();
    else if (setpgid(0, 0) != 0)
        throw ErrnoException(errno, "setpgid");

    if (m_flags & ForegroundProcessGroup) {
        // Not yet the foreground group: asking for the terminal would stop us
        // with SIGTTOU. A child without the terminal still runs.
        signal(SIGTTOU, SIG_IGN);
        tcsetpgrp(STDIN_FILENO, getpid());
        signal(SIGTTOU, SIG_DFL);
    }
}

// The parent learns of the failure only from exit code 127, so the reason
// goes to the kernel log, where it outlives the boot.
void SpawnProcess::ReportChildFailure(const char* reason) const
{
    const int kmsg = open("/dev/kmsg", O_WRONLY);
    if (kmsg >= 0) {
        if (dup2(kmsg, STDERR_FILENO) < 0)
            ExitWithError("Failed to dup to stderr: {}\n");
        CloseUnlessStandard(kmsg);
    }
    ReportQuietly("SpawnProcess child '{}' failed: {}\n", m_program, reason);
    _exit(127);
}
