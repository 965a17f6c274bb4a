#include <gmock/gmock.h>

#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <stdio_ext.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>

#include "kernel_log.h"
#include "platform/assert_report.h"
#include "platform/debug_helpers.h"
#include "platform/errno_exception.h"
#include "platform/posix_helpers.h"
#include "platform/print.h"
#include "platform/singleton.h"
#include "platform/unique_fd.h"
#include "temp_directory.h"

// Release builds define NDEBUG, which hides the C library's declarations.
#undef NDEBUG
#include <assert.h>

// A descriptor whose next write takes nothing. No device of ours does that, so
// only a stand-in for the C library's write can show what the writers make of it.
static std::atomic<int> g_stalled_fd = -1;

extern "C" ssize_t write(int fd, const void* buffer, size_t length)
{
    return fd == g_stalled_fd.exchange(-1) ? 0 : static_cast<ssize_t>(syscall(SYS_write, fd, buffer, length));
}

namespace {

// A message that fails to format gives way to its raw format and the reason.
TEST(PrintTest, AFailingMessageIsReplacedByItsFormatAndTheReason)
{
    testing::internal::CaptureStderr();
    tessel::print(stderr, "n={:x} {}\n", 0x30u, "x");
    tessel::print(stderr, "v {:.{}}\n", 1.5, -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "n=30 x\nMessage 'v {:.{}}\n' threw 'negative precision'\n");
}

void Plain() { ReportAssert("lib/x", 7, "void f()", "a == b"); }
void Formatted() { ReportAssertFormatted("f", 1, "g", "x", "P=%p\n", nullptr); }

// qemu-user, which runs the armhf tests, adds a line of its own to standard error when the program aborts.
std::string WithoutEmulatorNotice(const std::string& standard_error)
{
    return standard_error.substr(0, standard_error.find("qemu: uncaught target signal"));
}

// "<2>" makes a critical kernel log record. The C library's entry points serve
// assert() in header-only code, and abort as it does. What the program had
// buffered for standard output comes out ahead of the report on the console,
// as it was printed; the kernel log needs no such care.
TEST(AssertReportTest, WritesExactlyThisToTheKernelLogOrElseToStandardError)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root for a private kernel log";
    const std::tuple<bool, void (*)(), bool, const char*, const char*> cases[] = {
        {true, Plain, false, "<2>User space assert from process {}: a == b\nASSERT Executing lib/x:7:void f()\n", ""},
        {false, Plain, false, "", "out;\r\nASSERT FAILED: a == b\r\nlib/x:7:void f()\r\n\r\n"},
        {true, Formatted, false, "<2>User space assert from {}: x\nP=(nil)\nASSERT Executing f:1:g\n", ""},
        {false, Formatted, false, "", "out;\r\nASSERT FAILED: x\r\nP=(nil)\n\r\nf:1:g\r\n\r\n"},
        {false, [] { __assert_fail("x > 0", "y", 3, "h"); }, true, "", "out;\r\nASSERT FAILED: x > 0\r\ny:3:h\r\n\r\n"},
        {false, [] { __assert("x > 0", "y", 3); }, true, "", "out;\r\nASSERT FAILED: x > 0\r\ny:3:UNKNOWN\r\n\r\n"},
        {false, [] { __assert_perror_fail(ENOENT, "y", 4, "h"); }, true, "",
         "out;\r\nASSERT FAILED: No such file or directory\r\ny:4:h\r\n\r\n"},
    };
    for (const auto& [writable, report, aborts, kernel_log, standard_error] : cases) {
        const test_support::TempDirectory directory("assert-test");
        const std::string error_file = directory.Path() + "/stderr";
        const auto end = test_support::RunWithOwnKernelLog(directory.Path() + "/kmsg", !writable, [&, r = report] {
            __fpurge(stdout); // the parent's, not ours to print
            const int output = open(error_file.c_str(), O_WRONLY | O_CREAT, 0600);
            dup2(output, STDOUT_FILENO);
            dup2(output, STDERR_FILENO);
            std::fputs("out;", stdout);
            r();
        });
        EXPECT_EQ(WIFSIGNALED(end.status) && WTERMSIG(end.status) == SIGABRT, aborts) << standard_error;
        EXPECT_EQ(ReadWholeFile(directory.Path() + "/kmsg"), fmt::format(fmt::runtime(kernel_log), end.pid));
        EXPECT_EQ(WithoutEmulatorNotice(ReadWholeFile(error_file)), standard_error);
    }
}

struct alignas(8) Registered : tessel::Singleton<Registered> {};

