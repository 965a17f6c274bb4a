#include <gmock/gmock.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>
#include <tuple>
#include <vector>

#include <fmt/format.h>

#include "kernel_log.h"
#include "platform/abort_on_timeout.h"
#include "platform/async_signals.h"
#include "platform/posix_helpers.h"
#include "platform/spawn_process.h"
#include "temp_directory.h"

namespace {

using namespace std::chrono_literals;

// Each child starts with the program's signals blocked, a parent's descriptor open across exec, "fed" on its stdin
// pipe if any. A null script stands for a missing program; the end by a signal shows in the output.
TEST(SpawnProcessTest, TheChildSeesWhatItsOptionsPromise)
{
    constexpr unsigned int kNull = SpawnProcess::StdioNull, kJoined = SpawnProcess::StderrToStdout;
    const char* const session = "set -- $(cat /proc/$$/stat); echo $(($6 == $$))"; // heads a session?
    const std::tuple<const char*, unsigned int, const char*, int, std::string, bool> cases[] = {
        {"exit code, under the watchdog", SpawnProcess::WaitTimeout, "echo out; exit 3", 3, "out\n", false},
        {"killed", 0, "kill -9 $$", -1, "Child (/bin/sh) exited with signal 9: 9", false},
        {"missing program, silently", kJoined, nullptr, 127, "", false},
        {"more output than a pipe holds", 0, "head -c 100000 /dev/zero", 0, std::string(100000, '\0'), false},
        {"stdin pipe to a null child", kNull | SpawnProcess::StdinPipe, "cat", 0, "fed", false},
        {"inherited stdin kept", SpawnProcess::StdinPipe, "readlink /proc/$$/fd/0 $IN | uniq | wc -l", 0, "1\n", false},
        {"stderr joins stdout", kJoined, "echo out; echo err >&2", 0, "out\nerr\n", false},
        {"null child loses stderr", kNull, "echo out; echo err >&2", 0, "out\n", false},
        {"environment set in order", 0, "echo $FIRST$SECOND", 0, "cb\n", false},
        {"parent descriptors stay behind", 0, "test -e /proc/$$/fd/$LEAKED", 1, "", false},
        {"new session", SpawnProcess::NewSession, session, 0, "1\n", false},
        {"same session by default", 0, session, 0, "0\n", false},
        {"leads its own group", SpawnProcess::ForegroundProcessGroup, "set -- $(cat /proc/$$/stat); echo $(($5 == $$))",
         0, "1\n", false},
        // The program's own mask: the shell blocks everything for a moment around each fork.
        {"signals unblocked", 0, "exec grep ^SigBlk: /proc/self/status", 0, "SigBlk:\t0000000000000000\n", false},
        // Only the capability to bind below port 1024 (bit 10) stays, in all four sets.
        {"unprivileged", 0,
         "grep -cE '^((U|G)id:(\\s65534){4}|Groups:\\s65534 |Cap(Inh|Prm|Eff|Amb):\\s0{13}400)$' /proc/self/status", 0,
         "7\n", true},
    };
    const tessel::UniqueFd leaked(open("/dev/null", O_RDONLY));
    tessel::ConfigureSignals(tessel::kBlockSignals);
    for (const auto& [what, flags, script, exit_code, output, unprivileged] : cases) {
        SCOPED_TRACE(what);
        if (unprivileged && geteuid() != 0)
            continue; // dropping privileges needs root
        SpawnProcess process;
        process.m_env = {{"FIRST", "a"}, {"SECOND", "b"}, {"FIRST", "c"}, {"LEAKED", std::to_string(leaked.get())},
                         {"IN", fmt::format("/proc/{}/fd/0", getpid())}};
        process.m_drop_privileges = unprivileged;
        process.m_uid = process.m_gid = 65534;
        process.m_groups = {65534};
        process.m_program = script ? "/bin/sh" : "/nonexistent/program";
        process.m_args = {"-c", script ? script : ""};
        process.Execute(flags | SpawnProcess::CaptureStdout);
        // A child that keeps our stdin never reads the pipe, and may have closed it before a write.
        if (process.m_stdin_fd.valid() && (flags & kNull))
            write_all_throw(std::exchange(process.m_stdin_fd, {}).get(), "fed", 3);
        try {
            EXPECT_EQ(process.Wait(), exit_code);
        } catch (const SpawnProcess::ChildWasKilledBySignal& e) {
            process.m_output += e.what() + fmt::format(": {}", e.m_signal);
        }
        EXPECT_TRUE(process.m_output == output) << process.m_output;
        EXPECT_EQ(process.m_child_pid, 0);
    }
    // The parent keeps HUP, INT, TERM, CHLD and the first two real-time signals after SIGRTMIN blocked. Asked of the
    // C library rather than /proc, which shows qemu-user's own mask when the armhf build runs under it.
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    std::vector<int> blocked_signals;
    for (int signal = 1; signal <= SIGRTMAX; ++signal)
        if (sigismember(&blocked, signal) == 1)
            blocked_signals.push_back(signal);
    EXPECT_THAT(blocked_signals, testing::ElementsAre(SIGHUP, SIGINT, SIGTERM, SIGCHLD, SIGRTMIN + 1, SIGRTMIN + 2));
    tessel::ConfigureSignals(tessel::kUnblockSignals);
}

// The child's parent runs with a private kernel log and no stderr. A child failing before exec never comes back out
// of Execute, even when its report cannot be written anywhere; if it did, the parent would not end with its 127.
TEST(SpawnProcessTest, ChildFailuresAndKmsgOutputGoToTheKernelLog)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root for a private kernel log";
    const std::tuple<unsigned int, const char*, bool, bool, int, const char*> cases[] = {
        {SpawnProcess::StdioKmsg, "/", false, false, 0, "/\nerr\n"},
        {0, "/nonexistent", false, false, 127,
         "SpawnProcess child '/bin/sh' failed: chdir: No such file or directory (2)\n"},
        {0, "/nonexistent", true, false, 127, ""},
        {0, "/nonexistent", true, true, 127, ""},
    };
    for (const auto& [flags, working_dir, read_only, unprivileged, exit_code, kernel_log] : cases) {
        const test_support::TempDirectory directory("spawn-test");
        SpawnProcess process;
        process.m_working_dir = working_dir;
        process.m_drop_privileges = unprivileged;
        process.m_uid = process.m_gid = 65534;
        process.m_program = "/bin/sh";
        process.m_args = {"-c", "pwd; echo err >&2"};
        const auto end = test_support::RunWithOwnKernelLog(directory.Path() + "/kmsg", read_only, [&, flags = flags] {
            close(STDERR_FILENO);
            const pid_t parent = getpid();
            process.Execute(flags);
            _exit(getpid() == parent ? process.Wait() : 99);
        });
        EXPECT_EQ(end.status, W_EXITCODE(exit_code, 0)) << working_dir << read_only << unprivileged;
        EXPECT_EQ(ReadWholeFile(directory.Path() + "/kmsg"), kernel_log);
    }
}

TEST(SpawnProcessTest, ReapTakesOnlyAChildThatHasEnded)
{
    SpawnProcess process;
    process.m_program = "sleep";
    process.m_args = {"30"};
    const pid_t pid = process.Execute(0);
    EXPECT_THAT([&] { process.Reap(); }, testing::ThrowsMessage<std::runtime_error>("Child hasn't exited yet"));
    kill(pid, SIGKILL);
    siginfo_t ended;
    waitid(P_PID, static_cast<id_t>(pid), &ended, WEXITED | WNOWAIT); // ended, still to be reaped
    process.Reap();
    EXPECT_EQ(process.m_child_pid, 0);
}

TEST(AbortOnTimeoutDeathTest, AbortsTheProcessWhenNotCancelledInTime)
{
    EXPECT_DEATH((AbortOnTimeout(20ms), std::this_thread::sleep_for(30s)), "Abort due to timeout on waitpid\n");
}

TEST(AbortOnTimeoutThreadsTest, CancellationIsPrompt)
{
    const auto start = std::chrono::steady_clock::now();
    AbortOnTimeout{60s};
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
}

} // namespace
