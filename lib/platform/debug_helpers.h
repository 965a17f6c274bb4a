#pragma once

#include <string_view>

namespace DebugHelpers {

// True when the kernel command line carries the "lm.debug" switch. Read once
// per process; later calls return the first answer.
bool IsDebuggerEnabled();

// The rule behind IsDebuggerEnabled, over a given command line: "lm.debug"
// alone or with any value but "0" switches debugging on.
bool CommandLineEnablesDebugger(std::string_view command_line);

} // namespace DebugHelpers
