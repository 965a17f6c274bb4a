#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <string>

#include "power_cut_analysis.h"
#include "sandbox_test.h"

namespace {

using ::testing::HasSubstr;

// The real collector, shell, tar and bzip2 under strace: no power cut at any
// point leaves the ready marker beside anything but one complete dump, and
// the hand-off is on storage for good when the collector exits. With an empty
// output directory, and with an earlier dump still waiting for its upload.
class PowerCutTest : public sandbox::SandboxTest, public ::testing::WithParamInterface<const char*> {
protected:
    void SetUp() override
    {
        // The memory checker and the tracer cannot both follow the collector.
        if (std::getenv(sandbox::kValgrindSwitch) != nullptr)
            GTEST_SKIP() << "traced runs are not checked for memory errors";
        SandboxTest::SetUp();
    }
};

TEST_P(PowerCutTest, MarkerNeverStandsBesideAnIncompleteDump)
{
    Prepare(GetParam());
    std::ostringstream report;

    EXPECT_EQ(sim::RunPowerCutAnalysis(m_device, report), 0) << report.str();
    EXPECT_THAT(report.str(), HasSubstr(" 0 violations\nhand-off durable at exit: yes\n"));
    EXPECT_TRUE(m_device.Exists("/var/lib/lumora/crash-dump/crash-dump.ready")) << report.str();
}

INSTANTIATE_TEST_SUITE_P(Scenarios, PowerCutTest, ::testing::Values("watchdog-crash", "earlier-dump-waiting"),
                         [](const ::testing::TestParamInfo<const char*>& info) {
                             return std::string(info.param) == "watchdog-crash" ? "EmptyOutputDirectory"
                                                                                 : "EarlierDumpWaiting";
                         });

} // namespace
