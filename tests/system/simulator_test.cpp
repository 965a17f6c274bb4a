// The built-in scenarios, each a path of the collector: every one ends as the
// simulator's README says and leaves that path's outputs, a dump (archive,
// info file, marker), none, or not even the lock when the run ends before it.

#include "environment_image.h"
#include "param_name.h"
#include "sandbox_test.h"

namespace {

using namespace sandbox;

constexpr const char* kWithoutCore = "./\n./dmesg\n./info\n./lastkmsg\n";
constexpr const char* kWithCore = "./\n./dmesg\n./info\n./lastkmsg\n./ltcore\n";

struct BuiltIn {
    const char* what;
    int status;
    const char* final_line;
    bool locked;         // the run got as far as the completion lock
    const char* members; // the archive's, or nullptr for no dump
    const char* info;    // an entry of the info file that the scenario is about
};

const BuiltIn kBuiltIns[] = {
    {"clean-boot", 1, kNoDump, true, nullptr, nullptr},
    {"core-does-not-fit", 0,
     "Crash dump written without its core image of 1049043 bytes: it could not be stored.\n"
     "Post-mortem crash dump generated.",
     true, kWithoutCore, "core_dropped=1049043"},
    {"corrupt-environment", 0, kDump, true, kWithoutCore, "serial="},
    {"dump-trigger", 0, kDump, true, kWithoutCore, "triggered=1"},
    {"earlier-dump-waiting", 0, kDump, true, kWithCore, "reset=watchdog_reset"},
    {"gzip-rescue-bad-blocks", 0, kDump, true, kWithCore, "rescue=4.9.337-lumora-rescue-2.4"},
    {"kernel-panic", 0, kDump, true, kWithoutCore, "reset=software_reset"},
    {"unknown-silicon", 1, "crash-dump caught exception: Unexpected silicon type", false, nullptr, nullptr},
    {"watchdog-crash", 0, kDump, true, kWithCore, "assert=frame_queue_depth(q) < 64\\x0aBacktrace: 0x10f3c 0x11a08"},
};

class BuiltInScenarioTest : public SandboxTest, public ::testing::WithParamInterface<BuiltIn> {};

TEST_P(BuiltInScenarioTest, EndsWithItsStatusFinalLineAndOutputs)
{
    const BuiltIn& row = GetParam();
    Prepare(row.what);

    const sim::RunResult result = m_device.Run();

    EXPECT_EQ(result.exit_status, row.status) << result.standard_error;
    EXPECT_THAT(result.standard_error, EndsWith(std::string(row.final_line) + "\n"));
    EXPECT_EQ(m_device.Exists(kLock), row.locked);
    EXPECT_FALSE(m_device.Exists(kLockTemporary) || m_device.Exists(kStaging));
    EXPECT_EQ(m_device.Exists(kArchive) && m_device.Exists(kInfoFile), row.members != nullptr);
    EXPECT_EQ(m_device.Exists(kReadyMarker), row.members != nullptr);
    if (row.members == nullptr)
        return;
    EXPECT_EQ(Tar(m_device, "-tj | sort"), row.members);
    EXPECT_THAT("\n" + m_device.ReadFile(kInfoFile), HasSubstr("\n" + std::string(row.info) + "\n"));
    EXPECT_THAT(m_device.ReadFile(kInfoFile), ::testing::ContainsRegex("\ntime=20[0-9]{6}T[0-9]{6}Z\n"));
    EXPECT_EQ(Tar(m_device, "-xOj ./info"), m_device.ReadFile(kInfoFile));
    EXPECT_EQ(Tar(m_device, "-xOj ./lastkmsg"), m_device.ReadFile(kKernelLog));
    EXPECT_EQ(Tar(m_device, "-xOj ./ltcore"), row.members == kWithCore ? m_device.ReadFile(kCoreImage) : "");
    EXPECT_EQ(Tar(m_device, "-xOj ./dmesg").find("Booting Linux on physical CPU 0x0"), 15u);
    EXPECT_EQ(m_device.ReadFile(kReadyMarker), "");
}

INSTANTIATE_TEST_SUITE_P(Table, BuiltInScenarioTest, ::testing::ValuesIn(kBuiltIns), test_support::NameFromWhat());

// The manufacturing record carries a wireless address, but the flags say the board has no radio: the key stays, empty.
using WirelessFlagTest = SandboxTest;

TEST_F(WirelessFlagTest, BoardWithoutRadioReportsNoWirelessAddress)
{
    sim::Scenario scenario = BuiltInScenario("watchdog-crash");
    std::string& environment = scenario.flash["flash0.nvram"].image;
    environment[environment.find("LM_HWFLAGS=0x0000000000000005") + 28] = '1';
    environment = sim::WithCrc(environment.substr(4));
    sim::Apply(scenario, m_device);

    EXPECT_EQ(m_device.Run().standard_error, std::string("Reset causes: 0x10 watchdog_reset\n") + kDump + "\n");
    EXPECT_THAT(m_device.ReadFile(kInfoFile), HasSubstr("\nwifi_mac=\n"));
}

} // namespace
