// Times whole runs of the collector in the simulated device next to /bin/true
// run the same way, so the simulator's own cost (fork, namespace, chroot, exec)
// can be told apart from the collector's.

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "device_root.h"
#include "installation.h"
#include "scenario.h"
#include "scenario_directory.h"

namespace {

struct Figures {
    double median_ms;
    long max_rss_kib;
};

Figures Measure(const std::function<sim::RunResult()>& run, int runs)
{
    std::vector<double> times;
    long rss = 0;
    for (int i = 0; i < runs; ++i) {
        sim::RunResult result = run();
        times.push_back(result.wall_seconds * 1000);
        rss = std::max(rss, result.max_rss_kib);
    }
    std::sort(times.begin(), times.end());
    return {times[times.size() / 2], rss};
}

void Report(const char* what, const Figures& f)
{
    std::printf("%-40s median %8.2f ms   peak RSS %6ld KiB\n", what, f.median_ms, f.max_rss_kib);
}

} // namespace

int main(int argc, char** argv)
{
    if (geteuid() != 0) {
        std::fprintf(stderr, "needs root for the simulated device\n");
        return 2;
    }
    const int runs = argc > 1 ? std::stoi(argv[1]) : 20;

    const sim::Installation installation = sim::Installation::Under(CRASH_DUMP_SIM_STAGE);
    sim::DeviceRoot device(installation);
    sim::Apply(sim::LoadScenario(installation.scenarios + "/clean-boot"), device);
    Report("crash-dump, no dump due", Measure([&] { return device.Run(); }, runs));
    Report("/bin/true, same device", Measure([&] { return device.Run({"/bin/true"}); }, runs));
    return 0;
}
