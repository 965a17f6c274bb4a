#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <chrono>
#include <thread>

#include "device_files.h"
#include "device_root.h"
#include "sandbox_test.h"

namespace {

using namespace sandbox::device_files;

class CompletionLockTest : public sandbox::SandboxTest {
protected:
    CompletionLockTest() : SandboxTest("clean-boot") {}
};

TEST_F(CompletionLockTest, LeftoverTemporaryLockIsReusedWithoutTruncation)
{
    m_device.WriteFile(kLockTemporary, "left by an earlier run");

    auto result = m_device.Run();

    EXPECT_EQ(result.exit_status, 1);
    EXPECT_FALSE(m_device.Exists(kLockTemporary));
    EXPECT_EQ(m_device.ReadFile(kLock), "left by an earlier run");
}

TEST_F(CompletionLockTest, LeftoverFinalLockIsReplaced)
{
    m_device.WriteFile(kLock, "stale");

    auto result = m_device.Run();

    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(m_device.ReadFile(kLock), "");
    EXPECT_FALSE(m_device.Exists(kLockTemporary));
}

TEST_F(CompletionLockTest, WaitsForAnotherHolderOfTheLock)
{
    m_device.WriteFile(kLockTemporary, "");
    int holder = open(m_device.Path(kLockTemporary).c_str(), O_RDONLY);
    ASSERT_EQ(flock(holder, LOCK_EX), 0);

    auto process = m_device.Start();
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_TRUE(m_device.Exists(kLockTemporary)) << "renamed before the lock was granted";
    EXPECT_FALSE(m_device.Exists(kLock));

    close(holder);
    auto result = process.Wait();
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(result.standard_error.substr(result.standard_error.size() - std::string(kNoDump).size()), kNoDump);
    EXPECT_TRUE(m_device.Exists(kLock));
}

TEST_F(CompletionLockTest, NoDumpLeavesTheOutputDirectoryAlone)
{
    m_device.WriteFile(kReadyMarker, "earlier");
    struct stat before {};
    ASSERT_EQ(stat(m_device.Path(kOutputDirectory).c_str(), &before), 0);

    auto result = m_device.Run();

    EXPECT_EQ(result.exit_status, 1);
    EXPECT_NE(result.standard_error.find(kNoDump), std::string::npos);
    struct stat after {};
    ASSERT_EQ(stat(m_device.Path(kOutputDirectory).c_str(), &after), 0);
    EXPECT_EQ(before.st_mtim.tv_nsec, after.st_mtim.tv_nsec);
    EXPECT_EQ(before.st_mtim.tv_sec, after.st_mtim.tv_sec);
    EXPECT_EQ(m_device.ReadFile(kReadyMarker), "earlier");
    EXPECT_FALSE(m_device.Exists("/var/run/crash-dump/new"));
}

} // namespace
