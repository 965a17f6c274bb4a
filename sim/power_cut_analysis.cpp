#include "power_cut_analysis.h"

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "power_cut_checker.h"
#include "power_cut_model.h"
#include "power_cut_trace.h"
#include "strace_log.h"

namespace sim {

namespace {

namespace fs = std::filesystem;

// Inside the device, beside the staging area: volatile, and not traced.
constexpr const char* kTraceLog = "/var/run/power-cuts.strace";

std::vector<PreexistingFile> FilesIn(const sandbox::DeviceRoot& device, std::string_view directory)
{
    std::vector<PreexistingFile> files;
    for (const fs::directory_entry& entry : fs::directory_iterator(device.Path(directory))) {
        if (entry.is_regular_file())
            files.push_back({std::string(directory) + "/" + entry.path().filename().string(), entry.file_size()});
    }
    return files;
}

std::string RecordRun(const sandbox::DeviceRoot& device, int& exit_status)
{
    const sandbox::RunResult run = device.Run({"/usr/bin/strace", "-f", "-qq", "-e", "signal=none", "-e",
                                               "trace=" + TracedSyscalls(), "-o", kTraceLog,
                                               sandbox::DeviceRoot::kCollector});
    if (!device.Exists(kTraceLog))
        throw std::runtime_error("strace left no trace of the collector:\n" + run.standard_error);
    std::string log = device.ReadFile(kTraceLog);
    device.Remove(kTraceLog);
    exit_status = run.exit_status;
    return log;
}

void Print(const PowerCutReport& report, std::ostream& out)
{
    for (const Violation& violation : report.violations)
        out << "cut " << violation.cut_point << " after " << violation.operation << ": " << violation.example
            << "\n";
    out << report.cut_points << " cut points, " << report.states << " states examined, "
        << report.violations.size() << " violations\n";
    out << "hand-off durable at exit: ";
    if (!report.handed_off) {
        out << "nothing handed off\n";
        return;
    }
    if (report.not_durable_at_exit.empty()) {
        out << "yes\n";
        return;
    }
    out << "no";
    const char* separator = " (";
    for (const std::string& reason : report.not_durable_at_exit) {
        out << separator << reason;
        separator = "; ";
    }
    out << ")\n";
}

} // namespace

int RunPowerCutAnalysis(sandbox::DeviceRoot& device, std::ostream& out)
{
    const std::vector<PreexistingFile> before = FilesIn(device, kCollectorDump.directory);
    int exit_status = -1;
    const std::string log = RecordRun(device, exit_status);
    const PowerCutReport report = CheckPowerCuts(ResolveFileOperations(ParseStraceLog(log)), before, kCollectorDump);
    out << "Power cuts while crash-dump wrote " << kCollectorDump.directory << " (" << before.size()
        << " files there before, exit status " << exit_status << "):\n";
    Print(report, out);
    return report.Clean() ? 0 : 1;
}

} // namespace sim
