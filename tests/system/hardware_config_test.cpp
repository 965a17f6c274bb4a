#include <gtest/gtest.h>


#include <string>

#include "device_root.h"
#include "environment_image.h"
#include "hardware.h"
#include "sandbox_test.h"
#include "scenario.h"

namespace {


// How a clean boot ends once the hardware configuration is in place.
constexpr const char* kNoDump = "Reset causes: 0x1 power_on_reset\nNo post-mortem crash dump available.\n";
constexpr const char* kCorrupt = "BOOTLOADER ENVIRONMENT CORRUPT. PLEASE RUN MANUFACTURING TEST\n";
constexpr const char* kUnknownRecord = "Manufacturing record format '' not supported; hardware flags cleared\n";
constexpr uint32_t kEraseSize = 128 * 1024;

// A production device whose identity the tests then take apart.
class HardwareConfigSystemTest : public sandbox::SandboxTest {
protected:
    HardwareConfigSystemTest() : SandboxTest("clean-boot") {}

    // The clean boot with another environment partition.
    void ReplaceEnvironment(std::string image, std::vector<uint32_t> bad_blocks)
    {
        sim::Scenario scenario = sandbox::BuiltInScenario("clean-boot");
        scenario.flash["flash0.nvram"] = {std::move(image), std::move(bad_blocks)};
        sim::Apply(scenario, m_device);
    }
};

TEST_F(HardwareConfigSystemTest, ProductionDeviceReadsItsIdentityQuietly)
{
    const auto result = m_device.Run();

    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.standard_error, kNoDump);
}

TEST_F(HardwareConfigSystemTest, EnvironmentInTheSecondBlockWhenTheFirstIsBad)
{
    const std::string environment = sim::UbootEnvironmentImage({{"LM_FORMAT", "1"}, {"LM_HWFLAGS", "1"}}, kEraseSize);
    ReplaceEnvironment(environment, {0});

    const auto result = m_device.Run();

    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.standard_error, kNoDump);
}

TEST_F(HardwareConfigSystemTest, CorruptEnvironmentIsReportedOnce)
{
    for (const bool table_present : {true, false}) {
        ReplaceEnvironment(std::string(4 * kEraseSize, '\xff'), {});
        if (!table_present)
            m_device.Remove("/proc/mtd");

        const auto result = m_device.Run();

        EXPECT_EQ(result.exit_status, 1);
        EXPECT_EQ(result.standard_error, std::string(kCorrupt) + kUnknownRecord + kNoDump);
        EXPECT_TRUE(m_device.Exists("/var/lock/crash-dump-complete"));
    }
}

class SiliconSystemTest : public HardwareConfigSystemTest {
protected:
    void SetUp() override
    {
        HardwareConfigSystemTest::SetUp();
        // A board file that names no SoC sends the collector to the registers.
        m_device.WriteFile("/proc/boardid", "Family: corvan\nID: 0x1a\n", 0444);
    }
};

TEST_F(SiliconSystemTest, UlzFromItsRegisters)
{
    sim::SetSiliconRegisters(m_device, 0x00650102, 0x40);

    const auto result = m_device.Run();

    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.standard_error, kNoDump);
}

TEST_F(SiliconSystemTest, OtherSiliconEndsTheRunBeforeTheLock)
{
    sim::SetSiliconRegisters(m_device, 0x00630001, 0x40);

    const auto result = m_device.Run();

    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.standard_error, "crash-dump caught exception: Unexpected silicon type\n");
    EXPECT_FALSE(m_device.Exists("/var/lock/crash-dump-complete.tmp"));
    EXPECT_FALSE(m_device.Exists("/var/lock/crash-dump-complete"));
}

} // namespace
