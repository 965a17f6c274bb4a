#!/usr/bin/env bash
# Builds and stages the collector the way a device image's recipe does, in a
# clean Debian 12 root that holds only the armhf cross compiler, the build
# tools and the collector's own libraries (Boost, fmt, zlib, libcap) for
# armhf: no GoogleTest, Benchmark, strace or valgrind. Plain CMake with its
# default generator, then "DESTDIR=... cmake --install"; the staged tree is
# checked from here. The root is made once with mmdebstrap and cached under
# /var/cache/crash-dump-target/device-build-root; each build runs on a
# throw-away overlay of it. Run as root.
#
# Usage: scripts/device-build.sh
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/target/lib/common.sh

# What a recipe's build host has. Debian's -dev packages ship the static
# archives the device build links in.
PACKAGES=(make cmake pkg-config g++-12-arm-linux-gnueabihf
    libboost1.74-dev:armhf libboost-iostreams1.74-dev:armhf libboost-filesystem1.74-dev:armhf
    libboost-system1.74-dev:armhf libfmt-dev:armhf zlib1g-dev:armhf libcap-dev:armhf)
# The configuration a recipe passes: the device preset's, spelled out.
CONFIGURE=(-DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-armhf.cmake -DCRASH_DUMP_SYSROOT=/
    -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr
    -DBUILD_TESTING=OFF -DCRASH_DUMP_SIMULATOR=OFF -DCRASH_DUMP_STATIC=ON)

ROOT=$TARGET_CACHE/device-build-root
STAMP=$ROOT/.crash-dump-build-root
started=$SECONDS

host_require mmdebstrap
if [ "$(cat "$STAMP" 2>/dev/null)" != "${PACKAGES[*]}" ]; then
    # The host's own Debian archive (a mirror, snapshot or proxy), main suite
    # only: armhf indexes of the other suites are not always there.
    mirror=$(sed -n 's/^URIs: *//p' /etc/apt/sources.list.d/debian.sources 2>/dev/null | head -n1)
    log "making the clean build root (${#PACKAGES[@]} packages and what they need)"
    rm -rf "$ROOT.new"
    mkdir -p "$TARGET_CACHE"
    mmdebstrap --quiet --variant=apt --architectures="$(dpkg --print-architecture)",armhf \
        --dpkgopt='path-exclude=/usr/share/doc/*' --dpkgopt='path-exclude=/usr/share/man/*' \
        --dpkgopt='path-exclude=/usr/share/locale/*' --aptopt='Acquire::Languages "none"' \
        --include="$(IFS=,; echo "${PACKAGES[*]}")" \
        bookworm "$ROOT.new" "deb ${mirror:-http://deb.debian.org/debian} bookworm main" ||
        die "mmdebstrap failed"
    echo "${PACKAGES[*]}" >"$ROOT.new/.crash-dump-build-root"
    rm -rf "$ROOT"
    mv "$ROOT.new" "$ROOT"
fi
for absent in googletest libgtest-dev libbenchmark-dev strace valgrind; do
    ! chroot "$ROOT" dpkg-query -W -f='${Status}' "$absent" 2>/dev/null | grep -q 'install ok installed' ||
        die "the build root has $absent"
done

work=$(mktemp -d)
trap 'umount -R "$work/root" 2>/dev/null; rm -rf "$work"' EXIT
mkdir -p "$work/upper" "$work/scratch" "$work/root"
mount -t overlay overlay -o "lowerdir=$ROOT,upperdir=$work/upper,workdir=$work/scratch" "$work/root"
mount -t proc proc "$work/root/proc"
mount --bind /dev "$work/root/dev"
# The checkout's sources, without its build directories.
mkdir "$work/root/src"
git ls-files -co --exclude-standard -z | tar --null -T - -c | tar -x -C "$work/root/src"

log "configuring, building and installing in the clean root"
chroot "$work/root" /bin/sh -ec "cd /src
    cmake -S . -B build $(printf '%q ' "${CONFIGURE[@]}") >/tmp/configure.log ||
        { cat /tmp/configure.log; exit 1; }
    cmake --build build -j2 >/tmp/build.log || { tail -n 40 /tmp/build.log; exit 1; }
    DESTDIR=/stage cmake --install build >/tmp/install.log || { cat /tmp/install.log; exit 1; }"

stage=$work/root/stage
missing=
for f in usr/sbin/crash-dump usr/lib/systemd/system/crash-dump.service \
    usr/lib/tmpfiles.d/crash-dump.conf usr/share/doc/crash-dump/README.md; do
    [ -f "$stage/$f" ] || { echo "not installed: /$f"; missing=1; }
done
[ -z "$missing" ] || die "the installation lacks files"
# The manifest names the files as the device will have them.
while read -r f; do
    [ -e "$stage$f" ] && [ ! -e "$work/root$f" ] || die "$f was not installed under DESTDIR alone"
done <"$work/root/src/build/install_manifest.txt"
# The root's own binutils: this host may have none for ARM.
in_root() { chroot "$work/root" "$TARGET_TRIPLET-$1" "${@:2}"; }
in_root readelf -h /stage/usr/sbin/crash-dump | grep -q 'Machine: *ARM$' || die "the collector is no ARM program"
# Fully static: no shared library to find and relocate at each boot.
needed=$(in_root readelf -lW -d /stage/usr/sbin/crash-dump | grep -E 'INTERP|\(NEEDED\)' || true)
[ -z "$needed" ] || die "the collector is not fully static: $needed"
in_root strip -o /tmp/stripped /stage/usr/sbin/crash-dump
echo "device build: $(stat -c %s "$work/root/tmp/stripped") bytes stripped, fully static" \
    "($((SECONDS - started)) s)"
