// Every input the collector reads, damaged one at a time the ways a crash, a
// worn flash or a broken kernel driver damage them. Whatever the damage, the
// run ends with one of its statuses and the message that goes with it: never
// a signal, never a hang.
//
// To cover a new input, add its rows to kHostileInputs, then regenerate the
// table in docs/hostile-input.md (see HostileInputDocTest below).

#include <gmock/gmock.h>
#include <gtest/gtest.h>


#include <cctype>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include "device_files.h"
#include "device_root.h"
#include "environment_image.h"
#include "fit_image.h"
#include "hardware.h"
#include "sandbox_test.h"
#include "scenario.h"

namespace {

using namespace sandbox::device_files;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr size_t kHugeSize = 4 << 20;

constexpr const char* kEnvironmentCorrupt = "BOOTLOADER ENVIRONMENT CORRUPT. PLEASE RUN MANUFACTURING TEST\n";

// An input is a path inside the device or, without a leading slash, the name
// of a NAND partition. A partition's damages keep its size unless they say
// otherwise; its random bytes fill it whole.
enum class Damage {
    kMissing,
    kEmpty,
    kTruncated,
    kDirectory,
    kRandomBytes,
    kLongLine,
    kHugeCount,        // a file: the largest 32-bit number
    kErased,           // a partition: all 0xff
    kCrcDamaged,       // a partition: the first byte of its stored CRC changed
    kAllBlocksBad,     // a partition: every block marked bad
    kTruncatedGzip,    // the rescue partition: the first half of its gzip image, erased flash after it
    kCorruptGzip,      // the rescue partition: bytes in the middle of its gzip image overwritten
    kHugeStringsBlock, // the rescue partition: an uncompressed image whose strings block is 0x40000 bytes
};

// The device around the damaged input, chosen so that the collector reads it.
enum class Device {
    kCleanBoot,   // power-on reset, nothing kept: every check of the decision runs
    kCoreKept,    // power-on reset, but a core image and its log were kept: a dump is due
    kSocUnnamed,  // core kept, and a board file naming no SoC: the SoC's registers are read
    kWlanUnnamed, // core kept, and an environment without a wireless address: the kernel's is read
};

struct HostileInput {
    const char* path;
    Damage damage;
    Device device;
    int status;
    const char* shows; // on standard error
    const char* hides; // absent from standard error, or nullptr
};

const HostileInput kHostileInputs[] = {
    {"/proc/device-tree/lumora/bootloader/imx-reset-cause", Damage::kMissing, Device::kCleanBoot, 1,
     "Reset causes: 0x0 \n", nullptr},
    {"/proc/device-tree/lumora/bootloader/imx-reset-cause", Damage::kEmpty, Device::kCleanBoot, 1,
     "Reset causes: 0x0 \n", nullptr},
    {"/proc/device-tree/lumora/bootloader/imx-reset-cause", Damage::kTruncated, Device::kCleanBoot, 1,
     "Reset causes: 0x0 \n", nullptr},
    {"/proc/device-tree/lumora/bootloader/imx-reset-cause", Damage::kDirectory, Device::kCleanBoot, 1,
     "Reset causes: 0x0 \n", nullptr},
    {"/proc/device-tree/lumora/bootloader/imx-reset-cause", Damage::kRandomBytes, Device::kCleanBoot, 1,
     "Reset causes: 0x0 \n", nullptr},
    {"/proc/device-tree/lumora/bootloader/imx-reset-cause", Damage::kLongLine, Device::kCleanBoot, 1,
     "Reset causes: 0x0 \n", nullptr},

    {"/dev/ltcore", Damage::kMissing, Device::kCoreKept, 1,
     "crash-dump caught exception: /dev/ltcore: No such file or directory (2)\n", nullptr},
    {"/dev/ltcore", Damage::kEmpty, Device::kCoreKept, 1, kNoDump, "ltcore"},
    {"/dev/ltcore", Damage::kTruncated, Device::kCoreKept, 0, kDump, nullptr},
    {"/dev/ltcore", Damage::kDirectory, Device::kCoreKept, 1, kNoDump, "ltcore"},
    {"/dev/ltcore", Damage::kRandomBytes, Device::kCoreKept, 0, kDump, nullptr},
    {"/dev/ltcore", Damage::kLongLine, Device::kCoreKept, 0, kDump, nullptr},

    {"/proc/panic_flag", Damage::kMissing, Device::kCleanBoot, 1,
     "Failed to open panic flag file: /proc/panic_flag: No such file or directory (2)\n", nullptr},
    {"/proc/panic_flag", Damage::kEmpty, Device::kCleanBoot, 1, "Failed to read panic flag: empty\n", nullptr},
    {"/proc/panic_flag", Damage::kTruncated, Device::kCleanBoot, 1, "Failed to read panic flag: empty\n", nullptr},
    {"/proc/panic_flag", Damage::kDirectory, Device::kCleanBoot, 1, "Failed to read panic flag: Is a directory\n",
     nullptr},
    {"/proc/panic_flag", Damage::kRandomBytes, Device::kCleanBoot, 1, "Unrecognised panic flag\n", nullptr},
    {"/proc/panic_flag", Damage::kLongLine, Device::kCleanBoot, 1, "Unrecognised panic flag\n", nullptr},

    {"/sys/class/mem/lastkmsg/trigger_dump", Damage::kMissing, Device::kCleanBoot, 1,
     "Failed to determine trigger_dump state: /sys/class/mem/lastkmsg/trigger_dump: No such file or directory (2)\n",
     nullptr},
    {"/sys/class/mem/lastkmsg/trigger_dump", Damage::kEmpty, Device::kCleanBoot, 1, kNoDump, "trigger_dump"},
    {"/sys/class/mem/lastkmsg/trigger_dump", Damage::kTruncated, Device::kCleanBoot, 1, kNoDump, "trigger_dump"},
    {"/sys/class/mem/lastkmsg/trigger_dump", Damage::kDirectory, Device::kCleanBoot, 1,
     "Failed to determine trigger_dump state: /sys/class/mem/lastkmsg/trigger_dump: Is a directory (21)\n", nullptr},
    {"/sys/class/mem/lastkmsg/trigger_dump", Damage::kRandomBytes, Device::kCleanBoot, 1, kNoDump, "trigger_dump"},
    // The number at the start of the line, the record's level, requests a dump.
    {"/sys/class/mem/lastkmsg/trigger_dump", Damage::kLongLine, Device::kCleanBoot, 0, kDump, nullptr},

    {"/dev/lastkmsg", Damage::kMissing, Device::kCoreKept, 0, kDump, nullptr},
    {"/dev/lastkmsg", Damage::kEmpty, Device::kCoreKept, 0, kDump, nullptr},
    {"/dev/lastkmsg", Damage::kTruncated, Device::kCoreKept, 0, kDump, nullptr},
    {"/dev/lastkmsg", Damage::kDirectory, Device::kCoreKept, 0, kDump, nullptr},
    {"/dev/lastkmsg", Damage::kRandomBytes, Device::kCoreKept, 0, kDump, nullptr},
    {"/dev/lastkmsg", Damage::kLongLine, Device::kCoreKept, 0, kDump, nullptr},

    // The board file: the SoC's registers stand in for every fact it loses.
    {"/proc/boardid", Damage::kMissing, Device::kSocUnnamed, 0, kDump, nullptr},
    {"/proc/boardid", Damage::kEmpty, Device::kSocUnnamed, 0, kDump, nullptr},
    {"/proc/boardid", Damage::kTruncated, Device::kSocUnnamed, 0, kDump, nullptr},
    {"/proc/boardid", Damage::kDirectory, Device::kSocUnnamed, 0, kDump, nullptr},
    {"/proc/boardid", Damage::kRandomBytes, Device::kSocUnnamed, 0, kDump, nullptr},
    {"/proc/boardid", Damage::kLongLine, Device::kSocUnnamed, 0, kDump, nullptr},

    // Read only when the board file names no SoC; its failures end the run.
    {"/dev/mem", Damage::kMissing, Device::kSocUnnamed, 1,
     "crash-dump caught exception: /dev/mem: No such file or directory (2)\n", nullptr},
    {"/dev/mem", Damage::kEmpty, Device::kSocUnnamed, 1,
     "crash-dump caught exception: /dev/mem: No such device or address (6)\n", nullptr},
    {"/dev/mem", Damage::kTruncated, Device::kSocUnnamed, 1,
     "crash-dump caught exception: /dev/mem: No such device or address (6)\n", nullptr},
    {"/dev/mem", Damage::kDirectory, Device::kSocUnnamed, 1,
     "crash-dump caught exception: /dev/mem: Is a directory (21)\n", nullptr},
    {"/dev/mem", Damage::kRandomBytes, Device::kSocUnnamed, 1,
     "crash-dump caught exception: /dev/mem: No such device or address (6)\n", nullptr},
    {"/dev/mem", Damage::kMissing, Device::kCoreKept, 0, kDump, "/dev/mem"},

    // The partition table: the environment is taken as corrupt and the rescue
    // version as unknown, and the dump goes on.
    {"/proc/mtd", Damage::kMissing, Device::kCoreKept, 0,
     "Unable to read rescue kernel version: No such file or directory (2)\n", nullptr},
    {"/proc/mtd", Damage::kEmpty, Device::kCoreKept, 0,
     "Unable to read rescue kernel version: Failed to read /proc/mtd\n", nullptr},
    {"/proc/mtd", Damage::kTruncated, Device::kCoreKept, 0,
     "Unable to read rescue kernel version: Failed to find NAND partition named 'flash0.rescue'\n", nullptr},
    {"/proc/mtd", Damage::kDirectory, Device::kCoreKept, 0,
     "Unable to read rescue kernel version: Failed to read /proc/mtd\n", nullptr},
    {"/proc/mtd", Damage::kRandomBytes, Device::kCoreKept, 0,
     "Unable to read rescue kernel version: Failed to find NAND partition named 'flash0.rescue'\n", nullptr},
    {"/proc/mtd", Damage::kLongLine, Device::kCoreKept, 0,
     "Unable to read rescue kernel version: Failed to read /proc/mtd\n", nullptr},

    {"flash0.nvram", Damage::kErased, Device::kCoreKept, 0, kEnvironmentCorrupt, nullptr},
    {"flash0.nvram", Damage::kCrcDamaged, Device::kCoreKept, 0, kEnvironmentCorrupt, nullptr},
    // Whole blocks cut off: the environment in the first one is intact.
    {"flash0.nvram", Damage::kTruncated, Device::kCoreKept, 0, kDump, "ENVIRONMENT"},
    {"flash0.nvram", Damage::kAllBlocksBad, Device::kCoreKept, 0, kEnvironmentCorrupt, nullptr},
    {"flash0.nvram", Damage::kRandomBytes, Device::kCoreKept, 0, kEnvironmentCorrupt, nullptr},

    {"flash0.rescue", Damage::kErased, Device::kCoreKept, 0, "Unable to read rescue kernel version: Not a FIT image\n",
     nullptr},
    {"flash0.rescue", Damage::kRandomBytes, Device::kCoreKept, 0,
     "Unable to read rescue kernel version: Not a FIT image\n", nullptr},
    {"flash0.rescue", Damage::kTruncatedGzip, Device::kCoreKept, 0, "Unable to read rescue kernel version: gzip error\n",
     nullptr},
    {"flash0.rescue", Damage::kCorruptGzip, Device::kCoreKept, 0, "Unable to read rescue kernel version: gzip error\n",
     nullptr},
    {"flash0.rescue", Damage::kHugeStringsBlock, Device::kCoreKept, 0,
     "Unable to read rescue kernel version: FIT string table too large\n", nullptr},

    // Nice to have: a damaged fact is left out or empty, and the dump is written.
    {"/etc/lumora-version", Damage::kMissing, Device::kCoreKept, 0, kDump, "lumora-version"},
    {"/etc/lumora-version", Damage::kEmpty, Device::kCoreKept, 0, kDump, "lumora-version"},
    {"/etc/lumora-version", Damage::kDirectory, Device::kCoreKept, 0, kDump, "lumora-version"},
    {"/etc/lumora-version", Damage::kRandomBytes, Device::kCoreKept, 0, kDump, "lumora-version"},
    {"/etc/lumora-version", Damage::kLongLine, Device::kCoreKept, 0, kDump, "lumora-version"},

    {"/etc/lumora-image-name", Damage::kMissing, Device::kCoreKept, 0,
     "Failed to read image name: /etc/lumora-image-name: No such file or directory (2)\n", nullptr},
    {"/etc/lumora-image-name", Damage::kEmpty, Device::kCoreKept, 0, kDump, "image name"},
    {"/etc/lumora-image-name", Damage::kTruncated, Device::kCoreKept, 0, kDump, "image name"},
    {"/etc/lumora-image-name", Damage::kDirectory, Device::kCoreKept, 0,
     "Failed to read image name: /etc/lumora-image-name: Is a directory (21)\n", nullptr},
    {"/etc/lumora-image-name", Damage::kRandomBytes, Device::kCoreKept, 0, kDump, "image name"},
    {"/etc/lumora-image-name", Damage::kLongLine, Device::kCoreKept, 0, kDump, "image name"},

    {"/sys/class/ubi/ubi0/volumes_count", Damage::kMissing, Device::kCoreKept, 0,
     "Failed to read UBI list: /sys/class/ubi/ubi0/volumes_count: No such file or directory (2)\n", nullptr},
    {"/sys/class/ubi/ubi0/volumes_count", Damage::kEmpty, Device::kCoreKept, 0, kDump, "UBI"},
    {"/sys/class/ubi/ubi0/volumes_count", Damage::kDirectory, Device::kCoreKept, 0,
     "Failed to read UBI list: /sys/class/ubi/ubi0/volumes_count: Is a directory (21)\n", nullptr},
    {"/sys/class/ubi/ubi0/volumes_count", Damage::kRandomBytes, Device::kCoreKept, 0, kDump, "UBI"},
    // The record's level, 6, is taken for the count: three volumes are not there.
    {"/sys/class/ubi/ubi0/volumes_count", Damage::kLongLine, Device::kCoreKept, 0,
     "Failed to read UBI name: /sys/class/ubi/ubi0/ubi0_5/name: No such file or directory (2)\n", nullptr},
    // No device holds more than 128 volumes: the scan stops there.
    {"/sys/class/ubi/ubi0/volumes_count", Damage::kHugeCount, Device::kCoreKept, 0,
     "Failed to read UBI name: /sys/class/ubi/ubi0/ubi0_127/name: No such file or directory (2)\n", "ubi0_128"},

    {"/sys/class/ubi/ubi0/ubi0_0/name", Damage::kMissing, Device::kCoreKept, 0,
     "Failed to read UBI name: /sys/class/ubi/ubi0/ubi0_0/name: No such file or directory (2)\n", nullptr},
    {"/sys/class/ubi/ubi0/ubi0_0/name", Damage::kEmpty, Device::kCoreKept, 0, kDump, "UBI"},
    {"/sys/class/ubi/ubi0/ubi0_0/name", Damage::kTruncated, Device::kCoreKept, 0, kDump, "UBI"},
    {"/sys/class/ubi/ubi0/ubi0_0/name", Damage::kDirectory, Device::kCoreKept, 0,
     "Failed to read UBI name: /sys/class/ubi/ubi0/ubi0_0/name: Is a directory (21)\n", nullptr},
    {"/sys/class/ubi/ubi0/ubi0_0/name", Damage::kRandomBytes, Device::kCoreKept, 0, kDump, "UBI"},
    {"/sys/class/ubi/ubi0/ubi0_0/name", Damage::kLongLine, Device::kCoreKept, 0, kDump, "UBI"},

    {"/sys/class/net/wlan0/address", Damage::kMissing, Device::kWlanUnnamed, 0, kDump, "wlan0"},
    {"/sys/class/net/wlan0/address", Damage::kEmpty, Device::kWlanUnnamed, 0, kDump, "wlan0"},
    {"/sys/class/net/wlan0/address", Damage::kTruncated, Device::kWlanUnnamed, 0, kDump, "wlan0"},
    {"/sys/class/net/wlan0/address", Damage::kDirectory, Device::kWlanUnnamed, 0, kDump, "wlan0"},
    {"/sys/class/net/wlan0/address", Damage::kRandomBytes, Device::kWlanUnnamed, 0, kDump, "wlan0"},
    {"/sys/class/net/wlan0/address", Damage::kLongLine, Device::kWlanUnnamed, 0, kDump, "wlan0"},

    // The salt is the one fact a dump cannot go without.
    {"/dev/urandom", Damage::kMissing, Device::kCoreKept, 1,
     "crash-dump caught exception: /dev/urandom: No such file or directory (2)\n", nullptr},
    {"/dev/urandom", Damage::kEmpty, Device::kCoreKept, 1, "crash-dump caught exception: Short read from /dev/urandom\n", nullptr},
    {"/dev/urandom", Damage::kDirectory, Device::kCoreKept, 1,
     "crash-dump caught exception: read_all_throw: Is a directory (21)\n", nullptr},
    {"/dev/urandom", Damage::kRandomBytes, Device::kCoreKept, 0, kDump, nullptr},

    {"/dev/console", Damage::kMissing, Device::kCoreKept, 0, kDump, "console"},
    {"/dev/console", Damage::kDirectory, Device::kCoreKept, 0, kDump, "console"},

    // Not read on the collector's path.
    {"/proc/cmdline", Damage::kMissing, Device::kCleanBoot, 1, kNoDump, "cmdline"},
    {"/proc/cmdline", Damage::kEmpty, Device::kCleanBoot, 1, kNoDump, "cmdline"},
    {"/proc/cmdline", Damage::kTruncated, Device::kCleanBoot, 1, kNoDump, "cmdline"},
    {"/proc/cmdline", Damage::kDirectory, Device::kCleanBoot, 1, kNoDump, "cmdline"},
    {"/proc/cmdline", Damage::kRandomBytes, Device::kCleanBoot, 1, kNoDump, "cmdline"},
    {"/proc/cmdline", Damage::kLongLine, Device::kCleanBoot, 1, kNoDump, "cmdline"},

    // Left behind by an earlier run: a leftover file is reused as it is.
    {"/var/lock/crash-dump-complete.tmp", Damage::kDirectory, Device::kCleanBoot, 1,
     "crash-dump caught exception: /var/lock/crash-dump-complete.tmp: Is a directory (21)\n", nullptr},
    {"/var/lock/crash-dump-complete.tmp", Damage::kRandomBytes, Device::kCleanBoot, 1, kNoDump, nullptr},
};

const char* DamageText(Damage damage)
{
    switch (damage) {
    case Damage::kMissing:
        return "missing";
    case Damage::kEmpty:
        return "empty";
    case Damage::kTruncated:
        return "first half only";
    case Damage::kDirectory:
        return "a directory, mode 000";
    case Damage::kRandomBytes:
        return "4 MiB of random bytes";
    case Damage::kLongLine:
        return "one 4 MiB line, no line end";
    case Damage::kHugeCount:
        return "4294967295";
    case Damage::kErased:
        return "erased";
    case Damage::kCrcDamaged:
        return "CRC damaged";
    case Damage::kAllBlocksBad:
        return "all blocks bad";
    case Damage::kTruncatedGzip:
        return "gzip image cut in half";
    case Damage::kCorruptGzip:
        return "gzip image overwritten in the middle";
    case Damage::kHugeStringsBlock:
        return "strings block of 0x40000 bytes";
    }
    return "";
}

const char* DeviceText(Device device)
{
    switch (device) {
    case Device::kCleanBoot:
        return "clean boot";
    case Device::kCoreKept:
        return "core kept";
    case Device::kSocUnnamed:
        return "core kept, no SoC in the board file";
    case Device::kWlanUnnamed:
        return "core kept, no wireless address in the environment";
    }
    return "";
}

// Its first byte is no digit, sign or white space (the test checks), so it is
// garbage to every parser rather than a number.
const std::string& RandomBytes()
{
    static const std::string bytes = sandbox::RandomBytes(kHugeSize);
    return bytes;
}

// A kernel-log record whose message never ends: the collector's reads must
// not assume that a line fits anywhere.
const std::string& LongLine()
{
    static const std::string line = [] {
        std::string generated = "6,1,1,-;LMPLAY: ";
        generated.resize(kHugeSize, 'x');
        return generated;
    }();
    return line;
}

constexpr uint32_t kEraseSize = 128 * 1024;
constexpr const char* kRescueVersion = "4.9.337-lumora-rescue-2.3";

// The device of a row, as a scenario: the watchdog crash's software and
// identity with a power-on reset, so that the core image decides.
sim::Scenario DeviceScenario(Device kind)
{
    if (kind == Device::kCleanBoot)
        return sandbox::BuiltInScenario("clean-boot");
    sim::Scenario scenario = sandbox::BuiltInScenario("watchdog-crash");
    scenario.reset_causes = 0x1;
    // Four blocks, as a production player's: cutting whole blocks off leaves
    // the environment in the first one.
    scenario.flash["flash0.nvram"].image.append(3 * kEraseSize, '\xff');
    if (kind == Device::kSocUnnamed) {
        std::string& board = scenario.root["/proc/boardid"].content;
        board.erase(board.find("SoC: i.MX6ULZ\n"), std::strlen("SoC: i.MX6ULZ\n"));
        scenario.soc = {0x00650001, 0x40};
    }
    if (kind == Device::kWlanUnnamed) {
        scenario.flash["flash0.nvram"].image = sim::UbootEnvironmentImage(
            {{"LM_ETH0_HWADDR", "90:AC:3F:1A:2B:3C"}, {"LM_FORMAT", "1"}, {"LM_HWFLAGS", "0x5"}}, kEraseSize);
        scenario.SetFile("/sys/class/net/wlan0/address", "90:ac:3f:1a:2b:3d\n");
    }
    return scenario;
}

// The damages of a raw partition, written into its device node: the driver
// takes the partition's size from what the node holds.
void ApplyToPartition(sim::DeviceRoot& device, const std::string& name, Damage damage)
{
    const std::string node = sim::MtdDevice(device, name);
    std::string content = device.ReadFile(node);
    switch (damage) {
    case Damage::kErased:
        content.assign(content.size(), '\xff');
        break;
    case Damage::kCrcDamaged:
        content[0] = static_cast<char>(content[0] ^ 0x01);
        break;
    case Damage::kTruncated:
        content.resize(content.size() / 2);
        break;
    case Damage::kAllBlocksBad: {
        std::string geometry = device.ReadFile(node + ".geometry");
        geometry.pop_back(); // its line end
        for (size_t block = 0; block < content.size() / kEraseSize; ++block)
            geometry += " " + std::to_string(block);
        device.WriteFile(node + ".geometry", geometry + "\n");
        break;
    }
    case Damage::kRandomBytes:
        content = sandbox::RandomBytes(content.size());
        break;
    case Damage::kTruncatedGzip: {
        const std::string image = sim::Gzip(sim::RescueFitImage(kRescueVersion, 512 * 1024));
        content.assign(content.size(), '\xff');
        content.replace(0, image.size() / 2, image, 0, image.size() / 2);
        break;
    }
    case Damage::kCorruptGzip:
        content.replace(content.size() / 64, 256, 256, '\x55');
        break;
    case Damage::kHugeStringsBlock: {
        const std::string image = sim::FitBuilder()
                                      .BeginNode("")
                                      .StringProperty("version", kRescueVersion)
                                      .EndNode()
                                      .StringsBlockSize(0x40000)
                                      .Build();
        content.assign(content.size(), '\xff');
        content.replace(0, image.size(), image);
        break;
    }
    default:
        throw std::invalid_argument("not a partition's damage");
    }
    device.WriteFile(node, content, 0600);
}

void Apply(sim::DeviceRoot& device, const std::string& path, Damage damage)
{
    if (path.front() != '/') {
        ApplyToPartition(device, path, damage);
        return;
    }
    const std::string intact = device.Exists(path) ? device.ReadFile(path) : "";
    // An input the sandbox binds from the host ("/dev/urandom") is damaged in
    // its place.
    device.UnbindHostFile(path);
    device.Remove(path);
    switch (damage) {
    case Damage::kMissing:
        break;
    case Damage::kEmpty:
        device.WriteFile(path, "");
        break;
    case Damage::kTruncated:
        device.WriteFile(path, intact.substr(0, intact.size() / 2));
        break;
    case Damage::kDirectory:
        device.MakeDirectory(path, 0);
        break;
    case Damage::kRandomBytes:
        device.WriteFile(path, RandomBytes());
        break;
    case Damage::kLongLine:
        device.WriteFile(path, LongLine());
        break;
    case Damage::kHugeCount:
        device.WriteFile(path, "4294967295\n");
        break;
    default:
        throw std::invalid_argument("not a file's damage");
    }
}

std::string CaseName(const ::testing::TestParamInfo<HostileInput>& info)
{
    std::string name;
    for (const char c : std::string(info.param.path) + "_" + DamageText(info.param.damage) + "_"
                              + DeviceText(info.param.device)) {
        const bool word = std::isalnum(static_cast<unsigned char>(c)) != 0;
        if (word)
            name += c;
        else if (!name.empty() && name.back() != '_')
            name += '_';
    }
    return name;
}

class HostileInputTest : public sandbox::SandboxTest, public ::testing::WithParamInterface<HostileInput> {};

TEST_P(HostileInputTest, EndsWithTheDocumentedOutcome)
{
    const HostileInput& input = GetParam();
    const auto first = static_cast<unsigned char>(RandomBytes().front());
    ASSERT_FALSE(std::isdigit(first) || std::isspace(first) || first == '+' || first == '-')
        << "the table takes the random bytes for garbage, not for a number";
    sim::Apply(DeviceScenario(input.device), m_device);
    Apply(m_device, input.path, input.damage);

    const sim::RunResult result = m_device.Start().Wait(std::chrono::seconds(60));

    EXPECT_EQ(result.signal, 0) << "killed: hung or crashed";
    EXPECT_EQ(result.exit_status, input.status) << result.standard_error;
    EXPECT_THAT(result.standard_error, HasSubstr(input.shows));
    if (input.hides != nullptr) {
        EXPECT_THAT(result.standard_error, Not(HasSubstr(input.hides)));
    }
}

INSTANTIATE_TEST_SUITE_P(Table, HostileInputTest, ::testing::ValuesIn(kHostileInputs), CaseName);

std::string WithoutLineEnd(const std::string& message)
{
    std::string text = message;
    if (!text.empty() && text.back() == '\n')
        text.pop_back();
    return text;
}

std::string RenderDocument()
{
    std::ostringstream out;
    out << "# What bad input yields\n"
           "\n"
           "Each row damages one input of an otherwise ordinary device and runs the\n"
           "collector once. The device is either a *clean boot* (power-on reset, no core\n"
           "image, panic flag and dump trigger clear: every check of the decision runs)\n"
           "or *core kept* (the same, but the kernel kept a core image and its log, so a\n"
           "dump is due). No damage ends a run with a signal or a hang.\n"
           "\n"
           "This table is generated from the rows of `tests/system/hostile_input_test.cpp`,\n"
           "which checks every one of them against the collector; `HostileInputDocTest`\n"
           "fails while the two differ. To regenerate it after changing the rows:\n"
           "\n"
           "    CRASH_DUMP_UPDATE_DOCS=1 build/release/tests/system/system_tests --gtest_filter='HostileInputDoc*'\n"
           "\n"
           "| Input | Damage | Device | Status | Standard error shows |\n"
           "|---|---|---|---|---|\n";
    for (const HostileInput& input : kHostileInputs) {
        out << "| `" << input.path << "` | " << DamageText(input.damage) << " | " << DeviceText(input.device)
            << " | " << input.status << " | `" << WithoutLineEnd(input.shows) << "`";
        if (input.hides != nullptr)
            out << ", nothing about `" << input.hides << "`";
        out << " |\n";
    }
    return out.str();
}

TEST(HostileInputDocTest, DocumentShowsTheTable)
{
    const std::string path = std::string(CRASH_DUMP_SOURCE_DIR) + "/docs/hostile-input.md";
    if (std::getenv("CRASH_DUMP_UPDATE_DOCS") != nullptr)
        std::ofstream(path, std::ios::binary | std::ios::trunc) << RenderDocument();

    std::ifstream file(path, std::ios::binary);
    std::ostringstream document;
    document << file.rdbuf();
    EXPECT_EQ(document.str(), RenderDocument()) << "regenerate " << path << " as its header says";
}

} // namespace
