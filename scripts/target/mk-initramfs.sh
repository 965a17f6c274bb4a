#!/bin/bash
# Builds the initramfs for one scenario on the emulated board.
#
# Usage: mk-initramfs.sh [--gzip] <output.cpio> <scenario-init> [extra-dir]...
#
#   scenario-init  script (or armhf program) run by the board's /init once
#                  proc, sys, devtmpfs and /tmp are mounted; its exit status
#                  becomes run-board.sh's. Shell scripts can source
#                  /usr/share/board/lib.sh.
#   extra-dir      copied over the image root in order, e.g. a tree with
#                  usr/bin/crash-dump and the scenario's files. Shared
#                  libraries that its armhf programs need are added from the
#                  sysroot, so dynamically linked builds work too.
#   --gzip         compress; uncompressed images boot faster under emulation
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/lib/common.sh"

compress=
if [ "${1:-}" = "--gzip" ]; then compress=1; shift; fi
[ $# -ge 2 ] || die "usage: $0 [--gzip] <output.cpio> <scenario-init> [extra-dir]..."
out=$1 scenario=$2
shift 2
[ -f "$scenario" ] || die "no scenario script: $scenario"
for d in "$@"; do [ -d "$d" ] || die "not a directory: $d"; done

"$here/build-board.sh" >&2
BOARD=$TARGET_CACHE/board
sysroot=$TARGET_CACHE/sysroot
cmdlinepart=$("$here/build-cmdlinepart.sh" --print-module)

stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
cp -a "$BOARD/base/." "$stage/"
# Where board_nandsim loads it from.
install -D -m 644 "$cmdlinepart" "$stage/lib/modules/$(cat "$BOARD/kernel.version")/extra/cmdlinepart.ko"
for d in "$@"; do cp -a "$d/." "$stage/"; done
install -m 755 "$here/board/init" "$stage/init"
install -m 644 "$here/board/lib.sh" "$stage/usr/share/board/lib.sh"
install -m 755 "$scenario" "$stage/scenario/init"
copy_needed_libs "$stage" "$sysroot"

mkdir -p "$(dirname "$out")"
(cd "$stage" && find . -mindepth 1 -print0 | LC_ALL=C sort -z |
    cpio --null -o -H newc -R 0:0 --quiet) |
    if [ -n "$compress" ]; then gzip -6; else cat; fi >"$out.tmp"
mv "$out.tmp" "$out"
log "initramfs: $out ($(du -h "$out" | cut -f1))"
