// The dump path with a large core: the collector's wall time against the dump
// script run directly by the shell on the same files in the same device, and
// the collector's peak memory, which must not grow with the core.
//
// The peak that the kernel reports for a process includes its reaped
// descendants, so the collector's figure is bounded below by the shell's
// children (bzip2 above all); the script's own run shows that floor.

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "app/dump_collection.h"
#include "device_root.h"
#include "installation.h"
#include "scenario.h"
#include "scenario_directory.h"

namespace {

constexpr const char* kArchive = "/var/lib/lumora/crash-dump/crash-dump.tar.bz2";
constexpr const char* kStaging = "/var/run/crash-dump/new";
constexpr int kRounds = 3;

// Memory pages as a core holds them: some runs of zeros, some repetitive
// data, some noise, so that bzip2 works about as hard as on a real core.
std::string CoreImage(size_t size)
{
    std::string core(size, '\0');
    uint32_t state = 12345;
    for (size_t page = 0; page * 4096 < size; ++page) {
        const size_t start = page * 4096;
        const size_t end = std::min(size, start + 4096);
        for (size_t i = start; i < end; ++i) {
            state = state * 1103515245u + 12345u;
            switch (page % 4) {
            case 0: break;
            case 1: core[i] = static_cast<char>(i % 64); break;
            default: core[i] = static_cast<char>(state >> 24); break;
            }
        }
    }
    return core;
}

std::string KernelLog(size_t size)
{
    std::string log;
    for (unsigned sequence = 0; log.size() < size; ++sequence)
        log += "6," + std::to_string(sequence) + "," + std::to_string(sequence * 1733u)
               + ",-;LMPLAY: frame queue depth 12, decoder idle, presentation 'lobby'\n";
    log.resize(size);
    return log;
}

struct Figures {
    double seconds = 0;  // median
    double fastest = 0;
    long peak_kib = 0;
};

// The machine may be shared: the fastest round shows the cost with the least
// interference, the median what to expect.
Figures Summarise(std::vector<sim::RunResult> runs)
{
    std::sort(runs.begin(), runs.end(),
              [](const auto& a, const auto& b) { return a.wall_seconds < b.wall_seconds; });
    long peak = 0;
    for (const auto& run : runs)
        peak = std::max(peak, run.own_peak_kib);
    return {runs[runs.size() / 2].wall_seconds, runs.front().wall_seconds, peak};
}

// The collector from start to end; fails when it made no dump.
bool RunCollector(sim::DeviceRoot& device, std::vector<sim::RunResult>& runs)
{
    device.Remove(kArchive);
    runs.push_back(device.Run());
    if (runs.back().exit_status == 0)
        return true;
    std::fprintf(stderr, "the collector made no dump (exit status %d):\n%s", runs.back().exit_status,
                 runs.back().standard_error.c_str());
    return false;
}

// The same script by itself, on a staging directory prepared as the
// collector prepares it.
void RunScript(sim::DeviceRoot& device, std::vector<sim::RunResult>& runs)
{
    device.Remove(kArchive);
    device.MakeDirectory(kStaging, 0700);
    device.WriteFile(std::string(kStaging) + "/info", "type=post-mortem\n");
    runs.push_back(device.Run({"/bin/sh", "-c", DumpScript(kArchive, true)}));
    device.Remove(kStaging);
}

void Report(const char* what, const Figures& figures)
{
    std::printf("  %-30s %8.3f s median %8.3f s fastest   peak %6ld KiB\n", what, figures.seconds, figures.fastest,
                figures.peak_kib);
}

} // namespace

int main()
{
    if (geteuid() != 0) {
        std::fprintf(stderr, "The sandbox needs root (a mount namespace and a chroot).\n");
        return 2;
    }

    const sim::Installation installation = sim::Installation::Under(CRASH_DUMP_SIM_STAGE);
    sim::DeviceRoot device(installation);
    sim::Apply(sim::LoadScenario(installation.scenarios + "/watchdog-crash"), device);

    // Little for bzip2 to do: the peak is about the collector's own.
    std::vector<sim::RunResult> no_core;
    device.WriteFile("/dev/ltcore", "");
    if (!RunCollector(device, no_core))
        return 1;

    device.WriteFile("/dev/lastkmsg", KernelLog(1 << 20));
    std::vector<sim::RunResult> small_core;
    device.WriteFile("/dev/ltcore", CoreImage(1 << 20));
    if (!RunCollector(device, small_core))
        return 1;

    std::vector<sim::RunResult> collector;
    std::vector<sim::RunResult> script;
    device.WriteFile("/dev/ltcore", CoreImage(64 << 20));
    for (int round = 0; round < kRounds; ++round) {
        if (!RunCollector(device, collector))
            return 1;
        RunScript(device, script);
    }

    const Figures with_collector = Summarise(collector);
    const Figures alone = Summarise(script);
    std::printf("Dump path, 1 MiB kernel log, %d rounds:\n", kRounds);
    Report("collector, 64 MiB core", with_collector);
    Report("script alone, 64 MiB core", alone);
    Report("collector, 1 MiB core", Summarise(small_core));
    Report("collector, no core, short log", Summarise(no_core));
    std::printf("  collector overhead: %+.3f s median, %+.3f s fastest\n", with_collector.seconds - alone.seconds,
                with_collector.fastest - alone.fastest);
    return 0;
}
