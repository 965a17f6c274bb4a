#include <gtest/gtest.h>

#include "app/dump_trigger.h"
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

// The kernel's trigger file as the C library's strtoul reads it in base 0, cut to 32 bits.
const std::pair<std::string, uint32_t> kTriggerTexts[] = {
    {" \t\r7", 7}, // white space runs from tab to carriage return
    {"7x9", 7},    // an x after anything but a lone 0 is no prefix
    {"0x10", 16},
    {"0XaA", 170}, // hexadecimal digits in either case
    {"0xg", 0},    // stops at the first character that is no digit of the base
    {"0b101", 5},
    {"0B12", 1},
    {"010", 8},
    {"019", 1},
    {"90a", 90},
    {"+5", 5},
    {"-1", 0xffffffff}, // a minus negates modulo 2^32
    {"-4294967295", 1},
    {"4294967296", 0xffffffff}, // past 32 bits saturates, sign or not
    {"-4294967296", 0xffffffff},
};

TEST(CrashRecordTest, ReadsTheDumpTriggerAsTheCLibraryDoes)
{
    for (const auto& [text, value] : kTriggerTexts)
        EXPECT_EQ(ParseUnsignedBase0(text), value) << '"' << text << '"';
}

} // namespace
