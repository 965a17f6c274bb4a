// Every input the collector reads, damaged one at a time the ways a crash, a
// worn flash or a broken kernel driver damage them. Whatever the damage, the
// run ends with one of its statuses and the message that goes with it: never
// a signal, never a hang.
//
// To cover a new input, add its rows to kHostileInputs, then regenerate the
// table in docs/hostile-input.md (see HostileInputDocTest below).

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <cctype>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "device_files.h"
#include "device_root.h"
#include "scenarios.h"

namespace {

using namespace sandbox::device_files;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr size_t kHugeSize = 4 << 20;

enum class Damage { kMissing, kEmpty, kTruncated, kDirectory, kRandomBytes, kLongLine };

// The device around the damaged input, chosen so that the collector reads it.
enum class Device {
    kCleanBoot, // power-on reset, nothing kept: every check of the decision runs
    kCoreKept,  // power-on reset, but a core image and its log were kept: a dump is due
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
    }
    return "";
}

const char* DeviceText(Device device)
{
    return device == Device::kCleanBoot ? "clean boot" : "core kept";
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

void Prepare(sandbox::DeviceRoot& device, Device kind)
{
    if (kind == Device::kCleanBoot) {
        sandbox::PrepareCleanBoot(device);
        return;
    }
    sandbox::PrepareCrashedDevice(device);
    device.SetResetCauses(0x1);
}

void Apply(sandbox::DeviceRoot& device, const std::string& path, Damage damage)
{
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
    }
}

std::string CaseName(const ::testing::TestParamInfo<HostileInput>& info)
{
    std::string name;
    for (const char c : std::string(info.param.path) + "_" + DamageText(info.param.damage)) {
        const bool word = std::isalnum(static_cast<unsigned char>(c)) != 0;
        if (word)
            name += c;
        else if (!name.empty() && name.back() != '_')
            name += '_';
    }
    return name;
}

class HostileInputTest : public ::testing::TestWithParam<HostileInput> {
protected:
    void SetUp() override
    {
        if (geteuid() != 0)
            GTEST_SKIP() << "the device sandbox needs root";
    }

    sandbox::DeviceRoot m_device;
};

TEST_P(HostileInputTest, EndsWithTheDocumentedOutcome)
{
    const HostileInput& input = GetParam();
    const auto first = static_cast<unsigned char>(RandomBytes().front());
    ASSERT_FALSE(std::isdigit(first) || std::isspace(first) || first == '+' || first == '-')
        << "the table takes the random bytes for garbage, not for a number";
    Prepare(m_device, input.device);
    Apply(m_device, input.path, input.damage);

    const sandbox::RunResult result = m_device.Start().Wait(std::chrono::seconds(60));

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
