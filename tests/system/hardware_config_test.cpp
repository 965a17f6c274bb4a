#include <gtest/gtest.h>


#include <string>

#include "device_root.h"
#include "sandbox_test.h"
#include "hardware.h"
#include "environment_image.h"
#include "scenarios.h"

namespace {


// How a clean boot ends once the hardware configuration is in place.
constexpr const char* kNoDump = "Reset causes: 0x1 power_on_reset\nNo post-mortem crash dump available.\n";
constexpr const char* kCorrupt = "BOOTLOADER ENVIRONMENT CORRUPT. PLEASE RUN MANUFACTURING TEST\n";
constexpr const char* kUnknownRecord = "Manufacturing record format '' not supported; hardware flags cleared\n";
constexpr uint32_t kEraseSize = 128 * 1024;

// A production device whose identity the tests then take apart.
class HardwareConfigSystemTest : public sandbox::SandboxTest {
protected:
    HardwareConfigSystemTest() : SandboxTest(sandbox::PrepareCleanBoot) {}

    // The environment partition alone, in place of the scenario's table.
    void ReplaceEnvironment(const std::string& content, std::vector<uint32_t> bad_blocks)
    {
        m_device.Remove("/proc/mtd");
        sandbox::AddMtdPartition(m_device, {"flash0.nvram", content, kEraseSize, 2048, 64, std::move(bad_blocks)});
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
    const std::string environment = sandbox::UbootEnvironmentImage({{"LM_FORMAT", "1"}, {"LM_HWFLAGS", "1"}}, kEraseSize);
    ReplaceEnvironment(std::string(kEraseSize, '\0') + environment + std::string(2 * kEraseSize, '\xff'), {0});

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
    sandbox::SetSiliconRegisters(m_device, 0x00650102, 0x40);

    const auto result = m_device.Run();

    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.standard_error, kNoDump);
}

TEST_F(SiliconSystemTest, OtherSiliconEndsTheRunBeforeTheLock)
{
    sandbox::SetSiliconRegisters(m_device, 0x00630001, 0x40);

    const auto result = m_device.Run();

    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.standard_error, "crash-dump caught exception: Unexpected silicon type\n");
    EXPECT_FALSE(m_device.Exists("/var/lock/crash-dump-complete.tmp"));
    EXPECT_FALSE(m_device.Exists("/var/lock/crash-dump-complete"));
}

} // namespace
