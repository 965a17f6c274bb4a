#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "device_root.h"
#include "scenarios.h"

namespace {

using sandbox::DeviceRoot;

constexpr const char* kTemporary = "/var/lock/crash-dump-complete.tmp";
constexpr const char* kFinal = "/var/lock/crash-dump-complete";
constexpr const char* kNoDump = "No post-mortem crash dump available.\n";

class CompletionLockTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (geteuid() != 0)
            GTEST_SKIP() << "the device sandbox needs root";
        sandbox::PrepareCleanBoot(m_device);
    }

    DeviceRoot m_device;
};

TEST_F(CompletionLockTest, LeftoverTemporaryLockIsReusedWithoutTruncation)
{
    m_device.WriteFile(kTemporary, "left by an earlier run");

    auto result = m_device.Run();

    EXPECT_EQ(result.exit_status, 1);
    EXPECT_FALSE(m_device.Exists(kTemporary));
    EXPECT_EQ(m_device.ReadFile(kFinal), "left by an earlier run");
}

TEST_F(CompletionLockTest, LeftoverFinalLockIsReplaced)
{
    m_device.WriteFile(kFinal, "stale");

    auto result = m_device.Run();

    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(m_device.ReadFile(kFinal), "");
    EXPECT_FALSE(m_device.Exists(kTemporary));
}

TEST_F(CompletionLockTest, WaitsForAnotherHolderOfTheLock)
{
    m_device.WriteFile(kTemporary, "");
    int holder = open(m_device.Path(kTemporary).c_str(), O_RDONLY);
    ASSERT_EQ(flock(holder, LOCK_EX), 0);

    auto process = m_device.Start();
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_TRUE(m_device.Exists(kTemporary)) << "renamed before the lock was granted";
    EXPECT_FALSE(m_device.Exists(kFinal));

    close(holder);
    auto result = process.Wait();
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.standard_error.substr(result.standard_error.size() - std::string(kNoDump).size()), kNoDump);
    EXPECT_TRUE(m_device.Exists(kFinal));
}

TEST_F(CompletionLockTest, NoDumpLeavesTheOutputDirectoryAlone)
{
    constexpr const char* kOld = "/var/lib/lumora/crash-dump/crash-dump.ready";
    m_device.WriteFile(kOld, "earlier");
    struct stat before {};
    ASSERT_EQ(stat(m_device.Path("/var/lib/lumora/crash-dump").c_str(), &before), 0);

    auto result = m_device.Run();

    EXPECT_EQ(result.exit_status, 1);
    EXPECT_NE(result.standard_error.find(kNoDump), std::string::npos);
    struct stat after {};
    ASSERT_EQ(stat(m_device.Path("/var/lib/lumora/crash-dump").c_str(), &after), 0);
    EXPECT_EQ(before.st_mtim.tv_nsec, after.st_mtim.tv_nsec);
    EXPECT_EQ(before.st_mtim.tv_sec, after.st_mtim.tv_sec);
    EXPECT_EQ(m_device.ReadFile(kOld), "earlier");
    EXPECT_FALSE(m_device.Exists("/var/run/crash-dump/new"));
}

} // namespace
