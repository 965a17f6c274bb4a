#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>

#include "hardware/hardware_config.h"
#include "hardware/mac_address.h"
#include "param_name.h"
#include "temp_directory.h"

namespace {

namespace fs = std::filesystem;
using Variables = std::map<std::string, std::string>;

constexpr const char* kZeroFlags = "Hardware configuration bitfield is zero. Please reprogram SRB\n";
constexpr uint64_t kNorva = uint64_t{1} << 38;
constexpr uint64_t kQx610 = uint64_t{3} << 42;

// A device made of files in a directory and an environment in memory.
class HardwareConfigTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        fs::create_directory(m_directory + "/net");
        WriteBoardId("SoC: i.MX6ULZ\n");
    }
    void WriteBoardId(const std::string& text) const { std::ofstream(m_directory + "/boardid") << text; }

    void AddInterface(const std::string& name, const std::string& address) const
    {
        fs::create_directory(m_directory + "/net/" + name);
        std::ofstream(m_directory + "/net/" + name + "/address") << address;
    }

    HardwareConfig::Sources Sources()
    {
        return {[this] { return BootloaderEnvironment{m_variables, {}}; },
                [this] {
                    ++m_silicon_reads;
                    return std::string("i.MX6ULZ rev2.0");
                },
                m_directory + "/boardid", m_directory + "/net/"};
    }

    // Constructs the configuration and returns what it printed.
    template <typename Check>
    std::string Construct(Check check)
    {
        ::testing::internal::CaptureStderr();
        {
            const HardwareConfig config(Sources());
            check(config);
        }
        return ::testing::internal::GetCapturedStderr();
    }

    const test_support::TempDirectory m_temporary{"hardware-config"};
    const std::string m_directory = m_temporary.Path();
    Variables m_variables{{"LM_FORMAT", "1"}};
    int m_silicon_reads = 0;
};

TEST_F(HardwareConfigTest, SocFromTheBoardFileLeavesTheRegistersAlone)
{
    Construct([](const HardwareConfig& config) { EXPECT_EQ(config.GetSoc(), "i.MX6ULZ"); });
    EXPECT_EQ(m_silicon_reads, 0);

    WriteBoardId("ID: 0x12\n");
    Construct([](const HardwareConfig& config) {
        EXPECT_EQ(config.GetSoc(), "i.MX6ULZ rev2.0");
        EXPECT_EQ(config.GetBoardId(), 18u);
    });
    EXPECT_EQ(m_silicon_reads, 1);
}

TEST_F(HardwareConfigTest, SiliconErrorsEndConstruction)
{
    WriteBoardId("");
    auto sources = Sources();
    sources.identify_silicon = []() -> std::string { throw std::runtime_error("Unexpected silicon type"); };
    EXPECT_THROW(HardwareConfig{sources}, std::runtime_error);
    // The failed construction left the singleton free.
    EXPECT_NO_THROW(HardwareConfig{Sources()});
}

TEST_F(HardwareConfigTest, RecordOfAnotherFormatIsIgnored)
{
    for (const Variables& variables : {Variables{{"LM_FORMAT", "01"}}, Variables{}}) {
        m_variables = variables;
        m_variables.insert({{"LM_HWFLAGS", "0x7"},
                            {"LM_OEM_ID", "Norva"},
                            {"LM_OEM_MODEL", "QX610"},
                            {"LM_HWREV", "3"},
                            {"LM_SERIAL", "D4E91K002317"},
                            {"LM_ETH0_HWADDR", "00:11:22:33:44:55"}});

        const std::string printed = Construct([](const HardwareConfig& config) {
            EXPECT_EQ(config.GetHardwareFlags(), 0u);
            EXPECT_EQ(config.GetOemId(), "");
            EXPECT_EQ(config.GetOemModel(), "");
            EXPECT_EQ(config.GetSerialNumber(), "");
            EXPECT_EQ(config.GetHardwareRevision(), "");
            EXPECT_EQ(config.GetWiredMacAddress(), "");
            EXPECT_EQ(config.GetWirelessMacAddress(), "");
        });
        EXPECT_NE(printed, "");
        EXPECT_EQ(printed.find(kZeroFlags), std::string::npos);
    }
}

struct FlagCase {
    const char* what;
    Variables variables;
    uint64_t flags;
    bool zero_message;
};

class HardwareFlagsTest : public HardwareConfigTest, public ::testing::WithParamInterface<FlagCase> {};

TEST_P(HardwareFlagsTest, FromTheRecordAndTheOemRules)
{
    m_variables.insert(GetParam().variables.begin(), GetParam().variables.end());

    const std::string printed = Construct(
        [](const HardwareConfig& config) { EXPECT_EQ(config.GetHardwareFlags(), GetParam().flags); });

    EXPECT_EQ(printed, GetParam().zero_message ? kZeroFlags : "");
}

