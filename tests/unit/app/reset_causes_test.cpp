#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "app/reset_causes.h"

namespace {

struct ResetCase {
    uint32_t causes;
    const char* primary;
    const char* flags;
    std::vector<std::string> names;
};

const ResetCase kResetCases[] = {
    {0x0, "0x0", "0x0", {}},
    {0x1, "power_on_reset", "0x1", {"power_on_reset"}},
    {0x2, "0x2", "0x2", {"Unknown:0x2"}},
    {0x10, "watchdog_reset", "0x10", {"watchdog_reset"}},
    {0x30, "watchdog_reset", "0x30", {"watchdog_reset", "jtag_reset"}},
    {0x41, "jtag_software_reset", "0x41", {"jtag_software_reset", "power_on_reset"}},
    {0x10000002, "software_reset", "0x10000002", {"software_reset", "Unknown:0x2"}},
    {0x50000008, "reset_button", "0x50000008", {"reset_button", "software_reset", "ipp_user_reset"}},
    {0x80000c00, "0x80000c00", "0x80000c00", {"Unknown:0x80000c00"}},
    {0xffffffff, "temperature_reset", "0xffffffff",
     {"temperature_reset", "watchdog_reset", "watchdog3_reset", "jtag_reset", "jtag_software_reset", "power_not_good",
      "reset_button", "power_on_reset", "csu_reset", "software_reset", "ipp_user_reset", "Unknown:0x8ffffe02"}},
};

TEST(ResetCausesTest, ViewsOfTheResetCauseWord)
{
    for (const ResetCase& c : kResetCases) {
        SCOPED_TRACE(testing::Message() << std::hex << "causes 0x" << c.causes);
        EXPECT_EQ(PrimaryResetCause(c.causes), c.primary);
        EXPECT_EQ(ResetFlagsText(c.causes), c.flags);
        EXPECT_EQ(ResetCauseNames(c.causes), c.names);
    }
}

TEST(ResetCausesTest, CrashWorthyCausesAreTheHardwareFailures)
{
    EXPECT_EQ(ResetCauseNames(kCrashWorthyResetCauses),
              (std::vector<std::string>{"temperature_reset", "watchdog_reset", "watchdog3_reset", "power_not_good"}));
}

} // namespace
