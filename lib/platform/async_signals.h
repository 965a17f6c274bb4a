#pragma once

namespace tessel {

constexpr int kBlockSignals = 0;
constexpr int kUnblockSignals = 1;

// Blocks (how = 0) or unblocks (how = 1) the signals that the platform's
// dispatcher thread handles synchronously: SIGTERM, SIGINT (unless debugging),
// SIGHUP, SIGCHLD and two real-time signals. Blocking must happen before any
// other thread starts, so that every thread inherits the mask; a spawned child
// unblocks them again before it executes a new program.
void ConfigureSignals(int how);

} // namespace tessel
