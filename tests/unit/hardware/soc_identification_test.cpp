#include <gtest/gtest.h>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>

#include "hardware/mmio.h"
#include "hardware/soc_identification.h"

namespace {

struct Registers {
    uint32_t digprog;
    uint32_t sbmr2;
    const char* name; // nullptr: not a part this player carries
};

class DecodeSiliconTest : public ::testing::TestWithParam<Registers> {};

TEST_P(DecodeSiliconTest, NamesTheUlzByItsRevision)
{
    const Registers& registers = GetParam();
    if (registers.name == nullptr) {
        try {
            DecodeSilicon(registers.digprog, registers.sbmr2);
            FAIL() << "accepted";
        } catch (const std::runtime_error& e) {
            EXPECT_STREQ(e.what(), "Unexpected silicon type");
        }
    } else {
        EXPECT_EQ(DecodeSilicon(registers.digprog, registers.sbmr2), registers.name);
    }
}

INSTANTIATE_TEST_SUITE_P(Parts, DecodeSiliconTest,
                         ::testing::Values(Registers{0x00650001, 0x40, "i.MX6ULZ rev1.1"},
                                           Registers{0x00650102, 0x40, "i.MX6ULZ rev2.2"},
                                           Registers{0x00650900, 0x40, "i.MX6ULZ rev10.0"},
                                           Registers{0xff650001, 0xffffffff, "i.MX6ULZ rev1.1"},
                                           Registers{0x00650001, 0x00, ""},
                                           Registers{0x00650001, 0xffffffbf, ""},
                                           Registers{0x00630001, 0x40, nullptr},
                                           Registers{0x00000000, 0x40, nullptr}));

// Mmio always maps "/dev/mem": this child puts a file of its own there, on a
// private /dev, and shows what the window reads.
void ReadWindowOverAFile()
{
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0
        || mount("none", "/dev", "tmpfs", 0, nullptr) != 0)
        std::exit(2);
    const int fd = open("/dev/mem", O_RDWR | O_CREAT, 0600);
    const uint32_t words[2] = {0x00650102, 0x11223344};
    if (fd < 0 || pwrite(fd, words, sizeof words, 0x1ffc) != sizeof words || ftruncate(fd, 0x4000) != 0)
        std::exit(3);

    const Mmio window(0x1000, 0x1000);
    std::fprintf(stderr, "%08x\n", window.Read32(0xffc));
    try {
        window.Read32(0x1000);
    } catch (const std::out_of_range& e) {
        std::fprintf(stderr, "%s\n", e.what());
    }
    std::exit(0);
}

TEST(MmioTest, ReadsInsideTheWindowOnly)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "a private /dev needs root";
    EXPECT_EXIT(ReadWindowOverAFile(), ::testing::ExitedWithCode(0), "^00650102\nMMIO offset out of range\n$");
}

} // namespace
