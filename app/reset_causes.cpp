#include "app/reset_causes.h"

#include <fmt/format.h>

namespace {

struct ResetCause {
    uint32_t mask;
    const char* name;
};

// Order matters: it decides the primary name when several bits are set. The
// last row repeats "software_reset" as the boot loader's own table does; the
// earlier row has always claimed that bit by then, so it never shows twice.
constexpr ResetCause kResetCauses[] = {
    {0x00000100, "temperature_reset"},
    {0x00000010, "watchdog_reset"},
    {0x00000080, "watchdog3_reset"},
    {0x00000020, "jtag_reset"},
    {0x00000040, "jtag_software_reset"},
    {0x20000000, "power_not_good"},
    {0x40000000, "reset_button"},
    {0x00000001, "power_on_reset"},
    {0x00000004, "csu_reset"},
    {0x10000000, "software_reset"},
    {0x00000008, "ipp_user_reset"},
    {0x10000000, "software_reset"},
};

} // namespace

std::string PrimaryResetCause(uint32_t causes)
{
    for (const ResetCause& cause : kResetCauses) {
        if ((causes & cause.mask) != 0)
            return cause.name;
    }
    return ResetFlagsText(causes);
}

std::string ResetFlagsText(uint32_t causes)
{
    return fmt::format("0x{:x}", causes);
}

std::vector<std::string> ResetCauseNames(uint32_t causes)
{
    std::vector<std::string> names;
    uint32_t unclaimed = causes;
    for (const ResetCause& cause : kResetCauses) {
        if ((unclaimed & cause.mask) != 0) {
            names.emplace_back(cause.name);
            unclaimed &= ~cause.mask;
        }
    }
    if (unclaimed != 0)
        names.push_back(fmt::format("Unknown:0x{:x}", unclaimed));
    return names;
}
