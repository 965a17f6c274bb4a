#include <gtest/gtest.h>

#include "app/fit_reader.h"
#include "app/nand_image_cursor.h"
#include "app/rescue_version.h"
#include "fit_image.h"
#include "memory_nand.h"
#include "param_name.h"

namespace {

using namespace sim;

const auto Root = [] { return FitBuilder().BeginNode(""); };
const auto Fit = [](FitBuilder root) { return root.EndNode().Build(); };

std::shared_ptr<test_support::MemoryNand> Flashed(const std::string& image)
{
    auto nand = test_support::MemoryNand::Make(64 * 1024, 64);
    nand->SetBad(3);
    nand->WriteSkippingBadBlocks(image);
    return nand;
}

// Whatever the partition holds, the answer is a version or the empty string
// with one line saying why: a damaged rescue partition never costs the dump.
struct RescueCase {
    const char* what;
    std::string image;
    std::string outcome; // the version and what was printed
};

class RescueVersionTest : public ::testing::TestWithParam<RescueCase> {};

TEST_P(RescueVersionTest, ReadsTheRootVersionOrSaysWhyNot)
{
    testing::internal::CaptureStderr();
    // Any other partition than the rescue kernel's reads as erased flash.
    const std::string version = ReadRescueVersion(
        [this](const std::string& name) { return Flashed(name == "flash0.rescue" ? GetParam().image : ""); });
    EXPECT_EQ(version + testing::internal::GetCapturedStderr(), GetParam().outcome);
}

const std::string kFailed = "Unable to read rescue kernel version: ";
const std::string kBeyond = kFailed + "FIT read beyond end of data\n";

const RescueCase kImages[] = {
    {"after others", Fit(Root().Token(kFitNop).Property("version-list", "a").StringProperty("version", "2")), "2"},
    {"child", Fit(Root().BeginNode("a").StringProperty("version", "1").EndNode().StringProperty("version", "2")), ""},
    {"no version", Fit(Root().StringProperty("description", "x")), ""},
    {"empty value", Fit(Root().Property("version", "")), kFailed + "FIT string property is empty\n"},
    {"unterminated", Fit(Root().Property("version", "1")), kFailed + "FIT string property is not terminated\n"},
    // A property's length of 0xfffffff0, claiming the name at offset 0 ("version") or none.
    {"long value", Fit(Root().Token(kFitProperty).Token(0xfffffff0).Token(0).StringProperty("version", "1")), kBeyond},
    {"structure ends in a token", [] { auto image = Fit(Root().StringProperty("version", "1"));
         PutBigEndian32(image, kFitStructureSizeField, 2); return image; }(), kBeyond},
    {"long skip", Fit(Root().Token(kFitProperty).Token(0xfffffff0).Token(9)), kBeyond},
    {"strings just small enough", Fit(Root().StringProperty("version", "1").StringsBlockSize(0x3ffff)), "1"},
    // Damage to a property we do not want must not cost the one we do.
    {"bad names", Fit(Root().PropertyAt(0xfffffff0, "4").PropertyAt(8, "5").StringProperty("version", "3")), "3"},
    {"end node after root", Root().EndNode().EndNode().Build(), kFailed + "FIT end node mismatch\n"},
    {"invalid token", Fit(Root().Token(7)), kFailed + "Invalid FIT token\n"},
};
INSTANTIATE_TEST_SUITE_P(Images, RescueVersionTest, ::testing::ValuesIn(kImages), test_support::NameFromWhat());

// The strings block sits behind the kernel, the root's properties before it:
// coming back must not cost another pass over the image, unless the root is
// too large to have been kept as it streamed past.
TEST(RescuePartitionTest, ReadsTheImageInAsFewPassesAsItCan)
{
    const std::string large_root = Fit(Root().Property("padding", std::string(NandImageCursor::kHeadSize, 'p'))
        .StringProperty("version", "7.0").BeginNode("images").Property("data", std::string(300000, 'd')).EndNode());
    for (const auto& [image, version, passes] : {std::tuple(RescueFitImage("6.1.0-rescue", 1 << 20), "6.1.0-rescue", 1),
                                                 std::tuple(large_root, "7.0", 2)}) {
        auto nand = Flashed(image);
        EXPECT_EQ(ReadFitRootProperty(nand, "version"), version);
        // Per pass: the signature probe, the image, and at most one read buffer more.
        EXPECT_LE(nand->BytesRead(), passes * (2 + image.size() + 16 * 1024)) << version;
    }
}

} // namespace
