// The kernel-log classification against the bare cost of reading the same
// log line by line. The classification may cost at most three times the
// reading: it runs at every boot, before the player starts.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "app/kernel_log_classifier.h"

namespace {

constexpr size_t kLogSize = 4 << 20;

// Messages a player's kernel log is made of: mostly driver chatter that no
// pattern takes, now and then one of each kind the classification looks for,
// some of them spanning several lines written as escaped breaks.
const char* const kOrdinary[] = {
    "usb 1-1: new high-speed USB device number 2 using ci_hdrc",
    "imx-sdma 20ec000.sdma: loaded firmware 3.3",
    "ubi0: attached mtd4 (name \"flash0.ubi\", size 480 MiB)",
    "UBIFS (ubi0:1): background thread \"ubifs_bgt0_1\" started, PID 118",
    "fec 2188000.ethernet eth0: Link is Up - 1Gbps/Full - flow control rx/tx",
    "player[812]: segfault at 0 ip 0001f3c4 sp be8f1a40 error 4\\x0a in player[10000+2c000]",
    "Unable to handle kernel NULL pointer dereference at virtual address 00000000\\x0apgd = c0004000",
    "CPU: 1 PID: 812 Comm: player Not tainted 4.9.88 #1\\x0aHardware name: Freescale i.MX6",
    "galcore: GPU clock 594000000\tidle",
    "random: crng init done",
};
const char* const kMatching[] = {
    "Process player (pid: 812, stack limit = 0xc2a00000)",
    "User space assert from player\\x0aplayer.c:88\\x0aASSERT Executing frame_queue_depth(q) < 64\\x0aBacktrace",
    "**\\x0aGLib-Net:ERROR:gsocket.c:1203:g_socket_send: assertion failed: (fd >= 0)",
    "\\x0a(process:345): GLib-CRITICAL **: 12:34:56.789: g_object_unref: assertion 'G_IS_OBJECT (object)' failed",
    "LMPLAY: playing presentation 'lobby'",
    "Requesting crash at web user request.",
    "ScriptHash: 9f86d081884c7d65",
    "ScriptName: lobby.script",
    "ScriptRuntimeError: runtime error 24 in lobby.script line 42",
    "ScriptLoadError: compile error 2 in menu.script line 7",
};

std::string GenerateLog()
{
    std::mt19937 random(20240601);
    std::uniform_int_distribution<size_t> percent(0, 99);
    std::string log;
    log.reserve(kLogSize + 256);
    for (unsigned sequence = 0; log.size() < kLogSize; ++sequence) {
        const bool matching = percent(random) < 3;
        const char* message = matching ? kMatching[percent(random) % std::size(kMatching)]
                                       : kOrdinary[percent(random) % std::size(kOrdinary)];
        log += std::to_string(matching ? 3 : 6) + "," + std::to_string(sequence) + ","
            + std::to_string(sequence * 1031ull) + ",-;" + message + "\n";
    }
    return log;
}

const std::string& Log()
{
    static const std::string log = GenerateLog();
    return log;
}

// Each iteration reads from a fresh stream; filling it is not what is measured.
template <typename Body>
void OverFreshStreams(benchmark::State& state, Body body)
{
    for (auto _ : state) {
        state.PauseTiming();
        std::istringstream log(Log());
        state.ResumeTiming();
        body(log);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(Log().size()));
}

void BM_ReadLines(benchmark::State& state)
{
    OverFreshStreams(state, [](std::istream& log) {
        std::string line;
        while (std::getline(log, line))
            benchmark::DoNotOptimize(line.data());
    });
}
BENCHMARK(BM_ReadLines)->Unit(benchmark::kMillisecond);

void BM_ClassifyKernelLog(benchmark::State& state)
{
    OverFreshStreams(state, [](std::istream& log) {
        CrashInfo info = ClassifyKernelLog(log);
        benchmark::DoNotOptimize(info);
    });
}
BENCHMARK(BM_ClassifyKernelLog)->Unit(benchmark::kMillisecond);

// Prints, after the usual table, how many times the reading alone the
// classification costs. Processor time, as for the rates: the machines that
// run this are shared.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs) {
            // With repetitions, the mean comes after the single runs and wins.
            if (run.run_type != Run::RT_Iteration && run.aggregate_name != "mean")
                continue;
            if (run.run_name.function_name == "BM_ReadLines")
                m_read = run.GetAdjustedCPUTime();
            else if (run.run_name.function_name == "BM_ClassifyKernelLog")
                m_classify = run.GetAdjustedCPUTime();
        }
        ConsoleReporter::ReportRuns(runs);
    }

    void Finalize() override
    {
        ConsoleReporter::Finalize();
        if (m_read > 0 && m_classify > 0)
            std::printf("classification / reading: %.2fx (target: at most 3x)\n", m_classify / m_read);
    }

private:
    double m_read = 0;
    double m_classify = 0;
};

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    std::printf("kernel log: %zu bytes\n", Log().size());
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
