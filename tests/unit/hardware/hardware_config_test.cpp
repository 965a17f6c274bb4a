#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include <fmt/format.h>

#include "hardware/hardware_config.h"
#include "hardware/mac_address.h"
#include "temp_directory.h"
#include "text_stream.h"

using Variables = std::map<std::string, std::string>;

TEST(BoardIdTest, KeysAreExactTokensAndTheLaterLineWins)
{
    // "id|family|boot loader|SoC|secure keys|secure boot|secure ID"
    const std::pair<const char*, const char*> files[] = {
        {"Family: corvan\nID: 0x1a\nBOLT-version: v4.2\nSoC: i.MX6ULZ\nSecure-keys: 1\nSecure-boot: 0\nSecure-ID: 5f3e",
         "1a|corvan|v4.2|i.MX6ULZ|1|0|5f3e"},
        {"ID: 0x12\nSecure-keys: 0\n", "12||||0|1|"},
        {"BOLT-version: 1.0\nBootloader-version: 2.0\n", "ffffffff||2.0||1|1|"},
        {"Bootloader-version: 2.0\nBOLT-version: 1.0\n", "ffffffff||1.0||1|1|"},
    };
    for (const auto& [text, board] : files) {
        const BoardIdentity b = ScanBoardId(test_support::TextStream(text).get());
        EXPECT_EQ(fmt::format("{:x}|{}|{}|{}|{:d}|{:d}|{}", b.board_id, b.family, b.bootloader_version, b.soc,
                              b.secure_keys, b.secure_boot, b.secure_id), board);
    }
}

TEST(MacAddressTest, SixHexBytesOnly)
{
    const std::pair<const char*, const char*> cases[] = {
        {"90:AC:3F:1A:2B:3C", "90:ac:3f:1a:2b:3c"}, {"0:1:22:aA:bb:C", "00:01:22:aa:bb:0c"}, {"90:ac:3f:1a:2b", ""},
        {"90:ac:3f:1a:2b:3c4", ""}, {"90-ac-3f-1a-2b-3c", ""}, {"90::3f:1a:2b:3c", ""}, {"90:ac:3f:1a:2b:3c ", ""}};
    for (const auto& [text, formatted] : cases)
        EXPECT_EQ(NormaliseMacAddress(text), formatted) << text;
}

class HardwareConfigTest : public ::testing::Test {
protected:
    // "flags|radio|OEM ID|OEM model|serial|revision|wired MAC|wireless MAC" and what construction printed
    std::string Construct()
    {
        ::testing::internal::CaptureStderr();
        const HardwareConfig c(m_sources);
        return fmt::format("{:x}|{:d}|{}|{}|{}|{}|{}|{}", c.GetHardwareFlags(), c.HasWireless(), c.GetOemId(),
                           c.GetOemModel(), c.GetSerialNumber(), c.GetHardwareRevision(), c.GetWiredMacAddress(),
                           c.GetWirelessMacAddress()) + ::testing::internal::GetCapturedStderr();
    }

    const test_support::TempDirectory m_temporary{"hardware-config"};
    const std::string m_directory = m_temporary.Path() + "/";
    Variables m_variables{{"LM_FORMAT", "1"}};
    std::function<std::string()> m_silicon = [] { return "i.MX6ULZ rev2.0"; };
    const HardwareConfig::Sources m_sources{[this] { return BootloaderEnvironment{m_variables, {}}; },
        [this] { return m_silicon(); }, m_directory + "boardid", m_directory + "net/"};
};

TEST_F(HardwareConfigTest, ManufacturingRecordOfFormatOneAndTheOemRules)
{
    const Variables full{{"LM_HWFLAGS", "0x4"}, {"LM_OEM_ID", "Norva"}, {"LM_OEM_MODEL", "S1"},
        {"LM_HWREV", "0x0a"}, {"LM_SERIAL", "D4E91K002317"}, {"LM_ETH0_HWADDR", "0:11:22:33:44:5F"},
        {"LM_WLAN0_HWADDR", "00:11:22:AA:BB:CC"}};
    const std::string zero = "Hardware configuration bitfield is zero. Please reprogram SRB\n";
    const std::tuple<const char*, Variables, std::string> records[] = {
        {"1", full, "4000000004|1|Norva|S1|D4E91K002317|10|00:11:22:33:44:5f|00:11:22:aa:bb:cc"},
        {"01", full, "0|0||||||Manufacturing record format '01' not supported; hardware flags cleared\n"},
        {nullptr, full, "0|0||||||Manufacturing record format '' not supported; hardware flags cleared\n"},
        {"1", {}, "ffffffffffffffff|1||||||"}, // a record older than the flags: every feature
        {"1", {{"LM_HWFLAGS", "0x8000000000000004"}}, "8000000000000004|1||||||"},
        {"1", {{"LM_HWFLAGS", "0x3"}}, "3|0||||||"},
        {"1", {{"LM_HWFLAGS", "0"}, {"LM_OEM_ID", "Norva"}}, "4000000000|0|Norva|||||" + zero},
        {"1", {{"LM_HWFLAGS", "0x3"}, {"LM_OEM_ID", "norva"}}, "3|0|norva|||||"},
        {"1", {{"LM_HWFLAGS", "0x3"}, {"LM_OEM_MODEL", "QX610"}, {"LM_HWREV", "3"}}, "c0000000003|0||QX610||3||"},
        {"1", {{"LM_HWFLAGS", "0x3"}, {"LM_OEM_MODEL", "QX610"}, {"LM_HWREV", "0x4"}}, "c0000000003|0||QX610||4||"},
        {"1", {{"LM_HWFLAGS", "0x3"}, {"LM_OEM_MODEL", "QX610"}, {"LM_HWREV", "2"}}, "3|0||QX610||2||"},
        {"1", {{"LM_HWFLAGS", "0x3"}, {"LM_OEM_MODEL", "QX610"}}, "3|0||QX610||||"},
    };
    for (const auto& [format, variables, described] : records) {
        m_variables = variables;
        if (format != nullptr)
            m_variables["LM_FORMAT"] = format;
        EXPECT_EQ(Construct(), described);
    }
}

TEST_F(HardwareConfigTest, SocAndWirelessAddressFromTheSystemWhenNotRecorded)
{
    // An unknown part stops the start, unless the board file names the SoC.
    m_silicon = []() -> std::string { throw std::runtime_error("Unexpected silicon type"); };
    EXPECT_THROW(HardwareConfig{m_sources}, std::runtime_error);
    std::ofstream(m_directory + "boardid") << "SoC: i.MX6ULZ\n";
    EXPECT_EQ(HardwareConfig(m_sources).GetSoc(), "i.MX6ULZ");

    const auto wireless = [this] { return HardwareConfig(m_sources).GetWirelessMacAddress(); };
    EXPECT_EQ(wireless(), "");
    std::filesystem::create_directories(m_directory + "net/wlan0");
    EXPECT_EQ(wireless(), ""); // the interface is there but tells no address
    std::ofstream(m_directory + "net/wlan0/address") << "02:AB:00:00:00:01\n";
    EXPECT_EQ(wireless(), "02:ab:00:00:00:01");
    m_variables["LM_WLAN0_HWADDR"] = "00:11:22:AA:BB:CC";
    EXPECT_EQ(wireless(), "00:11:22:aa:bb:cc");
}
