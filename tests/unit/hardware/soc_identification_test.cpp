#include <gtest/gtest.h>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <fmt/format.h>

#include "hardware/mmio.h"
#include "hardware/soc_identification.h"
#include "outcome.h"

TEST(DecodeSiliconTest, NamesTheUlzByItsRevision)
{
    const std::tuple<uint32_t, uint32_t, const char*> parts[] = {
        {0x00650001, 0x40, "i.MX6ULZ rev1.1"},
        {0x00650102, 0x40, "i.MX6ULZ rev2.2"},
        {0x00650900, 0x40, "i.MX6ULZ rev10.0"},
        {0x00650001, 0x00, ""},
        {0x00630001, 0x40, "Unexpected silicon type"},
    };
    for (const auto& [digprog, sbmr2, name] : parts)
        EXPECT_EQ(Outcome([&] { return DecodeSilicon(digprog, sbmr2); }), name) << std::hex << digprog << ' ' << sbmr2;
}

// Mmio always maps "/dev/mem": this child puts a file of its own there, on a private /dev. A
// window past the file's end must fail to map rather than kill the process at its first read.
void MapWindowsOverAFile()
{
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0
        || mount("none", "/dev", "tmpfs", 0, nullptr) != 0)
        _exit(2);
    const auto report = [](uint32_t base, uint32_t length, uint32_t offset) {
        fmt::print(stderr, "{}\n", Outcome([&] { return fmt::format("{:08x}", Mmio(base, length).Read32(offset)); }));
    };
    const uint32_t digprog = 0x00650102;
    const int fd = open("/dev/mem", O_RDWR | O_CREAT, 0600);
    if (fd < 0 || pwrite(fd, &digprog, sizeof digprog, 0x1ffc) != sizeof digprog || ftruncate(fd, 0x3000) != 0)
        _exit(3);
    report(0x1000, 0x2000, 0xffc);
    report(0x1000, 0x2000, 0x2000);
    report(0x2000, 0x2000, 0);
    _exit(0);
}

TEST(MmioTest, MapsAndReadsInsideTheWindowOnly)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "a private /dev needs root";
    EXPECT_EXIT(MapWindowsOverAFile(), ::testing::ExitedWithCode(0),
                "^00650102\nMMIO offset out of range\n/dev/mem: No such device or address \\(6\\)\n$");
}
