#include <gtest/gtest.h>

#include <assert.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include "kernel_log.h"
#include "platform/assert_report.h"
#include "platform/errno_exception.h"
#include "platform/print.h"

// Release builds define NDEBUG, which hides the C library's declarations.
extern "C" {
void __assert(const char* expression, const char* file, int line) noexcept;
void __assert_perror_fail(int error, const char* file, unsigned int line, const char* function) noexcept;
}

namespace {

TEST(ErrnoExceptionTest, MessageNamesContextErrorTextAndNumber)
{
    EXPECT_STREQ(ErrnoException(ENOENT, "/dev/ltcore").what(), "/dev/ltcore: No such file or directory (2)");
    EXPECT_STREQ(ErrnoException(EIO, nullptr).what(), "Input/output error (5)");
    EXPECT_EQ(ErrnoException(EIO, nullptr).error(), EIO);
}

struct Unprintable {
    bool standard = true;
};

} // namespace

template <>
struct fmt::formatter<Unprintable> : fmt::formatter<int> {
    auto format(const Unprintable& value, fmt::format_context& context) const -> decltype(context.out())
    {
        if (value.standard)
            throw std::runtime_error("no way");
        throw 42;
    }
};

namespace {

// A stream into memory that is released on every path, also when the print
// under test throws.
class MemoryStream {
public:
    MemoryStream() : m_stream(open_memstream(&m_buffer, &m_size)) {}
    MemoryStream(const MemoryStream&) = delete;
    MemoryStream& operator=(const MemoryStream&) = delete;
    ~MemoryStream()
    {
        std::fclose(m_stream);
        free(m_buffer);
    }

    std::FILE* get() const { return m_stream; }
    std::string Text() const
    {
        std::fflush(m_stream);
        return std::string(m_buffer, m_size);
    }

private:
    char* m_buffer = nullptr;
    size_t m_size = 0;
    std::FILE* m_stream;
};

std::string PrintToString(const std::function<void(std::FILE*)>& print)
{
    const MemoryStream stream;
    print(stream.get());
    return stream.Text();
}

TEST(PrintTest, FormatsStraightIntoTheStream)
{
    EXPECT_EQ(PrintToString([](std::FILE* s) { tessel::print(s, "Reset causes: 0x{:x} {}\n", 0x30u, "x"); }),
              "Reset causes: 0x30 x\n");
}

TEST(PrintTest, FailingMessageIsReplacedByTheFallbackWithTheRawFormat)
{
    EXPECT_EQ(PrintToString([](std::FILE* s) { tessel::print(s, "value {}\n", Unprintable{}); }),
              "Message 'value {}\n' threw 'no way'\n");
}

TEST(PrintTest, NonStandardExceptionsPassThrough)
{
    EXPECT_THROW(PrintToString([](std::FILE* s) { tessel::print(s, "value {}\n", Unprintable{false}); }), int);
}

// Runs a report in a child with its own kernel log, returning what reached
// the kernel log and standard error.
struct Report {
    pid_t pid = 0;
    std::string kernel_log;
    std::string standard_error;
};

Report RunReport(bool kernel_log_writable, void (*report)())
{
    char directory[] = "/tmp/assert-test.XXXXXX";
    EXPECT_NE(mkdtemp(directory), nullptr);
    const std::string kmsg = std::string(directory) + "/kmsg";
    const std::string err = std::string(directory) + "/stderr";
    pid_t pid = fork();
    if (pid == 0) {
        if (!test_support::RedirectKernelLog(kmsg, !kernel_log_writable))
            _exit(77);
        std::freopen(err.c_str(), "w", stderr);
        report();
        std::fflush(nullptr);
        _exit(0);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    Report result;
    result.pid = pid;
    if (WEXITSTATUS(status) == 77)
        return result;
    std::ifstream k(kmsg), e(err);
    std::stringstream ks, es;
    ks << k.rdbuf();
    es << e.rdbuf();
    result.kernel_log = ks.str();
    result.standard_error = es.str();
    std::system(("rm -rf " + std::string(directory)).c_str());
    return result;
}

class AssertReportTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (geteuid() != 0)
            GTEST_SKIP() << "needs root for a private kernel log";
    }
};

TEST_F(AssertReportTest, PlainReportGoesToTheKernelLogAtCriticalLevel)
{
    Report r = RunReport(true, [] { ReportAssert("lib/platform/x", 7, "void f()", "a == b"); });
    EXPECT_EQ(r.kernel_log, fmt::format("<2>User space assert from process {}: a == b\n"
                                        "ASSERT Executing lib/platform/x:7:void f()\n",
                                        r.pid));
    EXPECT_EQ(r.standard_error, "");
}

TEST_F(AssertReportTest, PlainReportFallsBackToStandardError)
{
    Report r = RunReport(false, [] { ReportAssert("lib/platform/x", 7, "void f()", "a == b"); });
    EXPECT_EQ(r.kernel_log, "");
    EXPECT_EQ(r.standard_error, "\r\nASSERT FAILED: a == b\r\nlib/platform/x:7:void f()\r\n\r\n");
}

TEST_F(AssertReportTest, FormattedReportHasItsOwnWording)
{
    Report k = RunReport(true, [] { ReportAssertFormatted("f", 1, "g", "Invalid pointer", "Pointer=%p\n", nullptr); });
    EXPECT_EQ(k.kernel_log, fmt::format("<2>User space assert from {}: Invalid pointer\nPointer=(nil)\n"
                                        "ASSERT Executing f:1:g\n",
                                        k.pid));

    Report e = RunReport(false, [] { ReportAssertFormatted("f", 1, "g", "Invalid pointer", "Pointer=%p\n", nullptr); });
    EXPECT_EQ(e.standard_error, "\r\nASSERT FAILED: Invalid pointer\r\nPointer=(nil)\n\r\nf:1:g\r\n\r\n");
}

TEST_F(AssertReportTest, LibraryAssertionsTakeTheSameRoute)
{

    EXPECT_DEATH(
        {
            test_support::ForceReportsToStandardError();
            __assert("x > 0", "lib/y", 3);
        },
        "ASSERT FAILED: x > 0\r\nlib/y:3:UNKNOWN\r\n");
    EXPECT_DEATH(
        {
            test_support::ForceReportsToStandardError();
            __assert_perror_fail(ENOENT, "lib/y", 4, "void h()");
        },
        "ASSERT FAILED: No such file or directory\r\nlib/y:4:void h\\(\\)");
    EXPECT_DEATH(
        {
            test_support::ForceReportsToStandardError();
            TESSEL_ASSERT(1 + 1 == 3);
        },
        "ASSERT FAILED: 1 \\+ 1 == 3\r\ntests/unit/platform/errors_test.cpp:");
}

} // namespace
