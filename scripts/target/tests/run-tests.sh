#!/bin/bash
# Tests of the target scripts. The host checks take seconds; the board checks
# boot the emulated board three times (about half a minute).
#
# Usage: run-tests.sh [--host-only]
set -uo pipefail
tests=$(cd "$(dirname "$0")" && pwd)
target=$(dirname "$tests")
. "$target/lib/common.sh"

host_only=
[ "${1:-}" = "--host-only" ] && host_only=1

passed=0 failed=0
check() {
    local name=$1; shift
    if "$@"; then
        passed=$((passed + 1)); echo "ok   $name"
    else
        failed=$((failed + 1)); echo "FAIL $name"
    fi
}

"$target/setup-armhf.sh" >/dev/null || { echo "setup-armhf.sh failed"; exit 1; }
sysroot=$TARGET_CACHE/sysroot
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cc() { "$TARGET_TRIPLET-gcc-12" --sysroot="$sysroot" -O2 "$@"; }

# --- host side -------------------------------------------------------------

symlinks_become_relative() {
    local t=$work/links
    mkdir -p "$t/lib" "$t/usr/lib"
    echo so >"$t/lib/libz.so.1"
    ln -s /lib/libz.so.1 "$t/usr/lib/libz.so"
    ln -s /lib/gone.so.1 "$t/usr/lib/gone.so"
    ln -s libz.so "$t/usr/lib/libz-alias.so"
    fix_absolute_symlinks "$t"
    [ "$(readlink "$t/usr/lib/libz.so")" = ../../lib/libz.so.1 ] &&
        [ "$(cat "$t/usr/lib/libz.so")" = so ] &&
        [ "$(readlink "$t/usr/lib/gone.so")" = ../../lib/gone.so.1 ] &&
        [ "$(readlink "$t/usr/lib/libz-alias.so")" = libz.so ]
}
check "absolute symlinks in unpacked debs are made relative" symlinks_become_relative

mkdir -p "$work/bin"
cc -Wall -o "$work/bin/mem-window" "$tests/mem-window.c" || exit 1

dynamic_program_gets_its_libraries() {
    local t=$work/dyn
    mkdir -p "$t/usr/bin"
    cp "$work/bin/mem-window" "$t/usr/bin/"
    copy_needed_libs "$t" "$sysroot"
    [ -f "$t/lib/$TARGET_TRIPLET/libc.so.6" ] &&
        [ -f "$t/lib/$TARGET_TRIPLET/ld-linux-armhf.so.3" ] &&
        [ -f "$t/lib/ld-linux-armhf.so.3" ] &&
        grep -q usage <<<"$(qemu-arm -L "$t" "$t/usr/bin/mem-window" 2>&1)"
}
check "a dynamic program gets libc and the loader, and runs from them" dynamic_program_gets_its_libraries

static_program_needs_nothing() {
    local t=$work/static
    mkdir -p "$t/usr/bin"
    cc -static -o "$t/usr/bin/mem-window" "$tests/mem-window.c"
    copy_needed_libs "$t" "$sysroot"
    [ -z "$(ls -A "$t/lib/$TARGET_TRIPLET")" ] && [ ! -e "$t/lib/ld-linux-armhf.so.3" ]
}
check "a static program pulls in no libraries" static_program_needs_nothing

missing_library_is_named() {
    local t=$work/missing out
    mkdir -p "$t/usr/bin" "$work/stub"
    echo 'int stub(void) { return 1; }' >"$work/stub/stub.c"
    cc -shared -fPIC -o "$work/stub/libnotinsysroot.so" "$work/stub/stub.c"
    echo 'int stub(void); int main(void) { return stub(); }' >"$work/stub/main.c"
    cc -o "$t/usr/bin/prog" "$work/stub/main.c" -L"$work/stub" -lnotinsysroot
    out=$( (copy_needed_libs "$t" "$sysroot") 2>&1) && return 1
    grep -q 'usr/bin/prog needs libnotinsysroot.so' <<<"$out"
}
check "a library missing from the sysroot is reported with its user" missing_library_is_named

rejects() { "$target/run-board.sh" "$@" >/dev/null 2>&1; [ $? -eq 2 ]; }
touch "$work/empty.cpio"
check "run-board rejects a reset cause that is not a number" rejects "$work/empty.cpio" reset
check "run-board rejects a reset cause beyond 32 bits" rejects "$work/empty.cpio" 4294967296
check "run-board rejects a missing initramfs" rejects "$work/nothing.cpio" 0

prepared_sysroot_is_left_alone() {
    local before after out
    before=$(stat -c %Y "$sysroot")
    out=$("$target/setup-armhf.sh" 2>&1) || return 1
    after=$(stat -c %Y "$sysroot")
    [ "$before" = "$after" ] && grep -q 'up to date' <<<"$out"
}
check "setup-armhf.sh leaves a prepared sysroot alone" prepared_sysroot_is_left_alone

# --- on the emulated board -------------------------------------------------

boot() { # expected-status reset-cause timeout scenario [extra]...
    local want=$1 cause=$2 limit=$3 scenario=$4 got; shift 4
    "$target/mk-initramfs.sh" "$work/board.cpio" "$scenario" "$@" 2>/dev/null || return 1
    "$target/run-board.sh" "$work/board.cpio" "$cause" "$limit" >"$work/console" 2>&1
    got=$?
    [ "$got" -eq "$want" ] || { echo "status $got, wanted $want:"; tail -n 30 "$work/console"; return 1; }
}

if [ -z "$host_only" ]; then
    "$target/build-board.sh" >/dev/null 2>&1 || { echo "build-board.sh failed"; exit 1; }
    mkdir -p "$work/extra/usr/bin"
    cp "$work/bin/mem-window" "$work/extra/usr/bin/"
    CRASH_DUMP_BOARD_APPEND="EXPECT_RESET_CAUSE=2852126720 mtdparts=\"NAND 128MiB 1,8V 8-bit:1m(flash0.nvram)ro,2m(flash0.rescue),-@0(board.flash)\"" \
        check "board: flash, device tree, registers and NAND tools behave" \
        boot 0 0xaa000000 240 "$tests/board-smoke.scenario" "$work/extra"

    printf '#!/bin/sh\nexit 7\n' >"$work/exit7"
    check "board: the scenario's exit status becomes run-board's" boot 7 0 240 "$work/exit7"

    printf '#!/bin/sh\nsleep 600\n' >"$work/hang"
    check "board: a hanging scenario ends at the timeout" boot 124 0 12 "$work/hang"
fi

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
