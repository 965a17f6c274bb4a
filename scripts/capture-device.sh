#!/bin/sh
# Captures this device's boot-time state as a scenario directory for
# crash-dump-sim (format: sim/README.md), so that the collector's run on it can
# be replayed on a host:
#
#   capture-device.sh DIR        (DIR: new or empty, ideally off the device)
#
# Runs on the device under busybox sh, as root. It only reads: the flash is
# dumped with nanddump, and the collector's lock and outputs are left alone.
# Copy DIR to a host and run "crash-dump-sim DIR" there.
set -eu

die() {
    echo "capture-device.sh: $*" >&2
    exit 1
}

[ $# -eq 1 ] || die "usage: capture-device.sh DIR"
out=$1
[ ! -e "$out" ] || [ -z "$(ls -A "$out")" ] || die "$out is not empty"
mkdir -p "$out/root" "$out/flash"
work=$out/.work
mkdir -p "$work"
trap 'rm -rf "$work"' EXIT

# A file of the device, byte for byte, into root/. cat rather than cp: files
# under /proc and /sys report a size of 0, and /dev/ltcore is a device node.
copy() { # path
    [ -e "$1" ] && [ ! -d "$1" ] || return 0
    mkdir -p "$out/root${1%/*}"
    cat "$1" >"$out/root$1" || echo "capture-device.sh: cannot read $1; left out" >&2
}

echo "Captured from $(cat /proc/sys/kernel/hostname) on $(date -u +%Y-%m-%dT%H:%MZ)" >"$out/description"

# What the previous run left behind, and who the device is.
for file in /dev/ltcore /dev/lastkmsg /proc/panic_flag /sys/class/mem/lastkmsg/trigger_dump \
    /proc/boardid /proc/cmdline /etc/lumora-version /etc/lumora-image-name /sys/class/net/wlan0/address; do
    copy "$file"
done
if [ -e /sys/class/ubi/ubi0/volumes_count ]; then
    copy /sys/class/ubi/ubi0/volumes_count
    for volume in /sys/class/ubi/ubi0/ubi0_*; do
        copy "$volume/name"
    done
fi

# The boot loader's reset-cause word: one big-endian cell in the device tree.
cause=/proc/device-tree/lumora/bootloader/imx-reset-cause
if [ -e "$cause" ]; then
    if [ "$(wc -c <"$cause")" -eq 4 ]; then
        echo "0x$(od -A n -t x1 "$cause" | tr -d ' \n')" >"$out/reset-causes"
    else
        echo "capture-device.sh: $cause is not one 32-bit cell; left out" >&2
    fi
fi

# The SoC's identification registers, read only when the board file names no
# SoC. devmem without a value only reads.
if command -v devmem >/dev/null 2>&1; then
    digprog=$(devmem 0x020C8260 32 2>/dev/null) && sbmr2=$(devmem 0x020D801C 32 2>/dev/null) &&
        echo "$digprog $sbmr2" >"$out/soc" ||
        echo "capture-device.sh: the SoC's registers cannot be read; left out" >&2
fi

# The good blocks, in order, as a flashing tool would write them back; the bad
# blocks are found by laying them against the dump that pads each bad block
# with 0xff. Where a bad block sits beside erased ones, the one marked bad may
# be a neighbour of the real one: the good blocks still read back in the same
# order, which is all a reader of the partition sees.
bad_blocks() { # padded skipped erase-size blocks
    good=$(($(wc -c <"$2") / $3))
    i=0
    j=0
    while [ "$i" -lt "$4" ]; do
        dd if="$1" of="$work/padded" bs="$3" skip="$i" count=1 2>/dev/null
        dd if="$2" of="$work/skipped" bs="$3" skip="$j" count=1 2>/dev/null
        if [ "$j" -lt "$good" ] && cmp -s "$work/padded" "$work/skipped"; then
            j=$((j + 1))
        else
            echo "$i"
        fi
        i=$((i + 1))
    done
}

capture_partition() { # name
    mtd=$(sed -n "s/^\(mtd[0-9]*\): .* \"$1\"\$/\1/p" /proc/mtd)
    [ -n "$mtd" ] || { echo "capture-device.sh: no partition $1 in /proc/mtd; left out" >&2; return 0; }
    sys=/sys/class/mtd/$mtd
    erase=$(cat "$sys/erasesize")
    [ -e "$out/flash/geometry" ] || echo "$erase $(cat "$sys/writesize") $(cat "$sys/oobsize")" >"$out/flash/geometry"
    blocks=$(($(cat "$sys/size") / erase))

    nanddump --bb=skipbad -f "$out/flash/$1.img" "/dev/$mtd" || die "nanddump of /dev/$mtd failed"
    nanddump --bb=padbad -f "$work/$1.padded" "/dev/$mtd" || die "nanddump of /dev/$mtd failed"
    bad_blocks "$work/$1.padded" "$out/flash/$1.img" "$erase" "$blocks" >"$work/$1.bad"
    rm -f "$work/$1.padded"
    [ ! -s "$work/$1.bad" ] || mv "$work/$1.bad" "$out/flash/$1.bad"
    # The kernel clears MTD_WRITEABLE (0x400) on a write-protected partition.
    [ $(($(cat "$sys/flags") & 0x400)) -ne 0 ] || : >"$out/flash/$1.ro"
}

capture_partition flash0.nvram
capture_partition flash0.rescue
echo "$out: a scenario for crash-dump-sim"
