#!/usr/bin/env bash
# The target stage: the armhf build's unit tests under qemu-user, its
# installation into a device image that boots systemd on the emulated i.MX6UL
# board, and the static collector's runs under power cuts on that board, each
# checked from here.
# Set-up is idempotent and cached under /var/cache/crash-dump-target; the
# first run downloads Debian's armhf packages. Run as root: the set-up
# installs host packages.
#
# Usage: scripts/target-tests.sh
set -uo pipefail
cd "$(dirname "$0")/.."
target=scripts/target
. "$target/lib/common.sh"
. "$target/tests/collector-cases.sh"
. "$target/tests/capture-replay.sh"
. "$target/lib/image.sh"
. "$target/tests/systemd-cases.sh"

started=$SECONDS
# Logs, consoles and results stay for a look after a failure.
logs=$PWD/build/target-tests
rm -rf "$logs"
mkdir -p "$logs"
work=$(mktemp -d)
# A failure ends the sweep's boot too, rather than leaving it running.
trap 'kill $(jobs -p) 2>/dev/null; rm -rf "$work"' EXIT

passed=0 failed=0
check() { # name command...
    local name=$1; shift
    if "$@" >"$logs/check.log" 2>&1; then
        passed=$((passed + 1)); echo "ok   $name"
    else
        failed=$((failed + 1)); echo "FAIL $name"
        sed 's/^/     /' "$logs/check.log"
    fi
}

# Runs a command quietly, showing its output only when it fails.
quiet() { # log command...
    local log=$1; shift
    "$@" >>"$log" 2>&1 && return 0
    tail -n 40 "$log" >&2
    return 1
}

echo "== target: set-up"
quiet "$logs/setup.log" "$target/setup-armhf.sh" || die "setup-armhf.sh failed"
quiet "$logs/board.log" "$target/build-board.sh" || die "build-board.sh failed"
# The device image's root takes minutes on a fresh machine (most of it
# Debian's maintainer scripts under qemu-user): it is made beside the builds.
quiet "$logs/image.log" "$target/build-image.sh" &
image_build=$!

echo "== target: static collector and flash images"
quiet "$logs/static.log" cmake --preset armhf-static || die "configuring armhf-static failed"
quiet "$logs/static.log" cmake --build --preset armhf-static -j2 --target crash-dump ||
    die "building the static collector failed"
COLLECTOR=$work/crash-dump
"$TARGET_TRIPLET-strip" -o "$COLLECTOR" build/armhf-static/app/crash-dump || die "strip failed"

# The flash images come from the same builders as the host's system tests.
quiet "$logs/release.log" cmake --preset release || die "configuring release failed"
quiet "$logs/release.log" cmake --build --preset release -j2 --target crash-dump-sim ||
    die "building crash-dump-sim failed"
SIM=$PWD/build/release/sim/stage/bin/crash-dump-sim

# Prepares the case NAME (collector-cases.sh) and boots it with
# tests/SCENARIO.scenario, giving up after TIMEOUT seconds; the console and
# run-board's status go to the logs.
boot_case() { # name scenario timeout
    local dir=$work/$1 cause cmdline
    mkdir -p "$dir/case"
    install -D -m 644 "$target/tests/case-root.sh" "$dir/usr/share/board/case-root.sh"
    prepare_"$1" "$dir" >"$logs/$1.prepare" 2>&1 &&
        "$target/mk-initramfs.sh" "$work/$1.cpio" "$target/tests/$2.scenario" "$dir" \
            >>"$logs/$1.prepare" 2>&1 || return
    cause=$(cat "$dir/case/reset-cause")
    cmdline=$(cat "$dir/case/kernel-cmdline" 2>/dev/null)
    rm -rf "$dir"
    CRASH_DUMP_BOARD_APPEND=$cmdline "$target/run-board.sh" "$work/$1.cpio" "$cause" "$3" \
        >"$logs/$1.console" 2>&1
    echo $? >"$logs/$1.rc"
    rm -f "$work/$1.cpio"
}

# The power-cut sweep is one long boot: it starts as soon as it can, ahead
# of the armhf build, and takes one core while everything else shares the
# other.
echo "== target: power cuts on the emulated board (in the background)"
boot_case "$POWER_CUT_CASE" power-cut 3600 &
sweep=$!

