#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "scenario.h"

namespace sim {

// A scenario directory that cannot be read as one; the message names the
// file and what is wrong with it.
class ScenarioError : public std::runtime_error {
public:
    ScenarioError(const std::string& path, const std::string& problem) : std::runtime_error(path + ": " + problem) {}
};

// Reads a scenario directory (its format: sim/README.md). Throws
// ScenarioError for a missing directory, an unknown entry or a malformed
// file.
Scenario LoadScenario(const std::string& directory);

// The built-in scenarios: one directory each under the given one.
struct ScenarioListing {
    std::string name;
    std::string description;
};
std::vector<ScenarioListing> ListScenarios(const std::string& built_in);

// The directory of a scenario argument: a built-in scenario's name, or else
// a path.
std::string ScenarioPath(const std::string& argument, const std::string& built_in);

} // namespace sim
