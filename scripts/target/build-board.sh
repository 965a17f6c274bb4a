#!/bin/bash
# Prepares the emulated board that the system tests boot: QEMU's i.MX6UL EVK
# running Debian's armmp kernel from an initramfs.
#
# Usage: build-board.sh [--refresh]
#
# Produces, under $CRASH_DUMP_TARGET_CACHE/board (default
# /var/cache/crash-dump-target/board):
#   zImage        the kernel
#   board.dtb     the EVK device tree with the boot loader's /lumora/bootloader
#                 node; run-board.sh sets imx-reset-cause per boot
#   base/         the initramfs every scenario starts from: busybox, nandsim,
#                 ubi, ubifs with its compressors, and what they depend on
#                 (depmod'ed), mtd-utils' NAND and UBI tools with their
#                 libraries (mk-initramfs.sh adds /init and the scenario)
#   kernel.version
# and then has build-cmdlinepart.sh build the kernel's command-line partition
# parser for that kernel (cached on its own, beside the board).
# Idempotent: a finished board is left alone unless --refresh is given, which
# also picks up a newer kernel ABI from Debian.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/lib/common.sh"

refresh=
for a in "$@"; do
    case $a in
    --refresh) refresh=1 ;;
    *) die "unknown argument: $a" ;;
    esac
done

BOARD=$TARGET_CACHE/board
STAMP=$BOARD/.crash-dump-board
# Bump when the board's content changes, to force a rebuild.
LAYOUT=2
# UBIFS does not load without its zlib and zstd compressors, which nothing
# would load for it.
MODULES=(nandsim ubi ubifs deflate zstd)
# busybox has no UBI applets but ubirename.
MTD_TOOLS=(nandwrite nanddump flash_erase mtdinfo mtd_debug nandtest nandflipbits flashcp
    ubiattach ubidetach ubimkvol)
DTB_NAME=imx6ul-14x14-evk.dtb

host_require qemu-system-arm device-tree-compiler cpio kmod gzip
sysroot=$("$here/setup-armhf.sh" --print-sysroot)

if [ -z "$refresh" ] && [ -f "$STAMP" ] && [ "$(cat "$STAMP")" = "layout=$LAYOUT" ] &&
    [ -f "$BOARD/zImage" ] && [ -f "$BOARD/board.dtb" ] && [ -x "$BOARD/base/bin/busybox" ]; then
    log "board up to date: $BOARD ($(cat "$BOARD/kernel.version"))"
    exec "$here/build-cmdlinepart.sh"
fi

target_apt_update "$refresh"
kpkg=${CRASH_DUMP_KERNEL_PACKAGE:-$(target_apt_cache depends linux-image-armmp |
    sed -n 's/^ *Depends: \(linux-image-[0-9.]*-[0-9]*-armmp\)$/\1/p' | head -n1)}
[ -n "$kpkg" ] || die "cannot tell which kernel linux-image-armmp stands for"
kver=${kpkg#linux-image-}
log "kernel $kver"

mapfile -t debs < <(target_fetch_debs "$TARGET_CACHE/debs" "$kpkg" busybox-static mtd-utils)

scratch_beside "$BOARD"
unpacked=$tmp/unpacked
for d in "${debs[@]}"; do dpkg-deb -x "$d" "$unpacked"; done

# The package ships without modules.dep; its postinst would have made it.
depmod -b "$unpacked" "$kver"

cp "$unpacked/boot/vmlinuz-$kver" "$tmp/zImage"
echo "$kver" >"$tmp/kernel.version"

dtb=$unpacked/usr/lib/linux-image-$kver/$DTB_NAME
[ -f "$dtb" ] || die "$DTB_NAME missing from $kpkg"
cp "$dtb" "$tmp/board.dtb"
fdtput -p -t u "$tmp/board.dtb" /lumora/bootloader imx-reset-cause 0

base=$tmp/base
mkdir -p "$base"/{bin,sbin,usr/bin,usr/sbin,proc,sys,dev,tmp,run,etc,root,scenario,usr/share/board}
# PID 1 needs a console before devtmpfs is mounted.
mknod -m 600 "$base/dev/console" c 5 1
mknod -m 666 "$base/dev/null" c 1 3

cp "$unpacked/bin/busybox" "$base/bin/busybox"
# busybox-static runs under qemu-user as is; ask it for its own applet list.
qemu-arm "$base/bin/busybox" --list-full | while read -r applet; do
    [ -e "$base/$applet" ] || ln -s /bin/busybox "$base/$applet"
done

for t in "${MTD_TOOLS[@]}"; do cp "$unpacked/usr/sbin/$t" "$base/usr/sbin/$t"; done
copy_needed_libs "$base" "$sysroot"

# Only the modules the scenarios load, with their dependencies; modprobe
# needs a modules.dep that matches the subset.
moddir=lib/modules/$kver
mkdir -p "$base/$moddir"
cp "$unpacked/$moddir"/modules.{order,builtin,builtin.modinfo} "$base/$moddir/"
for m in "${MODULES[@]}"; do
    modprobe -d "$unpacked" -S "$kver" --show-depends "$m" | awk '$1 == "insmod" { print $2 }'
done | sort -u | while read -r ko; do
    rel=${ko#"$unpacked"/}
    mkdir -p "$base/$(dirname "$rel")"
    cp "$ko" "$base/$rel"
done
depmod -b "$base" "$kver"

rm -rf "$unpacked"
echo "layout=$LAYOUT" >"$tmp/.crash-dump-board"
rm -rf "$BOARD.old"
[ -e "$BOARD" ] && mv "$BOARD" "$BOARD.old"
mv "$tmp" "$BOARD"
rm -rf "$BOARD.old"
trap - EXIT
log "board ready: $BOARD"
exec "$here/build-cmdlinepart.sh"
