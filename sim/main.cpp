// Runs the collector in a simulated device whose previous run has just
// crashed, and shows what it produced.

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

#include "device_root.h"
#include "scenarios.h"

namespace {

constexpr const char* kOutputDirectory = "/var/lib/lumora/crash-dump";

void Show(const std::string& title, const std::string& command)
{
    std::cout << "\n== " << title << "\n" << std::flush;
    std::system(command.c_str());
}

} // namespace

int main()
{
    if (geteuid() != 0) {
        std::cerr << "The simulated device needs root (a mount namespace and a chroot).\n";
        return 2;
    }

    sandbox::DeviceRoot device;
    sandbox::PrepareCrashedDevice(device);

    std::cout << "== Simulated device: " << device.Path("/") << "\n"
              << "   reset causes 0x10 (watchdog), a kept core image, the preserved kernel log:\n\n"
              << device.ReadFile("/dev/lastkmsg");

    const sandbox::RunResult result = device.Run();

    std::cout << "\n== crash-dump's standard error\n" << result.standard_error;
    std::cout << "== exit status " << result.exit_status << " (" << result.wall_seconds * 1000 << " ms, peak "
              << result.own_peak_kib << " KiB)\n";

    const std::string output = device.Path(kOutputDirectory);
    Show(std::string("Files in ") + kOutputDirectory, "ls -l " + output);
    if (device.Exists(std::string(kOutputDirectory) + "/crash-dump.tar.bz2"))
        Show("Archive members", "tar -tvjf " + output + "/crash-dump.tar.bz2");
    if (device.Exists(std::string(kOutputDirectory) + "/crash-dump.info"))
        Show("crash-dump.info", "cat " + output + "/crash-dump.info");
    return result.signal == 0 ? 0 : 1;
}
