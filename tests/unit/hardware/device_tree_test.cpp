#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "hardware/device_tree.h"
#include "outcome.h"
#include "platform/errno_exception.h"
#include "temp_directory.h"

TEST(DeviceTreeTest, ReadsWholePropertiesAndOnlyAnAbsentFileIsNotFound)
{
    const test_support::TempDirectory directory("device-tree");
    const std::string root = directory.Path() + "/";
    std::ofstream(root + "one-cell") << std::string("\x00\x00\x01\x00", 4);
    std::ofstream(root + "two-cells") << std::string(8, '\0');
    EXPECT_EQ(DeviceTree::ReadU32Property("one-cell", root), 256u);
    EXPECT_EQ(Outcome([&] { return std::to_string(DeviceTree::ReadU32Property("two-cells", root)); }),
              "Read unexpected size of u32");
    EXPECT_THROW(DeviceTree::ReadU32Property("absent", root), DeviceTree::PropertyNotFound);
    std::filesystem::create_directory(root + "node");
    EXPECT_THROW(DeviceTree::ReadU32Property("node", root), ErrnoException); // any other failure stays what it is
    std::ofstream(root + "model") << std::string("i.MX6 board\0rest", 16);
    EXPECT_EQ(DeviceTree::ReadStringProperty("model", root), "i.MX6 board");
}