echo "== target: armhf build, unit tests under qemu-user"
quiet "$logs/armhf.log" cmake --preset armhf || die "configuring armhf failed"
quiet "$logs/armhf.log" cmake --build --preset armhf -j2 || die "building armhf failed"
"$TARGET_TRIPLET-strip" -o "$work/crash-dump.dynamic" build/armhf/app/crash-dump || die "strip failed"
echo "stripped sizes: dynamic $(stat -c %s "$work/crash-dump.dynamic") bytes," \
    "static $(stat -c %s "$COLLECTOR") bytes"
unit_tests_pass() {
    ctest --preset armhf -j2 >"$logs/ctest.log" 2>&1
    local rc=$?
    grep -E '\((Failed|Timeout|Not Run)\)' "$logs/ctest.log"
    [ $rc -eq 0 ] || echo "their output: $logs/ctest.log"
    return $rc
}
check "armhf unit tests under qemu-user" unit_tests_pass
grep -E 'tests passed|\(Skipped\)' "$logs/ctest.log" | sed 's/^/     /'

# A device image is staged with --prefix; nothing may land outside it, and
# what the unit names must be where it names it.
installs_into_device_image() {
    local image=$work/image
    cmake --install build/armhf --prefix "$image" || return 1
    local f missing=
    for f in sbin/crash-dump lib/systemd/system/crash-dump.service \
        lib/tmpfiles.d/crash-dump.conf share/doc/crash-dump/README.md; do
        [ -f "$image/$f" ] || { echo "missing: $f"; missing=1; }
    done
    [ -z "$missing" ] || return 1
    grep -v "^$image/" build/armhf/install_manifest.txt && { echo "installed outside the image"; return 1; }
    "$TARGET_TRIPLET-readelf" -h "$image/sbin/crash-dump" | grep -q 'Machine: *ARM$' ||
        { echo "sbin/crash-dump is no ARM program"; return 1; }
    local unit=$image/lib/systemd/system/crash-dump.service named
    for named in $(sed -n 's|^ExecStart=/usr/||p; s|^Documentation=file:///usr/||p' "$unit"); do
        [ -e "$image/$named" ] || { echo "the unit names /usr/$named, which is not installed"; return 1; }
    done
}
check "cmake --install stages sbin, the systemd unit and tmpfiles.d" installs_into_device_image

case_passes() { # name
    local results=$logs/$1.results mismatches
    if [ ! -f "$logs/$1.rc" ]; then
        echo "preparing the boot failed:"
        cat "$logs/$1.prepare"
        return 1
    fi
    tr -d '\r' <"$logs/$1.console" |
        sed -n '/^==== crash-dump results begin ====$/,/^==== crash-dump results end ====$/p' |
        grep '^@@' >"$results"
    if [ "$(cat "$logs/$1.rc")" != 0 ] || [ ! -s "$results" ]; then
        echo "the board run failed with status $(cat "$logs/$1.rc"); the console's end:"
        tail -n 40 "$logs/$1.console"
        return 1
    fi
    mismatches=$(check_"$1" "$results")
    [ -z "$mismatches" ] && return 0
    echo "$mismatches"
    return 1
}

# The boots of the device image share its card, one after the other, beside
# the sweep.
echo "== target: the device image boots systemd"
wait "$image_build" || die "build-image.sh failed"
if make_root_card "$work/card" >"$logs/root-card.log" 2>&1; then
    for name in "${SYSTEMD_BOOTS[@]}"; do boot_systemd "$name"; done
fi
for name in "${SYSTEMD_BOOTS[@]}"; do
    check "systemd: $name" case_passes "$name"
    [ -s "$logs/$name.results" ] && echo "     $(boot_summary "$name")"
done
check_capture_replay

wait "$sweep"
check "board: power cuts while the collector runs" case_passes "$POWER_CUT_CASE"
[ -s "$logs/$POWER_CUT_CASE.results" ] &&
    echo "     $(power_cut_summary "$logs/$POWER_CUT_CASE.results")," \
        "$(($(tagged "$logs/$POWER_CUT_CASE.results" elapsed_ms) / 1000)) s in the guest"

echo "target stage took $((SECONDS - started)) s"
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
