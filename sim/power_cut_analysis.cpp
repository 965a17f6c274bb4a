#include "power_cut_analysis.h"

#include <chrono>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "app/paths.h"
#include "power_cut_checker.h"
#include "power_cut_model.h"
#include "power_cut_trace.h"
#include "strace_log.h"

namespace sim {

namespace {

namespace fs = std::filesystem;

// Inside the device, away from the collector's paths; strace writes it from
// outside the chroot, and does not trace itself.
constexpr const char* kTraceLog = "/var/run/power-cuts.strace";

std::vector<PreexistingFile> FilesIn(const DeviceRoot& device, std::string_view directory)
{
    std::vector<PreexistingFile> files;
    for (const fs::directory_entry& entry : fs::directory_iterator(device.Path(directory))) {
        if (entry.is_regular_file())
            files.push_back({std::string(directory) + "/" + entry.path().filename().string(), entry.file_size()});
    }
    return files;
}

// The collector ends strace's log ("4711  +++ exited with 0 +++"): every
// other process of the run has ended before it, and the tracer stops with it.
bool EndsWithCollectorExit(const std::string& log)
{
    if (log.empty() || log.back() != '\n')
        return false;
    const size_t last_line = log.rfind('\n', log.size() - 2);
    std::istringstream first(log.substr(0, log.find(' ')));
    std::istringstream last(log.substr(last_line == std::string::npos ? 0 : last_line + 1));
    std::string collector, pid, event;
    first >> collector;
    last >> pid >> event;
    return pid == collector && event == "+++";
}

// Every call is traced, so that none that changes the output directory goes
// unseen. strace runs outside the chroot, where /proc is the host's, so that
// -y can name every descriptor's file. It runs detached (-D), as the
// collector's grandchild: the collector keeps the started process's id, and
// with it the /proc entries the sandbox binds for its runtime checkers. Nobody
// waits for the tracer, so the log is complete once it records the
// collector's exit.
std::string RecordRun(const DeviceRoot& device, int& exit_status)
{
    const std::vector<std::string> strace = {"/usr/bin/strace", "-D", "-f", "-q", "-y", "-e", "signal=none",
                                             "-o", device.Path(kTraceLog)};
    const RunResult run = device.Start({DeviceRoot::kCollector}, strace).Wait();
    exit_status = run.exit_status;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (std::chrono::steady_clock::now() < deadline) {
        if (device.Exists(kTraceLog)) {
            std::string log = device.ReadFile(kTraceLog);
            if (EndsWithCollectorExit(log)) {
                device.Remove(kTraceLog);
                return log;
            }
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    throw std::runtime_error("strace left no complete trace of the collector:\n" + run.standard_error);
}

void Print(const PowerCutReport& report, std::ostream& out)
{
    for (const Violation& violation : report.violations)
        out << "cut " << violation.cut_point << " after " << violation.operation << ": " << violation.example
            << "\n";
    out << report.cut_points << " cut points, " << report.violations.size() << " violations\n";
    out << "hand-off durable at exit: ";
    if (!report.handed_off)
        out << "nothing handed off\n";
    else if (report.not_durable_at_exit.empty())
        out << "yes\n";
    else
        out << fmt::format("no ({})\n", fmt::join(report.not_durable_at_exit, "; "));
}

} // namespace

int RunPowerCutAnalysis(DeviceRoot& device, std::ostream& out)
{
    const std::vector<PreexistingFile> before = FilesIn(device, paths::kOutputDirectory);
    int exit_status = -1;
    const std::string log = RecordRun(device, exit_status);
    const std::string root = fs::canonical(device.Path("/")).string();
    const PowerCutReport report
        = CheckPowerCuts(ResolveFileOperations(ParseStraceLog(log), root, paths::kOutputDirectory), before);
    out << "Power cuts while crash-dump wrote " << paths::kOutputDirectory << " (" << before.size()
        << " files there before, exit status " << exit_status << "):\n";
    Print(report, out);
    return report.Clean() ? 0 : 1;
}

} // namespace sim
