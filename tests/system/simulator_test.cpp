// The simulator's own promises: each built-in scenario ends as its description
// says, and a scenario directory that it cannot read stops it before anything
// runs.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "device_files.h"
#include "sandbox_test.h"
#include "scenario_directory.h"
#include "temp_directory.h"

namespace {

using namespace sandbox::device_files;
using ::testing::HasSubstr;

struct BuiltIn {
    const char* name;
    int status;
    const char* final_line;
};

const BuiltIn kBuiltIns[] = {
    {"clean-boot", 1, kNoDump},
    {"corrupt-environment", 0, kDump},
    {"dump-trigger", 0, kDump},
    {"earlier-dump-waiting", 0, kDump},
    {"gzip-rescue-bad-blocks", 0, kDump},
    {"kernel-panic", 0, kDump},
    {"unknown-silicon", 1, "crash-dump caught exception: Unexpected silicon type\n"},
    {"watchdog-crash", 0, kDump},
};

class BuiltInScenarioTest : public sandbox::SandboxTest, public ::testing::WithParamInterface<BuiltIn> {};

TEST_P(BuiltInScenarioTest, EndsWithItsStatusAndFinalLine)
{
    Prepare(GetParam().name);

    const sim::RunResult result = m_device.Run();

    EXPECT_EQ(result.exit_status, GetParam().status) << result.standard_error;
    const std::string& text = result.standard_error;
    const size_t final_line = text.rfind('\n', text.size() < 2 ? 0 : text.size() - 2);
    EXPECT_EQ(final_line == std::string::npos ? text : text.substr(final_line + 1), GetParam().final_line) << text;
}

std::string CaseName(const ::testing::TestParamInfo<BuiltIn>& built_in)
{
    std::string name = built_in.param.name;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Table, BuiltInScenarioTest, ::testing::ValuesIn(kBuiltIns), CaseName);

TEST(BuiltInScenarioListTest, EveryBuiltInScenarioHasARow)
{
    std::vector<std::string> listed;
    for (const sim::ScenarioListing& listing : sim::ListScenarios(sandbox::ThisBuild().scenarios)) {
        listed.push_back(listing.name);
        EXPECT_FALSE(listing.description.empty()) << listing.name;
    }
    std::vector<std::string> rows;
    for (const BuiltIn& built_in : kBuiltIns)
        rows.emplace_back(built_in.name);
    EXPECT_EQ(listed, rows);
}

// The command's exit status and standard error.
std::pair<int, std::string> RunSimulator(const std::string& scenario)
{
    const std::string command =
        std::string(CRASH_DUMP_SIM_STAGE) + "/bin/crash-dump-sim '" + scenario + "' 2>&1 >/dev/null";
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::string output;
    char buffer[4096];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, pipe.get())) > 0)
        output.append(buffer, n);
    const int status = pclose(pipe.release());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

TEST(ScenarioDirectoryTest, MalformedFileStopsTheRunNamingIt)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "the device simulator needs root";
    const struct {
        const char* file;
        const char* content;
    } cases[] = {
        {"reset-causes", "watchdog\n"},
        {"soc", "0x00650001\n"},
        {"flash/geometry", "131072 0 64\n"},
        {"flash/flash0.rescue.bad", "1\n"},
        {"reset_causes", "0x10\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        const test_support::TempDirectory scenario("scenario");
        std::filesystem::create_directories(scenario.Path() + "/flash");
        std::ofstream(scenario.Path() + "/" + c.file) << c.content;

        const auto [status, standard_error] = RunSimulator(scenario.Path());

        EXPECT_EQ(status, 2);
        EXPECT_THAT(standard_error, HasSubstr(scenario.Path() + "/" + c.file + ": "));
        EXPECT_EQ(std::count(standard_error.begin(), standard_error.end(), '\n'), 1) << standard_error;
    }
}

} // namespace
