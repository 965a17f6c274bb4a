#include <gtest/gtest.h>

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "app/customer_ubis.h"
#include "app/device_facts.h"
#include "fit_image.h"
#include "memory_nand.h"
#include "platform/errno_exception.h"

namespace {

namespace fs = std::filesystem;

// A scratch directory that stands in for the device's root.
class ScratchRoot {
public:
    ScratchRoot()
    {
        std::string pattern = (fs::temp_directory_path() / "device-facts.XXXXXX").string();
        if (mkdtemp(&pattern[0]) == nullptr)
            throw std::runtime_error("mkdtemp");
        m_path = pattern;
    }
    ~ScratchRoot() { fs::remove_all(m_path); }

    const std::string& Path() const { return m_path; }

    void Write(const std::string& inside, const std::string& content) const
    {
        const fs::path path = m_path + inside;
        fs::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << content;
    }

private:
    std::string m_path;
};

// Runs f with standard error captured; returns what it printed.
template <typename F>
std::string StandardErrorOf(F&& f)
{
    testing::internal::CaptureStderr();
    f();
    return testing::internal::GetCapturedStderr();
}

std::string Replace(std::string text, const std::string& from, const std::string& to)
{
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

TEST(NormaliseBootVersionTest, StoresDigitsFirstAndReportsTheOdd)
{
    const struct {
        const char* reported;
        const char* stored;
        const char* message;
    } cases[] = {
        {"", "0.0.0", "Empty boot version from boot loader. Bad.\n"},
        {"1.2.3", "1.2.3", ""},
        {"7abc-x", "7abc-x", ""},
        {"abc-1.2.3", "1.2.3", ""},
        {"abc-", "", ""},
        {"a-b-c", "b-c", ""},
        {"v1.2.3", "v1.2.3", "Boot version in incorrect format: 'v1.2.3'\n"},
    };
    for (const auto& c : cases) {
        std::string stored;
        EXPECT_EQ(StandardErrorOf([&] { stored = NormaliseBootVersion(c.reported); }), c.message);
        EXPECT_EQ(stored, c.stored) << c.reported;
    }
}

TEST(FormatCollectionTimeTest, StampsOnlyASetClock)
{
    const std::pair<std::time_t, std::optional<std::string>> cases[] = {
        {-1, std::nullopt},
        {1388534400, std::nullopt},
        {1388534401, "20140101T000001Z"},
        {1706745599, "20240131T235959Z"},
        {1709208000, "20240229T120000Z"},
    };
    for (const auto& [now, stamp] : cases)
        EXPECT_EQ(FormatCollectionTime(now), stamp) << now;
}

TEST(SaltTest, FreshHexForEveryDump)
{
    const std::string first = ReadSalt("/dev/urandom");
    EXPECT_EQ(first.size(), 32u);
    EXPECT_EQ(first.find_first_not_of("0123456789abcdef"), std::string::npos) << first;
    EXPECT_NE(ReadSalt("/dev/urandom"), first);

    ScratchRoot root;
    root.Write("/short", "0123456789abcde");
    EXPECT_THROW(ReadSalt(root.Path() + "/short"), std::runtime_error);
}

const std::string kNoName = ": No such file or directory (2)\n";

// The reports for the volumes from first up to last having no name.
std::string MissingNames(int first, int last)
{
    std::string lines;
    for (int i = first; i < last; ++i)
        lines += "Failed to read UBI name: {ubi}/ubi0_" + std::to_string(i) + "/name" + kNoName;
    return lines;
}

TEST(CustomerUbiVolumesTest, JoinsTheCustomersVolumes)
{
    const struct {
        std::optional<std::string> count;
        // One entry per volume index; nullopt leaves that volume without a name.
        std::vector<std::optional<std::string>> names;
        std::string joined;
        std::string messages; // "{ubi}" stands for the device's directory
    } cases[] = {
        {"3\n", {"cust_a\n", "data\n", "cust_b\n"}, "cust_a:cust_b", ""},
        {"0x3", {" \tcust_z \r\n", "cust", "Cust_a"}, "cust_z", ""},
        {"many\n", {"cust_a"}, "", ""},
        {std::nullopt, {}, "", "Failed to read UBI list: {ubi}/volumes_count" + kNoName},
        {"3", {"cust_a", std::nullopt, "cust_c"}, "cust_a:cust_c", MissingNames(1, 2)},
        // Walks the 128 volumes a UBI device can hold, not four billion.
        {"4000000000", {"cust_a"}, "cust_a", MissingNames(1, 128)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.count.value_or("no count"));
        ScratchRoot root;
        if (c.count)
            root.Write("/ubi0/volumes_count", *c.count);
        for (size_t i = 0; i < c.names.size(); ++i)
            if (c.names[i])
                root.Write("/ubi0/ubi0_" + std::to_string(i) + "/name", *c.names[i]);

        const std::string ubi = root.Path() + "/ubi0";
        std::string joined;
        EXPECT_EQ(StandardErrorOf([&] { joined = CustomerUbiVolumes(ubi); }), Replace(c.messages, "{ubi}", ubi));
        EXPECT_EQ(joined, c.joined);
    }
}

const DeviceIdentity kIdentity{"QX610", "00:11:22:33:44:55", "", "S0123", "3", 0x1a, "XT5", "i.MX6DL", "ldr-1.2.3"};

NandAccess::Pointer RescuePartition(const std::string& name)
{
    EXPECT_EQ(name, "flash0.rescue");
    auto nand = test_support::MemoryNand::Make(4096, 16);
    nand->WriteSkippingBadBlocks(sim::RescueFitImage("9.9.9", 1000));
    return nand;
}

TEST(AddDeviceFactsTest, FurnishedDevice)
{
    ScratchRoot root;
    root.Write("/etc/lumora-version", "4.2.1\n");
    root.Write("/etc/lumora-image-name", " corvan-release\n");
    root.Write("/dev/console", "");
    root.Write("/dev/urandom", std::string("\x00\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0a\x0b\x0c\x0d\x0e\x0f", 16));
    root.Write("/sys/class/ubi/ubi0/volumes_count", "2\n");
    root.Write("/sys/class/ubi/ubi0/ubi0_0/name", "rootfs\n");
    root.Write("/sys/class/ubi/ubi0/ubi0_1/name", "cust_media\n");

    CrashInfo info{{"type", "watchdog"}, {"family", "stale"}};
    EXPECT_EQ(StandardErrorOf([&] { AddDeviceFacts(info, kIdentity, RescuePartition, 1706745599, root.Path()); }),
              "");
    const CrashInfo expected{
        {"type", "watchdog"}, {"family", "corvan"}, {"model", "QX610"}, {"eth_mac", "00:11:22:33:44:55"},
        {"wifi_mac", ""}, {"serial", "S0123"}, {"hwrev", "3"}, {"board", "0x1a"}, {"board_name", "XT5"},
        {"soc", "i.MX6DL"}, {"run", "4.2.1\n"}, {"boot", "1.2.3"}, {"rescue", "9.9.9"},
        {"boot_extra", "ldr-1.2.3"}, {"image_name", "corvan-release"}, {"time", "20240131T235959Z"},
        {"td", "0"}, {"console", "1"}, {"customer_ubis", "cust_media"},
        {"salt", "000102030405060708090a0b0c0d0e0f"},
    };
    EXPECT_EQ(info, expected);
}

// Only the salt may stop the facts; anything else missing costs its own key at
// most, with one line saying why.
TEST(AddDeviceFactsTest, BareDevice)
{
    ScratchRoot root;
    DeviceIdentity identity = kIdentity;
    identity.boot_version = "";
    auto no_partition = [](const std::string& name) -> NandAccess::Pointer {
        throw std::runtime_error("Failed to find NAND partition named '" + name + "'");
    };
    CrashInfo info;
    testing::internal::CaptureStderr();
    EXPECT_THROW(AddDeviceFacts(info, identity, no_partition, 1388534400, root.Path()), ErrnoException);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              Replace("Empty boot version from boot loader. Bad.\n"
                      "Unable to read rescue kernel version: Failed to find NAND partition named 'flash0.rescue'\n"
                      "Failed to read image name: {root}/etc/lumora-image-name" + kNoName
                          + "Failed to read UBI list: {root}/sys/class/ubi/ubi0/volumes_count" + kNoName,
                      "{root}", root.Path()));
    for (const char* absent : {"boot_extra", "image_name", "time", "customer_ubis", "salt"})
        EXPECT_EQ(info.count(absent), 0u) << absent;
    for (const auto& [key, value] : CrashInfo{{"run", ""}, {"boot", "0.0.0"}, {"rescue", ""}, {"console", "0"}})
        EXPECT_EQ(info.at(key), value) << key;
}

} // namespace
