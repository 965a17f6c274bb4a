#pragma once

#include <cstdint>
#include <string_view>

// The kernel's last-log trigger: not zero when a dump was requested before the
// reboot. Never throws: a trigger that cannot be read reports once and counts
// as zero.
uint32_t ReadDumpTrigger();

// The number at the start of text, base chosen by its prefix: "0x"/"0X"
// hexadecimal, "0b"/"0B" binary, a leading "0" octal, else decimal. Leading
// white space and one sign are accepted, a "-" negating modulo 2^32; reading
// stops at the first unusable character, and text without digits gives 0. A
// value past 32 bits gives 0xffffffff, sign or not. This is what the target's
// 32-bit C library makes of the file, but without depending on its version
// (older ones do not know "0b").
uint32_t ParseUnsignedBase0(std::string_view text);