// Asking for a singleton before its owner has made it, making a second one,
// or a write that takes nothing end the process with a report.
TEST(BrokenInvariantDeathTest, EndsInAReport)
{
    EXPECT_DEATH((test_support::ForceReportsToStandardError(), Registered::GetInstance()),
                 "ASSERT FAILED: Invalid pointer\r\nPointer=\\(nil\\)\n\r\nlib/platform/singleton.h:.*GetInstance");
    EXPECT_DEATH((test_support::ForceReportsToStandardError(), Registered(), Registered()),
                 "ASSERT FAILED: sm_instance == __null\r\nlib/platform/singleton.h:[0-9]+:");
    EXPECT_DEATH((test_support::ForceReportsToStandardError(), write_all_throw(g_stalled_fd = STDOUT_FILENO, "x", 1)),
                 "ASSERT FAILED: n != 0\r\nlib/platform/posix_helpers.cpp:[0-9]+:void write_all_throw\\(");
}

// A child is pinned only where the adjustment changes its set, and says so.
TEST(CpuSetTest, PinsTheCallingThreadOnlyWhenTheAdjustmentAsksAndSaysSo)
{
    for (const bool pin : {false, true}) {
        cpu_set_t before, after;
        testing::internal::CaptureStderr();
        std::thread([&] {
            prctl(PR_SET_NAME, "pinned");
            pthread_getaffinity_np(pthread_self(), sizeof before, &before);
            ConfigureCpuSet([pin](cpu_set_t& set) {
                if (pin) {
                    CPU_ZERO(&set);
                    CPU_SET(0, &set);
                }
                return pin;
            });
            pthread_getaffinity_np(pthread_self(), sizeof after, &after);
        }).join();
        EXPECT_EQ(testing::internal::GetCapturedStderr(), pin ? "Configured CPUs for pinned: 0\n" : "");
        EXPECT_EQ(CPU_COUNT(&after), pin ? 1 : CPU_COUNT(&before));
    }
}

TEST(FileTest, WritesAndReadsUpToTheEndAndNamesWhatFailed)
{
    const test_support::TempDirectory directory("posix-helpers");
    const std::string path = directory.Path() + "/marker";
    const auto failed = [](const std::string& message) { return testing::ThrowsMessage<ErrnoException>(message); };
    WriteFile(path, "abcdef", 6, 0600);
    WriteFile(path, "abc", 3, 0600);
    const tessel::UniqueFd fd(open(path.c_str(), O_RDONLY));
    char buffer[16];
    EXPECT_EQ(read_all_throw(fd.get(), buffer, sizeof buffer), 3u);
    EXPECT_EQ(read_all_throw(fd.get(), buffer, sizeof buffer), 0u);
    EXPECT_EQ(read_all_throw(-1, buffer, 0), 0u); // without a call, which would fail
    EXPECT_THAT([&] { WriteFile(path + "/x", "", 0, 0666); }, failed(path + "/x: Not a directory (20)"));
    // Character devices cannot be synced, which is no failure; a failed write names nothing.
    EXPECT_NO_THROW(WriteFile("/dev/null", "x", 1, 0666));
    EXPECT_THAT([] { WriteFile("/dev/full", "x", 1, 0666); }, failed("No space left on device (28)"));
    const tessel::UniqueFd full(open("/dev/full", O_WRONLY));
    EXPECT_THAT([&] { write_all_throw(full.get(), "x", 1); }, failed("No space left on device (28)"));
}

TEST(CompareVersionsTest, RunsOfDigitsCompareAsNumbersAndADigitSortsAfterAnythingElse)
{
    const std::tuple<const char*, const char*, int> cases[] = {
        {"", "", 0},
        {"", "1", -1},
        {"1", "", 1},
        {"2.01", "2.1", 0},
        {"1.10", "1.9", 1},
        {"1.2", "1.2a", -1},
        {"1a", "1.", 1},
        {"a", "1", -1},
        {"1", "a", 1},
        {"abc", "abd", -1},
        {"9999999999", "1410065407", 0}, // ten nines wrap silently; only eleven are caught
        {"9999999999", "1410065408", -1},
    };
    for (const auto& [a, b, order] : cases)
        EXPECT_EQ(CompareVersions(a, b), order) << a << " vs " << b;
    EXPECT_THAT([] { CompareVersions("1.99999999999", "1.2"); },
                testing::ThrowsMessage<std::range_error>("Version string has out of range number"));
}

TEST(DebugSwitchTest, OnlyTheWholeWordWithoutALoneZeroValueEnablesDebugging)
{
    const std::pair<const char*, bool> cases[] = {
        {"console=ttymxc0 lm.debug", true},
        {"lm.debug=1 quiet", true},
        {"lm.debug=0", false},
        {"lm.debug=00", true},
        {"lm.debug=", true},
        {"quiet\tlm.debug", true},
        {"\tlm.debug\n", false}, // words end at spaces and tabs only
        {"lm.debugger", false},
        {"xlm.debug", false},
    };
    for (const auto& [command_line, debugging] : cases)
        EXPECT_EQ(DebugHelpers::CommandLineEnablesDebugger(command_line), debugging) << command_line;
}

} // namespace
