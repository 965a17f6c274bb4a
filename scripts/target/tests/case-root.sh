# What every collector scenario on the emulated board shares: the test root
# that the host prepared in /case (see collector-cases.sh), given the board's
# flash, device tree and device nodes. Sourced after /usr/share/board/lib.sh
# and /case/case.env:
#
#   /case/case.env  NANDSIM (nandsim parameters; empty for no flash),
#                   FLASH_VIEW (the name of a writable partition over the
#                   whole chip), FLASH_IMAGES ("offset:file" pairs:
#                   /case/images/file is written through FLASH_VIEW from that
#                   byte offset on), and what the scenario itself reads
#   /case/root      the test root: the collector at /usr/sbin/crash-dump and
#                   the files that only the player's own kernel provides
#                   (/dev/ltcore, /dev/lastkmsg, /proc/panic_flag,
#                   /proc/boardid, the dump trigger), plus /etc
#
# The partitions come from mtdparts= on the kernel command line (see
# board_nandsim). Everything the stock kernel provides is the real thing: MTD
# devices and /proc/mtd, the device tree, /dev/mem and the other device
# nodes, /proc/cmdline and /sys/class/net.
root=/case/root
outputs=$root/var/lib/lumora/crash-dump

fail() { echo "SCENARIO FAIL: $*"; exit 1; }

# /proc/uptime counts in hundredths of a second.
centiseconds() { tr -d . </proc/uptime | cut -d' ' -f1; }

prepare_case_root() {
    if [ -n "$NANDSIM" ]; then
        board_nandsim $NANDSIM || fail "nandsim"
        # The player's partitions may be read-only; the view over the whole
        # chip is not. nandwrite steps over bad blocks, as the boot loader's
        # writer does, so from a partition's first block on it fills the
        # blocks that a write into the partition itself would.
        local view entry
        view=$(board_mtd_device "$FLASH_VIEW") || fail "no partition $FLASH_VIEW"
        for entry in $FLASH_IMAGES; do
            nandwrite -q -p -s "${entry%%:*}" "$view" "/case/images/${entry#*:}" || fail "nandwrite $entry"
        done
        board_mtd_chroot "$root" || fail "flash in the test root"
    fi

    mkdir -p "$root/bin" "$root/dev" "$root/proc/device-tree" "$root/sys/class/net" \
        "$root/var/lock" "$root/var/run/crash-dump" "$outputs"
    # The dump script needs a shell, cat, rm, dmesg and tar with bzip2.
    cp /bin/busybox "$root/bin/busybox"
    local applet
    for applet in sh cat rm dmesg tar bzip2; do ln -sf busybox "$root/bin/$applet"; done
    mknod "$root/dev/mem" c 1 1
    mknod "$root/dev/null" c 1 3
    mknod "$root/dev/urandom" c 1 9
    mknod "$root/dev/kmsg" c 1 11
    mknod "$root/dev/console" c 5 1
    mount --bind /sys/firmware/devicetree/base "$root/proc/device-tree" || fail "bind device tree"
    touch "$root/proc/cmdline"
    mount --bind /proc/cmdline "$root/proc/cmdline" || fail "bind cmdline"
    mount --bind /sys/class/net "$root/sys/class/net" || fail "bind net"
}

# One run of the collector in the test root, its standard error in FILE. A run
# that hangs is killed (status 137) rather than holding up the boot until the
# host gives up on it.
run_collector() { # stderr-file
    PATH=/bin timeout -s KILL 900 /usr/sbin/chroot "$root" /usr/sbin/crash-dump 2>"$1"
}
