#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The SoC's raw reset-cause word, as the boot loader recorded it.

// Temperature, either watchdog, and a supply that was not good: resets that a
// healthy player never causes, so each of them is worth a dump by itself.
constexpr uint32_t kCrashWorthyResetCauses = 0x20000190;

// The name of the first cause in table order, or "0x{:x}" of the whole word
// when no named bit is set.
std::string PrimaryResetCause(uint32_t causes);

// "0x{:x}" of the whole word.
std::string ResetFlagsText(uint32_t causes);

// Every named cause in table order, then "Unknown:0x{:x}" for the bits that no
// row claimed; empty for 0.
std::vector<std::string> ResetCauseNames(uint32_t causes);
