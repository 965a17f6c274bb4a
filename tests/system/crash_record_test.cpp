#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <map>
#include <optional>
#include <sstream>
#include <string>

#include "device_root.h"
#include "scenarios.h"

namespace {

using sandbox::DeviceRoot;
using sandbox::RunResult;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

constexpr const char* kInfoFile = "/var/lib/lumora/crash-dump/crash-dump.info";
constexpr const char* kCoreImage = "/dev/ltcore";
constexpr const char* kPanicFlag = "/proc/panic_flag";
constexpr const char* kTrigger = "/sys/class/mem/lastkmsg/trigger_dump";
constexpr const char* kKernelLog = "/dev/lastkmsg";
constexpr const char* kResetCauses = "/proc/device-tree/lumora/bootloader/imx-reset-cause";
constexpr const char* kNoDump = "No post-mortem crash dump available.\n";
constexpr const char* kDump = "Post-mortem crash dump generated.\n";

using Info = std::map<std::string, std::string>;

// Starts from a device whose previous run ended normally; each test adds the
// evidence it is about.
class CrashRecordTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (geteuid() != 0)
            GTEST_SKIP() << "the device sandbox needs root";
        sandbox::PrepareCleanBoot(m_device);
    }

    Info ReadInfo() const
    {
        Info info;
        std::istringstream file(m_device.ReadFile(kInfoFile));
        for (std::string line; std::getline(file, line);) {
            const size_t equals = line.find('=');
            info[line.substr(0, equals)] = line.substr(equals + 1);
        }
        return info;
    }

    std::optional<std::string> InfoValue(const std::string& key) const
    {
        const Info info = ReadInfo();
        const auto it = info.find(key);
        return it == info.end() ? std::nullopt : std::optional<std::string>(it->second);
    }

    DeviceRoot m_device;
};

TEST_F(CrashRecordTest, WatchdogResetIsDueWithoutTouchingTheCoreDevice)
{
    m_device.SetResetCauses(0x10);
    m_device.Remove(kCoreImage);

    const RunResult result = m_device.Run();

    EXPECT_EQ(result.exit_status, 0) << result.standard_error;
    EXPECT_THAT(result.standard_error, StartsWith("Reset causes: 0x10 watchdog_reset\n"));
    EXPECT_THAT(result.standard_error, HasSubstr(kDump));
    const Info info = ReadInfo();
    EXPECT_EQ(info.at("type"), "post-mortem");
    EXPECT_EQ(info.at("reset"), "watchdog_reset");
    EXPECT_EQ(info.at("reset_flags"), "0x10");
    EXPECT_EQ(info.at("reset_flag_strings"), "watchdog_reset");
    EXPECT_EQ(info.count("triggered"), 0u);
}

TEST_F(CrashRecordTest, MissingCoreDeviceEndsTheRunWhenResetIsClean)
{
    m_device.Remove(kCoreImage);

    const RunResult result = m_device.Run();

    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.standard_error, "Reset causes: 0x1 power_on_reset\n"
                                     "crash-dump caught exception: /dev/ltcore: No such file or directory (2)\n");
    EXPECT_FALSE(m_device.Exists(kInfoFile));
}

TEST_F(CrashRecordTest, KeptCoreImageIsDue)
{
    m_device.WriteFile(kCoreImage, "\x7f" "ELF");

    const RunResult result = m_device.Run();

    EXPECT_EQ(result.exit_status, 0) << result.standard_error;
    EXPECT_EQ(InfoValue("reset"), "power_on_reset");
}

// What the reset-cause word turns into, on standard error and in the record.
struct ResetCase {
    const char* name;
    std::optional<std::string> property; // the raw cell; none for a missing property
    const char* line;
    const char* reset;
    const char* flags;
    const char* flag_strings;
};

class ResetCausesRecordTest : public CrashRecordTest, public ::testing::WithParamInterface<ResetCase> {};

