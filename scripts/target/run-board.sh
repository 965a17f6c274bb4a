#!/bin/bash
# Boots the emulated board headless with an initramfs from mk-initramfs.sh
# and copies its serial console to stdout.
#
# Usage: run-board.sh <initramfs> <reset-cause-u32> [timeout-seconds]
#
#   reset-cause-u32  value of /lumora/bootloader/imx-reset-cause in the
#                    device tree for this boot (decimal or 0x-hex)
#   timeout-seconds  default 240; QEMU is killed after that
#
# Exit status: the scenario's own, 124 on timeout, 125 when the board went
# down without reporting one (kernel panic, init crash), 2 on bad usage.
#
# Environment: CRASH_DUMP_BOARD_APPEND adds to the kernel command line,
# CRASH_DUMP_BOARD_MEM sets the RAM size (default 512M),
# CRASH_DUMP_BOARD_SD names a raw image for the SD card (/dev/mmcblk1; QEMU
# takes only sizes that are powers of two). It goes into the second slot: the
# first one's card-detect line is a GPIO that QEMU never raises.
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/lib/common.sh"

usage() { echo "usage: $0 <initramfs> <reset-cause-u32> [timeout-seconds]" >&2; exit 2; }
[ $# -ge 2 ] && [ $# -le 3 ] || usage
initramfs=$1 cause=$2 limit=${3:-240}
[ -f "$initramfs" ] || { echo "no such initramfs: $initramfs" >&2; exit 2; }
[[ $cause =~ ^(0[xX][0-9a-fA-F]{1,8}|[0-9]{1,10})$ ]] && [ $((cause)) -le 4294967295 ] ||
    { echo "reset cause must be a 32-bit number: $cause" >&2; exit 2; }
[[ $limit =~ ^[0-9]+$ ]] || usage

BOARD=$TARGET_CACHE/board
[ -f "$BOARD/zImage" ] || { echo "no board in $BOARD: run build-board.sh" >&2; exit 2; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp "$BOARD/board.dtb" "$work/board.dtb"
fdtput -t u "$work/board.dtb" /lumora/bootloader imx-reset-cause "$((cause))" || exit 2
# Seed the kernel's random pool the way a boot loader can: without a seed the
# first read of /dev/urandom waits about a second under emulation while the
# kernel gathers jitter entropy, which would end up in every measured run.
fdtput -t x "$work/board.dtb" /chosen rng-seed $(od -An -tx4 -N32 /dev/urandom) || exit 2

# iomem=relaxed: the kernel is built with IO_STRICT_DEVMEM, which keeps
# /dev/mem away from registers that a driver has claimed (the clock
# controller's among them). panic=-1 with -no-reboot turns a panic into QEMU
# exiting rather than hanging until the timeout.
append="console=ttymxc0,115200 iomem=relaxed panic=-1 ${CRASH_DUMP_BOARD_APPEND:-}"

cards=()
[ -z "${CRASH_DUMP_BOARD_SD:-}" ] || cards=(-drive "if=sd,index=1,format=raw,file=$CRASH_DUMP_BOARD_SD")

timeout -k 10 "$limit" qemu-system-arm -M mcimx6ul-evk -m "${CRASH_DUMP_BOARD_MEM:-512M}" \
    -nographic -monitor none -no-reboot \
    -kernel "$BOARD/zImage" -dtb "$work/board.dtb" -initrd "$initramfs" \
    -append "$append" "${cards[@]}" </dev/null | tee "$work/console"
rc=${PIPESTATUS[0]}
if [ "$rc" -eq 124 ] || [ "$rc" -eq 137 ]; then
    echo "run-board: timed out after $limit s" >&2
    exit 124
fi
status=$(tr -d '\r' <"$work/console" | sed -n 's/.*BOARD-EXIT: \([0-9]\{1,3\}\)$/\1/p' | tail -n1)
if [ -z "$status" ]; then
    echo "run-board: the board went down without a scenario status (QEMU exit $rc)" >&2
    exit 125
fi
exit "$status"
