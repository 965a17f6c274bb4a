// Where the collector writes, while an earlier dump still waits for its
// upload: faults of the output directory, runs cut off or started together. A
// ready marker must only ever stand beside a dump of one run, and the lock must
// tell other programs on the device when the collector has finished.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "sandbox_test.h"

namespace {

using namespace sandbox::device_files;
using ::testing::AnyOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;
namespace fs = std::filesystem;

class EarlierDumpTest : public sandbox::SandboxTest {
protected:
    EarlierDumpTest() : SandboxTest("watchdog-crash") {}

    void SetUp() override
    {
        SandboxTest::SetUp();
        if (IsSkipped())
            return;
        m_device.WriteFile(kArchive, "earlier archive");
        m_device.WriteFile(kInfoFile, "earlier info\n");
        m_device.WriteFile(kReadyMarker, "");
    }

    bool EarlierDumpKept() const
    {
        return m_device.ReadFile(kArchive) == "earlier archive" && m_device.ReadFile(kInfoFile) == "earlier info\n";
    }
};

struct OutputFault {
    const char* name;
    void (*apply)(sim::DeviceRoot&);
    int status;
    std::string final_line;
    bool kept;   // the earlier archive and info file are untouched
    bool marked; // an empty regular file stands as the ready marker afterwards
    const char* shows = "";
};

const OutputFault kOutputFaults[] = {
    {"NothingCrashed", [](sim::DeviceRoot& d) { d.SetResetCauses(0x1); d.WriteFile(kCoreImage, ""); }, 1, kNoDump,
     true, true},
    // A leftover of an interrupted run fails this one before it touches anything.
    {"StagingLeftover", [](sim::DeviceRoot& d) { d.MakeDirectory(kStaging); }, 1,
     std::string(kCaught) + kStaging + ": File exists (17)\n", true, true},
    {"ReadyMarkerIsADirectory", [](sim::DeviceRoot& d) { d.Remove(kReadyMarker); d.MakeDirectory(kReadyMarker); }, 1,
     std::string(kCaught) + kReadyMarker + ": Is a directory (21)\n", false, false},
    // Replaced, not written through.
    {"ReadyMarkerIsALink",
     [](sim::DeviceRoot& d) { d.Remove(kReadyMarker); fs::create_symlink("/dev/kmsg", d.Path(kReadyMarker)); },
     0, kDump, false, true},
    // Neither tar failing part way through an incompressible core nor the info
    // file counts: whatever reached the storage is announced as the dump.
    {"OutputDirectoryFillsUp",
     [](sim::DeviceRoot& d) {
         d.MountTmpfs(kOutputDirectory, 64 << 10);
         d.WriteFile(kCoreImage, sandbox::RandomBytes(1 << 20));
     },
     0, kDump, false, true},
    // The staging directory is only scaffolding: failing to remove it (its
    // parent made append-only) costs a line on standard error, not the dump.
    {"StagingCannotBeRemoved",
     [](sim::DeviceRoot& d) {
         d.MountTmpfs("/var/run/crash-dump", 64 << 10);
         EXPECT_EQ(std::system(("chattr +a " + d.Path("/var/run/crash-dump")).c_str()), 0);
     },
     0, kDump, false, true, "\nFailed to clean up after generating crash dump: "},
};

class OutputFaultTest : public EarlierDumpTest, public ::testing::WithParamInterface<OutputFault> {};

TEST_P(OutputFaultTest, EndsWithTheDocumentedOutcome)
{
    const OutputFault& fault = GetParam();
    fault.apply(m_device);

    const sim::RunResult result = m_device.Start().Wait(std::chrono::seconds(60));

    ASSERT_EQ(result.signal, 0) << "killed: hung or crashed";
    EXPECT_EQ(result.exit_status, fault.status) << result.standard_error;
    EXPECT_EQ(sandbox::FinalLine(result.standard_error), fault.final_line);
    EXPECT_THAT(result.standard_error, HasSubstr(fault.shows));
    EXPECT_EQ(EarlierDumpKept(), fault.kept);
    struct stat marker {};
    const bool regular = lstat(m_device.Path(kReadyMarker).c_str(), &marker) == 0 && S_ISREG(marker.st_mode);
    EXPECT_EQ(regular && marker.st_size == 0, fault.marked);
}

INSTANTIATE_TEST_SUITE_P(Table, OutputFaultTest, ::testing::ValuesIn(kOutputFaults),
                         [](const auto& test) { return std::string(test.param.name); });

// Whether a program waiting for the collector would go on right now.
bool LockIsFree(const sim::DeviceRoot& device)
{
    const int reader = open(device.Path(kLock).c_str(), O_RDONLY | O_CLOEXEC);
    const bool free = flock(reader, LOCK_SH | LOCK_NB) == 0;
    close(reader);
    return free;
}

// The lock, taken once another holder of the temporary file lets go, is held
// under its final name until the run ends, even by a kill. Leftovers of
// earlier runs are taken over as they are: the temporary file neither
// truncated nor written, an old final name replaced. A run killed before tar
// has withdrawn the earlier marker, as the archive is about to be rewritten.
TEST_F(EarlierDumpTest, LockHeldFromTheRenameToTheEndOfARunKilledBeforeTar)
{
    m_device.WriteFile(kLock, "stale");
    m_device.WriteFile(kLockTemporary, "left over");
    const int holder = open(m_device.Path(kLockTemporary).c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(holder, LOCK_EX), 0);
    // The dump script blocks reading a core device that is a FIFO (the reset
    // causes make the dump due: the collector itself never opens it).
    const std::string fifo = m_device.Path(kCoreImage);
    m_device.Remove(kCoreImage);
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);

