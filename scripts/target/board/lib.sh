# Helpers for scenario scripts on the emulated board: . /usr/share/board/lib.sh

# Loads nandsim with the given module parameters and waits for its devices.
# Sizes in parts= and numbers in badblocks= count erase blocks; space left
# after the listed partitions becomes one more partition.
board_nandsim() {
    modprobe nandsim "$@" || return 1
    local i=0
    while [ ! -c /dev/mtd0 ] && [ $i -lt 50 ]; do sleep 0.1; i=$((i + 1)); done
    [ -c /dev/mtd0 ]
}

# Gives the nandsim partitions the names the player's boot loader uses:
# writes ROOT/proc/mtd with mtd0, mtd1, ... renamed to NAME0, NAME1, ... (the
# rest keep their names) and makes ROOT/dev/mtdN nodes of the real devices.
# The kernel itself cannot name them: it has no command-line partition parser.
# Nodes rather than links, so that ROOT also works as a chroot.
board_mtd_alias() {
    local root=$1; shift
    mkdir -p "$root/proc" "$root/dev"
    local dev size erase name n node
    {
        read -r header && echo "$header"
        while read -r dev size erase name; do
            n=${dev%:}
            if [ $# -gt 0 ]; then name="\"$1\""; shift; fi
            echo "$dev $size $erase $name"
            for node in "$n" "${n}ro"; do
                rm -f "$root/dev/$node"
                mknod "$root/dev/$node" c $(tr ':' ' ' <"/sys/class/mtd/$node/dev")
            done
        done
    } </proc/mtd >"$root/proc/mtd"
}

# The boot loader's reset cause from the device tree, as a decimal number
# (device tree cells are big-endian).
board_reset_cause() {
    set -- $(od -An -tu1 /proc/device-tree/lumora/bootloader/imx-reset-cause)
    echo $((($1 << 24) | ($2 << 16) | ($3 << 8) | $4))
}
