#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "power_cut_analysis.h"
#include "sandbox_test.h"
#include "scenarios.h"

namespace {

using ::testing::HasSubstr;

// The real collector, shell, tar and bzip2 under strace, on a device whose
// previous run crashed.
class PowerCutAnalysisTest : public sandbox::SandboxTest {
protected:
    PowerCutAnalysisTest() : SandboxTest(sandbox::PrepareCrashedDevice) {}

    int Analyse()
    {
        const int status = sim::RunPowerCutAnalysis(m_device, m_report);
        EXPECT_TRUE(m_device.Exists("/var/lib/lumora/crash-dump/crash-dump.ready")) << m_report.str();
        return status;
    }

    std::ostringstream m_report;
};

TEST_F(PowerCutAnalysisTest, TodaysOrderLeavesTheMarkerBesideAnIncompleteDump)
{
    EXPECT_EQ(Analyse(), 1) << m_report.str();
    EXPECT_THAT(m_report.str(), HasSubstr("hand-off durable at exit: no (crash-dump.ready: directory entry not durable"));
}

} // namespace