INSTANTIATE_TEST_SUITE_P(
    Records, HardwareFlagsTest,
    ::testing::Values(
        FlagCase{"absent means every feature", {}, UINT64_MAX, false},
        FlagCase{"high bits", {{"LM_HWFLAGS", "0x8000000000000001"}}, 0x8000000000000001, false},
        FlagCase{"octal", {{"LM_HWFLAGS", "010"}}, 8, false},
        FlagCase{"stops at the first bad character", {{"LM_HWFLAGS", "12abc"}}, 12, false},
        FlagCase{"zero", {{"LM_HWFLAGS", "0"}}, 0, true},
        FlagCase{"Norva on zero flags", {{"LM_HWFLAGS", "0"}, {"LM_OEM_ID", "Norva"}}, kNorva, true},
        FlagCase{"norva", {{"LM_HWFLAGS", "0x5"}, {"LM_OEM_ID", "norva"}}, 5, false},
        FlagCase{"Norva with a trailing blank", {{"LM_HWFLAGS", "0x5"}, {"LM_OEM_ID", "Norva "}}, 5, false},
        FlagCase{"QX610 rev 3", {{"LM_HWFLAGS", "0x1"}, {"LM_OEM_MODEL", "QX610"}, {"LM_HWREV", "3"}}, kQx610 | 1,
                 false},
        FlagCase{"QX610 rev 0x4", {{"LM_HWFLAGS", "0x1"}, {"LM_OEM_MODEL", "QX610"}, {"LM_HWREV", "0x4"}},
                 kQx610 | 1, false},
        FlagCase{"QX610 rev 2", {{"LM_HWFLAGS", "0x1"}, {"LM_OEM_MODEL", "QX610"}, {"LM_HWREV", "2"}}, 1, false},
        FlagCase{"QX610 without revision", {{"LM_HWFLAGS", "0x1"}, {"LM_OEM_MODEL", "QX610"}}, 1, false},
        FlagCase{"QX610 rules only set bits", {{"LM_OEM_MODEL", "QX610"}, {"LM_HWREV", "4"}}, UINT64_MAX, false}),
    test_support::NameFromWhat());

TEST_F(HardwareConfigTest, WirelessOnlyWhereTheFlagsSaySo)
{
    const std::pair<const char*, bool> cases[] = {{"0x4", true}, {"0x3", false}, {"0", false}, {nullptr, true}};
    for (const auto& [flags, wireless] : cases) {
        m_variables.erase("LM_HWFLAGS");
        if (flags != nullptr)
            m_variables["LM_HWFLAGS"] = flags;
        Construct([&](const HardwareConfig& config) { EXPECT_EQ(config.HasWireless(), wireless) << (flags ? flags : "absent"); });
    }
}

TEST_F(HardwareConfigTest, IdentityFromTheRecord)
{
    m_variables.insert({{"LM_SERIAL", "D4E91K002317"},
                        {"LM_HWREV", "0x0a"},
                        {"LM_OEM_ID", "Acme"},
                        {"LM_OEM_MODEL", "S1"},
                        {"LM_ETH0_HWADDR", "0:11:22:AA:bb:C"},
                        {"LM_WLAN0_HWADDR", "00:11:22:AA:BB:CC"}});
    AddInterface("wlan0", "02:00:00:00:00:01\n");

    Construct([](const HardwareConfig& config) {
        EXPECT_EQ(config.GetPlatformName(), "corvan");
        EXPECT_EQ(config.GetSerialNumber(), "D4E91K002317");
        EXPECT_EQ(config.GetHardwareRevision(), "10");
        EXPECT_EQ(config.GetOemId(), "Acme");
        EXPECT_EQ(config.GetOemModel(), "S1");
        EXPECT_EQ(config.GetWiredMacAddress(), "00:11:22:aa:bb:0c");
        EXPECT_EQ(config.GetWirelessMacAddress(), "00:11:22:aa:bb:cc");
    });
}

TEST(MacAddressTest, SixHexBytesOnly)
{
    const std::pair<std::string, std::string> cases[] = {
        {"90:AC:3F:1A:2B:3C", "90:ac:3f:1a:2b:3c"}, {"90:ac:3f:1a:2b", ""}, {"90:ac:3f:1a:2b:3c:4d", ""},
        {"90:ac:3f:1a:2b:3c4", ""}, {"90-ac-3f-1a-2b-3c", ""}, {"90::3f:1a:2b:3c", ""},
        {"90:ac:3g:1a:2b:3c", ""}, {"90:ac:3f:1a:2b:3c ", ""}, {"", ""}};
    for (const auto& [text, formatted] : cases)
        EXPECT_EQ(NormaliseMacAddress(text), formatted) << text;
}

TEST_F(HardwareConfigTest, WirelessAddressFromTheKernel)
{
    Construct([](const HardwareConfig& config) { EXPECT_EQ(config.GetWirelessMacAddress(), ""); });

    AddInterface("wlan0", "02:AB:00:00:00:01\n");
    Construct([](const HardwareConfig& config) { EXPECT_EQ(config.GetWirelessMacAddress(), "02:ab:00:00:00:01"); });

    m_variables["LM_WLAN0_HWADDR"] = "not a MAC";
    Construct([](const HardwareConfig& config) { EXPECT_EQ(config.GetWirelessMacAddress(), "02:ab:00:00:00:01"); });

    // The interface is there but tells no address.
    fs::remove(m_directory + "/net/wlan0/address");
    Construct([](const HardwareConfig& config) { EXPECT_EQ(config.GetWirelessMacAddress(), ""); });
}

} // namespace
