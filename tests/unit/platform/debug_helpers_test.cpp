#include <gtest/gtest.h>

#include "platform/debug_helpers.h"

namespace {

struct CommandLineCase {
    const char* command_line;
    bool debugging;
};

class DebugSwitchTest : public ::testing::TestWithParam<CommandLineCase> {};

TEST_P(DebugSwitchTest, ReadsTheKernelCommandLineSwitch)
{
    EXPECT_EQ(DebugHelpers::CommandLineEnablesDebugger(GetParam().command_line), GetParam().debugging)
        << GetParam().command_line;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DebugSwitchTest,
    ::testing::Values(CommandLineCase{"", false}, CommandLineCase{"console=ttymxc0 lm.debug", true},
                      CommandLineCase{"lm.debug=1 quiet", true}, CommandLineCase{"lm.debug=0", false},
                      CommandLineCase{"lm.debug=00", true}, CommandLineCase{"lm.debug=", true},
                      CommandLineCase{"\tlm.debug\n", false}, CommandLineCase{"quiet\tlm.debug", true},
                      CommandLineCase{"lm.debugger", false}, CommandLineCase{"xlm.debug", false}));

} // namespace
