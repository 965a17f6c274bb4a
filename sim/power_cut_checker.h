#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "power_cut_model.h"
#include "power_cut_trace.h"

namespace sim {

// A cut point at which storage may hold the marker beside an archive and an
// info file that are not both the complete ones of one run.
struct Violation {
    size_t cut_point = 0;      // counted from 1
    std::string operation;     // "tar[4711] creat /var/lib/lumora/crash-dump/crash-dump.tar.bz2"
    std::string example;       // one such state
};

struct PowerCutReport {
    size_t cut_points = 0;     // operations that changed the dump directory or made anything durable
    std::vector<Violation> violations;
    bool handed_off = false;   // the run changed the directory at all
    // Why the marker, the final archive and the final info file are not all
    // durable when the run ends; empty when they are, or when nothing was handed off.
    std::vector<std::string> not_durable_at_exit;

    bool Clean() const { return violations.empty() && not_durable_at_exit.empty(); }
};

// Replays the operations, and after each one that concerns the collector's
// output directory, looks at every state storage may hold if power failed
// there. Whoever sees the ready marker takes the archive and the info file
// beside it as one complete dump: the content each had before the run (the
// earlier dump's) or the last content this run gave it.
PowerCutReport CheckPowerCuts(const std::vector<FileOperation>& operations,
                              const std::vector<PreexistingFile>& before);

} // namespace sim
