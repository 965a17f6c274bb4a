#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "app/info_file.h"

namespace {

class InfoFileTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/info-file.XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        m_directory = pattern;
        m_path = m_directory + "/crash-dump.info";
    }
    void TearDown() override { std::system(("rm -rf " + m_directory).c_str()); }

    std::string Content() const
    {
        std::ifstream file(m_path, std::ios::binary);
        std::stringstream content;
        content << file.rdbuf();
        return content.str();
    }

    std::string m_directory;
    std::string m_path;
};

TEST_F(InfoFileTest, OneLinePerEntryInByteWiseKeyOrder)
{
    WriteInfoFile({{"b", "2"}, {"a", "1"}, {"B", "0"}}, m_path);
    EXPECT_EQ(Content(), "B=0\na=1\nb=2\n");
}

TEST_F(InfoFileTest, ValuesAreWrittenUnescaped)
{
    WriteInfoFile({{"assert", "x=1\nBacktrace"}}, m_path);
    EXPECT_EQ(Content(), "assert=x=1\nBacktrace\n");
}

TEST_F(InfoFileTest, EmptyRecordEmptiesAnExistingFile)
{
    std::ofstream(m_path) << "old=1\n";
    WriteInfoFile({}, m_path);
    EXPECT_EQ(Content(), "");
}

TEST_F(InfoFileTest, UnwritablePathIsSilent)
{
    EXPECT_NO_THROW(WriteInfoFile({{"a", "1"}}, m_directory));
    EXPECT_NO_THROW(WriteInfoFile({{"a", "1"}}, m_directory + "/missing/info"));
}

} // namespace
