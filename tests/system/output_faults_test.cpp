// Where the collector writes while an earlier dump still waits for its upload:
// a ready marker only ever stands beside one run's dump, and the lock tells
// other programs on the device when the collector has finished.

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <filesystem>
#include <thread>

#include "param_name.h"
#include "sandbox_test.h"

namespace {

using namespace sandbox;
namespace fs = std::filesystem;

class EarlierDumpTest : public SandboxTest {
protected:
    void SetUp() override
    {
        SandboxTest::SetUp();
        if (IsSkipped())
            return;
        Prepare("earlier-dump-waiting");
        m_earlier = EarlierDump();
    }

    // The earlier archive and info file as they stand now.
    std::string EarlierDump() const { return Content(kArchive) + Content(kInfoFile); }
    std::string Content(const char* inside) const { return m_device.Exists(inside) ? m_device.ReadFile(inside) : ""; }

    std::string m_earlier;
};

// The staging directory's parent, on a device a tmpfs.
constexpr const char* kRun = "/var/run/crash-dump";

struct OutputFault {
    const char* what;
    void (*apply)(sim::DeviceRoot&);
    int status;
    std::string final_line;
    bool kept;   // the earlier archive and info file are untouched
    bool marked; // an empty regular file stands as the ready marker afterwards
    const char* shows = "";
    const char* left = "crash-dump.info\ncrash-dump.ready\ncrash-dump.tar.bz2\n"; // the output directory afterwards
};

const OutputFault kOutputFaults[] = {
    {"NothingCrashed", [](sim::DeviceRoot& d) { d.SetResetCauses(0x1); d.WriteFile(kCoreImage, ""); }, 1, kNoDump,
     true, true},
    // A leftover of an interrupted run fails this one before it touches anything.
    {"StagingLeftover", [](sim::DeviceRoot& d) { d.MakeDirectory(kStaging); }, 1,
     std::string(kCaught) + kStaging + ": File exists (17)", true, true},
    {"ReadyMarkerIsADirectory", [](sim::DeviceRoot& d) { d.Remove(kReadyMarker); d.MakeDirectory(kReadyMarker); }, 1,
     std::string(kCaught) + kReadyMarker + ": Is a directory (21)", false, false},
    // Replaced, not written through.
    {"ReadyMarkerIsALink",
     [](sim::DeviceRoot& d) { d.Remove(kReadyMarker); fs::create_symlink("/dev/kmsg", d.Path(kReadyMarker)); },
     0, kDump, false, true},
    // A core that the staging area in RAM cannot take is dropped like one that the output's storage cannot.
    {"StagingAreaFillsUp",
     [](sim::DeviceRoot& d) { d.MountTmpfs(kRun, 64 << 10); d.WriteFile(kCoreImage, RandomBytes(1 << 20)); },
     0, std::string("Crash dump written without its core image of 1048576 bytes: it could not be stored.\n") + kDump,
     false, true},
    // One page: room for the dump without its core, not for the info file beside it; none is left half written.
    {"InfoFileDoesNotFit",
     [](sim::DeviceRoot& d) { d.MountTmpfs(kOutputDirectory, 4096); d.WriteFile(kCoreImage, RandomBytes(1 << 20)); },
     1, std::string(kCaught) + kInfoFile + ": No space left on device (28)", false, false, "", "crash-dump.tar.bz2\n"},
    // Not even the kernel log fits: no archive at all rather than a truncated one.
    {"NothingFits",
     [](sim::DeviceRoot& d) { d.MountTmpfs(kOutputDirectory, 4096); d.WriteFile(kKernelLog, RandomBytes(1 << 16)); },
     1, std::string(kCaught) + kArchive + ": not written, the dump script failed with status 2", false, false, "", ""},
    // Failing to remove the staging directory (its parent made append-only)
    // costs a line on standard error, not the dump.
    {"StagingCannotBeRemoved",
     [](sim::DeviceRoot& d) {
         d.MountTmpfs(kRun, 64 << 10);
         EXPECT_EQ(std::system(("chattr +a " + d.Path(kRun)).c_str()), 0);
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
    EXPECT_THAT(result.standard_error, EndsWith(fault.final_line + "\n"));
    EXPECT_THAT(result.standard_error, HasSubstr(fault.shows));
    EXPECT_EQ(EarlierDump() == m_earlier, fault.kept);
    struct stat marker {};
    const bool regular = lstat(m_device.Path(kReadyMarker).c_str(), &marker) == 0 && S_ISREG(marker.st_mode);
    EXPECT_EQ(regular && marker.st_size == 0, fault.marked);
    EXPECT_EQ(HostOutput("LC_ALL=C ls " + m_device.Path(kOutputDirectory)), fault.left);
    if (!fault.marked)
        return;
    // Beside the marker, one run's complete dump: its info file is the archive's, and a dropped core is not in it.
    const std::string info = m_device.ReadFile(kInfoFile);
    EXPECT_EQ(Tar(m_device, "-xOj ./info"), info);
    EXPECT_EQ(Tar(m_device, "-tj").find("./ltcore") == std::string::npos,
              info.find("\ncore_dropped=") != std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Table, OutputFaultTest, ::testing::ValuesIn(kOutputFaults), test_support::NameFromWhat());

// Whether a program waiting for the collector would go on right now.
bool LockIsFree(const sim::DeviceRoot& device)
{
    const int reader = open(device.Path(kLock).c_str(), O_RDONLY | O_CLOEXEC);
    const bool free = flock(reader, LOCK_SH | LOCK_NB) == 0;
    close(reader);
    return free;
}

// The lock is taken over as earlier runs left it (the temporary file neither truncated nor written, an old final
// name replaced) once its other holder lets go, and held under its final name until the run ends, even by a kill.
// A run killed before tar has withdrawn the earlier marker.
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
    EXPECT_EQ(EarlierDump(), m_earlier);
    EXPECT_FALSE(m_device.Exists(kReadyMarker));
}

} // namespace
