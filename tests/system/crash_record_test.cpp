#include <gmock/gmock.h>
#include <gtest/gtest.h>


#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>

#include "device_files.h"
#include "device_root.h"
#include "sandbox_test.h"

namespace {

using namespace sandbox::device_files;
using sim::RunResult;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

using Info = std::map<std::string, std::string>;

// Starts from a device whose previous run ended normally; each test adds the
// evidence it is about.
class CrashRecordTest : public sandbox::SandboxTest {
protected:
    CrashRecordTest() : SandboxTest("clean-boot") {}

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
};

TEST_F(CrashRecordTest, WatchdogResetIsDueWithoutTouchingTheCoreDevice)
{
    m_device.SetResetCauses(0x10);
    m_device.Remove(kCoreImage);

    const RunResult result = m_device.Run();

    EXPECT_EQ(result.exit_status, 0) << result.standard_error;
    EXPECT_THAT(result.standard_error, StartsWith("Reset causes: 0x10 watchdog_reset\n"));
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

    EXPECT_EQ(m_device.Run().exit_status, 0);
    EXPECT_EQ(ReadInfo().at("reset"), "power_on_reset");
}

TEST_F(CrashRecordTest, ResetCausesLineAndKeys)
{
    struct {
        std::optional<std::string> property; // none: the property is missing
        const char* line;
        const char* reset;
        const char* flag_strings;
    } const cases[] = {
        {std::string("\0\0\0\x30", 4), "Reset causes: 0x30 watchdog_reset, jtag_reset\n", "watchdog_reset",
         "watchdog_reset,jtag_reset"},
        {std::nullopt, "Reset causes: 0x0 \n", "0x0", ""},
        {std::string(8, '\x10'), "Reset causes: 0x0 \n", "0x0", ""}, // two cells are no reset causes
    };
    m_device.WriteFile(kPanicFlag, "1"); // due whatever the reset causes say
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        m_device.Remove(kResetCauses);
        if (c.property)
            m_device.WriteFile(kResetCauses, *c.property);

        const RunResult result = m_device.Run();

        EXPECT_EQ(result.exit_status, 0) << result.standard_error;
        EXPECT_THAT(result.standard_error, StartsWith(c.line));
        const Info info = ReadInfo();
        EXPECT_EQ(info.at("reset"), c.reset);
        EXPECT_EQ(info.at("reset_flag_strings"), c.flag_strings);
    }
}

// The panic flag on a device that is otherwise clean.
struct PanicFlagCase {
    const char* name;
    std::optional<std::string> content; // none: a directory (read() fails), or missing
    bool directory;
    bool due;
    const char* message; // expected on standard error, or empty
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
    ::testing::Values(PanicFlagCase{"set", "10", false, true, ""},
                      PanicFlagCase{"clear", "01", false, false, ""},
                      PanicFlagCase{"unrecognised", "y", false, false, "Unrecognised panic flag\n"},
                      PanicFlagCase{"empty", "", false, false, "Failed to read panic flag: empty\n"},
                      PanicFlagCase{"unreadable", std::nullopt, true, false,
                                    "Failed to read panic flag: Is a directory\n"},
                      PanicFlagCase{"missing", std::nullopt, false, false,
                                    "Failed to open panic flag file: /proc/panic_flag: No such file or directory (2)\n"}),
    [](const ::testing::TestParamInfo<PanicFlagCase>& param) { return std::string(param.param.name); });

TEST_F(CrashRecordTest, TriggerValueIsRecorded)
{
    m_device.WriteFile(kTrigger, "0x10");

    EXPECT_EQ(m_device.Run().exit_status, 0);
    EXPECT_EQ(ReadInfo().at("triggered"), "16");
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

    // Due by the watchdog: the decision stops before the trigger, the record reads it once.
    m_device.SetResetCauses(0x10);
    result = m_device.Run();
    EXPECT_EQ(result.exit_status, 0) << result.standard_error;
    EXPECT_EQ(result.standard_error.find(message), result.standard_error.rfind(message));
    EXPECT_NE(result.standard_error.find(message), std::string::npos);
    EXPECT_EQ(ReadInfo().count("triggered"), 0u);
}

TEST_F(CrashRecordTest, KernelLogClassificationIsTheBaseOfTheRecord)
{
    Prepare("watchdog-crash");

    EXPECT_EQ(m_device.Run().exit_status, 0);
    const Info info = ReadInfo();
    EXPECT_EQ(info.at("assert"), "frame_queue_depth(q) < 64\\x0aBacktrace: 0x10f3c 0x11a08");
    EXPECT_EQ(info.at("process"), "player");
    EXPECT_EQ(info.at("script_hash"), "9f86d081884c7d65");
    EXPECT_EQ(info.at("reset"), "watchdog_reset");
}

TEST_F(CrashRecordTest, MissingKernelLogStillGivesTheResetKeys)
{
    m_device.SetResetCauses(0x10);
    m_device.Remove(kKernelLog);

    EXPECT_EQ(m_device.Run().exit_status, 0);
    const Info info = ReadInfo();
    EXPECT_EQ(info.at("type"), "post-mortem");
    EXPECT_EQ(info.at("reset_flag_strings"), "watchdog_reset");
    EXPECT_EQ(info.count("assert") + info.count("process") + info.count("lmplay"), 0u);
}

// The classifier keeps one line in memory at a time, so a log a hundred
// times the size of another must not raise the collector's peak memory.
TEST_F(CrashRecordTest, PeakMemoryDoesNotGrowWithTheKernelLog)
{
    m_device.SetResetCauses(0x10);
    const std::string line = "6,1021,8812331,-;usb 1-1: new high-speed USB device number 2 using ci_hdrc\n";
    auto peak_with_lines = [&](size_t lines) {
        {
            // Written a line at a time, never held whole: the sandbox's child
            // starts as a copy of this process, and its peak counts from
            // before the exec (a sanitizer's allocator would not even give a
            // freed copy back).
            std::ofstream log(m_device.Path(kKernelLog), std::ios::binary | std::ios::trunc);
            for (size_t i = 0; i < lines; ++i)
                log << line;
        }
        const RunResult result = m_device.Run();
        EXPECT_EQ(result.exit_status, 0) << result.standard_error;
        EXPECT_GT(result.own_peak_kib, 0);
        return result.own_peak_kib;
    };

    const long small = peak_with_lines(1000);   // about 80 KB
    const long large = peak_with_lines(100000); // about 8 MB
    EXPECT_LT(large - small, 1024) << "peak KiB " << small << " -> " << large;
}

} // namespace
