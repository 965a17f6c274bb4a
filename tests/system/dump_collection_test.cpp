#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "device_root.h"
#include "sandbox_test.h"

namespace {

using namespace std::chrono_literals;
using sim::DeviceRoot;

constexpr const char* kArchive = "/var/lib/lumora/crash-dump/crash-dump.tar.bz2";
constexpr const char* kInfo = "/var/lib/lumora/crash-dump/crash-dump.info";
constexpr const char* kReady = "/var/lib/lumora/crash-dump/crash-dump.ready";
constexpr const char* kStaging = "/var/run/crash-dump/new";
constexpr const char* kGenerated = "Post-mortem crash dump generated.\n";

std::string CommandOutput(const std::string& command)
{
    std::string output;
    if (std::FILE* pipe = popen(command.c_str(), "r")) {
        char chunk[4096];
        size_t n;
        while ((n = std::fread(chunk, 1, sizeof chunk, pipe)) > 0)
            output.append(chunk, n);
        pclose(pipe);
    }
    return output;
}

bool EndsWith(const std::string& text, const std::string& end)
{
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}


// The scenario's reset causes (watchdog) make a dump due without the
// collector ever opening the core device itself, so the script is its only
// reader.
class DumpCollectionTest : public sandbox::SandboxTest {
protected:
    DumpCollectionTest() : SandboxTest("watchdog-crash") {}

    std::vector<std::string> Members() const
    {
        std::istringstream listing(CommandOutput("tar -tjf " + m_device.Path(kArchive)));
        std::vector<std::string> members;
        for (std::string line; std::getline(listing, line);)
            members.push_back(line);
        std::sort(members.begin(), members.end());
        return members;
    }

    std::string Member(const std::string& name) const
    {
        return CommandOutput("tar -xjOf " + m_device.Path(kArchive) + " " + name);
    }
};

TEST_F(DumpCollectionTest, EmptyCoreIsLeftOutOfTheArchive)
{
    m_device.WriteFile("/dev/ltcore", "");
    m_device.WriteFile(kReady, "from an earlier run");

    const auto result = m_device.Run();

    EXPECT_EQ(result.exit_status, 0) << result.standard_error;
    EXPECT_TRUE(EndsWith(result.standard_error, kGenerated)) << result.standard_error;
    EXPECT_EQ(Members(), (std::vector<std::string>{"./", "./dmesg", "./info", "./lastkmsg"}));
    EXPECT_EQ(Member("./info"), m_device.ReadFile(kInfo));
    EXPECT_EQ(Member("./lastkmsg"), m_device.ReadFile("/dev/lastkmsg"));
    EXPECT_EQ(m_device.ReadFile(kReady), "");
    EXPECT_FALSE(m_device.Exists(kStaging));
}

TEST_F(DumpCollectionTest, KeptCoreIsArchivedByteForByte)
{
    std::string core;
    for (int i = 0; i < 300000; ++i)
        core += static_cast<char>(i * 7 % 251);
    m_device.WriteFile("/dev/ltcore", core);

    const auto result = m_device.Run();

    EXPECT_EQ(result.exit_status, 0) << result.standard_error;
    EXPECT_EQ(Members(), (std::vector<std::string>{"./", "./dmesg", "./info", "./lastkmsg", "./ltcore"}));
    EXPECT_EQ(Member("./ltcore"), core);
    EXPECT_FALSE(m_device.Exists(kStaging));
}

struct FailureCase {
    const char* name;
    void (*prepare)(DeviceRoot&);
    int exit_status;
    const char* stderr_end;
    bool archive;
    bool info;
    bool ready;
};

void PrintTo(const FailureCase& c, std::ostream* out)
{
    *out << c.name;
}

class DumpCollectionFailureTest : public DumpCollectionTest, public testing::WithParamInterface<FailureCase> {};

TEST_P(DumpCollectionFailureTest, EndsAsDocumented)
{
    const FailureCase& c = GetParam();
    c.prepare(m_device);

    const auto result = m_device.Run();

    EXPECT_EQ(result.exit_status, c.exit_status);
    EXPECT_TRUE(EndsWith(result.standard_error, c.stderr_end)) << result.standard_error;
    EXPECT_EQ(m_device.Exists(kArchive), c.archive);
    EXPECT_EQ(m_device.Exists(kInfo), c.info);
    EXPECT_EQ(m_device.Exists(kReady), c.ready);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DumpCollectionFailureTest,
    testing::Values(
        FailureCase{"LeftoverStagingDirectory", [](DeviceRoot& d) { d.MakeDirectory(kStaging); }, 1,
                    "crash-dump caught exception: /var/run/crash-dump/new: File exists (17)\n", false, false, false},
        FailureCase{"NoStagingParent", [](DeviceRoot& d) { d.Remove("/var/run/crash-dump"); }, 1,
                    "crash-dump caught exception: /var/run/crash-dump/new: No such file or directory (2)\n", false,
                    false, false},
        // The info file writer is silent; only the archive and marker count.
        FailureCase{"InfoPathIsADirectory", [](DeviceRoot& d) { d.MakeDirectory(kInfo); }, 0, kGenerated, true,
                    true, true},
        FailureCase{"ReadyPathIsADirectory", [](DeviceRoot& d) { d.MakeDirectory(kReady); }, 1,
                    "crash-dump caught exception: /var/lib/lumora/crash-dump/crash-dump.ready: Is a directory (21)\n",
                    true, true, true}),
    [](const testing::TestParamInfo<FailureCase>& param) { return param.param.name; });

TEST_F(DumpCollectionTest, LockIsHeldUnderItsFinalNameWhileTheScriptRuns)
{
    const std::string fifo = m_device.Path("/dev/ltcore");
    m_device.Remove("/dev/ltcore");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);

    auto process = m_device.Start();
    // A non-blocking open for writing succeeds only once the script has the
    // FIFO open for reading, which holds it there until the writer closes.
    const auto deadline = std::chrono::steady_clock::now() + 60s;
    int writer;
    while ((writer = open(fifo.c_str(), O_WRONLY | O_NONBLOCK)) < 0 && errno == ENXIO
           && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(5ms);
    ASSERT_GE(writer, 0) << "the dump script never read the core device";

    const int reader = open(m_device.Path("/var/lock/crash-dump-complete").c_str(), O_RDONLY);
    EXPECT_GE(reader, 0);
    EXPECT_EQ(flock(reader, LOCK_SH | LOCK_NB), -1);
    EXPECT_EQ(errno, EWOULDBLOCK);
    close(reader);
    EXPECT_FALSE(m_device.Exists("/var/lock/crash-dump-complete.tmp"));
    EXPECT_TRUE(m_device.Exists(kStaging));

    EXPECT_EQ(write(writer, "core", 4), 4);
    close(writer);
    const auto result = process.Wait();
    EXPECT_EQ(result.exit_status, 0) << result.standard_error;
    EXPECT_EQ(Member("./ltcore"), "core");
}

} // namespace
