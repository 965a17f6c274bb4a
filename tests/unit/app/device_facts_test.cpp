#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "app/device_facts.h"
#include "fit_image.h"
#include "memory_nand.h"
#include "platform/errno_exception.h"
#include "temp_directory.h"

namespace {

// A scratch tree stands in for the device's root.
class DeviceFactsTest : public ::testing::Test {
protected:
    void Write(const std::string& inside, const std::string& content) const
    {
        std::filesystem::create_directories(std::filesystem::path(m_root + inside).parent_path());
        std::ofstream(m_root + inside) << content;
    }

    test_support::TempDirectory m_directory{"device-facts"};
    const std::string& m_root = m_directory.Path();
};

// Dumps are compared by a version that starts with a digit; odd ones are kept, and said.
TEST_F(DeviceFactsTest, BootVersionIsNormalised)
{
    testing::internal::CaptureStderr();
    EXPECT_EQ(NormaliseBootVersion("7abc-x"), "7abc-x");
    EXPECT_EQ(NormaliseBootVersion("a-b-c"), "b-c");
    EXPECT_EQ(NormaliseBootVersion("v1.2.3"), "v1.2.3");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Boot version in incorrect format: 'v1.2.3'\n");
}

// A clock that was never set would only mislead whoever sorts the dumps.
TEST_F(DeviceFactsTest, OnlyASetClockStampsTheDump)
{
    EXPECT_EQ(FormatCollectionTime(1388534400), std::nullopt);
    EXPECT_EQ(FormatCollectionTime(1388534401), "20140101T000001Z");
}

const std::string kNoFile = ": No such file or directory (2)\n";
const DeviceIdentity kIdentity{"QX610", "00:11:22:33:44:55", "", "S0123", "3", 0x1a, "XT5", "i.MX6DL", "ldr-1.2.3"};

TEST_F(DeviceFactsTest, FurnishedDevice)
{
    Write("/etc/lumora-version", "4.2.1\n");
    Write("/etc/lumora-image-name", " \tcorvan-release\r\n");
    Write("/dev/console", "");
    Write("/dev/urandom", "\x01\x23\x45\x67\x89\xab\xcd\xef\xfe\xdc\xba\x98\x76\x54\x32\x10");
    Write("/sys/class/ubi/ubi0/volumes_count", "0x4\n");
    for (const auto& [index, name] : {std::pair("0", "cust_media\n"), {"1", "rootfs\n"}, {"3", "cust_logs"}})
        Write("/sys/class/ubi/ubi0/ubi0_" + std::string(index) + "/name", name);
    // The partition's name stands in for the version, to show which one was read.
    auto rescue = [](const std::string& name) {
        auto nand = test_support::MemoryNand::Make(4096, 16);
        nand->WriteSkippingBadBlocks(sim::RescueFitImage(name, 1000));
        return NandAccess::Pointer(nand);
    };

    // What the kernel log gave stays unless a fact has the same name.
    CrashInfo info{{"process", "player"}, {"family", "stale"}};
    testing::internal::CaptureStderr();
    AddDeviceFacts(info, kIdentity, rescue, 1706745599, m_root);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Failed to read UBI name: " + m_root + "/sys/class/ubi/ubi0/ubi0_2/name" + kNoFile);
    EXPECT_EQ(info, (CrashInfo{{"process", "player"}, {"family", "corvan"}, {"model", "QX610"},
        {"eth_mac", "00:11:22:33:44:55"}, {"wifi_mac", ""}, {"serial", "S0123"}, {"hwrev", "3"}, {"board", "0x1a"},
        {"board_name", "XT5"}, {"soc", "i.MX6DL"}, {"run", "4.2.1\n"}, {"boot", "1.2.3"}, {"rescue", "flash0.rescue"},
        {"boot_extra", "ldr-1.2.3"}, {"image_name", "corvan-release"}, {"time", "20240131T235959Z"}, {"td", "0"},
        {"console", "1"}, {"customer_ubis", "cust_media:cust_logs"}, {"salt", "0123456789abcdeffedcba9876543210"}}));
}

// Only the salt may stop the facts; anything else missing costs its own key at
// most, with one line saying why.
TEST_F(DeviceFactsTest, BareDevice)
{
    DeviceIdentity identity = kIdentity;
    identity.boot_version = "";
    // Not even a standard exception from the partition costs more than its key.
    auto broken_partition = [](const std::string&) -> NandAccess::Pointer { throw 42; };
    CrashInfo info;
    testing::internal::CaptureStderr();
    EXPECT_THROW(AddDeviceFacts(info, identity, broken_partition, 1388534400, m_root), ErrnoException);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Empty boot version from boot loader. Bad.\n"
              "Unable to read rescue kernel version: Unknown exception\n"
              "Failed to read image name: " + m_root + "/etc/lumora-image-name" + kNoFile
              + "Failed to read UBI list: " + m_root + "/sys/class/ubi/ubi0/volumes_count" + kNoFile);
    EXPECT_EQ(info, (CrashInfo{{"family", "corvan"}, {"model", "QX610"}, {"eth_mac", "00:11:22:33:44:55"},
        {"wifi_mac", ""}, {"serial", "S0123"}, {"hwrev", "3"}, {"board", "0x1a"}, {"board_name", "XT5"},
        {"soc", "i.MX6DL"}, {"run", ""}, {"boot", "0.0.0"}, {"rescue", ""}, {"td", "0"}, {"console", "0"}}));
}

} // namespace
