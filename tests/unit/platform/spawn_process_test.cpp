#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <ostream>
#include <string>
#include <thread>

#include "kernel_log.h"
#include "platform/abort_on_timeout.h"
#include "platform/errno_exception.h"
#include "platform/posix_helpers.h"
#include "platform/spawn_process.h"

namespace {

using namespace std::chrono_literals;

void UseShell(SpawnProcess& process, const std::string& script)
{
    process.m_program = "/bin/sh";
    process.m_args = {"-c", script};
}

// Runs a script to its end; returns the exit code and, with CaptureStdout,
// leaves its output in process.m_output.
int RunShell(SpawnProcess& process, const std::string& script, unsigned int flags)
{
    UseShell(process, script);
    process.Execute(flags);
    return process.Wait();
}

TEST(SpawnProcessExitTest, ReturnsTheExitCodeWithoutTouchingTheStreams)
{
    SpawnProcess process;
    testing::internal::CaptureStderr();
    EXPECT_EQ(RunShell(process, "echo to-stderr >&2; exit 3", 0), 3);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "to-stderr\n");
    EXPECT_EQ(process.m_child_pid, 0);
}

TEST(SpawnProcessExitTest, MissingProgramExitsWith127Silently)
{
    SpawnProcess process;
    process.m_program = "/nonexistent/program";
    testing::internal::CaptureStderr();
    process.Execute(0);
    EXPECT_EQ(process.Wait(), 127);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(SpawnProcessExitTest, SignalEndsInAnExceptionCarryingTheSignal)
{
    SpawnProcess process;
    try {
        RunShell(process, "kill -9 $$", 0);
        FAIL() << "no exception";
    } catch (const SpawnProcess::ChildWasKilledBySignal& e) {
        EXPECT_EQ(e.m_signal, SIGKILL);
        EXPECT_STREQ(e.what(), "Child (/bin/sh) exited with signal 9");
    }
    EXPECT_EQ(process.m_child_pid, 0);
}

TEST(SpawnProcessExitTest, ParentDescriptorsDoNotReachTheChild)
{
    // Deliberately without close-on-exec: only the child's own cleanup can
    // keep it from the program.
    tessel::UniqueFd leaked(open("/dev/null", O_RDONLY));
    ASSERT_GE(leaked.get(), 3);
    SpawnProcess process;
    EXPECT_EQ(RunShell(process, "test ! -e /proc/$$/fd/" + std::to_string(leaked.get()), 0), 0);
}

// The text of what Reap threw, or "" when it reaped.
std::string ReapFailure(SpawnProcess& process)
{
    try {
        process.Reap();
        return "";
    } catch (const std::exception& e) {
        return e.what();
    }
}

TEST(SpawnProcessExitTest, ReapDoesNotBlock)
{
    SpawnProcess process;
    UseShell(process, "exec sleep 30");
    const pid_t pid = process.Execute(0);
    EXPECT_EQ(ReapFailure(process), "Child hasn't exited yet");

    kill(pid, SIGKILL);
    for (int attempt = 0; attempt < 500 && !ReapFailure(process).empty(); ++attempt)
        std::this_thread::sleep_for(10ms);
    EXPECT_EQ(process.m_child_pid, 0);

    process.m_child_pid = 1; // not a child of ours
    EXPECT_EQ(ReapFailure(process), "waitpid: No child processes (10)");
}

TEST(SpawnProcessDeathTest, WaitWithoutAChildOfOursIsABrokenInvariant)
{
    EXPECT_DEATH(
        {
            test_support::ForceReportsToStandardError();
            SpawnProcess process;
            process.Wait();
        },
        "ASSERT FAILED: m_child_pid\r\nlib/platform/spawn_process.cpp:[0-9]+:int SpawnProcess::Wait\\(\\)");
    EXPECT_DEATH(
        {
            test_support::ForceReportsToStandardError();
            SpawnProcess process;
            process.m_program = "/bin/sh";
            process.m_child_pid = 1;
            process.Wait();
        },
        "waitpid for /bin/sh\\(1\\) failed: 10 No child processes\n\r\nASSERT FAILED: !\"waitpid error\"");
}

TEST(SpawnProcessStreamTest, CapturesMoreThanAPipeHoldsInOrder)
{
    std::string expected;
    for (int i = 1; i <= 30000; ++i)
        expected += std::to_string(i) + "\n";
    ASSERT_GT(expected.size(), 64u * 1024);

    SpawnProcess process;
    EXPECT_EQ(RunShell(process, "seq 1 30000", SpawnProcess::CaptureStdout), 0);
    EXPECT_EQ(process.m_output, expected);
    EXPECT_FALSE(process.m_stdout_fd.valid());
}

struct StreamCase {
    const char* name;
    unsigned int flags;
    const char* script;
    const char* stdin_text;
    const char* expected_output;
};

void PrintTo(const StreamCase& c, std::ostream* out)
{
    *out << c.name;
}

class SpawnProcessStreamCases : public testing::TestWithParam<StreamCase> {};

TEST_P(SpawnProcessStreamCases, ChildSeesTheConfiguredStreams)
{
    const StreamCase& c = GetParam();
    SpawnProcess process;
    process.m_env = {{"SPAWN_FIRST", "a"}, {"SPAWN_SECOND", "b"}, {"SPAWN_FIRST", "c"}};
    UseShell(process, c.script);
    process.Execute(c.flags | SpawnProcess::CaptureStdout);
    if (process.m_stdin_fd.valid()) {
        write_all_throw(process.m_stdin_fd.get(), c.stdin_text, std::strlen(c.stdin_text));
        process.m_stdin_fd.reset();
    }
    EXPECT_EQ(process.Wait(), 0);
    EXPECT_EQ(process.m_output, c.expected_output);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, SpawnProcessStreamCases,
    testing::Values(
        StreamCase{"StdinPipeReachesANullChild", SpawnProcess::StdioNull | SpawnProcess::StdinPipe, "cat",
                   "fed through the pipe", "fed through the pipe"},
        StreamCase{"StderrJoinsStdout", SpawnProcess::StderrToStdout, "echo out; echo err >&2", "", "out\nerr\n"},
        StreamCase{"NullChildLosesStderr", SpawnProcess::StdioNull, "echo out; echo err >&2", "", "out\n"},
        StreamCase{"EnvironmentSetInOrder", 0, "echo $SPAWN_FIRST$SPAWN_SECOND", "", "cb\n"},
        // $$ heads a session or group of its own exactly when asked to.
        StreamCase{"NewSession", SpawnProcess::NewSession, "set -- $(cat /proc/$$/stat); echo $(($6 == $$))", "",
                   "1\n"},
        StreamCase{"SameSessionByDefault", 0, "set -- $(cat /proc/$$/stat); echo $(($6 == $$))", "", "0\n"}),
    [](const testing::TestParamInfo<StreamCase>& param) { return param.param.name; });

TEST(SpawnProcessStreamTest, StdinPipeDoesNotReplaceInheritedStdin)
{
    if (fcntl(STDIN_FILENO, F_GETFD) < 0)
        GTEST_SKIP() << "the test runs without stdin";
    SpawnProcess process;
    EXPECT_EQ(RunShell(process, "readlink /proc/$$/fd/0", SpawnProcess::StdinPipe | SpawnProcess::CaptureStdout), 0);
    EXPECT_EQ(process.m_output, std::filesystem::read_symlink("/proc/self/fd/0").string() + "\n");
}

TEST(SpawnProcessPrivilegeTest, UnprivilegedChildKeepsOnlyTheBindCapability)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "dropping privileges needs root";
    SpawnProcess process;
    process.m_drop_privileges = true;
    process.m_uid = 65534;
    process.m_gid = 65534;
    process.m_groups = {65534};
    process.m_program = "grep";
    process.m_args = {"-E", "^(Uid|Gid|Groups|Cap(Inh|Prm|Eff|Amb)):", "/proc/self/status"};
    process.Execute(SpawnProcess::CaptureStdout);
    EXPECT_EQ(process.Wait(), 0);
    EXPECT_EQ(process.m_output,
              "Uid:\t65534\t65534\t65534\t65534\n"
              "Gid:\t65534\t65534\t65534\t65534\n"
              "Groups:\t65534 \n"
              "CapInh:\t0000000000000400\n"
              "CapPrm:\t0000000000000400\n"
              "CapEff:\t0000000000000400\n"
              "CapAmb:\t0000000000000400\n");
}

