#pragma once

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include "device_root.h"
#include "installation.h"
#include "scenario.h"
#include "scenario_directory.h"

namespace sandbox {

// The collector's paths and final lines, written out rather than taken from
// the program, so that a changed path or message fails the tests.
namespace device_files {

// What the previous run of the device left behind.
constexpr const char* kResetCauses = "/proc/device-tree/lumora/bootloader/imx-reset-cause";
constexpr const char* kCoreImage = "/dev/ltcore";
constexpr const char* kPanicFlag = "/proc/panic_flag";
constexpr const char* kTrigger = "/sys/class/mem/lastkmsg/trigger_dump";
constexpr const char* kKernelLog = "/dev/lastkmsg";

// The completion lock, before and after its rename.
constexpr const char* kLockTemporary = "/var/lock/crash-dump-complete.tmp";
constexpr const char* kLock = "/var/lock/crash-dump-complete";

// What a dump writes.
constexpr const char* kStaging = "/var/run/crash-dump/new";
constexpr const char* kOutputDirectory = "/var/lib/lumora/crash-dump";
constexpr const char* kArchive = "/var/lib/lumora/crash-dump/crash-dump.tar.bz2";
constexpr const char* kInfoFile = "/var/lib/lumora/crash-dump/crash-dump.info";
constexpr const char* kReadyMarker = "/var/lib/lumora/crash-dump/crash-dump.ready";

// The last line of a run: a dump, none due, or an exception's text.
constexpr const char* kDump = "Post-mortem crash dump generated.\n";
constexpr const char* kNoDump = "No post-mortem crash dump available.\n";
constexpr const char* kCaught = "crash-dump caught exception: ";

} // namespace device_files

// Set in the environment of the tests (not of the collector), this runs every
// start of the collector under the memory checker.
constexpr const char* kValgrindSwitch = "CRASH_DUMP_SANDBOX_VALGRIND";

// The simulator as this build stages it: its collector, fake MTD driver and
// built-in scenarios.
inline sim::Installation ThisBuild()
{
    return sim::Installation::Under(CRASH_DUMP_SIM_STAGE);
}

inline sim::Scenario BuiltInScenario(const std::string& name)
{
    return sim::LoadScenario(ThisBuild().scenarios + "/" + name);
}

// What a host command prints on standard output.
inline std::string CommandOutput(const std::string& command)
{
    std::string output;
    if (std::FILE* pipe = popen(command.c_str(), "r")) {
        char chunk[4096];
        for (size_t n; (n = std::fread(chunk, 1, sizeof chunk, pipe)) > 0;)
            output.append(chunk, n);
        pclose(pipe);
    }
    return output;
}

// The line a run ended with: its verdict.
inline std::string FinalLine(const std::string& text)
{
    const size_t start = text.rfind('\n', text.size() < 2 ? 0 : text.size() - 2);
    return start == std::string::npos ? text : text.substr(start + 1);
}

// A test on a simulated device, set up by a built-in scenario or left bare.
// Building the device needs root; elsewhere the test is skipped.
class SandboxTest : public ::testing::Test {
protected:
    explicit SandboxTest(const char* scenario = nullptr) : m_scenario(scenario) {}

    void SetUp() override
    {
        if (geteuid() != 0)
            GTEST_SKIP() << "the device simulator needs root";
        if (std::getenv(kValgrindSwitch) != nullptr)
            m_device.CheckWithValgrind(true);
        if (m_scenario != nullptr)
            Prepare(m_scenario);
    }

    void Prepare(const std::string& scenario) { sim::Apply(BuiltInScenario(scenario), m_device); }

    // The archive's member names, sorted, one a line; or one member's content.
    std::string ArchiveMembers() const { return Tar("-tj", "| sort"); }
    std::string ArchiveMember(const std::string& name) const { return Tar("-xOj", name); }

    sim::DeviceRoot m_device{ThisBuild()};

private:
    std::string Tar(const std::string& options, const std::string& rest) const
    {
        return CommandOutput("tar " + options + "f " + m_device.Path(device_files::kArchive) + " 2>/dev/null " + rest);
    }

    const char* m_scenario;
};

// Bytes that compress to nothing and parse as nothing, the same on every call
// (so that a failure repeats): what a worn flash or a wild write leaves.
inline std::string RandomBytes(size_t size)
{
    std::mt19937 engine(7);
    std::string bytes(size, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(engine());
    return bytes;
}

} // namespace sandbox
