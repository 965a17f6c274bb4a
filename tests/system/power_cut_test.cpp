// The real collector, shell, tar and bzip2 under strace: no power cut at any point leaves the ready marker beside
// anything but one complete dump, and the hand-off is on storage for good when the collector exits. With an empty
// output directory, with an earlier dump still waiting for its upload, and with a core that its storage cannot take.

#include <regex>
#include <sstream>

#include "power_cut_analysis.h"
#include "sandbox_test.h"

namespace {

class PowerCutTest : public sandbox::SandboxTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(PowerCutTest, MarkerNeverStandsBesideAnIncompleteDump)
{
    // The memory checker and the tracer cannot both follow the collector.
    if (std::getenv(sandbox::kValgrindSwitch) != nullptr)
        GTEST_SKIP() << "traced runs are not checked for memory errors";
    Prepare(GetParam());
    std::ostringstream report;

    EXPECT_EQ(sim::RunPowerCutAnalysis(m_device, report), 0) << report.str();
    EXPECT_THAT(report.str(), sandbox::HasSubstr(" 0 violations\nhand-off durable at exit: yes\n"));
    EXPECT_TRUE(m_device.Exists(sandbox::kReadyMarker)) << report.str();
}

INSTANTIATE_TEST_SUITE_P(Scenarios, PowerCutTest,
                         ::testing::Values("watchdog-crash", "earlier-dump-waiting", "core-does-not-fit"),
                         [](const auto& test) { return std::regex_replace(test.param, std::regex("-"), "_"); });

} // namespace
