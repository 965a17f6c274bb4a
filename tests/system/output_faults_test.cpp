// Where the collector writes: the lock directory and the output directory,
// read-only, full or unable to sync, and a run cut off in the middle of a
// dump. A ready marker must only ever stand beside a dump the run counted as
// written, and nothing a cut-off run leaves may stop the next boot's run.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "device_files.h"
#include "device_root.h"
#include "sandbox_test.h"

namespace {

using namespace sandbox::device_files;
using ::testing::EndsWith;
using ::testing::IsSupersetOf;

struct OutputFault {
    const char* name;
    void (*apply)(sim::DeviceRoot&);
    int status;
    const char* final_line;
    bool info;  // whether the info file has content afterwards
    bool ready; // whether the ready marker exists afterwards
};

const OutputFault kOutputFaults[] = {
    {"read_only_lock_directory", [](sim::DeviceRoot& device) { device.MakeReadOnly("/var/lock"); }, 1,
     "crash-dump caught exception: /var/lock/crash-dump-complete.tmp: Read-only file system (30)\n", false, false},
    {"read_only_output_directory", [](sim::DeviceRoot& device) { device.MakeReadOnly(kOutputDirectory); }, 1,
     "crash-dump caught exception: /var/lib/lumora/crash-dump/crash-dump.ready: Read-only file system (30)\n",
     false, false},
    // The info file fails silently; the marker needs no space.
    {"output_directory_full",
     [](sim::DeviceRoot& device) {
         device.MountTmpfs(kOutputDirectory, 4096);
         device.WriteFile(std::string(kOutputDirectory) + "/filler", std::string(4096, 'x'));
     },
     0, kDump, false, true},
    // A marker that cannot be synced is as durable as it will get.
    {"marker_cannot_be_synced", [](sim::DeviceRoot& device) { device.BindHostFile("/dev/null", kReadyMarker); },
     0, kDump, true, true},
};

std::string CaseName(const ::testing::TestParamInfo<OutputFault>& info)
{
    return info.param.name;
}

class OutputFaultTest : public sandbox::SandboxTest {
protected:
    OutputFaultTest() : SandboxTest("watchdog-crash") {}
};

class OutputFaultTableTest : public OutputFaultTest, public ::testing::WithParamInterface<OutputFault> {};

TEST_P(OutputFaultTableTest, EndsWithTheDocumentedOutcome)
{
    const OutputFault& fault = GetParam();
    fault.apply(m_device);

    const sim::RunResult result = m_device.Start().Wait(std::chrono::seconds(60));

    ASSERT_EQ(result.signal, 0) << "killed: hung or crashed";
    EXPECT_EQ(result.exit_status, fault.status) << result.standard_error;
    EXPECT_THAT(result.standard_error, EndsWith(fault.final_line));
    EXPECT_EQ(m_device.Exists(kInfoFile) && !m_device.ReadFile(kInfoFile).empty(), fault.info);
    EXPECT_EQ(m_device.Exists(kReadyMarker), fault.ready);
}

INSTANTIATE_TEST_SUITE_P(Table, OutputFaultTableTest, ::testing::ValuesIn(kOutputFaults), CaseName);

bool WaitFor(const std::function<bool()>& condition, std::chrono::seconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

// The archive's members as the system's tar lists them.
std::vector<std::string> ArchiveMembers(const std::string& archive)
{
    std::vector<std::string> members;
    const std::string command = "tar -tjf '" + archive + "' 2>/dev/null";
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> listing(popen(command.c_str(), "r"), &pclose);
    char line[4096];
    while (listing && std::fgets(line, sizeof line, listing.get()) != nullptr)
        members.emplace_back(line, std::strcspn(line, "\n"));
    return members;
}

// The script's failure is not the collector's: whatever reached the storage
// is announced as the dump.
TEST_F(OutputFaultTest, OutputFillingUpDuringTheArchiveStillCountsAsCollected)
{
    m_device.MountTmpfs(kOutputDirectory, 64 << 10);
    // Incompressible and many times the space: tar fails part way.
    m_device.WriteFile(kCoreImage, sandbox::RandomBytes(1 << 20));

    const sim::RunResult result = m_device.Start().Wait(std::chrono::seconds(60));

    ASSERT_EQ(result.signal, 0) << "killed: hung or crashed";
    EXPECT_EQ(result.exit_status, 0) << result.standard_error;
    EXPECT_THAT(result.standard_error, EndsWith(kDump));
    EXPECT_TRUE(m_device.Exists(kReadyMarker));
    EXPECT_FALSE(m_device.Exists(kStaging));
}

// An earlier dump still waits for its upload: archive, info file, marker.
class EarlierDumpTest : public OutputFaultTest {
protected:
    void SetUp() override
    {
        OutputFaultTest::SetUp();
        if (IsSkipped())
            return;
        m_device.WriteFile(kArchive, "earlier archive");
        m_device.WriteFile(kInfoFile, "earlier info\n");
        m_device.WriteFile(kReadyMarker, "");
    }

    void ExpectEarlierDump(bool marked) const
    {
        EXPECT_EQ(m_device.ReadFile(kArchive), "earlier archive");
        EXPECT_EQ(m_device.ReadFile(kInfoFile), "earlier info\n");
        EXPECT_EQ(m_device.Exists(kReadyMarker), marked);
    }
};

// A leftover of an interrupted run fails this one before it touches anything.
TEST_F(EarlierDumpTest, StagingLeftoverKeepsTheEarlierDumpHandedOff)
{
    m_device.MakeDirectory(kStaging);

    const sim::RunResult result = m_device.Run();

    EXPECT_EQ(result.exit_status, 1);
    EXPECT_THAT(result.standard_error,
                EndsWith("crash-dump caught exception: /var/run/crash-dump/new: File exists (17)\n"));
    ExpectEarlierDump(true);
}

// The marker goes before the archive is rewritten, so no power cut can leave
// it beside a half-written archive. A run cut off while packing leaves no
// marker, and its staging directory goes with the volatile /var/run at the
// next boot.
TEST_F(EarlierDumpTest, RunKilledBeforeTarLeavesNothingHandedOffAndDoesNotStopTheNextBoot)
{
    // A core image that never ends: the dump script blocks reading it.
    m_device.Remove(kCoreImage);
    ASSERT_EQ(mkfifo(m_device.Path(kCoreImage).c_str(), 0600), 0);

    sim::DeviceRoot::Process run = m_device.Start();
    ASSERT_TRUE(WaitFor([&] { return m_device.Exists(std::string(kStaging) + "/info"); }, std::chrono::seconds(60)));
    EXPECT_TRUE(WaitFor([&] { return !m_device.Exists(kReadyMarker); }, std::chrono::seconds(10)));
    run.Kill(SIGKILL);
    EXPECT_EQ(run.Wait().signal, SIGKILL);
    ExpectEarlierDump(false);

    // The next boot: /var/run is volatile, and the system image makes its
    // directory again.
    m_device.Remove("/var/run");
    m_device.MakeDirectory("/var/run/crash-dump");
    m_device.Remove(kCoreImage);
    m_device.WriteFile(kCoreImage, "\x7f" "ELF core image of the crashed kernel\n");

    const sim::RunResult next = m_device.Run();

    EXPECT_EQ(next.exit_status, 0) << next.standard_error;
    EXPECT_THAT(next.standard_error, EndsWith(kDump));
    EXPECT_TRUE(m_device.Exists(kReadyMarker));
    EXPECT_THAT(ArchiveMembers(m_device.Path(kArchive)),
                IsSupersetOf({"./info", "./ltcore", "./dmesg", "./lastkmsg"}));
}

// A marker that is a link is replaced, not written through.
TEST_F(EarlierDumpTest, StaleMarkerLinkIsReplacedByAnEmptyFile)
{
    m_device.Remove(kReadyMarker);
    ASSERT_EQ(symlink("/etc/lumora-version", m_device.Path(kReadyMarker).c_str()), 0);

    EXPECT_EQ(m_device.Run().exit_status, 0);

    struct stat marker {};
    ASSERT_EQ(lstat(m_device.Path(kReadyMarker).c_str(), &marker), 0);
    EXPECT_TRUE(S_ISREG(marker.st_mode));
    EXPECT_EQ(marker.st_size, 0);
    EXPECT_EQ(m_device.ReadFile("/etc/lumora-version"), "9.0.112");
}

} // namespace
