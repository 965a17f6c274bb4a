#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "power_cut_analysis.h"
#include "sandbox_test.h"

namespace {

using ::testing::HasSubstr;

// The real collector, shell, tar and bzip2 under strace, on a device whose
// watchdog reset it after the player asserted.
class PowerCutAnalysisTest : public sandbox::SandboxTest {
protected:
    PowerCutAnalysisTest() : SandboxTest("watchdog-crash") {}

    int Analyse()
    {
        const int status = sim::RunPowerCutAnalysis(m_device, m_report);
        EXPECT_TRUE(m_device.Exists("/var/lib/lumora/crash-dump/crash-dump.ready")) << m_report.str();
        return status;
    }

    std::ostringstream m_report;
};

// No cut leaves the marker beside anything but one complete dump, and all
// three files are on storage for good when the collector exits: on a device
// whose output directory is empty, and on one where an earlier dump waits.
TEST_F(PowerCutAnalysisTest, EmptyOutputDirectory)
{
    EXPECT_EQ(Analyse(), 0) << m_report.str();
    EXPECT_THAT(m_report.str(), HasSubstr(" 0 violations\nhand-off durable at exit: yes\n"));
}

TEST_F(PowerCutAnalysisTest, EarlierDumpWaiting)
{
    m_device.WriteFile("/var/lib/lumora/crash-dump/crash-dump.tar.bz2", "BZh9 archive of an earlier crash");
    m_device.WriteFile("/var/lib/lumora/crash-dump/crash-dump.info", "reset=watchdog_reset\ntype=post-mortem\n");
    m_device.WriteFile("/var/lib/lumora/crash-dump/crash-dump.ready", "");

    EXPECT_EQ(Analyse(), 0) << m_report.str();
    EXPECT_THAT(m_report.str(), HasSubstr("(3 files there before, "));
    EXPECT_THAT(m_report.str(), HasSubstr(" 0 violations\nhand-off durable at exit: yes\n"));
}

} // namespace
