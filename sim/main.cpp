// crash-dump-sim: runs the unmodified collector in a simulated device built
// from a scenario, and shows the device's inputs and what the collector did.

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "command_line.h"
#include "device_root.h"
#include "image_commands.h"
#include "installation.h"
#include "power_cut_analysis.h"
#include "report.h"
#include "scenario.h"
#include "scenario_directory.h"

namespace {

constexpr int kUsageStatus = 2;

// Set by SIGINT or SIGTERM. The collector leads a session of its own, away
// from the terminal's signals, so the handler ends it; the run then unwinds,
// and the device root goes with the objects that own it.
volatile std::sig_atomic_t g_interruption = 0;
volatile pid_t g_collector = 0;

void Interrupt(int signal)
{
    g_interruption = signal;
    if (g_collector > 0) {
        kill(-g_collector, SIGKILL);
        kill(g_collector, SIGKILL);
    }
}

int Fail(const std::string& message)
{
    std::fprintf(stderr, "crash-dump-sim: %s\n", message.c_str());
    return kUsageStatus;
}

int List(const sim::Installation& installation)
{
    for (const sim::ScenarioListing& listing : sim::ListScenarios(installation.scenarios))
        fmt::print("{:<24} {}\n", listing.name, listing.description);
    return 0;
}

int Run(const sim::Options& options, const sim::Installation& installation)
{
    if (geteuid() != 0)
        return Fail("running a scenario needs root (a mount namespace and a chroot)");
    if (!options.collector.empty() && access(options.collector.c_str(), X_OK) != 0)
        return Fail(options.collector + ": not an executable collector");
    if (options.valgrind && access(sim::DeviceRoot::kValgrind, X_OK) != 0)
        return Fail(std::string("--valgrind needs ") + sim::DeviceRoot::kValgrind);
    if (!options.keep.empty() && std::filesystem::exists(options.keep) && !std::filesystem::is_empty(options.keep))
        return Fail(options.keep + ": not empty; --keep needs a new or empty directory");

    const sim::Scenario scenario = sim::LoadScenario(sim::ScenarioPath(options.scenario, installation.scenarios));
    std::signal(SIGINT, Interrupt);
    std::signal(SIGTERM, Interrupt);
    sim::DeviceRoot device(installation, options.keep);
    if (!options.collector.empty())
        device.SetProgram(std::filesystem::absolute(options.collector).string());
    if (options.valgrind)
        device.CheckWithValgrind(false);
    sim::Apply(scenario, device);
    sim::ShowInputs(options.scenario, scenario, device);
    if (g_interruption != 0)
        return 128 + g_interruption;
    if (options.power_cuts)
        return sim::RunPowerCutAnalysis(device, std::cout);

    sim::DeviceRoot::Process collector = device.Start();
    g_collector = collector.Id();
    if (g_interruption != 0)
        collector.Kill(SIGKILL);
    const sim::RunResult result = collector.Wait(std::chrono::hours(1));
    g_collector = 0;
    device.KillRemainingProcesses();
    if (g_interruption != 0) {
        std::fprintf(stderr, "crash-dump-sim: interrupted\n");
        return 128 + g_interruption;
    }

    sim::ShowRun(result);
    sim::ShowOutputs(device);
    return result.signal != 0 ? 128 + result.signal : result.exit_status;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        const sim::Options options = sim::ParseCommandLine(std::vector<std::string>(argv + 1, argv + argc));
        switch (options.action) {
        case sim::Options::Action::kHelp:
            std::fputs(sim::kUsage, stdout);
            return 0;
        case sim::Options::Action::kMakeEnvironment:
            return sim::MakeEnvironmentImage(options);
        case sim::Options::Action::kMakeFit:
            return sim::MakeFitImage(options);
        case sim::Options::Action::kList:
            return List(sim::Installation::OfThisProgram());
        case sim::Options::Action::kRun:
            return Run(options, sim::Installation::OfThisProgram());
        }
    } catch (const sim::UsageError& error) {
        return Fail(std::string(error.what()) + " (crash-dump-sim --help)");
    } catch (const std::exception& error) {
        // The device could not be built, or shown: not the collector's doing.
        return Fail(error.what());
    }
    return 1;
}
