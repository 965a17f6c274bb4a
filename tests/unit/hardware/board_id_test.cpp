#include <gtest/gtest.h>

#include <string>

#include "hardware/board_id.h"
#include "param_name.h"
#include "text_stream.h"

namespace {

struct BoardFile {
    const char* what;
    std::string text;
    BoardIdentity expected;
};

BoardIdentity Board(uint32_t id, std::string family, std::string bootloader, std::string soc, bool keys, bool boot,
                    std::string secure_id)
{
    return {id, std::move(family), std::move(bootloader), std::move(soc), keys, boot, std::move(secure_id)};
}

const BoardIdentity kDefaults;

class BoardIdTest : public ::testing::TestWithParam<BoardFile> {};

TEST_P(BoardIdTest, Scans)
{
    const auto file = test_support::TextStream(GetParam().text);
    ASSERT_TRUE(file);
    const BoardIdentity board = ScanBoardId(file.get());
    const BoardIdentity& expected = GetParam().expected;

    EXPECT_EQ(board.board_id, expected.board_id);
    EXPECT_EQ(board.family, expected.family);
    EXPECT_EQ(board.bootloader_version, expected.bootloader_version);
    EXPECT_EQ(board.soc, expected.soc);
    EXPECT_EQ(board.secure_keys, expected.secure_keys);
    EXPECT_EQ(board.secure_boot, expected.secure_boot);
    EXPECT_EQ(board.secure_id, expected.secure_id);
}

INSTANTIATE_TEST_SUITE_P(
    Files, BoardIdTest,
    ::testing::Values(
        BoardFile{"every key",
                  "Family: corvan\nID: 0x1a\nBOLT-version: v4.2\nSoC: i.MX6ULZ\nSecure-keys: 1\nSecure-boot: 0\n"
                  "Secure-ID: 5f3e\n",
                  Board(0x1a, "corvan", "v4.2", "i.MX6ULZ", true, false, "5f3e")},
        BoardFile{"hexadecimal id and keys off", "ID: 0x12\nSecure-keys: 0\n",
                  Board(18, "", "", "", false, true, "")},
        BoardFile{"octal id", "ID: 017\n", Board(15, "", "", "", true, true, "")},
        BoardFile{"later boot loader line wins", "BOLT-version: 1.0\nBootloader-version: 2.0\n",
                  Board(0xFFFFFFFF, "", "2.0", "", true, true, "")},
        BoardFile{"later boot loader line wins the other way", "Bootloader-version: 2.0\nBOLT-version: 1.0\n",
                  Board(0xFFFFFFFF, "", "1.0", "", true, true, "")},
        BoardFile{"keys compare exactly", "family: x\nSoC x\nID: garbage\nUnknown: 1\n",
                  Board(0, "", "", "", true, true, "")},
        BoardFile{"key without value at the end", "Family: corvan\nSoC:", Board(0xFFFFFFFF, "corvan", "", "", true, true, "")},
        // Tokens, not lines: a blank inside a value shifts every later pair.
        BoardFile{"blank inside a value", "SoC: i.MX6ULZ rev1.1\nID: 0x5\n",
                  Board(0xFFFFFFFF, "", "", "i.MX6ULZ", true, true, "")},
        BoardFile{"empty", "", kDefaults}),
    test_support::NameFromWhat());

TEST(BoardIdFileTest, MissingFileLeavesTheDefaults)
{
    const BoardIdentity board = ReadBoardId("/nonexistent/boardid");
    EXPECT_EQ(board.board_id, 0xFFFFFFFFu);
    EXPECT_TRUE(board.secure_keys);
    EXPECT_TRUE(board.secure_boot);
    EXPECT_TRUE(board.soc.empty());
}

} // namespace
