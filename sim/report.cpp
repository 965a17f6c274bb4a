#include "report.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <sstream>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "app/paths.h"

namespace fs = std::filesystem;

namespace sim {

namespace {

using paths::kArchive;
using paths::kInfoFile;
using paths::kOutputDirectory;

// What the previous run of the device left for the collector to judge.
constexpr const char* kEvidence[] = {
    paths::kCoreImage, paths::kPreservedKernelLog, paths::kPanicFlag, paths::kDumpTrigger,
};

void Section(const std::string& title)
{
    fmt::print("\n== {}\n", title);
}

// A short file's first line as a C string literal would show it.
std::string Quoted(const std::string& content)
{
    std::string text = "\"";
    for (const char c : content) {
        if (c == '\n')
            break;
        const auto byte = static_cast<unsigned char>(c);
        text += byte >= 0x20 && byte < 0x7f ? std::string(1, c) : fmt::format("\\x{:02x}", byte);
    }
    return text + "\"";
}

std::string Describe(const DeviceRoot& device, const char* inside)
{
    const fs::path path = device.Path(inside);
    const fs::file_status status = fs::symlink_status(path);
    if (!fs::exists(status))
        return "absent";
    if (fs::is_directory(status))
        return "a directory";
    const std::string content = device.ReadFile(inside);
    const std::string size = fmt::format("{} bytes", content.size());
    return content.size() <= 24 ? size + ", " + Quoted(content) : size;
}

std::string Size(uint64_t bytes)
{
    return bytes % 1024 == 0 ? fmt::format("{} KiB", bytes / 1024) : fmt::format("{} bytes", bytes);
}

std::string BadBlocks(const std::vector<uint32_t>& blocks)
{
    return blocks.empty() ? "no bad blocks" : fmt::format("bad blocks {}", fmt::join(blocks, " "));
}

std::string ShellQuoted(const std::string& text)
{
    std::string quoted = "'";
    for (const char c : text)
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

std::string CommandOutput(const std::string& command)
{
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::string output;
    char buffer[4096];
    size_t n;
    while (pipe && (n = std::fread(buffer, 1, sizeof buffer, pipe.get())) > 0)
        output.append(buffer, n);
    return output;
}

void Indented(const std::string& text)
{
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        fmt::print("   {}\n", line);
}

} // namespace

void ShowInputs(const std::string& name, const Scenario& scenario, const DeviceRoot& device)
{
    fmt::print("== Scenario {}\n", name);
    if (!scenario.description.empty())
        fmt::print("   {}\n", scenario.description);
    fmt::print("   device root {}\n", device.Path(""));

    Section("The device's inputs");
    fmt::print("   {:<38} {}\n", "reset causes",
               scenario.reset_causes ? fmt::format("0x{:x}", *scenario.reset_causes) : "none (no property)");
    for (const char* evidence : kEvidence)
        fmt::print("   {:<38} {}\n", evidence, Describe(device, evidence));
    for (const auto& [inside, bytes] : scenario.file_system_sizes)
        fmt::print("   {:<38} a file system of {}\n", inside, Size(bytes));
    fmt::print("   {:<38} DIGPROG 0x{:08x}, SBMR2 0x{:08x}\n", "SoC registers", scenario.soc.digprog,
               scenario.soc.sbmr2);
    const FlashGeometry& geometry = scenario.geometry;
    fmt::print("   flash: erase blocks of {} bytes, pages of {}, {} spare bytes a page\n", geometry.erase_size,
               geometry.write_size, geometry.oob_size);
    if (scenario.flash.empty())
        fmt::print("     no partitions\n");
    unsigned index = 0;
    for (const auto& [partition, flash] : scenario.flash) {
        const MtdPartition laid = FlashedPartition(partition, flash.image, geometry, flash.bad_blocks);
        fmt::print("     mtd{} {:<16} {:>10}, {}{}\n", index++, partition, Size(laid.content.size()),
                   BadBlocks(laid.bad_blocks), flash.write_refusal != 0 ? ", read-only" : "");
    }
}

void ShowRun(const RunResult& result)
{
    Section("crash-dump's standard error");
    fmt::print("{}", result.standard_error);
    if (!result.standard_error.empty() && result.standard_error.back() != '\n')
        fmt::print("\n");
    const std::string ending = result.signal != 0
        ? fmt::format("ended by signal {} ({})", result.signal, strsignal(result.signal))
        : fmt::format("exit status {}", result.exit_status);
    Section(fmt::format("{}, {:.0f} ms, peak {} KiB (with its children {} KiB)", ending, result.wall_seconds * 1000,
                        result.own_peak_kib, result.max_rss_kib));
    if (result.exit_status == kToolFindingStatus) {
        Section("valgrind's findings");
        fmt::print("{}", result.tool_log);
    } else if (!result.tool_log.empty()) {
        Section("valgrind found nothing");
    }
}

void ShowOutputs(const DeviceRoot& device)
{
    Section(std::string("Files in ") + kOutputDirectory);
    if (!fs::is_directory(device.Path(kOutputDirectory))) {
        fmt::print("   not a directory\n");
        return;
    }
    std::vector<fs::directory_entry> entries(fs::directory_iterator(device.Path(kOutputDirectory)), {});
    std::sort(entries.begin(), entries.end());
    if (entries.empty())
        fmt::print("   none\n");
    for (const fs::directory_entry& entry : entries) {
        const std::string name = entry.path().filename().string();
        if (entry.is_directory())
            fmt::print("   {}/\n", name);
        else
            fmt::print("   {:<24} {:>10} bytes\n", name, entry.file_size());
    }
    if (device.Exists(kArchive)) {
        Section("Archive members");
        Indented(CommandOutput("tar -tvjf " + ShellQuoted(device.Path(kArchive)) + " 2>&1"));
    }
    if (device.Exists(kInfoFile)) {
        Section("crash-dump.info");
        Indented(device.ReadFile(kInfoFile));
    }
}

} // namespace sim
