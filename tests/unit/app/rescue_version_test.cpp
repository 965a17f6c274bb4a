#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "app/rescue_version.h"
#include "fit_image.h"
#include "memory_nand.h"

namespace {

PartitionOpener Serving(const std::string& image)
{
    return [image](const std::string& name) {
        EXPECT_EQ(name, "flash0.rescue");
        auto nand = test_support::MemoryNand::Make(4096, 32);
        nand->WriteSkippingBadBlocks(image);
        return NandAccess::Pointer(nand);
    };
}

// Whatever the partition holds, the answer is a version or the empty string
// with one line saying why.
TEST(ReadRescueVersionTest, NeverThrows)
{
    const struct {
        PartitionOpener open;
        std::string version;
        std::string message;
    } cases[] = {
        {Serving(sim::Gzip(sim::RescueFitImage("4.9.2", 50000))), "4.9.2", ""},
        {Serving(""), "", "Unable to read rescue kernel version: Not a FIT image\n"},
        {[](const std::string&) -> NandAccess::Pointer { throw std::runtime_error("no such partition"); }, "",
         "Unable to read rescue kernel version: no such partition\n"},
        {[](const std::string&) -> NandAccess::Pointer { throw 42; }, "",
         "Unable to read rescue kernel version: Unknown exception\n"},
    };
    for (const auto& c : cases) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(ReadRescueVersion(c.open), c.version);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.message);
    }
}

} // namespace
