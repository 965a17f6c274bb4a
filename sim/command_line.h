#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace sim {

// A command line that asks for nothing the simulator does; its message is the
// one line to show.
class UsageError : public std::invalid_argument {
public:
    using std::invalid_argument::invalid_argument;
};

struct Options {
    enum class Action { kRun, kList, kHelp, kMakeEnvironment, kMakeFit };
    Action action = Action::kRun;

    // Running a scenario.
    std::string scenario;  // a built-in name or a directory
    std::string collector; // another collector binary; empty: the installed one
    std::string keep;      // where to leave the device root; empty: removed
    bool valgrind = false;
    bool power_cuts = false; // the power-cut analysis instead of the plain run

    // make-env: the variables, in the order given, and the block they fill.
    std::vector<std::pair<std::string, std::string>> variables;
    uint32_t erase_size = 128 * 1024;

    // make-fit
    std::string version;
    bool gzip = false;
    size_t payload = 512 * 1024;
};

// Every option of every action is parsed here. Throws UsageError.
Options ParseCommandLine(const std::vector<std::string>& arguments);

extern const char* const kUsage;

} // namespace sim
