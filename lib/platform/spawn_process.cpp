#include "platform/spawn_process.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <optional>

#include <fmt/format.h>

#include "platform/abort_on_timeout.h"
#include "platform/assert_report.h"
#include "platform/errno_exception.h"
#include "platform/print.h"

namespace {

// A child that never ends must not hold up the boot for good.
constexpr std::chrono::seconds kWaitTimeout(300);

struct Pipe {
    tessel::UniqueFd read_end;
    tessel::UniqueFd write_end;
};

// Close-on-exec on both ends: the child installs the end it needs as a
// standard stream, and no other program started meanwhile inherits either.
Pipe MakePipe()
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw ErrnoException(errno, "pipe");
    return {tessel::UniqueFd(ends[0]), tessel::UniqueFd(ends[1])};
}

} // namespace

SpawnProcess::ChildWasKilledBySignal::ChildWasKilledBySignal(const std::string& program, int signal)
    : std::runtime_error(fmt::format("Child ({}) exited with signal {}", program, signal)), m_signal(signal)
{
}

pid_t SpawnProcess::Execute(unsigned int flags)
{
    m_flags = flags;

    // Built before the fork, so that the child only has to hand it to exec.
    std::vector<char*> argv(m_args.size() + 2, nullptr);
    size_t arg = 0;
    argv[arg++] = m_program.data();
    for (std::string& argument : m_args)
        argv[arg++] = argument.data();
    TESSEL_ASSERT(arg == m_args.size() + 1);

    if (flags & SaveTerminal)
        m_terminal.Save(STDIN_FILENO);
    if ((flags & StdioMask) == StdioConsole)
        ConfigureSerialConsole(STDIN_FILENO);
    // The parent leads a group of its own, so that it can take the terminal
    // back from the child's group after the wait.
    if (flags & ForegroundProcessGroup)
        setpgid(0, 0);

    tessel::UniqueFd stdin_source = OpenStdinSource();
    tessel::UniqueFd stdout_write_end;
    if (flags & CaptureStdout) {
        Pipe output = MakePipe();
        m_stdout_fd = std::move(output.read_end);
        stdout_write_end = std::move(output.write_end);
    }

    const pid_t pid = fork();
    if (pid < 0) {
        const int error = errno;
        if (flags & SaveTerminal)
            m_terminal.Restore(STDIN_FILENO);
        throw ErrnoException(error, "fork");
    }
    if (pid == 0)
        RunChild(argv.data(), stdin_source.get(), stdout_write_end.get());

    // The child's ends close here, so that the parent sees end of file on the
    // output once the child is gone.
    m_child_pid = pid;
    return pid;
}

tessel::UniqueFd SpawnProcess::OpenStdinSource()
{
    if (m_flags & StdinPipe) {
        Pipe input = MakePipe();
        m_stdin_fd = std::move(input.write_end);
        return std::move(input.read_end);
    }
    const unsigned int stdio = m_flags & StdioMask;
    if (stdio == StdioNull || stdio == StdioKmsg) {
        tessel::UniqueFd null(open("/dev/null", O_RDWR | O_CLOEXEC));
        if (!null.valid())
            throw ErrnoException(errno, "/dev/null");
        return null;
    }
    // Inherited streams keep the parent's stdin.
    return {};
}

int SpawnProcess::Wait()
{
    TESSEL_ASSERT(m_child_pid);

    std::optional<AbortOnTimeout> watchdog;
    if (m_flags & WaitTimeout)
        watchdog.emplace(kWaitTimeout);

    // Drained before the wait: a child whose output fills the pipe would
    // otherwise block for ever on its next write.
    if ((m_flags & CaptureStdout) && m_stdout_fd.valid())
        ReadOutput();

    int status = 0;
    while (waitpid(m_child_pid, &status, 0) < 0) {
        const int error = errno;
        if (error == EINTR)
            continue;
        tessel::print(stderr, "waitpid for {}({}) failed: {} {}\n", m_program, m_child_pid, error,
                      std::strerror(error));
        TESSEL_ASSERT(!"waitpid error");
    }
    m_child_pid = 0;
    m_stdout_fd.reset();

    if (m_flags & ForegroundProcessGroup)
        TakeTerminalBack();
    if (m_flags & SaveTerminal)
        m_terminal.Restore(STDIN_FILENO);
    return DecodeStatus(status);
}

void SpawnProcess::Reap()
{
    // With no child, waitpid would reap any child of the process group.
    TESSEL_ASSERT(m_child_pid);
    int status = 0;
    const pid_t reaped = waitpid(m_child_pid, &status, WNOHANG);
    if (reaped < 0)
        throw ErrnoException(errno, "waitpid");
    if (reaped == 0)
        throw std::runtime_error("Child hasn't exited yet");
    m_child_pid = 0;
    m_stdout_fd.reset();
}

void SpawnProcess::ReadOutput()
{
    char chunk[1024];
    ssize_t n;
    while ((n = read(m_stdout_fd.get(), chunk, sizeof chunk)) > 0)
        m_output.append(chunk, static_cast<size_t>(n));
}

// The parent is not in the terminal's foreground group while the child is,
// and a background group that sets the foreground group gets SIGTTOU.
void SpawnProcess::TakeTerminalBack() const
{
    struct sigaction ignore {};
    struct sigaction previous {};
    sigemptyset(&ignore.sa_mask);
    ignore.sa_handler = SIG_IGN;
    if (sigaction(SIGTTOU, &ignore, &previous) != 0) {
        tessel::print(stderr, "sigaction(SIGTTOU) ignore failed: {}\n", std::strerror(errno));
        TESSEL_ASSERT(!"sigaction(SIGTTOU) failed");
    }
    tcsetpgrp(STDIN_FILENO, getpid());
    if (sigaction(SIGTTOU, &previous, nullptr) != 0) {
        tessel::print(stderr, "sigaction(SIGTTOU) restore failed: {}\n", std::strerror(errno));
        TESSEL_ASSERT(!"sigaction(SIGTTOU) failed");
    }
}

int SpawnProcess::DecodeStatus(int status) const
{
    if (WIFEXITED(status))
        return WEXITSTATUS(status);
    if (WIFSIGNALED(status))
        throw ChildWasKilledBySignal(m_program, WTERMSIG(status));
    throw std::runtime_error(fmt::format("Child ({}) exited abnormally", m_program));
}
