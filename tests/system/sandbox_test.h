#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "device_root.h"
#include "installation.h"
#include "random_bytes.h"
#include "scenario.h"
#include "scenario_directory.h"

namespace sandbox {

using ::testing::EndsWith;
using ::testing::HasSubstr;

// The collector's paths and final lines, written out rather than taken from
// the program, so that a changed path or message fails the tests.
constexpr const char* kResetCauses = "/proc/device-tree/lumora/bootloader/imx-reset-cause";
constexpr const char* kCoreImage = "/dev/ltcore";
constexpr const char* kPanicFlag = "/proc/panic_flag";
constexpr const char* kTrigger = "/sys/class/mem/lastkmsg/trigger_dump";
constexpr const char* kKernelLog = "/dev/lastkmsg";
constexpr const char* kLockTemporary = "/var/lock/crash-dump-complete.tmp";
constexpr const char* kLock = "/var/lock/crash-dump-complete";
constexpr const char* kStaging = "/var/run/crash-dump/new";
constexpr const char* kOutputDirectory = "/var/lib/lumora/crash-dump";
constexpr const char* kArchive = "/var/lib/lumora/crash-dump/crash-dump.tar.bz2";
constexpr const char* kInfoFile = "/var/lib/lumora/crash-dump/crash-dump.info";
constexpr const char* kReadyMarker = "/var/lib/lumora/crash-dump/crash-dump.ready";
constexpr const char* kDump = "Post-mortem crash dump generated.";
constexpr const char* kNoDump = "No post-mortem crash dump available.";
constexpr const char* kCaught = "crash-dump caught exception: ";

// Set for the tests (not the collector), this runs every start of the collector under the memory checker.
constexpr const char* kValgrindSwitch = "CRASH_DUMP_SANDBOX_VALGRIND";

inline sim::Installation ThisBuild() { return sim::Installation::Under(CRASH_DUMP_SIM_STAGE); }

inline sim::Scenario BuiltInScenario(const std::string& name)
{
    return sim::LoadScenario(ThisBuild().scenarios + "/" + name);
}

using test_support::RandomBytes;

// What a command run on the host prints.
inline std::string HostOutput(const std::string& command)
{
    std::FILE* pipe = popen(command.c_str(), "r");
    std::string output;
    for (int c; (c = std::fgetc(pipe)) != EOF;)
        output += static_cast<char>(c);
    pclose(pipe);
    return output;
}

// What tar prints for the device's archive and the given options.
inline std::string Tar(const sim::DeviceRoot& device, const std::string& options)
{
    return HostOutput("tar -f " + device.Path(kArchive) + " " + options + " 2>/dev/null");
}

// A test on a bare simulated device; building one needs root, elsewhere the test is skipped.
class SandboxTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (geteuid() != 0)
            GTEST_SKIP() << "the device simulator needs root";
        if (std::getenv(kValgrindSwitch) != nullptr)
            m_device.CheckWithValgrind(true);
    }

    void Prepare(const std::string& scenario) { sim::Apply(BuiltInScenario(scenario), m_device); }

    sim::DeviceRoot m_device{ThisBuild()};
};

} // namespace sandbox
