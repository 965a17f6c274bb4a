#!/usr/bin/env bash
# Builds the collector and the device simulator, runs the collector in a
# simulated device whose player has just crashed (the built-in scenario
# watchdog-crash), and shows the dump it produced. Run as root.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup-host.sh
cmake --preset release >/dev/null
cmake --build --preset release --target crash-dump-sim sim_scenarios
build/release/sim/stage/bin/crash-dump-sim watchdog-crash
