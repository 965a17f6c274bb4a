#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <ostream>
#include <stdexcept>
#include <string>

#include "app/fit_reader.h"
#include "app/nand_image_cursor.h"
#include "fit_image.h"
#include "memory_nand.h"

namespace {

using sim::FitBuilder;

// Offsets inside images made by FitBuilder: the structure block starts after
// the header and the empty reservation map, and an empty root node's begin
// token with its padded name takes 8 bytes.
constexpr uint32_t kStructure = 56;
constexpr uint32_t kFirstRootProperty = kStructure + 8;

std::string Patched(std::string image, size_t offset, uint32_t value)
{
    sim::PutBigEndian32(image, offset, value);
    return image;
}

std::string RootWith(FitBuilder builder)
{
    return builder.EndNode().Build();
}

struct WalkCase {
    const char* name;
    std::string image;
    std::string value;
    std::string error;

    friend void PrintTo(const WalkCase& c, std::ostream* out) { *out << c.name; }
};

class FitWalkTest : public ::testing::TestWithParam<WalkCase> {};

// Reads from the image as a partition would, and fails the test on any read
// outside the header, the strings block and the structure block as the header
// places them.
FitReadFunction GuardedReader(const std::string& image)
{
    return [&image](uint64_t offset, size_t length, void* buffer) {
        auto inside = [&](uint64_t start, uint64_t size) { return offset >= start && offset + length <= start + size; };
        const bool allowed = inside(0, 40)
            || inside(sim::GetBigEndian32(image, sim::kFitStringsOffsetField),
                      sim::GetBigEndian32(image, sim::kFitStringsSizeField))
            || inside(sim::GetBigEndian32(image, sim::kFitStructureOffsetField),
                      sim::GetBigEndian32(image, sim::kFitStructureSizeField));
        EXPECT_TRUE(allowed) << "read of " << length << " bytes at " << offset;
        if (offset + length > image.size())
            throw std::runtime_error("past the image");
        std::memcpy(buffer, image.data() + offset, length);
    };
}

TEST_P(FitWalkTest, FindsTheRootVersionOrFailsPrecisely)
{
    const WalkCase& c = GetParam();
    try {
        EXPECT_EQ(FindFitRootProperty(GuardedReader(c.image), "version"), c.value);
        EXPECT_EQ(c.error, "");
    } catch (const std::runtime_error& e) {
        EXPECT_EQ(e.what(), c.error);
    }
}

const std::string kVersionOnly = RootWith(FitBuilder().BeginNode("").StringProperty("version", "1.0"));

INSTANTIATE_TEST_SUITE_P(
    Images, FitWalkTest,
    ::testing::Values(
        WalkCase{"RescueImage", sim::RescueFitImage("5.4.2-r3", 10000), "5.4.2-r3", ""},
        WalkCase{"AfterNopsAndOtherProperties",
                 RootWith(FitBuilder().BeginNode("").Token(sim::kFitNop).StringProperty("description", "x")
                              .Property("version-list", "a")
                              .StringProperty("version", "2.0")),
                 "2.0", ""},
        WalkCase{"SubnodeBeforeVersion",
                 RootWith(FitBuilder().BeginNode("").BeginNode("images").StringProperty("version", "in a subnode")
                              .EndNode().StringProperty("version", "too late")),
                 "", ""},
        WalkCase{"NoVersion", RootWith(FitBuilder().BeginNode("").StringProperty("description", "x")), "", ""},
        WalkCase{"EndTokenFirst",
                 FitBuilder().BeginNode("").Token(sim::kFitEnd).StringProperty("version", "1").Build(), "", ""},
        WalkCase{"ErasedFlash", std::string(4096, '\xff'), "", "Not a FIT image"},
        WalkCase{"EmptyValue", RootWith(FitBuilder().BeginNode("").Property("version", "")), "",
                 "FIT string property is empty"},
        WalkCase{"UnterminatedValue", RootWith(FitBuilder().BeginNode("").Property("version", "1.0")), "",
                 "FIT string property is not terminated"},
        WalkCase{"StructureEndsInFirstToken", Patched(kVersionOnly, sim::kFitStructureSizeField, 2), "",
                 "FIT read beyond end of data"},
        WalkCase{"StructureEndsInPropertyHeader", Patched(kVersionOnly, sim::kFitStructureSizeField, 8 + 6), "",
                 "FIT read beyond end of data"},
        WalkCase{"StructureEndsInValue", Patched(kVersionOnly, sim::kFitStructureSizeField, 8 + 12 + 3), "",
                 "FIT read beyond end of data"},
        WalkCase{"StructureEndsInNodeName",
                 Patched(RootWith(FitBuilder().BeginNode("root")), sim::kFitStructureSizeField, 4 + 3), "",
                 "FIT read beyond end of data"},
        WalkCase{"ValueLengthBeyondStructure", Patched(kVersionOnly, kFirstRootProperty + 4, 0xfffffff0), "",
                 "FIT read beyond end of data"},
        WalkCase{"SkippedLengthBeyondStructure",
                 RootWith(FitBuilder().BeginNode("").Token(sim::kFitProperty).Token(0xfffffff0).Token(0)), "",
                 "FIT read beyond end of data"},
        WalkCase{"StringsBlockTooLarge",
                 RootWith(FitBuilder().BeginNode("").StringProperty("version", "1").StringsBlockSize(0x40000)), "",
                 "FIT string table too large"},
        WalkCase{"StringsBlockJustSmallEnough",
                 RootWith(FitBuilder().BeginNode("").StringProperty("version", "1").StringsBlockSize(0x3ffff)), "1",
                 ""},
        WalkCase{"NameOffsetsOutsideStrings",
                 RootWith(FitBuilder().BeginNode("").PropertyAt(0xfffffff0, "4").PropertyAt(8, "5")
                              .StringProperty("version", "3")),
                 "3", ""},
        WalkCase{"OnlyNameOffsetsOutsideStrings",
                 RootWith(FitBuilder().BeginNode("").PropertyAt(0xfffffff0, "4").PropertyAt(0, "5")), "", ""},
        WalkCase{"EndNodeWithoutBegin", FitBuilder().EndNode().Build(), "", "FIT end node mismatch"},
        WalkCase{"InvalidToken", RootWith(FitBuilder().BeginNode("").Token(7)), "", "Invalid FIT token"}),
    [](const auto& test) { return std::string(test.param.name); });

// The partition side: the whole walk in one forward pass over the image.
class FitOnNandTest : public ::testing::Test {
protected:
    static constexpr uint32_t kEraseSize = 64 * 1024;

