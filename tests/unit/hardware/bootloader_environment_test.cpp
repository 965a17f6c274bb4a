#include <gtest/gtest.h>

#include <unistd.h>

#include "environment_image.h"
#include "hardware/bootloader_environment.h"
#include "hardware/uboot_environment.h"
#include "memory_nand.h"
#include "outcome.h"

using namespace std::string_literals;

TEST(UbootEnvironmentTest, ChecksummedEntriesUpToTheEmptyOne)
{
    const std::pair<std::string, const char*> images[] = {
        {sim::WithCrc("a=1\0flag\0k=x=y\0a=2\0=anonymous\0\0"s), "=anonymous;a=1;flag=;k=x=y;"},
        {sim::WithCrc("\0garbage=1"s), ""},
        {"abc", "U-Boot environment too small"},
        {"\x26\x39\xf4\xcb" "123456789"s, "U-Boot environment malformed"}, // CRC-32's check value
        {sim::WithCrc(""), "U-Boot environment malformed"},
        {sim::WithCrc("a=1\0\0"s) + "\xff\xff", "U-Boot environment CRC mismatch"}, // CRC of the whole block
        {sim::WithCrc("a=1\0"s), "U-Boot environment malformed"},
        {sim::WithCrc("a=1"), "U-Boot environment malformed"},
    };
    for (const auto& [image, variables] : images) {
        const auto parse = [&image = image] {
            std::string pairs;
            const auto data = reinterpret_cast<const uint8_t*>(image.data());
            for (const auto& [name, value] : ParseUbootEnvironment(data, image.size()).variables)
                pairs += name + "=" + value + ";";
            return pairs;
        };
        EXPECT_EQ(Outcome(parse), variables) << ::testing::PrintToString(image);
    }
}

TEST(FirstGoodBlockTest, SkipsBadBlocksAndReadsOneWholeBlock)
{
    constexpr uint32_t kBlock = 4096;
    const auto nand = test_support::MemoryNand::Make(kBlock, 3);
    nand->Fill(kBlock, sim::UbootEnvironmentImage({{"where", "second"}}, kBlock));
    nand->SetBad(0);
    EXPECT_EQ(ReadFirstGoodBlock(nand, ParseUbootEnvironment).variables.at("where"), "second");
    EXPECT_EQ(nand->BytesRead(), kBlock);

    for (uint32_t block : {1, 2})
        nand->SetBad(block);
    EXPECT_EQ(Outcome([&] { return ReadFirstGoodBlock(nand, ParseUbootEnvironment).variables.at("where"); }),
              "All BOLT environment NAND blocks are bad");
}

// This test program has no NAND partitions, so the environment reads as corrupt:
// warned once per process, not per question, even if the warning could not be printed.
TEST(BootloaderEnvironmentDeathTest, CorruptWarningAtMostOncePerProcess)
{
    EXPECT_EXIT((GetBootloaderEnvironment(), GetBootloaderEnvironment(), _exit(0)), testing::ExitedWithCode(0),
                "^BOOTLOADER ENVIRONMENT CORRUPT. PLEASE RUN MANUFACTURING TEST\n$");
    const auto unprintable_then_asked_again = [] {
        const int saved = dup(STDERR_FILENO);
        close(STDERR_FILENO);
        try { GetBootloaderEnvironment(); } catch (...) { } // not even the failed warning could be reported
        dup2(saved, STDERR_FILENO);
        std::fputs(GetBootloaderEnvironment().variables.empty() ? "asked twice\n" : "variables\n", stderr);
        _exit(0);
    };
    EXPECT_EXIT(unprintable_then_asked_again(), testing::ExitedWithCode(0), "^asked twice\n$");
}
