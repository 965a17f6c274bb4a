#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <map>
#include <string>

#include "hardware/bootloader_environment.h"
#include "hardware/uboot_environment.h"
#include "environment_image.h"
#include "memory_nand.h"
#include "param_name.h"

namespace {

using Variables = std::map<std::string, std::string>;
using sim::WithCrc;

constexpr uint32_t kBlock = 4096;

BootloaderEnvironment Parse(const std::string& image)
{
    return ParseUbootEnvironment(reinterpret_cast<const uint8_t*>(image.data()), image.size());
}

std::string Padded(const std::string& entries)
{
    return entries + std::string(kBlock - 4 - entries.size(), '\xff');
}

// A literal with embedded NULs, without its own terminator.
template <size_t N>
std::string Bytes(const char (&text)[N])
{
    return std::string(text, N - 1);
}

TEST(UbootEnvironmentTest, ChecksumOfAKnownImage)
{
    // CRC-32 of "bootdelay=1\0\0" is 0xc283348e, stored low byte first.
    EXPECT_EQ(Parse(Bytes("\x8e\x34\x83\xc2" "bootdelay=1\0\0")).variables, (Variables{{"bootdelay", "1"}}));
}

TEST(UbootEnvironmentTest, EntriesOfAWholeBlock)
{
    const auto environment = Parse(WithCrc(Padded(Bytes("a=1\0flag\0k=x=y\0a=2\0=anonymous\0\0"))));

    EXPECT_EQ(environment.variables,
              (Variables{{"a", "1"}, {"flag", ""}, {"k", "x=y"}, {"", "anonymous"}}));
    EXPECT_TRUE(environment.comment.empty());
}

TEST(UbootEnvironmentTest, EmptyFirstEntryIsAnEmptyEnvironment)
{
    EXPECT_TRUE(Parse(WithCrc(Padded(Bytes("\0")))).variables.empty());
    // After the end mark anything goes, as long as the checksum covers it.
    EXPECT_TRUE(Parse(WithCrc(Bytes("\0garbage=1"))).variables.empty());
}

struct Malformation {
    const char* what;
    std::string image;
    const char* message;
};

class UbootEnvironmentErrorTest : public ::testing::TestWithParam<Malformation> {};

TEST_P(UbootEnvironmentErrorTest, IsRejected)
{
    try {
        Parse(GetParam().image);
        FAIL() << "accepted";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), GetParam().message);
    }
}

const std::string kGood = WithCrc(Padded(Bytes("a=1\0\0")));

INSTANTIATE_TEST_SUITE_P(
    Images, UbootEnvironmentErrorTest,
    ::testing::Values(
        Malformation{"empty", "", "U-Boot environment too small"},
        Malformation{"three bytes", "abc", "U-Boot environment too small"},
        Malformation{"checksum only", WithCrc(""), "U-Boot environment malformed"},
        Malformation{"one changed byte", kGood.substr(0, 100) + '\0' + kGood.substr(101),
                     "U-Boot environment CRC mismatch"},
        Malformation{"checksum up to the end mark only", WithCrc(Bytes("a=1\0\0")) + std::string(64, '\xff'),
                     "U-Boot environment CRC mismatch"},
        Malformation{"no end mark", WithCrc(Bytes("a=1\0")), "U-Boot environment malformed"},
        Malformation{"flag without end mark", WithCrc(Bytes("a=1\0flag\0")), "U-Boot environment malformed"},
        Malformation{"unterminated value", WithCrc("a=1"), "U-Boot environment malformed"},
        Malformation{"unterminated name", WithCrc("abc"), "U-Boot environment malformed"}),
    test_support::NameFromWhat());

class FirstGoodBlockTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_nand->Fill(0, sim::UbootEnvironmentImage({{"where", "first"}}, kBlock));
        m_nand->Fill(kBlock, sim::UbootEnvironmentImage({{"where", "second"}}, kBlock));
    }

    std::shared_ptr<test_support::MemoryNand> m_nand = test_support::MemoryNand::Make(kBlock, 3);
};

TEST_F(FirstGoodBlockTest, ReadsOnlyTheFirstGoodBlock)
{
    m_nand->SetBad(0);

    const auto environment = ReadFirstGoodBlock(m_nand, ParseUbootEnvironment);

    EXPECT_EQ(environment.variables, (Variables{{"where", "second"}}));
    EXPECT_EQ(m_nand->BytesRead(), kBlock);
}

TEST_F(FirstGoodBlockTest, AllBlocksBad)
{
    for (uint32_t block = 0; block < 3; ++block)
        m_nand->SetBad(block);
    bool parsed = false;

    try {
        ReadFirstGoodBlock(m_nand, [&](const uint8_t*, size_t) {
            parsed = true;
            return BootloaderEnvironment{};
        });
        FAIL() << "no exception";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "All BOLT environment NAND blocks are bad");
    }
    EXPECT_FALSE(parsed);
    EXPECT_EQ(m_nand->BytesRead(), 0u);
}

// This test program has no NAND partitions, so the environment reads as
// corrupt. A warning that cannot be printed still counts as given.
TEST(BootloaderEnvironmentDeathTest, CorruptWarningAtMostOncePerProcess)
{
    EXPECT_EXIT(
        {
            const int saved = dup(STDERR_FILENO);
            close(STDERR_FILENO);
            try {
                GetBootloaderEnvironment();
            } catch (...) {
            }
            dup2(saved, STDERR_FILENO);
            EXPECT_TRUE(GetBootloaderEnvironment().variables.empty());
            std::fputs("asked twice\n", stderr);
            _exit(0);
        },
        testing::ExitedWithCode(0), "^asked twice\n$");
}

} // namespace
