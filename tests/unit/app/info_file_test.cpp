#include <gtest/gtest.h>

#include <fstream>

#include "app/info_file.h"
#include "platform/errno_exception.h"
#include "platform/posix_helpers.h"
#include "temp_directory.h"

namespace {

// Readers split on the first "=" and on line feeds; the writer leaves a value
// exactly as the log gave it, and an earlier file does not shine through.
TEST(InfoFileTest, ReplacesTheFileWithOneRawLinePerEntryInByteWiseKeyOrder)
{
    test_support::TempDirectory directory("info-file");
    const std::string path = directory.Path() + "/crash-dump.info";
    std::ofstream(path) << "stale=an earlier and longer record\n";
    WriteInfoFile({{"b", "2"}, {"a", "x=1\nBacktrace"}, {"B", ""}}, path);
    EXPECT_EQ(ReadWholeFile(path), "B=\na=x=1\nBacktrace\nb=2\n");
    WriteInfoFile({}, path);
    EXPECT_EQ(ReadWholeFile(path), "");
    // The caller must learn of it: a dump without its record is not announced.
    EXPECT_THROW(WriteInfoFile({{"a", "1"}}, directory.Path() + "/missing/info"), ErrnoException);
}

} // namespace
