// Every input the collector reads, damaged one at a time as a crash, a worn
// flash or a broken driver damage it: the run ends with one of its statuses and
// its message, never a signal or a hang. docs/hostile-input.md shows the rows.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cctype>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include "environment_image.h"
#include "fit_image.h"
#include "sandbox_test.h"

namespace {

using namespace sandbox::device_files;
using ::testing::HasSubstr;

constexpr size_t kHugeSize = 4 << 20;
constexpr uint32_t kEraseSize = 128 * 1024;

// A partition's damage changes the image flashed to it, or its blocks.
enum Damage { kMissing, kEmpty, kHalf, kDir, kRandom, kLong, kHugeCount, kErased, kCrc, kAllBad, kGzipHalf, kGzipHit,
              kHugeStrings, kWriteProtected };
const char* const kDamageText[] = {"missing", "empty", "first half only", "a directory, mode 000",
                                   "4 MiB of random bytes", "one 4 MiB line, no line end", "4294967295", "erased",
                                   "CRC damaged", "all blocks bad", "gzip image cut in half",
                                   "gzip image overwritten in the middle", "strings block of 0x40000 bytes",
                                   "write-protected"};

// The device around the damaged input, chosen so that the collector reads it.
enum Device { kClean, kCore, kSoc, kWlan, kWatchdog };
const char* const kDeviceText[] = {"clean boot", "core kept", "core kept, no SoC in the board file",
                                   "core kept, no wireless address in the environment", "watchdog reset"};

struct HostileInput {
    std::string input; // a path inside the device, or a NAND partition's name
    Damage damage;
    Device device;
    int status;
    std::string shows;           // a line of standard error, without its line end
    const char* hides = nullptr; // absent from standard error
};

std::string Caught(const std::string& what) { return kCaught + what; }
std::string NoEntry(const std::string& path) { return path + ": No such file or directory (2)"; }
std::string IsDir(const std::string& path) { return path + ": Is a directory (21)"; }
std::string Rescue(const std::string& what) { return "Unable to read rescue kernel version: " + what; }

const std::string kDumped = "Post-mortem crash dump generated.";
const std::string kNotDue = "No post-mortem crash dump available.";
const std::string kCorrupt = "BOOTLOADER ENVIRONMENT CORRUPT. PLEASE RUN MANUFACTURING TEST";
const std::string kUbi = "/sys/class/ubi/ubi0/";
const std::string kUbiCount = kUbi + "volumes_count";
const std::string kWlanAddress = "/sys/class/net/wlan0/address";

const HostileInput kHostileInputs[] = {
    {kResetCauses, kMissing, kClean, 1, "Reset causes: 0x0 "},
    {kResetCauses, kEmpty, kClean, 1, "Reset causes: 0x0 "},
    {kResetCauses, kHalf, kClean, 1, "Reset causes: 0x0 "},
    {kResetCauses, kDir, kClean, 1, "Reset causes: 0x0 "},
    {kResetCauses, kRandom, kClean, 1, "Reset causes: 0x0 "},
    {kResetCauses, kLong, kClean, 1, "Reset causes: 0x0 "},
    {kCoreImage, kMissing, kCore, 1, Caught(NoEntry(kCoreImage))},
    // The reset causes decide before the core device is opened.
    {kCoreImage, kMissing, kWatchdog, 0, kDumped},
    {kCoreImage, kEmpty, kCore, 1, kNotDue, "ltcore"},
    {kCoreImage, kHalf, kCore, 0, kDumped},
    {kCoreImage, kDir, kCore, 1, kNotDue, "ltcore"},
    {kCoreImage, kRandom, kCore, 0, kDumped},
    {kCoreImage, kLong, kCore, 0, kDumped},
    {kPanicFlag, kMissing, kClean, 1, "Failed to open panic flag file: " + NoEntry(kPanicFlag)},
    {kPanicFlag, kEmpty, kClean, 1, "Failed to read panic flag: empty"},
    {kPanicFlag, kHalf, kClean, 1, "Failed to read panic flag: empty"},
    {kPanicFlag, kDir, kClean, 1, "Failed to read panic flag: Is a directory"},
    {kPanicFlag, kRandom, kClean, 1, "Unrecognised panic flag"},
    {kPanicFlag, kLong, kClean, 1, "Unrecognised panic flag"},
    {kTrigger, kMissing, kClean, 1, "Failed to determine trigger_dump state: " + NoEntry(kTrigger)},
    {kTrigger, kEmpty, kClean, 1, kNotDue, "trigger_dump"},
    {kTrigger, kHalf, kClean, 1, kNotDue, "trigger_dump"},
    {kTrigger, kDir, kClean, 1, "Failed to determine trigger_dump state: " + IsDir(kTrigger)},
    {kTrigger, kRandom, kClean, 1, kNotDue, "trigger_dump"},
    // The number at the start of the line, the record's level, requests a dump.
    {kTrigger, kLong, kClean, 0, kDumped},
    {kKernelLog, kMissing, kCore, 0, kDumped},
    {kKernelLog, kEmpty, kCore, 0, kDumped},
    {kKernelLog, kHalf, kCore, 0, kDumped},
    {kKernelLog, kDir, kCore, 0, kDumped},
    {kKernelLog, kRandom, kCore, 0, kDumped},
    {kKernelLog, kLong, kCore, 0, kDumped},
    {"/proc/boardid", kMissing, kSoc, 0, kDumped},
    {"/proc/boardid", kEmpty, kSoc, 0, kDumped},
    {"/proc/boardid", kHalf, kSoc, 0, kDumped},
    {"/proc/boardid", kDir, kSoc, 0, kDumped},
    {"/proc/boardid", kRandom, kSoc, 0, kDumped},
    {"/proc/boardid", kLong, kSoc, 0, kDumped},
    {"/dev/mem", kMissing, kSoc, 1, Caught(NoEntry("/dev/mem"))},
    {"/dev/mem", kEmpty, kSoc, 1, Caught("/dev/mem: No such device or address (6)")},
    {"/dev/mem", kHalf, kSoc, 1, Caught("/dev/mem: No such device or address (6)")},
    {"/dev/mem", kDir, kSoc, 1, Caught(IsDir("/dev/mem"))},
    {"/dev/mem", kRandom, kSoc, 1, Caught("/dev/mem: No such device or address (6)")},
    {"/dev/mem", kMissing, kCore, 0, kDumped, "/dev/mem"},
    {"/proc/mtd", kMissing, kCore, 0, Rescue("No such file or directory (2)")},
    {"/proc/mtd", kEmpty, kCore, 0, Rescue("Failed to read /proc/mtd")},
    {"/proc/mtd", kHalf, kCore, 0, Rescue("Failed to find NAND partition named 'flash0.rescue'")},
    {"/proc/mtd", kDir, kCore, 0, Rescue("Failed to read /proc/mtd")},
    {"/proc/mtd", kRandom, kCore, 0, Rescue("Failed to find NAND partition named 'flash0.rescue'")},
    {"/proc/mtd", kLong, kCore, 0, Rescue("Failed to read /proc/mtd")},
    {"flash0.nvram", kErased, kCore, 0, kCorrupt},
    {"flash0.nvram", kCrc, kCore, 0, kCorrupt},
    {"flash0.nvram", kHalf, kCore, 0, kDumped, "ENVIRONMENT"},
    {"flash0.nvram", kAllBad, kCore, 0, kCorrupt},
    {"flash0.nvram", kRandom, kCore, 0, kCorrupt},
    // Device makers write-protect the partitions the collector reads.
    {"flash0.nvram", kWriteProtected, kCore, 0, kDumped, "ENVIRONMENT"},
    {"flash0.rescue", kErased, kCore, 0, Rescue("Not a FIT image")},
    {"flash0.rescue", kRandom, kCore, 0, Rescue("Not a FIT image")},
    {"flash0.rescue", kGzipHalf, kCore, 0, Rescue("gzip error")},
    {"flash0.rescue", kGzipHit, kCore, 0, Rescue("gzip error")},
    {"flash0.rescue", kHugeStrings, kCore, 0, Rescue("FIT string table too large")},
    {"flash0.rescue", kWriteProtected, kCore, 0, kDumped, "rescue"},
    {"/etc/lumora-version", kMissing, kCore, 0, kDumped, "lumora-version"},
    {"/etc/lumora-version", kEmpty, kCore, 0, kDumped, "lumora-version"},
    {"/etc/lumora-version", kDir, kCore, 0, kDumped, "lumora-version"},
    {"/etc/lumora-version", kRandom, kCore, 0, kDumped, "lumora-version"},
    {"/etc/lumora-version", kLong, kCore, 0, kDumped, "lumora-version"},
    {"/etc/lumora-image-name", kMissing, kCore, 0, "Failed to read image name: " + NoEntry("/etc/lumora-image-name")},
    {"/etc/lumora-image-name", kEmpty, kCore, 0, kDumped, "image name"},
    {"/etc/lumora-image-name", kHalf, kCore, 0, kDumped, "image name"},
    {"/etc/lumora-image-name", kDir, kCore, 0, "Failed to read image name: " + IsDir("/etc/lumora-image-name")},
    {"/etc/lumora-image-name", kRandom, kCore, 0, kDumped, "image name"},
    {"/etc/lumora-image-name", kLong, kCore, 0, kDumped, "image name"},
    {kUbiCount, kMissing, kCore, 0, "Failed to read UBI list: " + NoEntry(kUbiCount)},
    {kUbiCount, kEmpty, kCore, 0, kDumped, "UBI"},
    {kUbiCount, kDir, kCore, 0, "Failed to read UBI list: " + IsDir(kUbiCount)},
    {kUbiCount, kRandom, kCore, 0, kDumped, "UBI"},
    // The record's level, 6, is taken for the count: three volumes are not there.
    {kUbiCount, kLong, kCore, 0, "Failed to read UBI name: " + NoEntry(kUbi + "ubi0_5/name")},
    // No device holds more than 128 volumes: the scan stops there.
    {kUbiCount, kHugeCount, kCore, 0, "Failed to read UBI name: " + NoEntry(kUbi + "ubi0_127/name"), "ubi0_128"},
    {kUbi + "ubi0_0/name", kMissing, kCore, 0, "Failed to read UBI name: " + NoEntry(kUbi + "ubi0_0/name")},
    {kUbi + "ubi0_0/name", kEmpty, kCore, 0, kDumped, "UBI"},
    {kUbi + "ubi0_0/name", kHalf, kCore, 0, kDumped, "UBI"},
    {kUbi + "ubi0_0/name", kDir, kCore, 0, "Failed to read UBI name: " + IsDir(kUbi + "ubi0_0/name")},
    {kUbi + "ubi0_0/name", kRandom, kCore, 0, kDumped, "UBI"},
    {kUbi + "ubi0_0/name", kLong, kCore, 0, kDumped, "UBI"},
    {kWlanAddress, kMissing, kWlan, 0, kDumped, "wlan0"},
    {kWlanAddress, kEmpty, kWlan, 0, kDumped, "wlan0"},
    {kWlanAddress, kHalf, kWlan, 0, kDumped, "wlan0"},
    {kWlanAddress, kDir, kWlan, 0, kDumped, "wlan0"},
    {kWlanAddress, kRandom, kWlan, 0, kDumped, "wlan0"},
    {kWlanAddress, kLong, kWlan, 0, kDumped, "wlan0"},
    {"/dev/urandom", kMissing, kCore, 1, Caught(NoEntry("/dev/urandom"))},
    {"/dev/urandom", kEmpty, kCore, 1, Caught("Short read from /dev/urandom")},
    {"/dev/urandom", kDir, kCore, 1, Caught("read_all_throw: Is a directory (21)")},
    {"/dev/urandom", kRandom, kCore, 0, kDumped},
    {"/dev/console", kMissing, kCore, 0, kDumped, "console"},
    {"/dev/console", kDir, kCore, 0, kDumped, "console"},
    {"/proc/cmdline", kMissing, kClean, 1, kNotDue, "cmdline"},
    {"/proc/cmdline", kEmpty, kClean, 1, kNotDue, "cmdline"},
    {"/proc/cmdline", kHalf, kClean, 1, kNotDue, "cmdline"},
    {"/proc/cmdline", kDir, kClean, 1, kNotDue, "cmdline"},
    {"/proc/cmdline", kRandom, kClean, 1, kNotDue, "cmdline"},
    {"/proc/cmdline", kLong, kClean, 1, kNotDue, "cmdline"},
    {kLockTemporary, kDir, kClean, 1, Caught(IsDir(kLockTemporary))},
    {kLockTemporary, kRandom, kClean, 1, kNotDue},
};

// The watchdog crash's software and identity, after a power-on reset so that
// the core image decides, unless the row wants the watchdog's reset.
sim::Scenario DeviceScenario(Device kind)
{
    if (kind == kClean)
        return sandbox::BuiltInScenario("clean-boot");
    sim::Scenario scenario = sandbox::BuiltInScenario(kind == kSoc ? "unknown-silicon" : "watchdog-crash");
    scenario.soc.digprog = 0x00650001; // an i.MX6ULZ, for the board file that names no SoC
    scenario.reset_causes = kind == kWatchdog ? 0x10 : 0x1;
    // Four blocks, as a production player's: cutting whole blocks off leaves
    // the environment in the first one.
    scenario.flash["flash0.nvram"].image.append(3 * kEraseSize, '\xff');
    if (kind == kWlan) {
        scenario.flash["flash0.nvram"].image = sim::UbootEnvironmentImage(
            {{"LM_ETH0_HWADDR", "90:AC:3F:1A:2B:3C"}, {"LM_FORMAT", "1"}, {"LM_HWFLAGS", "0x5"}}, kEraseSize);
        scenario.SetFile(kWlanAddress, "90:ac:3f:1a:2b:3d\n");
    }
    return scenario;
}

// What a damage makes of a file's content or a partition's image.
std::string Damaged(Damage damage, std::string content, bool partition)
{
    switch (damage) {
    case kEmpty: return "";
    case kHalf: case kGzipHalf: return content.substr(0, content.size() / 2);
    case kRandom: return sandbox::RandomBytes(partition ? content.size() : kHugeSize);
    case kLong: return std::string("6,1,1,-;LMPLAY: ").append(kHugeSize, 'x'); // a record that never ends
    case kHugeCount: return "4294967295\n";
    case kErased: return std::string(content.size(), '\xff');
    case kCrc: return content.replace(0, 1, 1, static_cast<char>(content[0] ^ 0x01));
    case kGzipHit: return content.replace(content.size() / 64, 256, 256, '\x55');
    case kHugeStrings: return sim::FitBuilder().BeginNode("").StringProperty("version", "4.9.337-lumora-rescue-2.3")
                           .EndNode().StringsBlockSize(0x40000).Build();
    default: throw std::invalid_argument(kDamageText[damage]);
    }
}

// Partitions are damaged in the scenario, files in the device it makes.
void Apply(sim::DeviceRoot& device, const HostileInput& row)
{
    sim::Scenario scenario = DeviceScenario(row.device);
    if (row.input.front() != '/') {
        sim::FlashImage& flash = scenario.flash[row.input];
        flash.read_only = row.damage == kWriteProtected;
        if (row.damage == kAllBad)
            flash = {"", {0, 1, 2, 3}};
        else if (row.damage != kWriteProtected)
            flash.image = Damaged(row.damage, flash.image, true);
        return sim::Apply(scenario, device);
    }
    sim::Apply(scenario, device);
    const std::string intact = device.Exists(row.input) ? device.ReadFile(row.input) : "";
    // An input the sandbox binds from the host ("/dev/urandom") is damaged in its place.
    device.UnbindHostFile(row.input);
    device.Remove(row.input);
    if (row.damage == kDir)
        device.MakeDirectory(row.input, 0);
    else if (row.damage != kMissing)
        device.WriteFile(row.input, Damaged(row.damage, intact, false));
}

class HostileInputTest : public sandbox::SandboxTest, public ::testing::WithParamInterface<HostileInput> {};

TEST_P(HostileInputTest, EndsWithTheDocumentedOutcome)
{
    const HostileInput& row = GetParam();
    Apply(m_device, row);

    const sim::RunResult result = m_device.Start().Wait(std::chrono::seconds(60));

    EXPECT_EQ(result.signal, 0) << "killed: hung or crashed";
    EXPECT_EQ(result.exit_status, row.status) << result.standard_error;
    EXPECT_THAT(result.standard_error, HasSubstr(row.shows + "\n"));
    const std::string verdict = row.shows.rfind(kCaught, 0) == 0 ? row.shows : row.status == 0 ? kDumped : kNotDue;
    EXPECT_EQ(sandbox::FinalLine(result.standard_error), verdict + "\n");
    EXPECT_TRUE(row.hides == nullptr || result.standard_error.find(row.hides) == std::string::npos)
        << result.standard_error;
}

INSTANTIATE_TEST_SUITE_P(Table, HostileInputTest, ::testing::ValuesIn(kHostileInputs), [](const auto& test) {
    std::string name = test.param.input + " " + kDamageText[test.param.damage] + " " + kDeviceText[test.param.device];
    for (char& c : name)
        c = std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '_';
    return name;
});

// The document's own text ends where the table starts.
TEST(HostileInputDocTest, DocumentShowsTheTable)
{
    const std::string path = std::string(CRASH_DUMP_SOURCE_DIR) + "/docs/hostile-input.md";
    std::ostringstream read;
    read << std::ifstream(path, std::ios::binary).rdbuf();
    std::string table = "| Input | Damage | Device | Status | Standard error shows |\n|---|---|---|---|---|\n";
    for (const HostileInput& row : kHostileInputs)
        table += "| `" + row.input + "` | " + kDamageText[row.damage] + " | " + kDeviceText[row.device] + " | "
            + std::to_string(row.status) + " | `" + row.shows + "`"
            + (row.hides != nullptr ? std::string(", nothing about `") + row.hides + "`" : "") + " |\n";
    const std::string text = read.str().substr(0, read.str().find("| Input |"));
    if (std::getenv("CRASH_DUMP_UPDATE_DOCS") != nullptr)
        std::ofstream(path, std::ios::binary | std::ios::trunc) << text << table;
    else
        EXPECT_EQ(read.str(), text + table) << "regenerate " << path << " as its text says";
}

} // namespace
