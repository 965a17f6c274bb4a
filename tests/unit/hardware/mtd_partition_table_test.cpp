#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "hardware/mtd_partition_table.h"
#include "text_stream.h"

namespace {

constexpr const char* kHeader = "dev:    size   erasesize  name\n";

struct Lookup {
    std::string table;
    std::string wanted;
    std::string device_or_error;
    uint32_t size;
};

class MtdPartitionTableTest : public ::testing::TestWithParam<Lookup> {};

TEST_P(MtdPartitionTableTest, FindsTheExactName)
{
    const Lookup& lookup = GetParam();
    const auto table = test_support::TextStream(lookup.table);
    ASSERT_TRUE(table);

    try {
        const NandPartitionLocation location = FindNandPartition(table.get(), lookup.wanted);
        EXPECT_EQ(location.device_path, lookup.device_or_error);
        EXPECT_EQ(location.size, lookup.size);
        EXPECT_EQ(location.name, lookup.wanted);
    } catch (const std::runtime_error& e) {
        EXPECT_EQ(e.what(), lookup.device_or_error);
    }
}

const std::string kKernelTable = std::string(kHeader)
                                 + "mtd0: 00100000 00020000 \"flash0.bolt\"\n"
                                   "mtd1: 00040000 00020000 \"flash0.nvram\"\n"
                                   "mtd12: 00800000 00020000 \"flash0.rescue\"\n";

INSTANTIATE_TEST_SUITE_P(
    Tables, MtdPartitionTableTest,
    ::testing::Values(
        Lookup{kKernelTable, "flash0.nvram", "/dev/mtd1", 0x40000},
        Lookup{kKernelTable, "flash0.rescue", "/dev/mtd12", 0x800000},
        Lookup{std::string(kHeader) + "mtd3: 00040000 00020000 flash0.nvram\n", "flash0.nvram", "/dev/mtd3", 0x40000},
        Lookup{kKernelTable, "flash0.nv", "Failed to find NAND partition named 'flash0.nv'", 0},
        Lookup{std::string(kHeader) + "mtd0: 00040000 00020000 \"flash0.nv\"\n", "flash0.nvram",
               "Failed to find NAND partition named 'flash0.nvram'", 0},
        Lookup{kKernelTable, "FLASH0.NVRAM", "Failed to find NAND partition named 'FLASH0.NVRAM'", 0},
        Lookup{kHeader, "flash0.nvram", "Failed to find NAND partition named 'flash0.nvram'", 0},
        Lookup{std::string(kHeader) + "mtd0: garbage\n", "flash0.nvram",
               "Failed to find NAND partition named 'flash0.nvram'", 0},
        Lookup{"", "flash0.nvram", "Failed to read /proc/mtd", 0}));

} // namespace
