#include <gtest/gtest.h>

#include <fstream>

#include <fmt/format.h>

#include "hardware/mtd_partition_table.h"
#include "hardware/nand_access_linux.h"
#include "kernel_log.h"
#include "outcome.h"
#include "platform/errno_exception.h"
#include "temp_directory.h"
#include "text_stream.h"

TEST(MtdPartitionTableTest, FindsTheExactName)
{
    const std::string header = "dev:    size   erasesize  name\n";
    const std::pair<std::string, std::string> tables[] = {
        {header + "mtd0: 00040000 00020000 flash0.nv\nmtd12: 00800000 00020000 \"flash0.nvram\"", "/dev/mtd12 800000"},
        {header + "mtd3: 00040000 00020000 flash0.nvram\n", "/dev/mtd3 40000"},
        {header, "Failed to find NAND partition named 'flash0.nvram'"},
        {"", "Failed to read /proc/mtd"},
    };
    for (const auto& [table, found] : tables) {
        EXPECT_EQ(Outcome([&, &table = table] {
                      const auto partition = FindNandPartition(test_support::TextStream(table).get(), "flash0.nvram");
                      return fmt::format("{} {:x}", partition.device_path, partition.size);
                  }), found);
    }
}

constexpr uint32_t kErase = 16 * 1024;
constexpr uint32_t kPage = 512;
constexpr uint32_t kOob = 16;

// Against the fake MTD driver linked into this program: an image file whose sidecars give
// geometry, bad blocks and write protection. Block n holds the letter 'A' + n; block 2 is bad.
class LinuxNandAccessTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        setenv("FAKE_MTD_DIR", m_directory.Path().c_str(), 1);
        std::ofstream(m_device) << std::string(kErase, 'A') << std::string(kErase, 'B') << std::string(kErase, 'C')
                                << std::string(kErase, 'D');
        std::ofstream(m_device + ".geometry") << kErase << ' ' << kPage << ' ' << kOob << " 2\n";
    }
    void TearDown() override { unsetenv("FAKE_MTD_DIR"); }

    static std::string Read(NandAccess& nand, uint32_t offset, size_t length)
    {
        std::string bytes(length, '\0');
        bytes.resize(nand.Read(offset, bytes.data(), length));
        return bytes;
    }

    const test_support::TempDirectory m_directory{"fake-mtd"};
    const std::string m_device = m_directory.Path() + "/mtd0";
};

TEST_F(LinuxNandAccessTest, OpensTheDeviceUpToTheSizeLimitInWholeBlocks)
{
    EXPECT_EQ(LinuxNandAccessImpl(m_device, 16 * 1024 * 1024, NandMode::kRead).TotalSize(), 4 * kErase);
    EXPECT_EQ(LinuxNandAccessImpl(m_device, 2 * kErase, NandMode::kRead).TotalSize(), 2 * kErase);
    EXPECT_DEATH((test_support::ForceReportsToStandardError(),
                  LinuxNandAccessImpl(m_device, kErase + kPage, NandMode::kRead)),
                 "ASSERT FAILED: m_total_size % m_erase_size == 0\r\nlib/hardware/nand_access_linux.cpp:[0-9]+:"
                 "LinuxNandAccessImpl::LinuxNandAccessImpl\\(const std::string&, size_t, NandMode\\)");
}

// The driver refuses to erase a bad block or to move more than one page's spare area.
TEST_F(LinuxNandAccessTest, TransfersAtOffsetsSkippingBadBlocksAndOnePageOfSpareAreaAtATime)
{
    LinuxNandAccessImpl nand(m_device, 4 * kErase, NandMode::kReadWrite);
    nand.Write(kErase - 2, "hello", 5);
    EXPECT_EQ(Read(nand, kErase - 3, 7), "AhelloB");
    EXPECT_EQ(Read(nand, 4 * kErase - 2, 8), "DD"); // only the end of the device shortens a read
    nand.EraseGoodBlocks(kErase, UINT32_MAX); // a range whose end does not fit 32 bits is none
    EXPECT_EQ(Read(nand, 3 * kErase, 1), "D");
    nand.EraseAll();
    EXPECT_EQ(Read(nand, 0, 1) + Read(nand, 2 * kErase, 1) + Read(nand, 3 * kErase, 1), "\xff" "C" "\xff");
    nand.MarkBadBlock(kErase);
    EXPECT_TRUE(nand.IsBadBlock(kErase + kPage));
    EXPECT_THROW(nand.IsBadBlock(4 * kErase), ErrnoException);

    std::string spare(2 * kOob, '\xff');
    spare[kOob - 1] = '\xfe';
    nand.WriteSpareArea(kErase, spare.data(), spare.size());
    spare.assign(2 * kOob, '\0');
    nand.ReadSpareArea(kErase, spare.data(), spare.size());
    EXPECT_EQ(spare, std::string(kOob - 1, '\xff') + '\xfe' + std::string(kOob, '\0'));
    EXPECT_FALSE(nand.IsSpareAreaErased(kErase));
}

// The driver refuses a read-write open of a write-protected partition: reading must still work,
// and every change must fail with the driver's refusal rather than succeed silently.
TEST_F(LinuxNandAccessTest, WriteProtectedPartitionReadsButRefusesChanges)
{
    std::ofstream(m_device + ".ro").close();
    LinuxNandAccessImpl nand(m_device, 4 * kErase, NandMode::kReadWrite);
    EXPECT_TRUE(nand.IsBadBlock(2 * kErase));
    EXPECT_TRUE(nand.IsSpareAreaErased(0));

    EXPECT_THROW(nand.Write(0, "x", 1), ErrnoException);
    EXPECT_THROW(nand.EraseBlock(0), ErrnoException);
    EXPECT_THROW(nand.MarkBadBlock(0), ErrnoException);
    EXPECT_THROW(nand.WriteSpareArea(0, std::string(kOob, '\0').data(), kOob), ErrnoException);
    EXPECT_EQ(Read(nand, 0, 1) + Read(nand, kErase, 1), "AB");
}
