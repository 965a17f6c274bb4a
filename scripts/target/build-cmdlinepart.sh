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
. "$here/lib/kbuild.sh"

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

scratch_beside "$OUT"
mkdir -p "$tmp/out"
kbuild_prepare "$tmp/tree"
log "cmdlinepart for kernel $kver ($kernel_version)"
source_deb=$(target_fetch_debs "$TARGET_CACHE/debs" "linux-source-$kernel_series=$kernel_version")
src=$tmp/src
mkdir -p "$src"
dpkg-deb --fsys-tarfile "$source_deb" | tar -xO "./usr/src/linux-source-$kernel_series.tar.xz" |
    tar -xJO "linux-source-$kernel_series/drivers/mtd/parsers/cmdlinepart.c" >"$src/cmdlinepart.c"
[ -s "$src/cmdlinepart.c" ] || die "cmdlinepart.c missing from linux-source-$kernel_series $kernel_version"
echo 'obj-m := cmdlinepart.o' >"$src/Kbuild"
kbuild_make "$src" "$tmp/out/cmdlinepart.ko"
{ echo "$wanted"; printf '%s\n' "${kbuild_debs[@]}" "${source_deb##*/}"; } \
    >"$tmp/out/.crash-dump-module"
rm -rf "$OUT.old"
[ -e "$OUT" ] && mv "$OUT" "$OUT.old"
mv "$tmp/out" "$OUT"
rm -rf "$OUT.old"
log "cmdlinepart ready: $MODULE"
[ -n "$print" ] && echo "$MODULE"
exit 0