    sim::DeviceRoot::Process run = m_device.Start();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(m_device.ReadFile(kLock), "stale") << "renamed before the lock was granted";
    close(holder);
    int script = -1; // opening the FIFO without blocking succeeds once the script reads it
    for (int tries = 0; tries < 12000 && (script = open(fifo.c_str(), O_WRONLY | O_NONBLOCK)) < 0; ++tries)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    ASSERT_GE(script, 0) << "the dump script never read the core device";
    EXPECT_EQ(m_device.ReadFile(kLock), "left over");
    EXPECT_FALSE(m_device.Exists(kLockTemporary) || LockIsFree(m_device));
    run.Kill(SIGKILL);
    close(script);

    EXPECT_EQ(run.Wait().signal, SIGKILL);
    EXPECT_TRUE(LockIsFree(m_device));
    EXPECT_TRUE(EarlierDumpKept());
    EXPECT_FALSE(m_device.Exists(kReadyMarker));
}

using CompletionLockTest = EarlierDumpTest;

// Collectors started together, as by a boot that starts the unit twice: each
// ends as a whole run does. One that opened the temporary name just before
// another renamed it fails its rename; two with different files collide.
TEST_F(CompletionLockTest, CollectorsStartedTogetherEachEndAsAWholeRun)
{
    for (const char* scenario : {"watchdog-crash", "clean-boot", "watchdog-crash", "clean-boot", "watchdog-crash"}) {
        Prepare(scenario);
        std::vector<sim::DeviceRoot::Process> runs;
        for (int i = 0; i < 3; ++i)
            runs.push_back(m_device.Start());
        for (sim::DeviceRoot::Process& run : runs) {
            const sim::RunResult result = run.Wait(std::chrono::seconds(60));
            const std::string final_line = sandbox::FinalLine(result.standard_error);
            EXPECT_THAT(final_line, AnyOf(kDump, kNoDump, StartsWith(kCaught))) << result.standard_error;
            EXPECT_EQ(result.exit_status, final_line == kDump ? 0 : 1) << scenario;
        }
    }
}

} // namespace
