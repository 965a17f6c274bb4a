// Every input the collector reads, damaged one at a time as a crash, a worn
// flash or a broken driver damage it: the run ends with one of its statuses and
// its message, never a signal or a hang. docs/hostile-input.md shows the rows.

#include <cerrno>
#include <fstream>
#include <sstream>
#include <vector>

#include "environment_image.h"
#include "fit_image.h"
#include "param_name.h"
#include "sandbox_test.h"

namespace {

using namespace sandbox;

constexpr size_t kHugeSize = 4 << 20;
constexpr uint32_t kEraseSize = 128 * 1024;

// A partition's damage changes the image flashed to it, or its blocks.
enum Damage { kMissing, kEmpty, kHalf, kDir, kRandom, kLong, kHugeCount, kErased, kCrc, kAllBad, kGzipHalf, kGzipHit,
              kHugeStrings, kWriteProtected, kDevicePolicy, kReadOnlyMount };
const char* const kDamageText[] = {
    "missing", "empty", "first half only", "a directory, mode 000", "4 MiB of random bytes",
    "one 4 MiB line, no line end", "4294967295", "erased", "CRC damaged", "all blocks bad", "gzip image cut in half",
    "gzip image overwritten in the middle", "strings block of 0x40000 bytes", "write-protected",
    "writing denied by device policy (EPERM)", "on a read-only mount (EROFS)"};

// The device around the damaged input, chosen so that the collector reads it.
enum Device { kClean, kCore, kSoc, kWlan, kWatchdog };
const char* const kDeviceText[] = {"clean boot", "core kept", "core kept, no SoC in the board file",
                                   "core kept, no wireless address in the environment", "watchdog reset"};

// A line of the table: the damages of one input that end alike.
struct Row {
    std::string input; // a path inside the device, or a NAND partition's name
    std::vector<Damage> damages;
    Device device;
    int status;
    std::string shows;           // a line of standard error, without its line end
    const char* hides = nullptr; // absent from standard error
};

// One run: a row with one of its damages.
struct HostileInput : Row {
    Damage damage;
    std::string what;
};

std::string Caught(const std::string& what) { return kCaught + what; }
std::string NoEntry(const std::string& path) { return path + ": No such file or directory (2)"; }
std::string IsDir(const std::string& path) { return path + ": Is a directory (21)"; }
std::string Rescue(const std::string& what) { return "Unable to read rescue kernel version: " + what; }

const std::vector<Damage> kAnyFile = {kMissing, kEmpty, kHalf, kDir, kRandom, kLong};
const std::string kCorrupt = "BOOTLOADER ENVIRONMENT CORRUPT. PLEASE RUN MANUFACTURING TEST";
const std::string kImageName = "/etc/lumora-image-name";
const std::string kUbi = "/sys/class/ubi/ubi0/";
const std::string kUbiCount = kUbi + "volumes_count";
const std::string kUbiName = kUbi + "ubi0_0/name";
const std::string kWlanAddress = "/sys/class/net/wlan0/address";

const Row kRows[] = {
    {kResetCauses, kAnyFile, kClean, 1, "Reset causes: 0x0 "},
    {kCoreImage, {kMissing}, kCore, 1, Caught(NoEntry(kCoreImage))},
    // The reset causes decide before the core device is opened.
    {kCoreImage, {kMissing}, kWatchdog, 0, kDump},
    {kCoreImage, {kEmpty, kDir}, kCore, 1, kNoDump, "ltcore"},
    {kCoreImage, {kHalf, kRandom, kLong}, kCore, 0, kDump},
    {kPanicFlag, {kMissing}, kClean, 1, "Failed to open panic flag file: " + NoEntry(kPanicFlag)},
    {kPanicFlag, {kEmpty, kHalf}, kClean, 1, "Failed to read panic flag: empty"},
    {kPanicFlag, {kDir}, kClean, 1, "Failed to read panic flag: Is a directory"},
    {kPanicFlag, {kRandom, kLong}, kClean, 1, "Unrecognised panic flag"},
    {kTrigger, {kMissing}, kClean, 1, "Failed to determine trigger_dump state: " + NoEntry(kTrigger)},
    {kTrigger, {kEmpty, kHalf, kRandom}, kClean, 1, kNoDump, "trigger_dump"},
    // The number at the start of the line, the record's level, requests a dump.
    {kTrigger, {kLong}, kClean, 0, kDump},
    {kKernelLog, kAnyFile, kCore, 0, kDump},
    {"/proc/boardid", kAnyFile, kSoc, 0, kDump},
    {"/dev/mem", {kMissing}, kSoc, 1, Caught(NoEntry("/dev/mem"))},
    {"/dev/mem", {kEmpty, kHalf, kRandom}, kSoc, 1, Caught("/dev/mem: No such device or address (6)")},
    {"/dev/mem", {kDir}, kSoc, 1, Caught(IsDir("/dev/mem"))},
    {"/dev/mem", {kMissing}, kCore, 0, kDump, "/dev/mem"},
    {"/proc/mtd", {kMissing}, kCore, 0, Rescue("No such file or directory (2)")},
    {"/proc/mtd", {kEmpty, kDir, kLong}, kCore, 0, Rescue("Failed to read /proc/mtd")},
    {"/proc/mtd", {kHalf, kRandom}, kCore, 0, Rescue("Failed to find NAND partition named 'flash0.rescue'")},
    {"flash0.nvram", {kErased, kCrc, kAllBad, kRandom}, kCore, 0, kCorrupt},
    // Device makers write-protect the partitions the collector reads, a sandbox denies writing to them.
    {"flash0.nvram", {kHalf, kWriteProtected, kDevicePolicy, kReadOnlyMount}, kCore, 0, kDump, "ENVIRONMENT"},
    {"flash0.rescue", {kErased, kRandom}, kCore, 0, Rescue("Not a FIT image")},
    {"flash0.rescue", {kGzipHalf, kGzipHit}, kCore, 0, Rescue("gzip error")},
    {"flash0.rescue", {kHugeStrings}, kCore, 0, Rescue("FIT string table too large")},
    {"flash0.rescue", {kWriteProtected, kDevicePolicy, kReadOnlyMount}, kCore, 0, kDump, "rescue"},
    {"/etc/lumora-version", {kMissing, kEmpty, kDir, kRandom, kLong}, kCore, 0, kDump, "lumora-version"},
    {kImageName, {kMissing}, kCore, 0, "Failed to read image name: " + NoEntry(kImageName)},
    {kImageName, {kEmpty, kHalf, kRandom, kLong}, kCore, 0, kDump, "image name"},
    {kImageName, {kDir}, kCore, 0, "Failed to read image name: " + IsDir(kImageName)},
    {kUbiCount, {kMissing}, kCore, 0, "Failed to read UBI list: " + NoEntry(kUbiCount)},
    {kUbiCount, {kEmpty, kRandom}, kCore, 0, kDump, "UBI"},
    // The record's level, 6, is taken for the count: three volumes are not there.
    {kUbiCount, {kLong}, kCore, 0, "Failed to read UBI name: " + NoEntry(kUbi + "ubi0_5/name")},
    // No device holds more than 128 volumes: the scan stops there.
    {kUbiCount, {kHugeCount}, kCore, 0, "Failed to read UBI name: " + NoEntry(kUbi + "ubi0_127/name"), "ubi0_128"},
    {kUbiName, {kMissing}, kCore, 0, "Failed to read UBI name: " + NoEntry(kUbiName)},
    {kUbiName, {kEmpty, kHalf, kRandom, kLong}, kCore, 0, kDump, "UBI"},
    {kWlanAddress, kAnyFile, kWlan, 0, kDump, "wlan0"},
    {"/dev/urandom", {kMissing}, kCore, 1, Caught(NoEntry("/dev/urandom"))},
    {"/dev/urandom", {kEmpty}, kCore, 1, Caught("Short read from /dev/urandom")},
    {"/dev/urandom", {kDir}, kCore, 1, Caught("read_all_throw: Is a directory (21)")},
    {"/dev/urandom", {kRandom}, kCore, 0, kDump},
    {"/dev/console", {kMissing, kDir}, kCore, 0, kDump, "console"},
    {"/proc/cmdline", kAnyFile, kClean, 1, kNoDump, "cmdline"},
    {kLockTemporary, {kDir}, kClean, 1, Caught(IsDir(kLockTemporary))},
    {kLockTemporary, {kRandom}, kClean, 1, kNoDump},
};

const std::vector<HostileInput> kHostileInputs = [] {
    std::vector<HostileInput> inputs;
    for (const Row& row : kRows)
        for (const Damage damage : row.damages)
            inputs.push_back({row, damage, row.input + " " + kDamageText[damage] + " " + kDeviceText[row.device]});
    return inputs;
}();

// The watchdog crash's software and identity after a power-on reset (the core image decides), or the watchdog's.
sim::Scenario DeviceScenario(Device kind)
{
    if (kind == kClean)
        return BuiltInScenario("clean-boot");
    sim::Scenario scenario = BuiltInScenario(kind == kSoc ? "unknown-silicon" : "watchdog-crash");
    scenario.soc.digprog = 0x00650001; // an i.MX6ULZ, for the board file that names no SoC
    scenario.reset_causes = kind == kWatchdog ? 0x10 : 0x1;
    // Four blocks, as a production player's: cutting whole blocks off leaves the environment in the first one.
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
    case kEmpty: case kAllBad: return "";
    case kHalf: case kGzipHalf: return content.substr(0, content.size() / 2);
    case kRandom: return RandomBytes(partition ? content.size() : kHugeSize);
    case kLong: return std::string("6,1,1,-;LMPLAY: ").append(kHugeSize, 'x'); // a record that never ends
    case kHugeCount: return "4294967295\n";
    case kErased: return std::string(content.size(), '\xff');
    case kCrc: return content.replace(0, 1, 1, static_cast<char>(content[0] ^ 0x01));
    case kGzipHit: return content.replace(content.size() / 64, 256, 256, '\x55');
    case kHugeStrings: return sim::FitBuilder().BeginNode("").StringProperty("version", "4.9.337-lumora-rescue-2.3")
                           .EndNode().StringsBlockSize(0x40000).Build();
    default: return content; // write-protected
    }
}

