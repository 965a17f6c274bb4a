#include "command_line.h"

#include <cerrno>
#include <cstdlib>

namespace sim {

const char* const kUsage =
    "usage: crash-dump-sim [--collector PATH] [--keep DIR] [--valgrind | --power-cuts] SCENARIO\n"
    "       crash-dump-sim --list\n"
    "       crash-dump-sim make-env [--erase-size BYTES] KEY=VALUE... > flash/NAME.img\n"
    "       crash-dump-sim make-fit --version TEXT [--gzip] [--payload BYTES] > flash/NAME.img\n"
    "\n"
    "Runs the collector in a simulated device built from SCENARIO, a built-in\n"
    "scenario's name (--list shows them) or a scenario directory, and shows the\n"
    "device's inputs and what the collector did. Exits with the collector's status.\n"
    "\n"
    "  --collector PATH  run this collector binary instead of the installed one\n"
    "  --keep DIR        build the device root in DIR (new or empty) and leave it there\n"
    "  --valgrind        run the collector under valgrind and show its findings\n"
    "  --power-cuts      record the run and report every point where a power cut could\n"
    "                    leave the ready marker beside an incomplete or mixed dump\n";

namespace {

using Arguments = std::vector<std::string>;

// The value that follows the option at i; i moves on to it.
const std::string& ValueOf(const Arguments& arguments, size_t& i)
{
    if (++i == arguments.size())
        throw UsageError(arguments[i - 1] + " needs a value");
    return arguments[i];
}

size_t ParseByteCount(const std::string& option, const std::string& text)
{
    char* end = nullptr;
    errno = 0;
    const unsigned long long value = std::strtoull(text.c_str(), &end, 0);
    if (text.empty() || text[0] == '-' || errno != 0 || *end != '\0' || value == 0 || value > 0x40000000)
        throw UsageError(option + " takes a byte count from 1 to 1 GiB, not '" + text + "'");
    return static_cast<size_t>(value);
}

void ParseMakeEnvironment(const Arguments& arguments, Options& options)
{
    for (size_t i = 1; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (argument == "--erase-size") {
            options.erase_size = static_cast<uint32_t>(ParseByteCount(argument, ValueOf(arguments, i)));
            continue;
        }
        const size_t equals = argument.find('=');
        if (equals == std::string::npos || equals == 0)
            throw UsageError("make-env takes KEY=VALUE, not '" + argument + "'");
        options.variables.emplace_back(argument.substr(0, equals), argument.substr(equals + 1));
    }
}

void ParseMakeFit(const Arguments& arguments, Options& options)
{
    for (size_t i = 1; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (argument == "--version")
            options.version = ValueOf(arguments, i);
        else if (argument == "--gzip")
            options.gzip = true;
        else if (argument == "--payload")
            options.payload = ParseByteCount(argument, ValueOf(arguments, i));
        else
            throw UsageError("make-fit does not take '" + argument + "'");
    }
    if (options.version.empty())
        throw UsageError("make-fit needs --version TEXT");
}

void ParseRun(const Arguments& arguments, Options& options)
{
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (argument == "--list")
            options.action = Options::Action::kList;
        else if (argument == "--help" || argument == "-h")
            options.action = Options::Action::kHelp;
        else if (argument == "--collector")
            options.collector = ValueOf(arguments, i);
        else if (argument == "--keep")
            options.keep = ValueOf(arguments, i);
        else if (argument == "--valgrind")
            options.valgrind = true;
        else if (argument == "--power-cuts")
            options.power_cuts = true;
        else if (argument.size() > 1 && argument[0] == '-')
            throw UsageError("unknown option '" + argument + "'");
        else if (!options.scenario.empty())
            throw UsageError("one scenario at a time, not '" + options.scenario + "' and '" + argument + "'");
        else
            options.scenario = argument;
    }
    if (options.valgrind && options.power_cuts)
        throw UsageError("--valgrind and --power-cuts each run the collector their own way; choose one");
    if (options.action == Options::Action::kRun && options.scenario.empty())
        throw UsageError("which scenario? (crash-dump-sim --list shows the built-in ones)");
}

} // namespace

Options ParseCommandLine(const std::vector<std::string>& arguments)
{
    Options options;
    if (!arguments.empty() && arguments.front() == "make-env") {
        options.action = Options::Action::kMakeEnvironment;
        ParseMakeEnvironment(arguments, options);
    } else if (!arguments.empty() && arguments.front() == "make-fit") {
        options.action = Options::Action::kMakeFit;
        ParseMakeFit(arguments, options);
    } else {
        ParseRun(arguments, options);
    }
    return options;
}

} // namespace sim
