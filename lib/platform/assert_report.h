#pragma once

#include <cstdlib>

// Failed invariants are reported to the kernel log at critical level, so that
// the report survives in the preserved log of the next boot, and then abort.

void ReportAssert(const char* file, unsigned line, const char* function, const char* expression) noexcept;

void ReportAssertFormatted(const char* file, unsigned line, const char* function, const char* expression,
                           const char* format, ...) noexcept __attribute__((format(printf, 5, 6)));

// Shows an operand of a failing comparison next to the report.
void PrintAssertValue(const char* name, unsigned value) noexcept;

// The checks stay active in release builds: an invariant that breaks in the
// field must end in a report, not in undefined behaviour. The second macro
// level expands the expression before it is quoted, so a null pointer
// constant reads as the compiler's own spelling.
#define TESSEL_ASSERT(expression) TESSEL_ASSERT_EXPANDED(expression)
#define TESSEL_ASSERT_EXPANDED(expression)                                                     \
    (static_cast<bool>(expression)                                                             \
         ? void(0)                                                                             \
         : (ReportAssert(__FILE__, __LINE__, __PRETTY_FUNCTION__, #expression), std::abort()))

#define TESSEL_ASSERT_FORMATTED(expression, ...) TESSEL_ASSERT_FORMATTED_EXPANDED(expression, __VA_ARGS__)
#define TESSEL_ASSERT_FORMATTED_EXPANDED(expression, ...)                                           \
    (static_cast<bool>(expression)                                                                  \
         ? void(0)                                                                                  \
         : (ReportAssertFormatted(__FILE__, __LINE__, __PRETTY_FUNCTION__, #expression, __VA_ARGS__), \
            std::abort()))
