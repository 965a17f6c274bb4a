#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include <cstdlib>
#include <fstream>

#include "hardware/device_tree.h"
#include "platform/errno_exception.h"

namespace {

class DeviceTreeTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/device-tree.XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        m_directory = pattern;
    }
    void TearDown() override { std::system(("rm -rf " + m_directory).c_str()); }

    std::string Property(const std::string& name, const std::string& bytes)
    {
        std::ofstream(m_directory + "/" + name, std::ios::binary) << bytes;
        return name;
    }

    std::string Root() const { return m_directory + "/"; }

    std::string m_directory;
};

TEST_F(DeviceTreeTest, ReadsOneBigEndianCell)
{
    EXPECT_EQ(DeviceTree::ReadU32Property(Property("cell", std::string("\x00\x00\x01\x00", 4)), Root()), 256u);
    EXPECT_EQ(DeviceTree::ReadU32Property(Property("cause", std::string("\x20\x00\x00\x10", 4)), Root()), 0x20000010u);
}

TEST_F(DeviceTreeTest, AnyOtherLengthIsAnError)
{
    for (const std::string& bytes : {std::string(8, '\0'), std::string(3, '\0'), std::string()}) {
        try {
            DeviceTree::ReadU32Property(Property("cells", bytes), Root());
            FAIL() << bytes.size() << " bytes accepted";
        } catch (const DeviceTree::PropertyNotFound&) {
            FAIL() << "reported as missing";
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ(e.what(), "Read unexpected size of u32");
        }
    }
}

TEST_F(DeviceTreeTest, MissingPropertyHasItsOwnError)
{
    try {
        DeviceTree::ReadU32Property("absent", Root());
        FAIL() << "no exception";
    } catch (const DeviceTree::PropertyNotFound& e) {
        EXPECT_STREQ(e.what(), "device tree property not found");
    }
    EXPECT_THROW(DeviceTree::ReadStringProperty("absent", Root()), DeviceTree::PropertyNotFound);
}

TEST_F(DeviceTreeTest, OtherErrorsPassUnchanged)
{
    // A directory in place of the property fails to read with EISDIR.
    const std::string path = Property("node", "");
    std::remove((m_directory + "/node").c_str());
    mkdir((m_directory + "/node").c_str(), 0755);
    EXPECT_THROW(DeviceTree::ReadU32Property(path, Root()), ErrnoException);
    try {
        DeviceTree::ReadU32Property(path, Root());
    } catch (const DeviceTree::PropertyNotFound&) {
        FAIL() << "reported as missing";
    } catch (const ErrnoException& e) {
        EXPECT_EQ(e.error(), EISDIR);
    }
}

TEST_F(DeviceTreeTest, StringPropertyEndsAtItsTerminator)
{
    EXPECT_EQ(DeviceTree::ReadStringProperty(Property("model", std::string("i.MX6 board\0", 12)), Root()), "i.MX6 board");
}

} // namespace