// Runs a script in a child of the test that has its own kernel log; returns
// the script's exit code, or -1 when no private kernel log can be had.
int RunWithOwnKernelLog(const std::string& kernel_log, const std::string& working_dir, unsigned int flags,
                        const std::string& script)
{
    const pid_t pid = fork();
    if (pid == 0) {
        if (!test_support::RedirectKernelLog(kernel_log))
            _exit(255);
        SpawnProcess process;
        process.m_working_dir = working_dir;
        _exit(RunShell(process, script, flags));
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) != 255 ? WEXITSTATUS(status) : -1;
}

class SpawnProcessKernelLogTest : public testing::Test {
protected:
    void SetUp() override
    {
        if (geteuid() != 0)
            GTEST_SKIP() << "needs root for a private kernel log";
        char pattern[] = "/tmp/spawn-test.XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        m_directory = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(m_directory); }

    std::string KernelLog() const { return ReadWholeFile(m_directory + "/kmsg"); }

    std::string m_directory;
};

TEST_F(SpawnProcessKernelLogTest, ChildFailureIsReportedThereAndExitsWith127)
{
    testing::internal::CaptureStderr();
    EXPECT_EQ(RunWithOwnKernelLog(m_directory + "/kmsg", m_directory + "/missing", 0, "echo ran"), 127);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(KernelLog(), "SpawnProcess child '/bin/sh' failed: chdir: No such file or directory (2)\n");
}

TEST_F(SpawnProcessKernelLogTest, KmsgModeSendsBothOutputStreamsThere)
{
    EXPECT_EQ(RunWithOwnKernelLog(m_directory + "/kmsg", m_directory, SpawnProcess::StdioKmsg,
                                  "pwd; echo err >&2"),
              0);
    EXPECT_EQ(KernelLog(), m_directory + "\nerr\n");
}

// A child whose failure report cannot be written anywhere (standard error
// closed, the kernel log read-only) must still end in _exit: the code after
// Execute runs once, in the parent, which sees 127.
class SpawnProcessUnreportableFailureTest : public testing::TestWithParam<bool> {};

TEST_P(SpawnProcessUnreportableFailureTest, ChildNeverReturnsFromExecute)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root for a private kernel log";
    int trail[2];
    ASSERT_EQ(pipe(trail), 0);
    const pid_t parent = fork();
    if (parent == 0) {
        close(trail[0]);
        test_support::ForceReportsToStandardError();
        close(STDERR_FILENO);
        SpawnProcess process;
        process.m_working_dir = "/nonexistent/directory";
        process.m_drop_privileges = GetParam();
        process.m_uid = process.m_gid = 65534;
        UseShell(process, "echo ran");
        process.Execute(0);
        const std::string line = "after Execute in " + std::to_string(getpid()) + "\n";
        write_all_throw(trail[1], line.data(), line.size());
        _exit(process.Wait());
    }
    close(trail[1]);
    std::string written(4096, '\0');
    written.resize(read_all_throw(trail[0], written.data(), written.size()));
    close(trail[0]);
    int status = 0;
    waitpid(parent, &status, 0);
    EXPECT_EQ(written, "after Execute in " + std::to_string(parent) + "\n");
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 127);
}

INSTANTIATE_TEST_SUITE_P(Privileges, SpawnProcessUnreportableFailureTest, testing::Values(false, true),
                         [](const testing::TestParamInfo<bool>& param) { return param.param ? "Dropped" : "Kept"; });

TEST(AbortOnTimeoutDeathTest, AbortsTheProcessWhenNotCancelledInTime)
{
    EXPECT_DEATH(
        {
            AbortOnTimeout watchdog(20ms);
            std::this_thread::sleep_for(30s);
        },
        "Abort due to timeout on waitpid\n");
}

TEST(AbortOnTimeoutThreadsTest, CancellationIsQuietAndPrompt)
{
    testing::internal::CaptureStderr();
    const auto start = std::chrono::steady_clock::now();
    { AbortOnTimeout watchdog(60s); }
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(AbortOnTimeoutThreadsTest, WaitWithTimeoutReturnsNormally)
{
    SpawnProcess process;
    EXPECT_EQ(RunShell(process, "exit 4", SpawnProcess::WaitTimeout), 4);
}

} // namespace
