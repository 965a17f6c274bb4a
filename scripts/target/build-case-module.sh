#!/bin/bash
# Builds casefiles.ko (image/casefiles.c) for the emulated board's kernel:
# the player kernel's crash interfaces as real kernel files in a test boot,
# filled from the case. Built like cmdlinepart.ko (lib/kbuild.sh).
#
# Usage: build-case-module.sh [--print-module]
#   --print-module  print the module's path on stdout when done
#
# Produces $CRASH_DUMP_TARGET_CACHE/casefiles/<kernel release>/casefiles.ko,
# keyed by the board's kernel image and the module's source.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/lib/common.sh"
. "$here/lib/kbuild.sh"

case ${1:-} in
"") print= ;;
--print-module) print=1 ;;
*) die "usage: $0 [--print-module]" ;;
esac

BOARD=$TARGET_CACHE/board
[ -f "$BOARD/kernel.version" ] || die "no board in $BOARD: run build-board.sh"
kver=$(cat "$BOARD/kernel.version")
OUT=$TARGET_CACHE/casefiles/$kver
MODULE=$OUT/casefiles.ko
wanted="kernel=$(sha256sum <"$BOARD/zImage" | cut -d' ' -f1) source=$(sha256sum <"$here/image/casefiles.c" | cut -d' ' -f1)"
if [ -f "$MODULE" ] && [ "$(head -n1 "$OUT/.crash-dump-module" 2>/dev/null)" = "$wanted" ]; then
    [ -n "$print" ] && echo "$MODULE"
    exit 0
fi

scratch_beside "$OUT"
mkdir -p "$tmp/out" "$tmp/src"
kbuild_prepare "$tmp/tree"
log "casefiles for kernel $kver ($kernel_version)"
cp "$here/image/casefiles.c" "$tmp/src/"
echo 'obj-m := casefiles.o' >"$tmp/src/Kbuild"
kbuild_make "$tmp/src" "$tmp/out/casefiles.ko"
echo "$wanted" >"$tmp/out/.crash-dump-module"
rm -rf "$OUT"
mv "$tmp/out" "$OUT"
log "casefiles ready: $MODULE"
[ -n "$print" ] && echo "$MODULE"
exit 0
