#pragma once

#include <ostream>

#include "device_root.h"
#include "power_cut_trace.h"

namespace sim {

// crash-dump-sim --power-cuts SCENARIO: call once the device is prepared
// (the scenario applied with Apply; an earlier dump, if the scenario's root/
// holds one, is already in /var/lib/lumora/crash-dump).
//
// Runs the collector once in the device under strace (the host's, through the
// device's /usr), recording what it, the shell, tar and bzip2 do to files.
// After each operation on the dump directory it looks at every state storage
// may hold if power failed right there, under the weak guarantees POSIX gives
// (sim/README.md, "Power cuts"), and writes to `out`:
// - one line per cut point at which some state has the ready marker beside an
//   archive and an info file that are not one complete dump, with an example;
// - one line "N cut points, V violations";
// - whether the marker, the archive and the info file are all durable when
//   the collector exits.
// Returns 0 when nothing was found and the hand-off is durable, 1 otherwise.
// The device keeps what the run left. Throws UnmodelledCall, naming the call,
// the process and the file, when a traced process changed the output
// directory in a way the storage model has no rule for; std::runtime_error
// when no trace could be taken (strace missing, not allowed to trace).
int RunPowerCutAnalysis(DeviceRoot& device, std::ostream& out);

} // namespace sim
