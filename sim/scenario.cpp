#include "scenarios.h"

#include <random>
#include <string>

#include "hardware.h"
#include "environment_image.h"
#include "fit_image.h"

namespace sandbox {

namespace {

// The preserved kernel log in the kernel's record export format, with the
// messages a watchdog reset after a player assertion leaves behind.
constexpr const char* kCrashedKernelLog =
    "6,1021,8812331,-;LMPLAY: playing presentation 'lobby'\n"
    "6,1022,8812345,-;ScriptName: lobby.brs\n"
    "6,1023,8812346,-;ScriptHash: 9f86d081884c7d65\n"
    "3,1024,9012001,-;User space assert from player\\x0aplayer.c:88\\x0a"
    "ASSERT Executing frame_queue_depth(q) < 64\\x0aBacktrace: 0x10f3c 0x11a08\n"
    "6,1025,9012100,-;Process player (pid: 812, stack limit = 0xc2a00000)\n"
    "0,1026,9514000,-;watchdog: watchdog0: watchdog did not stop!\n";

// What the boot loader passes to a player's kernel.
constexpr const char* kCommandLine =
    "console=ttymxc0,115200 ubi.mtd=flash0.ubi root=ubi0:rootfs rootfstype=ubifs ro quiet\n";

constexpr uint32_t kEraseSize = 128 * 1024;

// What the kernel's board file says on a production player. Values are
// single words: the board file is read token by token.
constexpr const char* kBoardId =
    "Family: corvan\n"
    "ID: 0x1a\n"
    "Bootloader-version: 2.4.11\n"
    "SoC: i.MX6ULZ\n"
    "Secure-keys: 1\n"
    "Secure-boot: 1\n"
    "Secure-ID: 5f3e9a0c7d21b846\n";

// The boot loader in its own partition, then its environment with the
// manufacturing record that the factory programmed.
void PrepareIdentity(DeviceRoot& device)
{
    device.WriteFile("/proc/cmdline", kCommandLine);
    device.WriteFile("/proc/boardid", kBoardId, 0444);
    AddMtdPartition(device, {"flash0.bolt", std::string(8 * kEraseSize, '\xff')});
    const std::string environment = UbootEnvironmentImage(
        {{"LM_ETH0_HWADDR", "90:AC:3F:1A:2B:3C"},
         {"LM_FORMAT", "1"},
         {"LM_HWFLAGS", "0x0000000000000005"},
         {"LM_HWREV", "2"},
         {"LM_SERIAL", "D4E91K002317"},
         {"LM_WLAN0_HWADDR", "90:AC:3F:1A:2B:3D"},
         {"baudrate", "115200"},
         {"bootdelay", "1"}},
        kEraseSize);
    AddMtdPartition(device, {"flash0.nvram", environment + std::string(3 * kEraseSize, '\xff')});
}

} // namespace

void PrepareCleanBoot(DeviceRoot& device)
{
    PrepareIdentity(device);
    device.SetResetCauses(0x1);
    device.WriteFile("/dev/ltcore", "");
    device.WriteFile("/proc/panic_flag", "0");
    device.WriteFile("/sys/class/mem/lastkmsg/trigger_dump", "0\n");
}

namespace {

// The running system's files and the rescue kernel: what tells a support
// engineer which software crashed. The rescue image is compressed, as the
// build ships it, and one of the blocks it was flashed across is bad.
void PrepareSoftware(DeviceRoot& device)
{
    device.WriteFile("/etc/lumora-version", kSystemVersion);
    device.WriteFile("/etc/lumora-image-name", std::string("  ") + kImageName + "\n");
    const std::string rescue = Gzip(RescueFitImage(kRescueVersion, 512 * 1024));
    AddMtdPartition(device, FlashedPartition("flash0.rescue", rescue, 32 * kEraseSize, {2}));
    device.WriteFile("/sys/class/ubi/ubi0/volumes_count", "3\n");
    device.WriteFile("/sys/class/ubi/ubi0/ubi0_0/name", "cust_apps\n");
    device.WriteFile("/sys/class/ubi/ubi0/ubi0_1/name", "data\n");
    device.WriteFile("/sys/class/ubi/ubi0/ubi0_2/name", "cust_media\n");
    // The kernel log of this boot, which the dump takes as "dmesg".
    device.WriteFile("/dev/kmsg", "6,0,0,-;Booting Linux on physical CPU 0x0\n");
}

} // namespace

void PrepareCrashedDevice(DeviceRoot& device)
{
    PrepareIdentity(device);
    PrepareSoftware(device);
    device.SetResetCauses(0x10);
    device.WriteFile("/dev/ltcore", std::string("\x7f" "ELF core image of the crashed kernel\n"));
    device.WriteFile("/dev/lastkmsg", kCrashedKernelLog);
    device.WriteFile("/proc/panic_flag", "0");
    device.WriteFile("/sys/class/mem/lastkmsg/trigger_dump", "0\n");
}

std::string RandomBytes(size_t size)
{
    std::mt19937 engine(7);
    std::string bytes(size, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(engine());
    return bytes;
}

} // namespace sandbox
