#!/bin/bash
# Builds the kernel's command-line partition parser, cmdlinepart, as a module
# for the emulated board's kernel. Debian's armmp kernel leaves the parser
# out, so mtdparts= on its command line would name nothing. The module is
# built out of tree from the linux-source package of the very version of the
# board's kernel, against that version's headers and kbuild, with the armhf
# cross compiler, and loads into the kernel like one of its own.
#
# Usage: build-cmdlinepart.sh [--print-module]
#   --print-module  print the module's path on stdout when done
#
# Produces $CRASH_DUMP_TARGET_CACHE/cmdlinepart/<kernel release>/cmdlinepart.ko
# (default /var/cache/crash-dump-target/...) for the board that
# build-board.sh prepared. Idempotent: a module built for the board's current
# kernel is left alone.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/lib/common.sh"

print=
for a in "$@"; do
    case $a in
    --print-module) print=1 ;;
    *) die "unknown argument: $a" ;;
    esac
done

# Bump when the way the module is built changes, to force a rebuild.
LAYOUT=1

BOARD=$TARGET_CACHE/board
[ -f "$BOARD/kernel.version" ] || die "no board in $BOARD: run build-board.sh"
kver=$(cat "$BOARD/kernel.version")
OUT=$TARGET_CACHE/cmdlinepart/$kver
MODULE=$OUT/cmdlinepart.ko
STAMP=$OUT/.crash-dump-module

# A kernel of the same release name but another Debian version (a refreshed
# board) gets its own build.
wanted="layout=$LAYOUT kernel=$(sha256sum <"$BOARD/zImage" | cut -d' ' -f1)"
if [ -f "$MODULE" ] && [ -f "$STAMP" ] && [ "$(head -n1 "$STAMP")" = "$wanted" ]; then
    log "cmdlinepart up to date: $MODULE"
    [ -n "$print" ] && echo "$MODULE"
    exit 0
fi

host_require make xz-utils kmod libelf1 libssl3 gcc-12-arm-linux-gnueabihf

# The Debian version of the board's kernel: that of the cached package whose
# kernel image the board boots.
kernel_package_version() {
    local deb
    for deb in "$TARGET_CACHE/debs/linux-image-${kver}_"*_armhf.deb; do
        [ -f "$deb" ] || continue
        if dpkg-deb --fsys-tarfile "$deb" | tar -xO "./boot/vmlinuz-$kver" | cmp -s - "$BOARD/zImage"; then
            dpkg-deb -f "$deb" Version
            return 0
        fi
    done
    return 1
}
version=$(kernel_package_version) ||
    die "the package of the board's kernel $kver is not in $TARGET_CACHE/debs: run build-board.sh --refresh"
series=$(cut -d. -f1,2 <<<"$kver") # 6.1.0-50-armmp: 6.1
log "cmdlinepart for kernel $kver ($version)"

# kbuild's helpers (fixdep, modpost) run on this machine: the host's package
# of the same version, unpacked beside the headers rather than installed.
host_fetch_deb() { # dir name=version
    local dir=$1 spec=$2 file
    mkdir -p "$dir"
    file=$(apt-get download --print-uris "$spec" 2>/dev/null | awk '{print $2}')
    if [ -z "$file" ]; then
        apt-get update -qq || log "apt-get update reported errors; trying anyway"
        file=$(apt-get download --print-uris "$spec" 2>/dev/null | awk '{print $2}')
    fi
    [ -n "$file" ] || die "the host's package sources offer no $spec"
    [ -s "$dir/$file" ] ||
        (cd "$dir" && apt-get -qq -o APT::Sandbox::User=root download "$spec") >&2 ||
        die "download of $spec failed"
    echo "$dir/$file"
}

target_apt_update
mapfile -t headers_debs < <(target_fetch_debs "$TARGET_CACHE/debs" \
    "linux-headers-$kver=$version" "linux-headers-${kver%-*}-common=$version")
[ ${#headers_debs[@]} -eq 2 ] || die "cannot fetch the headers of $kver $version"
source_deb=$(target_fetch_debs "$TARGET_CACHE/debs" "linux-source-$series=$version")
kbuild_deb=$(host_fetch_deb "$TARGET_CACHE/debs" "linux-kbuild-$series=$version")

tmp=$OUT.new.$$
rm -rf "$tmp"
mkdir -p "$tmp"
trap 'rm -rf "$tmp"' EXIT
tree=$tmp/tree
for d in "${headers_debs[@]}" "$kbuild_deb"; do dpkg-deb -x "$d" "$tree"; done
headers=$tree/usr/src/linux-headers-$kver
# The flavour's Makefile includes the common headers by their installed path.
sed -i "s|/usr/src/|$tree/usr/src/|" "$headers/Makefile"

src=$tmp/src
mkdir -p "$src"
dpkg-deb --fsys-tarfile "$source_deb" | tar -xO "./usr/src/linux-source-$series.tar.xz" |
    tar -xJO "linux-source-$series/drivers/mtd/parsers/cmdlinepart.c" >"$src/cmdlinepart.c"
[ -s "$src/cmdlinepart.c" ] || die "cmdlinepart.c missing from linux-source-$series $version"
echo 'obj-m := cmdlinepart.o' >"$src/Kbuild"
# The headers name the compiler the kernel was built with (gcc-12) without
# the cross prefix.
make -C "$headers" M="$src" ARCH=arm CROSS_COMPILE="$TARGET_TRIPLET-" -j2 modules >&2 ||
    die "building cmdlinepart failed"

# The kernel refuses a module whose version magic differs from its own; one
# of the board's own modules carries the kernel's.
reference=$(find "$BOARD/base/lib/modules/$kver" -name '*.ko' -print -quit)
[ -n "$reference" ] || die "no module of the board's kernel to compare with"
[ "$(modinfo -F vermagic "$src/cmdlinepart.ko")" = "$(modinfo -F vermagic "$reference")" ] ||
    die "cmdlinepart.ko does not match the board's kernel: $(modinfo -F vermagic "$src/cmdlinepart.ko")"

mkdir -p "$tmp/out"
# Debug sections are most of it and only fatten every boot image.
"$TARGET_TRIPLET-strip" --strip-debug -o "$tmp/out/cmdlinepart.ko" "$src/cmdlinepart.ko"
{ echo "$wanted"; printf '%s\n' "${headers_debs[@]##*/}" "${source_deb##*/}" "${kbuild_deb##*/}"; } \
    >"$tmp/out/.crash-dump-module"
rm -rf "$OUT.old"
[ -e "$OUT" ] && mv "$OUT" "$OUT.old"
mv "$tmp/out" "$OUT"
rm -rf "$OUT.old"
log "cmdlinepart ready: $MODULE"
[ -n "$print" ] && echo "$MODULE"
exit 0
