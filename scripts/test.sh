#!/usr/bin/env bash
# Builds everything and runs every test, one stage after the other; the first
# stage that fails stops the script. Run as root: the system tests run the
# collector in a mount namespace and chroot.
#
#   release     unit and system tests
#   plain       the build as a plain "cmake -S . -B DIR && cmake --build DIR"
#               makes it from scratch, with CMake's default generator
#   device      the device build as an image recipe makes it, in a clean root
#               with only the collector's libraries (scripts/device-build.sh)
#   memcheck    the system tests again, every run of the collector under
#               valgrind (errors, leaks and descriptors left open fail a run)
#   asan        unit and system tests built with AddressSanitizer and
#               UndefinedBehaviorSanitizer, the collector included
#   tsan        the tests labelled threads (see tests/CMakeLists.txt), built
#               with ThreadSanitizer
#   fuzz        each fuzz target for 20 seconds on its seed corpus
#   target      the armhf unit tests under qemu-user and the static collector
#               on the emulated i.MX6UL board (scripts/target-tests.sh)
#
# Arguments name the stages to run (for example "scripts/test.sh release
# asan"); without any, all of them run, in the order above.
set -euo pipefail
cd "$(dirname "$0")/.."

stages=("$@")
[ ${#stages[@]} -gt 0 ] || stages=(release plain device memcheck asan tsan fuzz target)

scripts/setup-host.sh

build() {
  cmake --preset "$1" >/dev/null
  cmake --build --preset "$1"
}

run_stage() {
  case "$1" in
    release)
      build release
      ctest --preset release -j2
      ;;
    plain)
      rm -rf build/plain
      cmake -S . -B build/plain >/dev/null
      cmake --build build/plain -j2 >/dev/null
      ;;
    device)
      scripts/device-build.sh
      ;;
    memcheck)
      build release
      CRASH_DUMP_SANDBOX_VALGRIND=1 ctest --preset release -L system -j2
      ;;
    asan)
      build debug-asan
      ctest --preset debug-asan -j2
      ;;
    tsan)
      build debug-tsan
      ctest --preset debug-tsan -L threads --no-tests=error -j2
      ;;
    fuzz)
      scripts/fuzz.sh 20
      ;;
    target)
      scripts/target-tests.sh
      ;;
    *)
      echo "unknown stage: $1" >&2
      exit 2
      ;;
  esac
}

for stage in "${stages[@]}"; do
  echo "== $stage"
  started=$SECONDS
  run_stage "$stage"
  echo "== $stage passed in $((SECONDS - started)) s"
done
