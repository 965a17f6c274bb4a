#include "platform/assert_report.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdio>

namespace {

// The kernel turns every write() on /dev/kmsg into one log record; "<2>" makes
// the first one critical.
constexpr const char* kKernelLog = "/dev/kmsg";

} // namespace

void ReportAssert(const char* file, unsigned line, const char* function, const char* expression) noexcept
{
    if (std::FILE* kmsg = std::fopen(kKernelLog, "w")) {
        std::fprintf(kmsg, "<2>User space assert from process %d: %s\n", getpid(), expression);
        std::fprintf(kmsg, "ASSERT Executing %s:%u:%s\n", file, line, function);
        std::fclose(kmsg);
        return;
    }
    std::fflush(stdout);
    std::fprintf(stderr, "\r\nASSERT FAILED: %s", expression);
    std::fprintf(stderr, "\r\n%s:%u:%s\r\n", file, line, function);
    std::fprintf(stderr, "\r\n");
}

void ReportAssertFormatted(const char* file, unsigned line, const char* function, const char* expression,
                           const char* format, ...) noexcept
{
    std::va_list args;
    va_start(args, format);
    if (std::FILE* kmsg = std::fopen(kKernelLog, "w")) {
        std::fprintf(kmsg, "<2>User space assert from %d: %s\n", getpid(), expression);
        std::vfprintf(kmsg, format, args);
        std::fprintf(kmsg, "ASSERT Executing %s:%u:%s\n", file, line, function);
        std::fclose(kmsg);
    } else {
        std::fflush(stdout);
        std::fprintf(stderr, "\r\nASSERT FAILED: %s\r\n", expression);
        std::vfprintf(stderr, format, args);
        std::fprintf(stderr, "\r\n%s:%u:%s\r\n", file, line, function);
        std::fprintf(stderr, "\r\n");
    }
    va_end(args);
}

void PrintAssertValue(const char* name, unsigned value) noexcept
{
    std::printf("%s=%u (0x%x)\r\n", name, value, value);
}
