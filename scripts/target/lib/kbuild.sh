# Building out-of-tree modules for the board's kernel. Sourced after
# common.sh, with BOARD and kver (the board's kernel release) set.
#
# kbuild_prepare DIR unpacks, under DIR, the headers of exactly the board's
# kernel version (armhf tree, like the kernel) and kbuild's host helpers from
# the host's linux-kbuild package of the same version (unpacked, not
# installed); it sets kernel_version (the Debian version), kernel_series
# (6.1), headers (the flavour's tree) and kbuild_debs (the packages used).
# kbuild_make SRC OUT builds the module that SRC/Kbuild names with the cross
# gcc-12, checks that it carries the version magic of the board's own
# modules, and writes it to OUT without its debug sections.

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

kbuild_prepare() { # dir
    host_require make xz-utils kmod libelf1 libssl3 gcc-12-arm-linux-gnueabihf
    kernel_version=$(kernel_package_version) ||
        die "the package of the board's kernel $kver is not in $TARGET_CACHE/debs: run build-board.sh --refresh"
    kernel_series=$(cut -d. -f1,2 <<<"$kver") # 6.1.0-50-armmp: 6.1
    target_apt_update
    local header_debs kbuild_deb d
    mapfile -t header_debs < <(target_fetch_debs "$TARGET_CACHE/debs" \
        "linux-headers-$kver=$kernel_version" "linux-headers-${kver%-*}-common=$kernel_version")
    [ ${#header_debs[@]} -eq 2 ] || die "cannot fetch the headers of $kver $kernel_version"
    kbuild_deb=$(host_fetch_deb "$TARGET_CACHE/debs" "linux-kbuild-$kernel_series=$kernel_version")
    for d in "${header_debs[@]}" "$kbuild_deb"; do dpkg-deb -x "$d" "$1"; done
    headers=$1/usr/src/linux-headers-$kver
    # The flavour's Makefile includes the common headers by their installed path.
    sed -i "s|/usr/src/|$1/usr/src/|" "$headers/Makefile"
    kbuild_debs=("${header_debs[@]##*/}" "${kbuild_deb##*/}")
}

kbuild_make() { # src out
    local ko reference
    # The headers name the compiler the kernel was built with (gcc-12) without
    # the cross prefix.
    make -C "$headers" M="$1" ARCH=arm CROSS_COMPILE="$TARGET_TRIPLET-" -j2 modules >&2 ||
        die "building the module in $1 failed"
    ko=$(sed -n 's/^obj-m := \(.*\)\.o$/\1.ko/p' "$1/Kbuild")
    # The kernel refuses a module whose version magic differs from its own.
    reference=$(find "$BOARD/base/lib/modules/$kver" -name '*.ko' -print -quit)
    [ -n "$reference" ] || die "no module of the board's kernel to compare with"
    [ "$(modinfo -F vermagic "$1/$ko")" = "$(modinfo -F vermagic "$reference")" ] ||
        die "$ko does not match the board's kernel: $(modinfo -F vermagic "$1/$ko")"
    # Debug sections are most of it and only fatten every boot image.
    "$TARGET_TRIPLET-strip" --strip-debug -o "$2" "$1/$ko"
}
