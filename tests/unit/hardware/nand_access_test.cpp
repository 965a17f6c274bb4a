#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "hardware/nand_access_linux.h"
#include "kernel_log.h"
#include "memory_nand.h"
#include "platform/errno_exception.h"
#include "temp_directory.h"

namespace {

constexpr uint32_t kErase = 16 * 1024;
constexpr uint32_t kPage = 512;
constexpr uint32_t kOob = 16;
constexpr uint32_t kBlocks = 4;

// The shared erase loop, over the in-memory partition.
struct EraseRange {
    uint32_t start;
    uint32_t length;
    std::vector<uint32_t> erased;
};

class EraseGoodBlocksTest : public ::testing::TestWithParam<EraseRange> {};

TEST_P(EraseGoodBlocksTest, SkipsBadBlocks)
{
    test_support::MemoryNand nand(kErase, 5);
    nand.SetBad(2);

    nand.EraseGoodBlocks(GetParam().start, GetParam().length);

    EXPECT_EQ(nand.Erased(), GetParam().erased);
}

INSTANTIATE_TEST_SUITE_P(Ranges, EraseGoodBlocksTest,
                         ::testing::Values(EraseRange{kErase, 3 * kErase, {kErase, 3 * kErase}},
                                           EraseRange{0, 5 * kErase, {0, kErase, 3 * kErase, 4 * kErase}},
                                           EraseRange{0, 0, {}},
                                           EraseRange{4 * kErase, UINT32_MAX, {}}));

// The Linux implementation against the fake MTD driver linked into this
// program: an image file whose sidecar gives the geometry and bad blocks.
class LinuxNandAccessTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        setenv("FAKE_MTD_DIR", m_directory.c_str(), 1);
        std::string content;
        for (uint32_t block = 0; block < kBlocks; ++block)
            content += std::string(kErase, static_cast<char>('A' + block));
        std::ofstream(Device(), std::ios::binary) << content;
        SetBadBlocks("");
    }

    void TearDown() override { unsetenv("FAKE_MTD_DIR"); }

    void SetBadBlocks(const std::string& blocks)
    {
        std::ofstream(Device() + ".geometry") << kErase << ' ' << kPage << ' ' << kOob << ' ' << blocks << '\n';
    }

    std::string Device() const { return m_directory + "/mtd0"; }

    std::string Block(uint32_t block) const
    {
        std::ifstream image(Device(), std::ios::binary);
        std::stringstream content;
        content << image.rdbuf();
        return content.str().substr(size_t{block} * kErase, kErase);
    }

    const test_support::TempDirectory m_temporary{"fake-mtd"};
    const std::string m_directory = m_temporary.Path();
};

TEST_F(LinuxNandAccessTest, GeometryAndSizeLimit)
{
    LinuxNandAccessImpl whole(Device(), 16 * 1024 * 1024);
    EXPECT_EQ(whole.EraseSize(), kErase);
    EXPECT_EQ(whole.WriteSize(), kPage);
    EXPECT_EQ(whole.OobSize(), kOob);
    EXPECT_EQ(whole.TotalSize(), kBlocks * kErase);

    EXPECT_EQ(LinuxNandAccessImpl(Device(), 2 * kErase).TotalSize(), 2 * kErase);
}

TEST_F(LinuxNandAccessTest, OpeningFailures)
{
    try {
        LinuxNandAccessImpl(m_directory + "/mtd9", kErase);
        FAIL() << "opened a missing device";
    } catch (const ErrnoException& e) {
        EXPECT_EQ(e.what(), m_directory + "/mtd9: No such file or directory (2)");
    }
    // A file that no MTD driver answers for.
    std::ofstream(m_directory + "/plain") << "data";
    EXPECT_THROW(LinuxNandAccessImpl(m_directory + "/plain", kErase), ErrnoException);
}

