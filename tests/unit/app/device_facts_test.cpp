#include <gtest/gtest.h>

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "app/customer_ubis.h"
#include "app/device_facts.h"
#include "images.h"
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
    try {
        f();
    } catch (...) {
        testing::internal::GetCapturedStderr();
        throw;
    }
    return testing::internal::GetCapturedStderr();
}

std::string Replace(std::string text, const std::string& from, const std::string& to)
{
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

struct BootCase {
    const char* reported;
    const char* stored;
    const char* message;
};

class NormaliseBootVersionTest : public ::testing::TestWithParam<BootCase> {};

TEST_P(NormaliseBootVersionTest, StoresDigitsFirstAndReportsTheOdd)
{
    const BootCase& c = GetParam();
    std::string stored;
    EXPECT_EQ(StandardErrorOf([&] { stored = NormaliseBootVersion(c.reported); }), c.message);
    EXPECT_EQ(stored, c.stored);
}

INSTANTIATE_TEST_SUITE_P(Versions, NormaliseBootVersionTest,
                         ::testing::Values(BootCase{"", "0.0.0", "Empty boot version from boot loader. Bad.\n"},
                                           BootCase{"1.2.3", "1.2.3", ""}, BootCase{"7abc-x", "7abc-x", ""},
                                           BootCase{"abc-1.2.3", "1.2.3", ""}, BootCase{"abc-", "", ""},
                                           BootCase{"a-b-c", "b-c", ""},
                                           BootCase{"v1.2.3", "v1.2.3",
                                                    "Boot version in incorrect format: 'v1.2.3'\n"}));

struct TimeCase {
    std::time_t now;
    std::optional<std::string> stamp;
};

class FormatCollectionTimeTest : public ::testing::TestWithParam<TimeCase> {};

TEST_P(FormatCollectionTimeTest, StampsOnlyASetClock)
{
    EXPECT_EQ(FormatCollectionTime(GetParam().now), GetParam().stamp) << GetParam().now;
}

INSTANTIATE_TEST_SUITE_P(Clock, FormatCollectionTimeTest,
                         ::testing::Values(TimeCase{-1, std::nullopt}, TimeCase{0, std::nullopt},
                                           TimeCase{1388534400, std::nullopt},
                                           TimeCase{1388534401, "20140101T000001Z"},
                                           TimeCase{1706745599, "20240131T235959Z"},
                                           TimeCase{1709208000, "20240229T120000Z"}));

TEST(SaltTest, HexIsLowerCaseHighNibbleFirst)
{
    const unsigned char bytes[] = {0x00, 0x0f, 0xf0, 0xab, 0xff};
    EXPECT_EQ(HexEncode(bytes, sizeof bytes), "000ff0abff");
}

TEST(SaltTest, FreshForEveryDump)
{
    const std::string first = ReadSalt("/dev/urandom");
    EXPECT_EQ(first.size(), 32u);
    EXPECT_EQ(first.find_first_not_of("0123456789abcdef"), std::string::npos) << first;
    EXPECT_NE(ReadSalt("/dev/urandom"), first);
}

TEST(SaltTest, NeedsAllSixteenBytes)
{
    ScratchRoot root;
    root.Write("/short", "0123456789abcde");
    EXPECT_THROW(ReadSalt(root.Path() + "/short"), std::runtime_error);
    try {
        ReadSalt(root.Path() + "/missing");
        FAIL() << "no error";
    } catch (const ErrnoException& e) {
        EXPECT_EQ(e.what(), root.Path() + "/missing: No such file or directory (2)");
    }
}

struct UbiCase {
    const char* name;
    std::optional<std::string> count;
    // One entry per volume index; nullopt leaves that volume without a name.
    std::vector<std::optional<std::string>> names;
    std::string joined;
    // "{ubi}" stands for the device's directory.
    std::string messages;

    friend void PrintTo(const UbiCase& c, std::ostream* out) { *out << c.name; }
};

class CustomerUbiVolumesTest : public ::testing::TestWithParam<UbiCase> {};

TEST_P(CustomerUbiVolumesTest, JoinsTheCustomersVolumes)
{
    const UbiCase& c = GetParam();
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

const std::string kNoName = ": No such file or directory (2)\n";

INSTANTIATE_TEST_SUITE_P(
    Volumes, CustomerUbiVolumesTest,
    ::testing::Values(
        UbiCase{"InVolumeOrder", "3\n", {"cust_a\n", "data\n", "cust_b\n"}, "cust_a:cust_b", ""},
        UbiCase{"NamesTrimmed", "1", {" \tcust_z \r\n"}, "cust_z", ""},
        UbiCase{"PrefixExactly", "3", {"cust", "Cust_a", "xcust_b"}, "", ""},
        UbiCase{"HexCount", "0x2\n", {"cust_x", "cust_y"}, "cust_x:cust_y", ""},
        UbiCase{"NoVolumes", "0\n", {"cust_a"}, "", ""},
        UbiCase{"GarbageCount", "many\n", {"cust_a"}, "", ""},
        UbiCase{"NoDevice", std::nullopt, {}, "", "Failed to read UBI list: {ubi}/volumes_count" + kNoName},
        UbiCase{"VolumeWithoutName",
                "3",
                {"cust_a", std::nullopt, "cust_c"},
                "cust_a:cust_c",
                "Failed to read UBI name: {ubi}/ubi0_1/name" + kNoName},
        UbiCase{"CountBeyondWhatUbiHolds",
                "4000000000",
                {"cust_a"},
                "cust_a",
                [] {
                    std::string all;
                    for (int i = 1; i < 128; ++i)
                        all += "Failed to read UBI name: {ubi}/ubi0_" + std::to_string(i) + "/name" + kNoName;
                    return all;
                }()}),
    [](const auto& test) { return std::string(test.param.name); });

// The whole set of facts, over a scratch device.
class AddDeviceFactsTest : public ::testing::Test {
protected:
    AddDeviceFactsTest()
    {
        identity.model = "QX610";
        identity.wired_mac = "00:11:22:33:44:55";
        identity.serial = "S0123";
        identity.hardware_revision = "3";
        identity.board_id = 0x1a;
        identity.board_name = "XT5";
        identity.soc = "i.MX6DL";
        identity.boot_version = "ldr-1.2.3";
    }

    // A device with every file in place.
    void Furnish() const
    {
        root.Write("/etc/lumora-version", "4.2.1\n");
        root.Write("/etc/lumora-image-name", " corvan-release\n");
        root.Write("/dev/console", "");
        root.Write("/dev/urandom", std::string("\x00\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0a\x0b\x0c\x0d\x0e\x0f", 16));
        root.Write("/sys/class/ubi/ubi0/volumes_count", "2\n");
        root.Write("/sys/class/ubi/ubi0/ubi0_0/name", "rootfs\n");
        root.Write("/sys/class/ubi/ubi0/ubi0_1/name", "cust_media\n");
    }

    std::string Add(CrashInfo& info, const PartitionOpener& open, std::time_t now) const
    {
        return StandardErrorOf([&] { AddDeviceFacts(info, identity, open, now, root.Path()); });
    }

    static NandAccess::Pointer RescuePartition(const std::string& name)
    {
        EXPECT_EQ(name, "flash0.rescue");
        auto nand = test_support::MemoryNand::Make(4096, 16);
        nand->WriteSkippingBadBlocks(sandbox::RescueFitImage("9.9.9", 1000));
        return nand;
    }

    static NandAccess::Pointer NoPartition(const std::string& name)
    {
        throw std::runtime_error("Failed to find NAND partition named '" + name + "'");
    }

    ScratchRoot root;
    DeviceIdentity identity;
};

TEST_F(AddDeviceFactsTest, FurnishedDevice)
{
    Furnish();
    CrashInfo info{{"type", "watchdog"}, {"family", "stale"}};
    EXPECT_EQ(Add(info, RescuePartition, 1706745599), "");
    const CrashInfo expected{
        {"type", "watchdog"},
        {"family", "corvan"},
        {"model", "QX610"},
        {"eth_mac", "00:11:22:33:44:55"},
        {"wifi_mac", ""},
        {"serial", "S0123"},
        {"hwrev", "3"},
        {"board", "0x1a"},
        {"board_name", "XT5"},
        {"soc", "i.MX6DL"},
        {"run", "4.2.1\n"},
        {"boot", "1.2.3"},
        {"rescue", "9.9.9"},
        {"boot_extra", "ldr-1.2.3"},
        {"image_name", "corvan-release"},
        {"time", "20240131T235959Z"},
        {"td", "0"},
        {"console", "1"},
        {"customer_ubis", "cust_media"},
        {"salt", "000102030405060708090a0b0c0d0e0f"},
    };
    EXPECT_EQ(info, expected);
}

TEST_F(AddDeviceFactsTest, BareDeviceLosesOnlyTheNiceToHaveFacts)
{
    root.Write("/dev/urandom", std::string(16, '\x11'));
    identity.boot_version = "";
    CrashInfo info;
    const std::string messages = Add(info, NoPartition, 1388534400);
    EXPECT_EQ(messages, Replace("Empty boot version from boot loader. Bad.\n"
                                "Unable to read rescue kernel version: "
                                "Failed to find NAND partition named 'flash0.rescue'\n"
                                "Failed to read image name: {root}/etc/lumora-image-name"
                                    + kNoName + "Failed to read UBI list: {root}/sys/class/ubi/ubi0/volumes_count"
                                    + kNoName,
                                "{root}", root.Path()));
    for (const char* absent : {"boot_extra", "image_name", "time", "customer_ubis"})
        EXPECT_EQ(info.count(absent), 0u) << absent;
    EXPECT_EQ(info.at("run"), "");
    EXPECT_EQ(info.at("boot"), "0.0.0");
    EXPECT_EQ(info.at("rescue"), "");
    EXPECT_EQ(info.at("console"), "0");
    EXPECT_EQ(info.at("salt"), std::string(32, '1'));
}

TEST_F(AddDeviceFactsTest, WithoutRandomnessTheFactsSoFarStay)
{
    Furnish();
    fs::remove(root.Path() + "/dev/urandom");
    CrashInfo info;
    try {
        Add(info, RescuePartition, 1706745599);
        FAIL() << "no error";
    } catch (const ErrnoException& e) {
        EXPECT_EQ(e.what(), root.Path() + "/dev/urandom: No such file or directory (2)");
    }
    EXPECT_EQ(info.count("salt"), 0u);
    EXPECT_EQ(info.at("customer_ubis"), "cust_media");
    EXPECT_EQ(info.at("family"), "corvan");
}

} // namespace
