// The no-dump path, the cost of most boots: whole runs of the collector in
// the simulated device against its floor (no_dump_floor.c, the same work in
// plain C) and /bin/true, started the same way, so that the simulator's own
// cost (fork, namespace, chroot, exec) is in all three. The three take turns,
// round after round, so that a machine whose speed drifts slows them alike;
// medians.
//
//   collector_run_timing [RUNS [COLLECTOR]]   (root; COLLECTOR: another build's)

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "device_root.h"
#include "installation.h"
#include "scenario.h"
#include "scenario_directory.h"

namespace {

struct Contender {
    const char* name;
    std::string program;         // bound to the collector's place, or empty
    std::vector<std::string> argv;
    std::vector<double> milliseconds{};
    long peak_kib = 0;
};

constexpr const char* kNoDump = "No post-mortem crash dump available.\n";

bool EndsWith(const std::string& text, const std::string& end)
{
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// A run that did not take the no-dump path would time something else.
bool RunOnce(sim::DeviceRoot& device, Contender& contender)
{
    if (!contender.program.empty())
        device.SetProgram(contender.program);
    // The simulator looks at its runs every few milliseconds, which is as
    // long as a whole run: the end is taken from waiting for it here, the
    // rest from the simulator once the run is over.
    const auto started = std::chrono::steady_clock::now();
    sim::DeviceRoot::Process process = device.Start(contender.argv);
    siginfo_t ended{};
    ::waitid(P_PID, static_cast<id_t>(process.Id()), &ended, WEXITED | WNOWAIT);
    const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - started;
    const sim::RunResult result = process.Wait();
    const bool collector = !contender.program.empty();
    if (result.exit_status != (collector ? 1 : 0) || (collector && !EndsWith(result.standard_error, kNoDump))) {
        std::fprintf(stderr, "%s: exit status %d, standard error:\n%s", contender.name, result.exit_status,
                     result.standard_error.c_str());
        return false;
    }
    contender.milliseconds.push_back(elapsed.count());
    contender.peak_kib = std::max(contender.peak_kib, result.max_rss_kib);
    return true;
}

double Median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int main(int argc, char** argv)
{
    if (geteuid() != 0) {
        std::fprintf(stderr, "needs root for the simulated device\n");
        return 2;
    }
    const int runs = argc > 1 ? std::stoi(argv[1]) : 200;
    const sim::Installation installation = sim::Installation::Under(CRASH_DUMP_SIM_STAGE);
    const std::string collector = argc > 2 ? argv[2] : installation.collector;

    sim::DeviceRoot device(installation);
    sim::Apply(sim::LoadScenario(installation.scenarios + "/clean-boot"), device);
    std::vector<Contender> contenders = {
        {"/bin/true", "", {"/bin/true"}},
        {"floor (no_dump_floor)", CRASH_DUMP_FLOOR, {sim::DeviceRoot::kCollector}},
        {"crash-dump", collector, {sim::DeviceRoot::kCollector}},
    };
    for (int round = 0; round < runs; ++round) {
        for (size_t turn = 0; turn < contenders.size(); ++turn) {
            if (!RunOnce(device, contenders[(round + turn) % contenders.size()]))
                return 1;
        }
    }

    std::printf("No-dump path, scenario clean-boot, %d runs each, interleaved:\n", runs);
    const double true_ms = Median(contenders[0].milliseconds);
    const double floor_ms = Median(contenders[1].milliseconds);
    for (const Contender& c : contenders)
        std::printf("  %-24s median %7.3f ms  %5.2fx /bin/true  %5.2fx floor  peak %5ld KiB\n", c.name,
                    Median(c.milliseconds), Median(c.milliseconds) / true_ms, Median(c.milliseconds) / floor_ms,
                    c.peak_kib);
    return 0;
}
