# Helpers for scenario scripts on the emulated board: . /usr/share/board/lib.sh

# Loads nandsim with the given module parameters and waits for its devices.
# With mtdparts= on the kernel command line (it reaches us as a variable), the
# kernel's command-line partition parser goes in first and makes the
# partitions, as it would for a built-in parser: its mtd-id is the chip's name
# ("NAND 128MiB 1,8V 8-bit"; the parser takes the last colon as the end of
# it). Otherwise nandsim's own: parts= sizes and badblocks= indices count erase
# blocks over the whole chip, and space left after the listed partitions
# becomes one more partition.
board_nandsim() {
    if [ -n "${mtdparts:-}" ]; then
        # As a module the parser takes mtdparts as a module parameter; quoted,
        # since the chip's name has spaces.
        insmod "/lib/modules/$(uname -r)/extra/cmdlinepart.ko" "mtdparts=\"$mtdparts\"" || return 1
    fi
    modprobe nandsim "$@" || return 1
    local i=0
    while ! board_mtd_nodes_ready && [ $i -lt 50 ]; do sleep 0.1; i=$((i + 1)); done
    board_mtd_nodes_ready || return 1
    # nandsim falls back to its own partitions when no mtd-id matches.
    if [ -n "${mtdparts:-}" ] && grep -q '"NAND simulator partition' /proc/mtd; then
        echo "board: mtdparts= names no partition of this chip:"
        dmesg | grep '^\[.*\] nand: '
        return 1
    fi
}

# The case's flash (/case/case.env): nandsim with NANDSIM, then each of
# FLASH_IMAGES ("offset:file" pairs) written from /case/images through
# FLASH_VIEW, a writable partition over the whole chip, since the player's
# partitions may be read-only. nandwrite steps over bad blocks, as the boot
# loader's writer does.
board_flash_case() {
    [ -n "$NANDSIM" ] || return 0
    board_nandsim $NANDSIM || return 1
    local view entry
    view=$(board_mtd_device "$FLASH_VIEW") || return 1
    for entry in $FLASH_IMAGES; do
        nandwrite -q -p -s "${entry%%:*}" "$view" "/case/images/${entry#*:}" || return 1
    done
}

# Whether devtmpfs has a node for every MTD device yet.
board_mtd_nodes_ready() {
    local mtd
    for mtd in /sys/class/mtd/mtd*; do
        [ -c "/dev/${mtd##*/}" ] || return 1
    done
}

# The device node of the MTD partition named NAME in /proc/mtd.
board_mtd_device() {
    awk -v name="\"$1\"" '$4 == name { sub(":", "", $1); print "/dev/" $1; found = 1 }
        END { exit !found }' /proc/mtd
}

# Lets ROOT, a chroot, see the kernel's flash: /proc/mtd bound over
# ROOT/proc/mtd and nodes of the MTD devices in ROOT/dev. Nodes rather than a
# devtmpfs, because ROOT/dev also holds files of the player's own kernel.
board_mtd_chroot() {
    local root=$1 mtd node
    mkdir -p "$root/proc" "$root/dev"
    touch "$root/proc/mtd"
    mount --bind /proc/mtd "$root/proc/mtd" || return 1
    for mtd in /sys/class/mtd/mtd*; do
        node=$root/dev/${mtd##*/}
        rm -f "$node"
        mknod "$node" c $(tr ':' ' ' <"$mtd/dev") || return 1
    done
}

# The boot loader's reset cause from the device tree, as a decimal number
# (device tree cells are big-endian).
board_reset_cause() {
    set -- $(od -An -tu1 /proc/device-tree/lumora/bootloader/imx-reset-cause)
    echo $((($1 << 24) | ($2 << 16) | ($3 << 8) | $4))
}

# Attaches the MTD partition NAME as UBI device 0 and mounts its volume 0,
# UBIFS, on DIR. An erased partition is formatted on the way: UBI formats an
# empty partition when it attaches it, the volume is made over all of it, and
# UBIFS formats an empty volume when it mounts it.
board_ubifs_mount() { # name dir
    local mtd
    mtd=$(board_mtd_device "$1") || return 1
    # UBIFS asks the crypto API for its zlib and zstd compressors when it
    # loads, and does not load without them.
    modprobe -a deflate zstd ubifs || return 1
    ubiattach -d 0 -m "${mtd#/dev/mtd}" >/dev/null || return 1
    if [ "$(cat /sys/class/ubi/ubi0/volumes_count)" = 0 ]; then
        ubimkvol /dev/ubi0 -N data -m >/dev/null || return 1
    fi
    mkdir -p "$2" && mount -t ubifs ubi0_0 "$2"
}

# Unmounts DIR and detaches UBI device 0, so that the partition can be
# attached afresh or rewritten.
board_ubifs_unmount() { # dir
    umount "$1" && ubidetach -d 0 >/dev/null
}
