# The device image's root card, from build-image.sh's cache. Sourced after
# common.sh.

# Fills DIR with the root file system and the board: its modules, the case's
# mount point, casefiles.ko loaded at boot (the case's files through
# firmware_class.path= on the kernel command line), board-flash.service
# (nandsim and the flash images, before sysinit.target), and busybox's devmem.
image_stage() { # dir
    local image here
    here=$(dirname "${BASH_SOURCE[0]}")/..
    image=$("$here/build-image.sh" --print-dir) || return 1
    rm -rf "$1"
    mkdir -p "$1"
    tar -xf "$image/root.tar" -C "$1" && cp -a "$image/modules/." "$1/" || return 1
    mkdir -p "$1/case"
    echo casefiles >"$1/etc/modules-load.d/casefiles.conf"
    install -m 644 "$here/image/board-flash.service" "$1/etc/systemd/system/"
    install -D -m 644 -t "$1/usr/local/lib/board" "$here/image/board-flash.sh" "$here/board/lib.sh"
    install -m 755 "$TARGET_CACHE/board/base/bin/busybox" "$1/usr/local/lib/board/"
    ln -s ../lib/board/busybox "$1/usr/local/bin/devmem"
    systemctl --root="$1" enable board-flash.service
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
image_initrd() { echo "$("$(dirname "${BASH_SOURCE[0]}")/../build-image.sh" --print-dir 2>/dev/null)/initrd.cpio.gz"; }