// Partitions are damaged in the scenario, files in the device it makes.
void Apply(sim::DeviceRoot& device, const HostileInput& row)
{
    sim::Scenario scenario = DeviceScenario(row.device);
    if (row.input.front() != '/') {
        sim::FlashImage& flash = scenario.flash[row.input];
        flash.image = Damaged(row.damage, flash.image, true);
        const int refusals[] = {EACCES, EPERM, EROFS};
        flash.write_refusal = row.damage >= kWriteProtected ? refusals[row.damage - kWriteProtected] : 0;
        flash.bad_blocks = row.damage == kAllBad ? std::vector<uint32_t>{0, 1, 2, 3} : flash.bad_blocks;
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

class HostileInputTest : public SandboxTest, public ::testing::WithParamInterface<HostileInput> {};

TEST_P(HostileInputTest, EndsWithTheDocumentedOutcome)
{
    const HostileInput& row = GetParam();
    Apply(m_device, row);

    const sim::RunResult result = m_device.Start().Wait(std::chrono::seconds(60));

    EXPECT_EQ(result.signal, 0) << "killed: hung or crashed";
    EXPECT_EQ(result.exit_status, row.status) << result.standard_error;
    EXPECT_THAT(result.standard_error, HasSubstr(row.shows + "\n"));
    const std::string verdict = row.shows.rfind(kCaught, 0) == 0 ? row.shows : row.status == 0 ? kDump : kNoDump;
    EXPECT_THAT(result.standard_error, EndsWith(verdict + "\n"));
    EXPECT_TRUE(row.hides == nullptr || result.standard_error.find(row.hides) == std::string::npos)
        << result.standard_error;
}

INSTANTIATE_TEST_SUITE_P(Table, HostileInputTest, ::testing::ValuesIn(kHostileInputs), test_support::NameFromWhat());

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
