#pragma once

#include <string>

#include "device_root.h"
#include "scenario.h"

namespace sim {

// What crash-dump-sim shows on standard output, in the order of a run.

// The device's inputs in brief: reset causes, the previous run's evidence,
// the partitions with their sizes and bad blocks, the SoC's registers.
void ShowInputs(const std::string& name, const Scenario& scenario, const DeviceRoot& device);

// The collector's standard error, how it ended, its time and peak memory, and
// the memory checker's log when it ran under one.
void ShowRun(const RunResult& result);

// What the run left in the output directory: the files, the archive's members
// and the info file.
void ShowOutputs(const DeviceRoot& device);

} // namespace sim