TEST_P(ResetCausesRecordTest, LineAndKeys)
{
    const ResetCase& c = GetParam();
    m_device.Remove(kResetCauses);
    if (c.property)
        m_device.WriteFile(kResetCauses, *c.property);
    m_device.WriteFile(kPanicFlag, "1"); // due whatever the reset causes say

    const RunResult result = m_device.Run();

    EXPECT_EQ(result.exit_status, 0) << result.standard_error;
    EXPECT_THAT(result.standard_error, StartsWith(c.line));
    const Info info = ReadInfo();
    EXPECT_EQ(info.at("reset"), c.reset);
    EXPECT_EQ(info.at("reset_flags"), c.flags);
    EXPECT_EQ(info.at("reset_flag_strings"), c.flag_strings);
}

std::string Cell(uint32_t value)
{
    return {static_cast<char>(value >> 24), static_cast<char>(value >> 16), static_cast<char>(value >> 8),
            static_cast<char>(value)};
}

INSTANTIATE_TEST_SUITE_P(
    Values, ResetCausesRecordTest,
    ::testing::Values(
        ResetCase{"watchdog_and_jtag", Cell(0x30), "Reset causes: 0x30 watchdog_reset, jtag_reset\n", "watchdog_reset",
                  "0x30", "watchdog_reset,jtag_reset"},
        ResetCase{"software_and_unnamed", Cell(0x10000002), "Reset causes: 0x10000002 software_reset, Unknown:0x2\n",
                  "software_reset", "0x10000002", "software_reset,Unknown:0x2"},
        ResetCase{"unnamed_only", Cell(0x2), "Reset causes: 0x2 Unknown:0x2\n", "0x2", "0x2", "Unknown:0x2"},
        ResetCase{"missing_property", std::nullopt, "Reset causes: 0x0 \n", "0x0", "0x0", ""},
        ResetCase{"two_cells_count_as_none", Cell(0x10) + Cell(0x10), "Reset causes: 0x0 \n", "0x0", "0x0", ""}),
    [](const ::testing::TestParamInfo<ResetCase>& param) { return std::string(param.param.name); });

// The panic flag on a device that is otherwise clean.
struct PanicFlagCase {
    const char* name;
    std::optional<std::string> content; // none: the file is missing
    bool directory;                     // a directory in its place: read() fails
    bool due;
    const char* message;                // expected on standard error, or empty
};

class PanicFlagTest : public CrashRecordTest, public ::testing::WithParamInterface<PanicFlagCase> {};

TEST_P(PanicFlagTest, DecidesAndReports)
{
    const PanicFlagCase& c = GetParam();
    m_device.Remove(kPanicFlag);
    if (c.directory)
        m_device.MakeDirectory(kPanicFlag);
    else if (c.content)
        m_device.WriteFile(kPanicFlag, *c.content);

    const RunResult result = m_device.Run();

    EXPECT_EQ(result.exit_status, c.due ? 0 : 1) << result.standard_error;
    EXPECT_THAT(result.standard_error, HasSubstr(c.due ? kDump : kNoDump));
    if (*c.message != '\0')
        EXPECT_THAT(result.standard_error, HasSubstr(c.message));
    else
        EXPECT_THAT(result.standard_error, Not(HasSubstr("panic flag")));
}

INSTANTIATE_TEST_SUITE_P(
    Outcomes, PanicFlagTest,
    ::testing::Values(PanicFlagCase{"set", "1\n", false, true, ""},
                      PanicFlagCase{"only_first_byte_counts_set", "10", false, true, ""},
                      PanicFlagCase{"clear", "0\n", false, false, ""},
                      PanicFlagCase{"only_first_byte_counts_clear", "01", false, false, ""},
                      PanicFlagCase{"unrecognised", "y", false, false, "Unrecognised panic flag\n"},
                      PanicFlagCase{"empty", "", false, false, "Failed to read panic flag: empty\n"},
                      PanicFlagCase{"unreadable", std::nullopt, true, false,
                                    "Failed to read panic flag: Is a directory\n"},
                      PanicFlagCase{"missing", std::nullopt, false, false,
                                    "Failed to open panic flag file: /proc/panic_flag: No such file or directory (2)\n"}),
    [](const ::testing::TestParamInfo<PanicFlagCase>& param) { return std::string(param.param.name); });

