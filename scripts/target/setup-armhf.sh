#!/bin/bash
# Prepares this machine for armhf builds: Debian's cross compiler, qemu-user
# to run the armhf unit tests, and an isolated armhf sysroot assembled from
# unpacked .debs under $CRASH_DUMP_TARGET_CACHE (default
# /var/cache/crash-dump-target).
#
# Usage: setup-armhf.sh [--refresh] [--print-sysroot]
#   --refresh        re-read the armhf package index and rebuild the sysroot
#                    if Debian has newer versions (otherwise a sysroot that
#                    exists is left alone and no network is used)
#   --print-sysroot  print the sysroot path on stdout when done
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/lib/common.sh"

refresh= print=
for a in "$@"; do
    case $a in
    --refresh) refresh=1 ;;
    --print-sysroot) print=1 ;;
    *) die "unknown argument: $a" ;;
    esac
done

# What the firmware links against. Boost.Iostreams' static archive refers to
# zlib, bzip2, lzma and zstd, so their static archives must be here too.
SYSROOT_PACKAGES=(
    libc6-dev libstdc++-12-dev
    libboost1.74-dev libboost-iostreams1.74-dev libboost-filesystem1.74-dev libboost-system1.74-dev
    libfmt-dev zlib1g-dev libbz2-dev liblzma-dev libzstd-dev libcap-dev
    libgtest-dev libgmock-dev
)
# Bump when the way the tree is assembled changes, to force a rebuild.
LAYOUT=1

SYSROOT=$TARGET_CACHE/sysroot
STAMP=$SYSROOT/.crash-dump-sysroot

host_require crossbuild-essential-armhf g++-12-arm-linux-gnueabihf qemu-user \
    cmake ninja-build pkg-config

wanted="layout=$LAYOUT packages=${SYSROOT_PACKAGES[*]}"
if [ -z "$refresh" ] && [ -f "$STAMP" ] && [ "$(head -n1 "$STAMP")" = "$wanted" ]; then
    log "sysroot up to date: $SYSROOT"
else
    target_apt_update "$refresh"
    mapfile -t closure < <(target_closure "${SYSROOT_PACKAGES[@]}")
    [ ${#closure[@]} -gt 0 ] || die "empty dependency closure"
    mapfile -t debs < <(target_fetch_debs "$TARGET_CACHE/debs" "${closure[@]}")
    fp=$(debs_fingerprint "${debs[@]}")
    if [ -f "$STAMP" ] && [ "$(sed -n 2p "$STAMP")" = "$fp" ]; then
        log "sysroot content unchanged"
        sed -i "1c\\$wanted" "$STAMP"
    else
        log "unpacking ${#debs[@]} packages into $SYSROOT"
        unpack_debs_atomically "$SYSROOT" "${debs[@]}"
        # qemu-user falls back to host files for paths missing under -L;
        # an empty loader cache keeps armhf ld.so away from the host's.
        mkdir -p "$SYSROOT/etc" && : >"$SYSROOT/etc/ld.so.cache"
        { echo "$wanted"; echo "$fp"; printf '%s\n' "${debs[@]##*/}"; } >"$STAMP"
    fi
fi

[ -n "$print" ] && echo "$SYSROOT"
exit 0