// The driver refuses a read-write open of a write-protected partition; what
// can be read still is, and whatever would change the flash is the driver's
// refusal, not a silent success.
TEST_F(LinuxNandAccessTest, WriteProtectedPartitionReadsButRefusesChanges)
{
    std::ofstream(Device() + ".ro").close();
    SetBadBlocks("2");
    LinuxNandAccessImpl nand(Device(), kBlocks * kErase);

    char buffer[4] = {};
    EXPECT_EQ(nand.Read(kErase, buffer, sizeof buffer), sizeof buffer);
    EXPECT_EQ(std::string(buffer, sizeof buffer), "BBBB");
    EXPECT_TRUE(nand.IsBadBlock(2 * kErase));
    EXPECT_TRUE(nand.IsSpareAreaErased(0));

    std::vector<uint8_t> spare(kOob, 0);
    EXPECT_THROW(nand.Write(0, "x", 1), ErrnoException);
    EXPECT_THROW(nand.EraseBlock(0), ErrnoException);
    EXPECT_THROW(nand.MarkBadBlock(0), ErrnoException);
    EXPECT_THROW(nand.WriteSpareArea(0, spare.data(), spare.size()), ErrnoException);
    EXPECT_EQ(Block(0), std::string(kErase, 'A'));
    EXPECT_FALSE(nand.IsBadBlock(0));
}

TEST_F(LinuxNandAccessTest, SizeLimitOffTheEraseBlocksAborts)
{
    EXPECT_DEATH(
        {
            test_support::ForceReportsToStandardError();
            LinuxNandAccessImpl(Device(), kErase + kPage);
        },
        "ASSERT FAILED: m_total_size % m_erase_size == 0\r\nlib/hardware/nand_access_linux.cpp:[0-9]+:"
        "LinuxNandAccessImpl::LinuxNandAccessImpl\\(const std::string&, size_t\\)");
}

TEST_F(LinuxNandAccessTest, ReadsAndWritesAtOffsets)
{
    LinuxNandAccessImpl nand(Device(), kBlocks * kErase);
    nand.Write(kErase + 10, "hello", 5);

    char buffer[8] = {};
    EXPECT_EQ(nand.Read(kErase + 9, buffer, 7), 7u);
    EXPECT_EQ(std::string(buffer, 7), "BhelloB");
    // Only the end of the device shortens a read.
    EXPECT_EQ(nand.Read(kBlocks * kErase - 2, buffer, sizeof buffer), 2u);
    EXPECT_EQ(nand.Read(kBlocks * kErase, buffer, sizeof buffer), 0u);
}

TEST_F(LinuxNandAccessTest, BadBlocksAreAskedOfTheDriver)
{
    SetBadBlocks("2");
    LinuxNandAccessImpl nand(Device(), kBlocks * kErase);
    EXPECT_FALSE(nand.IsBadBlock(0));
    EXPECT_TRUE(nand.IsBadBlock(2 * kErase + kPage));

    nand.MarkBadBlock(kErase);
    EXPECT_TRUE(nand.IsBadBlock(kErase));
    EXPECT_THROW(nand.IsBadBlock(kBlocks * kErase), ErrnoException);
}

TEST_F(LinuxNandAccessTest, EraseAllLeavesTheBadBlockAlone)
{
    // The driver refuses to erase a bad block, so erasing it would throw.
    SetBadBlocks("2");
    LinuxNandAccessImpl nand(Device(), kBlocks * kErase);

    nand.EraseAll();

    const std::string erased(kErase, '\xff');
    EXPECT_EQ(Block(0), erased);
    EXPECT_EQ(Block(1), erased);
    EXPECT_EQ(Block(2), std::string(kErase, 'C'));
    EXPECT_EQ(Block(3), erased);
}

TEST_F(LinuxNandAccessTest, SpareAreaTransfersStopAtOnePage)
{
    // The driver refuses transfers longer than one page's spare area.
    LinuxNandAccessImpl nand(Device(), kBlocks * kErase);
    std::vector<uint8_t> spare(4 * kOob, 0x00);

    nand.ReadSpareArea(kErase, spare.data(), spare.size());
    EXPECT_EQ(spare, [] {
        std::vector<uint8_t> expected(4 * kOob, 0x00);
        std::fill_n(expected.begin(), kOob, 0xff);
        return expected;
    }());

    std::vector<uint8_t> marked(4 * kOob, 0xff);
    marked[kOob - 1] = 0xfe;
    nand.WriteSpareArea(kErase, marked.data(), marked.size());
    EXPECT_FALSE(nand.IsSpareAreaErased(kErase));
    EXPECT_TRUE(nand.IsSpareAreaErased(kErase + kPage));
    EXPECT_TRUE(nand.IsSpareAreaErased(0));

    nand.EraseBlock(kErase);
    EXPECT_TRUE(nand.IsSpareAreaErased(kErase));
}

} // namespace