TEST_F(CrashRecordTest, TriggerValueIsRecorded)
{
    for (const auto& [content, triggered] : {std::pair{"0x10", "16"}, {"0b101\n", "5"}, {" 012", "10"}}) {
        SCOPED_TRACE(content);
        m_device.WriteFile(kTrigger, content);
        const RunResult result = m_device.Run();
        EXPECT_EQ(result.exit_status, 0) << result.standard_error;
        EXPECT_EQ(InfoValue("triggered"), triggered);
    }
}

TEST_F(CrashRecordTest, TriggerWithoutDigitsIsNotDue)
{
    m_device.WriteFile(kTrigger, "none\n");

    const RunResult result = m_device.Run();

    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.standard_error, std::string("Reset causes: 0x1 power_on_reset\n") + kNoDump);
}

TEST_F(CrashRecordTest, UnreadableTriggerIsReportedAtEachRead)
{
    m_device.Remove(kTrigger);
    const std::string message =
        "Failed to determine trigger_dump state: /sys/class/mem/lastkmsg/trigger_dump: No such file or directory (2)\n";

    // Clean otherwise: only the decision reads the trigger.
    RunResult result = m_device.Run();
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.standard_error, "Reset causes: 0x1 power_on_reset\n" + message + kNoDump);

    // Due by the watchdog: the decision never reaches the trigger, the record reads it once.
    m_device.SetResetCauses(0x10);
    result = m_device.Run();
    EXPECT_EQ(result.exit_status, 0) << result.standard_error;
    EXPECT_THAT(result.standard_error, HasSubstr(message));
    EXPECT_EQ(result.standard_error.find(message), result.standard_error.rfind(message));
    EXPECT_EQ(InfoValue("triggered"), std::nullopt);
}

TEST_F(CrashRecordTest, KernelLogClassificationIsTheBaseOfTheRecord)
{
    sandbox::PrepareCrashedDevice(m_device);

    const RunResult result = m_device.Run();

    EXPECT_EQ(result.exit_status, 0) << result.standard_error;
    const Info info = ReadInfo();
    EXPECT_EQ(info.at("assert"), "frame_queue_depth(q) < 64\\x0aBacktrace: 0x10f3c 0x11a08");
    EXPECT_EQ(info.at("process"), "player");
    EXPECT_EQ(info.at("lmplay"), "playing presentation 'lobby'");
    EXPECT_EQ(info.at("script_name"), "lobby.brs");
    EXPECT_EQ(info.at("script_hash"), "9f86d081884c7d65");
    EXPECT_EQ(info.at("reset"), "watchdog_reset");
}

TEST_F(CrashRecordTest, MissingKernelLogStillGivesTheResetKeys)
{
    m_device.SetResetCauses(0x10);
    m_device.Remove(kKernelLog);

    const RunResult result = m_device.Run();

    EXPECT_EQ(result.exit_status, 0) << result.standard_error;
    const Info info = ReadInfo();
    EXPECT_EQ(info.at("type"), "post-mortem");
    EXPECT_EQ(info.at("reset_flag_strings"), "watchdog_reset");
    for (const char* key : {"assert", "process", "lmplay", "forced", "script_name", "script_hash"})
        EXPECT_EQ(info.count(key), 0u) << key;
}

// The classifier keeps one line in memory at a time, so a log many times the
// size of another must not raise the collector's peak memory.
TEST_F(CrashRecordTest, PeakMemoryDoesNotGrowWithTheKernelLog)
{
    m_device.SetResetCauses(0x10);
    const std::string line = "6,1021,8812331,-;usb 1-1: new high-speed USB device number 2 using ci_hdrc\n";
    auto peak_with_lines = [&](size_t lines) {
        {
            // Freed before the run: the sandbox's child starts as a copy of
            // this process, and its peak counts from before the exec.
            std::string log;
            log.reserve(lines * line.size());
            for (size_t i = 0; i < lines; ++i)
                log += line;
            m_device.WriteFile(kKernelLog, log);
        }
        const RunResult result = m_device.Run();
        EXPECT_EQ(result.exit_status, 0) << result.standard_error;
        return result.max_rss_kib;
    };

    const long small = peak_with_lines(1000);      // about 80 KB
    const long large = peak_with_lines(100000);    // about 8 MB
    EXPECT_LT(large - small, 1024) << "peak KiB " << small << " -> " << large;
}

} // namespace
