#pragma once

#include <sys/types.h>

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "platform/terminal.h"
#include "platform/unique_fd.h"

// Runs one external program as a child: fill the public members, Execute,
// then Wait. The child's failures before exec reach the kernel log and show
// as exit code 127; the object never kills or waits for a child by itself.
class SpawnProcess {
public:
    // Option bits of Execute. The low four bits choose the standard streams.
    enum : unsigned int {
        StdioInherit = 0x0,
        StdioConsole = 0x1,
        StdioNull = 0x2,
        StdioKmsg = 0x3,
        StdioMask = 0xf,
        ForegroundProcessGroup = 0x10,
        NewSession = 0x20,
        SaveTerminal = 0x40,
        StderrToStdout = 0x80,
        WaitTimeout = 0x100,
        StdinPipe = 0x200,
        CaptureStdout = 0x400,
        CpuSetVariantA = 0x800,
        CpuSetVariantB = 0x1000,
    };

    class ChildWasKilledBySignal : public std::runtime_error {
    public:
        ChildWasKilledBySignal(const std::string& program, int signal);
        int m_signal;
    };

    SpawnProcess() = default;
    SpawnProcess(const SpawnProcess&) = delete;
    SpawnProcess& operator=(const SpawnProcess&) = delete;

    // Starts the child; returns its pid. Throws ErrnoException when a pipe,
    // /dev/null or the fork fails.
    pid_t Execute(unsigned int flags);

    // Waits for the child of Execute; returns its exit code. Throws
    // ChildWasKilledBySignal when a signal ended it, std::runtime_error for any
    // other abnormal end.
    int Wait();

    // Reaps a child that has already exited, without blocking. Throws
    // std::runtime_error while it still runs, ErrnoException on error.
    void Reap();

    pid_t m_child_pid = 0;
    // The parent's write end of the child's stdin (StdinPipe); reset it to
    // give the child end of file.
    tessel::UniqueFd m_stdin_fd;
    // The parent's read end of the child's stdout (CaptureStdout).
    tessel::UniqueFd m_stdout_fd;
    SavedTerminal m_terminal;
    unsigned int m_flags = 0;
    uid_t m_uid = 0;
    gid_t m_gid = 0;
    bool m_drop_privileges = false;
    std::vector<gid_t> m_groups;
    std::string m_working_dir;
    // Searched on PATH; also the child's argv[0].
    std::string m_program;
    std::string m_output;
    std::vector<std::string> m_args;
    std::vector<std::pair<std::string, std::string>> m_env;

private:
    tessel::UniqueFd OpenStdinSource();
    [[noreturn]] void RunChild(char* const argv[], int stdin_source, int stdout_write_end);
    void PrepareChild(int stdin_source, int stdout_write_end);
    void EnterSessionOrGroup() const;
    [[noreturn]] void ReportChildFailure(const char* reason) const;
    void ReadOutput();
    void TakeTerminalBack() const;
    int DecodeStatus(int status) const;
};