    std::shared_ptr<test_support::MemoryNand> Flash(const std::string& image)
    {
        auto nand = test_support::MemoryNand::Make(kEraseSize, 64);
        nand->SetBad(3);
        nand->WriteSkippingBadBlocks(image);
        return nand;
    }
};

TEST_F(FitOnNandTest, ReadsTheImageOnceAndNoFurther)
{
    const std::string image = sim::RescueFitImage("6.1.0-rescue", 1 << 20);
    for (const std::string& flashed : {image, sim::Gzip(image)}) {
        auto nand = Flash(flashed);
        EXPECT_EQ(ReadFitRootProperty(nand, "version"), "6.1.0-rescue");
        // The signature probe, the image, and at most one read buffer more.
        EXPECT_LE(nand->BytesRead(), 2 + flashed.size() + 16 * 1024) << "of " << flashed.size();
    }
}

TEST_F(FitOnNandTest, RootBeyondTheKeptHeadIsReadAgain)
{
    const std::string image = RootWith(FitBuilder().BeginNode("")
                                           .Property("padding", std::string(NandImageCursor::kHeadSize, 'p'))
                                           .StringProperty("version", "7.0")
                                           .BeginNode("images")
                                           .Property("data", std::string(300000, 'd'))
                                           .EndNode());
    for (const std::string& flashed : {image, sim::Gzip(image)})
        EXPECT_EQ(ReadFitRootProperty(Flash(flashed), "version"), "7.0");
}

TEST_F(FitOnNandTest, ImageCutShortByThePartitionEnd)
{
    const std::string image = Patched(sim::RescueFitImage("1", 1000), sim::kFitStringsOffsetField, 0x7ffffff0);
    try {
        ReadFitRootProperty(Flash(image), "version");
        FAIL() << "no error";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Short read from MaybeCompressedNandReader");
    }
}

} // namespace
