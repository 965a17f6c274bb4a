#pragma once

#include <string>

namespace sim {

// Where the simulator finds what it runs: the collector, the fake MTD driver
// that it preloads into the device's programs, and the built-in scenarios.
// An installation keeps them at fixed places under one prefix; a build tree
// stages the same layout, so that both run alike.
struct Installation {
    std::string collector;
    std::string mtd_driver;
    std::string scenarios;

    static Installation Under(const std::string& prefix);
    // The installation that the running program belongs to, found from its
    // own path (<prefix>/bin/crash-dump-sim).
    static Installation OfThisProgram();
};

} // namespace sim
