#include <gmock/gmock.h>
#include <gtest/gtest.h>


#include <cstdio>
#include <map>
#include <memory>
#include <sstream>
#include <string>

#include "device_root.h"
#include "environment_image.h"
#include "sandbox_test.h"
#include "scenario.h"

namespace {

using ::testing::MatchesRegex;

constexpr const char* kArchive = "/var/lib/lumora/crash-dump/crash-dump.tar.bz2";
constexpr const char* kInfo = "/var/lib/lumora/crash-dump/crash-dump.info";

std::string Command(const std::string& command)
{
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::string output;
    char buffer[4096];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe.get())) > 0)
        output.append(buffer, n);
    return output;
}

std::map<std::string, std::string> ParseInfo(const std::string& text)
{
    std::map<std::string, std::string> info;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        const size_t equals = line.find('=');
        info[line.substr(0, equals)] = equals == std::string::npos ? "" : line.substr(equals + 1);
    }
    return info;
}

// The whole path on a device that crashed: its identity from the boot loader
// environment and the board file, its software from /etc and the rescue
// partition, the crash from the preserved kernel log.
class CompleteDumpTest : public sandbox::SandboxTest {
protected:
    CompleteDumpTest() : SandboxTest("watchdog-crash") {}

    void SetUp() override
    {
        SandboxTest::SetUp();
        if (!IsSkipped())
            m_result = m_device.Run();
    }

    sim::RunResult m_result;
};

TEST_F(CompleteDumpTest, ReportsOnlyWhatItCouldNotRead)
{
    EXPECT_EQ(m_result.exit_status, 0);
    EXPECT_EQ(m_result.standard_error, "Reset causes: 0x10 watchdog_reset\nPost-mortem crash dump generated.\n");
}

TEST_F(CompleteDumpTest, InfoCarriesEveryFactOfTheDevice)
{
    auto info = ParseInfo(m_device.ReadFile(kInfo));

    EXPECT_THAT(info["salt"], MatchesRegex("[0-9a-f]{32}"));
    EXPECT_THAT(info["time"], MatchesRegex("20[0-9]{6}T[0-9]{6}Z"));
    info.erase("salt");
    info.erase("time");
    const std::map<std::string, std::string> expected = {
        {"assert", "frame_queue_depth(q) < 64\\x0aBacktrace: 0x10f3c 0x11a08"},
        {"board", "0x1a"},
        {"board_name", "corvan"},
        {"boot", "2.4.11"},
        {"console", "1"},
        {"customer_ubis", "cust_apps:cust_media"},
        {"eth_mac", "90:ac:3f:1a:2b:3c"},
        {"family", "corvan"},
        {"hwrev", "2"},
        {"image_name", "signage-player-release"},
        {"lmplay", "playing presentation 'lobby'"},
        {"model", "corvan"},
        {"process", "player"},
        {"rescue", "4.9.337-lumora-rescue-2.3"},
        {"reset", "watchdog_reset"},
        {"reset_flag_strings", "watchdog_reset"},
        {"reset_flags", "0x10"},
        {"run", "9.0.112"},
        {"script_hash", "9f86d081884c7d65"},
        {"script_name", "lobby.script"},
        {"serial", "D4E91K002317"},
        {"soc", "i.MX6ULZ"},
        {"td", "0"},
        {"type", "post-mortem"},
        {"wifi_mac", "90:ac:3f:1a:2b:3d"},
    };
    EXPECT_EQ(info, expected);
}

TEST_F(CompleteDumpTest, ArchiveHoldsTheEvidenceAndTheSameInfo)
{
    const std::string archive = m_device.Path(kArchive);
    const std::string members = Command("tar -tjf " + archive + " | sort");
    EXPECT_EQ(members, "./\n./dmesg\n./info\n./lastkmsg\n./ltcore\n");
    EXPECT_EQ(Command("tar -xOjf " + archive + " ./info"), m_device.ReadFile(kInfo));
    EXPECT_EQ(Command("tar -xOjf " + archive + " ./ltcore"), m_device.ReadFile("/dev/ltcore"));
    EXPECT_EQ(Command("tar -xOjf " + archive + " ./lastkmsg"), m_device.ReadFile("/dev/lastkmsg"));
    EXPECT_EQ(Command("tar -xOjf " + archive + " ./dmesg").find("Booting Linux on physical CPU 0x0"), 15u);
    EXPECT_EQ(m_device.ReadFile("/var/lib/lumora/crash-dump/crash-dump.ready"), "");
    EXPECT_FALSE(m_device.Exists("/var/run/crash-dump/new"));
}

TEST_F(CompleteDumpTest, TwoDumpsDifferInTheirSalt)
{
    const std::string first = ParseInfo(m_device.ReadFile(kInfo))["salt"];
    ASSERT_EQ(m_device.Run().exit_status, 0);
    EXPECT_NE(ParseInfo(m_device.ReadFile(kInfo))["salt"], first);
}

// Device makers write-protect the partitions the collector reads; the
// identity and the rescue version must not depend on opening them for writing.
using WriteProtectedFlashTest = sandbox::SandboxTest;

TEST_F(WriteProtectedFlashTest, DumpKeepsTheIdentityAndRescueVersion)
{
    sim::Scenario scenario = sandbox::BuiltInScenario("watchdog-crash");
    for (const char* partition : {"flash0.nvram", "flash0.rescue"})
        scenario.flash[partition].read_only = true;
    sim::Apply(scenario, m_device);

    const auto result = m_device.Run();

    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.standard_error, "Reset causes: 0x10 watchdog_reset\nPost-mortem crash dump generated.\n");
    auto info = ParseInfo(m_device.ReadFile(kInfo));
    EXPECT_EQ(info["serial"], "D4E91K002317");
    EXPECT_EQ(info["eth_mac"], "90:ac:3f:1a:2b:3c");
    EXPECT_EQ(info["wifi_mac"], "90:ac:3f:1a:2b:3d");
    EXPECT_EQ(info["rescue"], "4.9.337-lumora-rescue-2.3");
}

// The manufacturing record carries a wireless address, but the flags say the
// board has no radio.
using WirelessFlagTest = sandbox::SandboxTest;

TEST_F(WirelessFlagTest, BoardWithoutRadioReportsNoWirelessAddress)
{
    sim::Scenario scenario = sandbox::BuiltInScenario("watchdog-crash");
    scenario.flash["flash0.nvram"].image = sim::UbootEnvironmentImage(
        {{"LM_FORMAT", "1"}, {"LM_HWFLAGS", "0x3"}, {"LM_WLAN0_HWADDR", "90:AC:3F:1A:2B:3D"}}, 128 * 1024);
    sim::Apply(scenario, m_device);

    const auto result = m_device.Run();

    EXPECT_EQ(result.exit_status, 0);
    auto info = ParseInfo(m_device.ReadFile(kInfo));
    EXPECT_EQ(info.count("wifi_mac"), 1u);
    EXPECT_EQ(info["wifi_mac"], "");
}

} // namespace
