# The device image's root card, from build-image.sh's cache. Sourced after
# common.sh.

# Fills DIR with the root file system and the board's modules.
image_stage() { # dir
    local image
    image=$("$(dirname "${BASH_SOURCE[0]}")/../build-image.sh" --print-dir) || return 1
    rm -rf "$1"
    mkdir -p "$1"
    tar -xf "$image/root.tar" -C "$1" && cp -a "$image/modules/." "$1/"
}

# An ext4 image of DIR, SIZE bytes.
image_pack() { # dir image size
    rm -f "$2"
    mkfs.ext4 -q -F -d "$1" "$2" "$3"
}

# The SD card (1 GiB: QEMU takes only powers of two): the case in its first
# partition, 63 MiB from 1 MiB on, the root in its second, from 64 MiB on.
image_card() { # card root-image
    rm -f "$1"
    truncate -s 1G "$1"
    printf '1MiB,63MiB,L\n64MiB,,L\n' | sfdisk -q "$1" >/dev/null &&
        dd if="$2" of="$1" bs=1M seek=64 conv=notrunc,sparse status=none
}

# Puts the case's ext4 image into the card's first partition.
image_case() { # card case-image
    dd if="$2" of="$1" bs=1M seek=1 conv=notrunc status=none
}

# The kernel and initramfs that boot the image, for run-board.sh.
image_initrd() { echo "$("$(dirname "${BASH_SOURCE[0]}")/../build-image.sh" --print-dir)/initrd.cpio.gz"; }
