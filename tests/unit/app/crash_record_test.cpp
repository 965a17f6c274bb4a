#include <gtest/gtest.h>

#include "app/reset_causes.h"

namespace {

// Table order decides the primary name and the list; bits no row names are reported, not lost.
const std::tuple<uint32_t, const char*, std::vector<std::string>> kResetCases[] = {
    {0x0, "0x0", {}},
    {0x2, "0x2", {"Unknown:0x2"}},
    {0x30, "watchdog_reset", {"watchdog_reset", "jtag_reset"}},
    {0x10000002, "software_reset", {"software_reset", "Unknown:0x2"}},
    {0xffffffff, "temperature_reset",
     {"temperature_reset", "watchdog_reset", "watchdog3_reset", "jtag_reset", "jtag_software_reset", "power_not_good",
      "reset_button", "power_on_reset", "csu_reset", "software_reset", "ipp_user_reset", "Unknown:0x8ffffe02"}},
};

TEST(CrashRecordTest, NamesTheResetCauseWord)
{
    for (const auto& [causes, primary, names] : kResetCases) {
        const std::string flags = (testing::Message() << "0x" << std::hex << causes).GetString();
        EXPECT_EQ(PrimaryResetCause(causes), primary) << flags;
        EXPECT_EQ(ResetFlagsText(causes), flags);
        EXPECT_EQ(ResetCauseNames(causes), names) << flags;
    }
}

} // namespace
