#pragma once

#include <cstdint>
#include <string>

// Numbers written by the boot loader and the kernel: base chosen by prefix
// (0x or 0X hexadecimal, a leading 0 octal, else decimal), conversion stops at
// the first character that is not a digit, and text without leading digits
// is 0. A malformed number is never an error.
uint64_t ParseUnsigned64(const std::string& text);

// The device's own C library converts these fields into a 32-bit unsigned
// long, which saturates; doing the same here keeps a 64-bit build in step.
uint32_t ParseUnsigned32(const std::string& text);
