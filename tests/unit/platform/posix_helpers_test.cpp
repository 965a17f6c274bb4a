#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>
#include <string>

#include "platform/errno_exception.h"
#include "platform/posix_helpers.h"
#include "platform/unique_fd.h"

namespace {

struct VersionCase {
    const char* a;
    const char* b;
    int expected;
};

class CompareVersionsTest : public ::testing::TestWithParam<VersionCase> {};

TEST_P(CompareVersionsTest, OrdersNaturally)
{
    const VersionCase& c = GetParam();
    EXPECT_EQ(CompareVersions(c.a, c.b), c.expected) << c.a << " vs " << c.b;
}

INSTANTIATE_TEST_SUITE_P(Cases, CompareVersionsTest,
                         ::testing::Values(VersionCase{"", "", 0}, VersionCase{"", "1", -1},
                                           VersionCase{"1", "", 1}, VersionCase{"2.01", "2.1", 0},
                                           VersionCase{"1.10", "1.9", 1}, VersionCase{"1.9", "1.10", -1},
                                           VersionCase{"1.2", "1.2a", -1}, VersionCase{"1.2a", "1.2", 1},
                                           VersionCase{"1a", "1.", 1}, VersionCase{"a", "1", -1},
                                           VersionCase{"1", "a", 1}, VersionCase{"abc", "abd", -1},
                                           VersionCase{"3.0", "3.0", 0},
                                           // ten nines wrap silently to 1410065407
                                           VersionCase{"9999999999", "1410065407", 0},
                                           VersionCase{"9999999999", "1410065408", -1}));

TEST(CompareVersionsOverflowTest, ElevenNinesAreOutOfRange)
{
    EXPECT_THROW(CompareVersions("99999999999", "1"), std::range_error);
    try {
        CompareVersions("1.99999999999", "1.2");
    } catch (const std::range_error& e) {
        EXPECT_STREQ(e.what(), "Version string has out of range number");
    }
}

class FileTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/posix-helpers.XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        m_directory = pattern;
    }
    void TearDown() override { std::system(("rm -rf " + m_directory).c_str()); }
    std::string m_directory;
};

TEST_F(FileTest, ReadAllStopsAtEndOfFile)
{
    const std::string path = m_directory + "/short";
    WriteFile(path, "abc", 3, 0644);
    tessel::UniqueFd fd(open(path.c_str(), O_RDONLY));
    char buffer[16];
    EXPECT_EQ(read_all_throw(fd.get(), buffer, sizeof buffer), 3u);
    EXPECT_EQ(read_all_throw(fd.get(), buffer, sizeof buffer), 0u);
    EXPECT_EQ(read_all_throw(fd.get(), buffer, 0), 0u);
}

TEST_F(FileTest, ReadAllNamesItselfOnError)
{
    tessel::UniqueFd fd(open((m_directory + "/w").c_str(), O_WRONLY | O_CREAT, 0644));
    char buffer[4];
    try {
        read_all_throw(fd.get(), buffer, sizeof buffer);
        FAIL() << "no exception";
    } catch (const ErrnoException& e) {
        EXPECT_STREQ(e.what(), "read_all_throw: Bad file descriptor (9)");
    }
}

TEST_F(FileTest, WriteFileTruncatesAndWritesEverything)
{
    const std::string path = m_directory + "/marker";
    const std::string big(1 << 20, 'x');
    WriteFile(path, big.data(), big.size(), 0600);
    EXPECT_EQ(ReadWholeFile(path), big);
    WriteFile(path, "", 0, 0600);
    EXPECT_EQ(ReadWholeFile(path), "");
}

TEST_F(FileTest, WriteFileAcceptsFilesThatCannotBeSynced)
{
    // Character devices answer fsync with EINVAL.
    EXPECT_NO_THROW(WriteFile("/dev/null", "x", 1, 0666));
}

TEST_F(FileTest, WriteFileNamesThePathWhenItCannotOpen)
{
    try {
        WriteFile(m_directory + "/missing/marker", "", 0, 0666);
        FAIL() << "no exception";
    } catch (const ErrnoException& e) {
        EXPECT_EQ(std::string(e.what()), m_directory + "/missing/marker: No such file or directory (2)");
    }
}

TEST_F(FileTest, WriteAllReportsAFailedWriteWithoutContext)
{
    tessel::UniqueFd fd(open("/dev/full", O_WRONLY));
    try {
        write_all_throw(fd.get(), "x", 1);
        FAIL() << "no exception";
    } catch (const ErrnoException& e) {
        EXPECT_STREQ(e.what(), "No space left on device (28)");
    }
}

TEST_F(FileTest, ReadWholeFileReadsKernelFilesWithoutASize)
{
    EXPECT_FALSE(ReadWholeFile("/proc/self/status").empty());
    EXPECT_THROW(ReadWholeFile(m_directory + "/absent"), ErrnoException);
}

} // namespace
