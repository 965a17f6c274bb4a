// Collectors started at nearly the same moment, as a boot that starts the
// unit twice, or an operator next to it, would. The completion lock decides
// who goes first; whatever the timing, every run ends as a whole run does.

#include <gmock/gmock.h>
#include <gtest/gtest.h>


#include <chrono>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "device_files.h"
#include "device_root.h"
#include "sandbox_test.h"

namespace {

using namespace sandbox::device_files;
using ::testing::AnyOf;
using ::testing::Eq;
using ::testing::StartsWith;

constexpr const char* kCaught = "crash-dump caught exception";

// The last line of a run's standard error.
std::string FinalLine(const std::string& text)
{
    const size_t start = text.rfind('\n', text.size() < 2 ? 0 : text.size() - 2);
    return start == std::string::npos ? text : text.substr(start + 1);
}

class ConcurrentRunsTest : public sandbox::SandboxTest {};

TEST_F(ConcurrentRunsTest, EveryRunEndsWithAStatusAndItsFinalLine)
{
    constexpr int kRounds = 20;
    constexpr unsigned kSeed = 20240611;
    std::mt19937 random(kSeed);
    for (int round = 0; round < kRounds; ++round) {
        // Half the rounds have a dump to write, half have none.
        if (round % 2 == 0)
            Prepare("watchdog-crash");
        else
            Prepare("clean-boot");

        std::vector<sim::DeviceRoot::Process> runs;
        const size_t collectors = 2 + random() % 3;
        for (size_t i = 0; i < collectors; ++i) {
            runs.push_back(m_device.Start());
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 5000));
        }

        for (sim::DeviceRoot::Process& run : runs) {
            const sim::RunResult result = run.Wait(std::chrono::seconds(60));
            SCOPED_TRACE("round " + std::to_string(round) + " of seed " + std::to_string(kSeed) + ":\n"
                         + result.standard_error);
            ASSERT_EQ(result.signal, 0) << "killed: hung or crashed";
            const std::string final_line = FinalLine(result.standard_error);
            if (result.exit_status == 0) {
                EXPECT_EQ(final_line, kDump);
            } else {
                EXPECT_EQ(result.exit_status, 1);
                EXPECT_THAT(final_line, AnyOf(Eq(kNoDump), StartsWith(kCaught)));
            }
        }
    }
}

} // namespace
