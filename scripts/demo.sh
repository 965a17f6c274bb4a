#!/usr/bin/env bash
# Builds the collector and runs it in a simulated device that has just
# crashed, then shows the dump it produced. Run as root.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup-host.sh
cmake --preset release >/dev/null
cmake --build --preset release --target crash-dump crash-dump-demo
build/release/tests/sandbox/crash-dump-demo
