#include <gtest/gtest.h>

#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>

#include "app/rescue_version.h"
#include "images.h"
#include "memory_nand.h"

namespace {

NandAccess::Pointer Holding(const std::string& image)
{
    auto nand = test_support::MemoryNand::Make(4096, 32);
    nand->WriteSkippingBadBlocks(image);
    return nand;
}

std::string CorruptGzip()
{
    std::string image = sandbox::Gzip(sandbox::RescueFitImage("1.0", 20000));
    image[image.size() / 2] ^= 0x40;
    return image;
}

struct RescueCase {
    const char* name;
    PartitionOpener open;
    std::string version;
    std::string message;

    friend void PrintTo(const RescueCase& c, std::ostream* out) { *out << c.name; }
};

class ReadRescueVersionTest : public ::testing::TestWithParam<RescueCase> {};

// Whatever the partition holds, the answer is a version or the empty string,
// with one line saying why.
TEST_P(ReadRescueVersionTest, NeverThrows)
{
    const RescueCase& c = GetParam();
    testing::internal::CaptureStderr();
    const std::string version = ReadRescueVersion(c.open);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), c.message);
    EXPECT_EQ(version, c.version);
}

PartitionOpener Serving(const std::string& image)
{
    return [image](const std::string& name) {
        EXPECT_EQ(name, "flash0.rescue");
        return Holding(image);
    };
}

INSTANTIATE_TEST_SUITE_P(
    Partitions, ReadRescueVersionTest,
    ::testing::Values(
        RescueCase{"Plain", Serving(sandbox::RescueFitImage("4.9.1", 50000)), "4.9.1", ""},
        RescueCase{"Gzip", Serving(sandbox::Gzip(sandbox::RescueFitImage("4.9.2", 50000))), "4.9.2", ""},
        RescueCase{"Erased", Serving(""), "", "Unable to read rescue kernel version: Not a FIT image\n"},
        RescueCase{"EmptyVersion",
                   Serving(sandbox::FitBuilder().BeginNode("").Property("version", "").EndNode().Build()), "",
                   "Unable to read rescue kernel version: FIT string property is empty\n"},
        RescueCase{"CorruptGzip", Serving(CorruptGzip()), "", "Unable to read rescue kernel version: gzip error\n"},
        RescueCase{"NoPartition",
                   [](const std::string& name) -> NandAccess::Pointer {
                       throw std::runtime_error("Failed to find NAND partition named '" + name + "'");
                   },
                   "", "Unable to read rescue kernel version: Failed to find NAND partition named 'flash0.rescue'\n"},
        RescueCase{"ForeignException",
                   [](const std::string&) -> NandAccess::Pointer { throw 42; },
                   "", "Unable to read rescue kernel version: Unknown exception\n"}),
    [](const auto& test) { return std::string(test.param.name); });

} // namespace
