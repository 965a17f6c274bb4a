#!/usr/bin/env bash
# The no-dump path on the emulated i.MX6UL board: the collector as the device
# build makes it, its floor (bench/no_dump_floor.c) and /bin/true, each run
# RUNS times in turn inside the test root of a clean reset, timed in the
# guest (run_timing.c); medians and ratios. Run as root, after
# scripts/target/setup-armhf.sh and build-board.sh.
#
# Usage: bench/board/board_floor.sh [RUNS [COLLECTOR]]
#   COLLECTOR  another armhf build of the collector to time (default: the
#              device preset's, built here)
set -euo pipefail
cd "$(dirname "$0")/../.."
target=scripts/target
. "$target/lib/common.sh"
. "$target/tests/collector-cases.sh"

runs=${1:-200}
sysroot=$TARGET_CACHE/sysroot
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

collector=${2:-}
if [ -z "$collector" ]; then
    cmake --preset device >/dev/null
    cmake --build --preset device --target crash-dump >/dev/null
    collector=build/device/app/crash-dump
fi
# What the board's flash images are made with.
cmake --preset release >/dev/null
cmake --build --preset release --target crash-dump-sim >/dev/null

# The names collector-cases.sh prepares a case with.
COLLECTOR=$work/crash-dump
SIM=$PWD/build/release/sim/stage/bin/crash-dump-sim
"$TARGET_TRIPLET-strip" -o "$COLLECTOR" "$collector"

dir=$work/tree
prepare_clean_reset "$dir" >/dev/null
echo "$runs" >"$dir/case/runs"
# The floor as a C program on the device is built: the C library shared,
# zlib linked in as the collector has it.
mkdir -p "$dir/case/root/usr/bin" "$dir/usr/bin"
"$TARGET_TRIPLET-gcc-12" -O2 --sysroot="$sysroot" -o "$dir/case/root/usr/bin/no_dump_floor" \
    bench/no_dump_floor.c -Wl,-Bstatic -lz -Wl,-Bdynamic
"$TARGET_TRIPLET-gcc-12" -O2 -static -o "$dir/usr/bin/run_timing" bench/board/run_timing.c
copy_needed_libs "$dir/case/root" "$sysroot"
install -D -m 644 "$target/tests/case-root.sh" "$dir/usr/share/board/case-root.sh"
"$target/mk-initramfs.sh" "$work/floor.cpio" bench/board/floor.scenario "$dir" 2>/dev/null

echo "booting the board: $runs runs each" >&2
CRASH_DUMP_BOARD_APPEND=$(cat "$dir/case/kernel-cmdline") \
    "$target/run-board.sh" "$work/floor.cpio" "$(cat "$dir/case/reset-cause")" 1800 >"$work/console" ||
    { tail -n 40 "$work/console"; die "the board run failed"; }
tr -d '\r' <"$work/console" | sed -n 's/^@@timing //p' >"$work/timing"
# Every run of the floor and the collector takes the no-dump path (status 1).
awk '$1 == "/bin/true" && $3 != 0 || $1 != "/bin/true" && $3 != 1 { bad = 1 } END { exit bad || NR != 3 }' \
    "$work/timing" || { cat "$work/timing"; die "a program did not end as expected"; }
awk -v runs="$runs" '
    { name[NR] = $1; us[NR] = $2 }
    END {
        printf "No-dump path on the emulated board, %d runs each, interleaved:\n", runs
        for (i = 1; i <= NR; i++)
            printf "  %-24s median %8.2f ms  %5.2fx /bin/true  %5.2fx floor\n",
                name[i], us[i] / 1000, us[i] / us[1], us[i] / us[2]
    }' "$work/timing"
