#include "scenarios.h"

#include <random>
#include <string>

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

} // namespace

void PrepareCleanBoot(DeviceRoot& device)
{
    device.WriteFile("/proc/cmdline", kCommandLine);
    device.SetResetCauses(0x1);
    device.WriteFile("/dev/ltcore", "");
    device.WriteFile("/proc/panic_flag", "0");
    device.WriteFile("/sys/class/mem/lastkmsg/trigger_dump", "0\n");
}

void PrepareCrashedDevice(DeviceRoot& device)
{
    device.WriteFile("/proc/cmdline", kCommandLine);
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
