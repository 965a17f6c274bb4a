#!/usr/bin/env bash
# Builds everything and runs every test. Run as root: the system tests run the
# collector in a mount namespace and chroot.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup-host.sh

echo "== release build: unit and system tests"
cmake --preset release >/dev/null
cmake --build --preset release
ctest --preset release -j2

echo "== armhf: unit tests under qemu-user, the collector on the emulated board"
scripts/target-tests.sh
