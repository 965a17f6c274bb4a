#!/bin/bash
# Builds the device image that boots systemd on the emulated board: a Debian
# armhf root made from Debian's packages, and the tiny initramfs that mounts it
# from the SD card (Debian's armmp kernel has the card's host driver and ext4
# as modules).
#
# Usage: build-image.sh [--print-dir]
#   --print-dir  print the image's cache directory on stdout when done
#
# Produces, under $CRASH_DUMP_TARGET_CACHE/image/<key> (default
# /var/cache/crash-dump-target/...), keyed by the package list and the board's
# kernel:
#   root.tar     the root file system (mmdebstrap, main archive only; the
#                maintainer scripts run under qemu-user through binfmt_misc),
#                a link to image/root-<key of the package list>.tar
#   modules/     the board's modules for the root (usr/lib/modules, as the
#                merged /usr has them): nandsim, UBI, UBIFS, the SD card and
#                ext4, cmdlinepart and the case module, depmod'ed
#   initrd.cpio.gz  busybox, the SD and ext4 modules, and init-sd as /init
# Idempotent: a finished image is left alone.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/lib/common.sh"

case ${1:-} in
"") print= ;;
--print-dir) print=1 ;;
*) die "usage: $0 [--print-dir]" ;;
esac

# Bump when the way the image is built changes, to force a rebuild.
LAYOUT=1
# systemd and what the dump script runs (sh, tar, bzip2, dmesg), the
# collector's shared libraries, and mtd-utils to write the flash images.
PACKAGES=(systemd systemd-sysv udev dbus kmod bzip2 tar util-linux mtd-utils
    libboost-iostreams1.74.0 libboost-filesystem1.74.0 libfmt9 libcap2 zlib1g)
# The SD card's host driver and ext4; crc32c_generic is only a soft
# dependency of ext4, which cannot mount without it.
SD_MODULES=(sdhci-esdhc-imx crc32c_generic ext4)

# e2fsprogs and fdisk for lib/image.sh, which lays the image out on the card.
host_require mmdebstrap arch-test qemu-user-static e2fsprogs fdisk cpio kmod
"$here/build-board.sh" >&2
BOARD=$TARGET_CACHE/board
kver=$(cat "$BOARD/kernel.version")
cmdlinepart=$("$here/build-cmdlinepart.sh" --print-module)
casemodule=$("$here/build-case-module.sh" --print-module)
# The root is keyed by its packages alone: a change of the board's modules or
# of init-sd rebuilds only the small part beside it.
root_key=$({ echo "layout=$LAYOUT"; printf '%s\n' "${PACKAGES[@]}"; } | sha256sum | cut -c1-16)
ROOT_TAR=$TARGET_CACHE/image/root-$root_key.tar
key=$({ echo "$root_key"; printf '%s\n' "${SD_MODULES[@]}"; sha256sum "$BOARD/zImage" \
    "$cmdlinepart" "$casemodule" "$here/image/init-sd"; } | sha256sum | cut -c1-16)
OUT=$TARGET_CACHE/image/$key
if [ -f "$ROOT_TAR" ] && [ -f "$OUT/initrd.cpio.gz" ] && [ -d "$OUT/modules" ]; then
    log "image up to date: $OUT"
    [ -n "$print" ] && echo "$OUT"
    exit 0
fi

scratch_beside "$OUT"
if [ ! -f "$ROOT_TAR" ]; then
    # Maintainer scripts are armhf programs: the kernel hands them to qemu-arm.
    [ -f /proc/sys/fs/binfmt_misc/register ] || mount -t binfmt_misc binfmt_misc /proc/sys/fs/binfmt_misc
    [ -e /proc/sys/fs/binfmt_misc/qemu-arm ] || cat /usr/lib/binfmt.d/qemu-arm.conf >/proc/sys/fs/binfmt_misc/register
    mirror=$(sed -n 's/^URIs: *\(.*\/debian\)$/\1/p' /etc/apt/sources.list.d/debian.sources 2>/dev/null | head -n1)
    log "root file system: ${PACKAGES[*]}"
    mmdebstrap --arch=armhf --variant=minbase --mode=root --include="$(IFS=,; echo "${PACKAGES[*]}")" \
        --dpkgopt='path-exclude=/usr/share/man/*' --dpkgopt='path-exclude=/usr/share/locale/*' \
        --dpkgopt='path-exclude=/usr/share/doc/*' --dpkgopt='path-exclude=/usr/share/info/*' \
        bookworm "$tmp/root.tar" "${mirror:-http://deb.debian.org/debian}" >&2 || die "mmdebstrap failed"
    mv "$tmp/root.tar" "$ROOT_TAR"
fi

# The kernel's modules: the board's own, plus the SD card's and ext4 from the
# kernel's package.
deb=$(ls "$TARGET_CACHE/debs/linux-image-${kver}_"*_armhf.deb | head -n1)
dpkg-deb -x "$deb" "$tmp/kernel"
depmod -b "$tmp/kernel" "$kver"
mods=$tmp/modules/usr/lib/modules/$kver
mkdir -p "$mods/extra"
cp -a "$BOARD/base/lib/modules/$kver/kernel" "$mods/"
cp "$tmp/kernel/lib/modules/$kver/modules.order" "$tmp/kernel/lib/modules/$kver/modules.builtin"* "$mods/"
sd=$(modprobe -d "$tmp/kernel" -S "$kver" --show-depends -a "${SD_MODULES[@]}" | awk '$1 == "insmod" { print $2 }')
for m in $sd; do install -D -m 644 "$m" "$mods/${m#"$tmp/kernel/lib/modules/$kver/"}"; done
install -m 644 "$cmdlinepart" "$casemodule" "$mods/extra/"
depmod -b "$tmp/modules/usr" "$kver"

# The initramfs: busybox, the SD modules in load order, and /init.
initrd=$tmp/initrd
mkdir -p "$initrd/lib/modules" "$initrd/dev" "$initrd/proc" "$initrd/sys" "$initrd/root"
cp -a "$BOARD/base/bin" "$BOARD/base/sbin" "$initrd/"
for m in $sd; do cp "$m" "$initrd/lib/modules/"; done
printf '%s\n' $sd | sed 's|.*/||' >"$initrd/lib/modules/order"
install -m 755 "$here/image/init-sd" "$initrd/init"
(cd "$initrd" && find . -mindepth 1 | LC_ALL=C sort | cpio -o -H newc -R 0:0 --quiet) | gzip -6 >"$tmp/initrd.cpio.gz"

mkdir -p "$tmp/out"
mv "$tmp/modules" "$tmp/initrd.cpio.gz" "$tmp/out/"
ln -s "../${ROOT_TAR##*/}" "$tmp/out/root.tar"
rm -rf "$OUT"
mv "$tmp/out" "$OUT"
log "image ready: $OUT"
[ -n "$print" ] && echo "$OUT"
exit 0
