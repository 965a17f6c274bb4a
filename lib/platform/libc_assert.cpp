// Replaces the C library's assertion entry points, so that assert() in our
// code and in header-only libraries ends in the same kernel-log report. The
// link pulls these in ahead of libc (see the -u options of the library).

#include <assert.h>

#include <cstdlib>
#include <cstring>

#include "platform/assert_report.h"

extern "C" {

void __assert_fail(const char* expression, const char* file, unsigned int line, const char* function) noexcept
{
    ReportAssert(file, line, function, expression);
    std::abort();
}

void __assert_perror_fail(int error, const char* file, unsigned int line, const char* function) noexcept
{
    ReportAssert(file, line, function, std::strerror(error));
    std::abort();
}

void __assert(const char* expression, const char* file, int line) noexcept
{
    ReportAssert(file, static_cast<unsigned>(line), "UNKNOWN", expression);
    std::abort();
}

} // extern "C"
