# The test root /case/root of the collector's runs on the busybox board: what
# the host prepared (collector-cases.sh), given the board's flash, device tree
# and device nodes. Sourced after /usr/share/board/lib.sh and /case/case.env
# (NANDSIM, FLASH_VIEW, FLASH_IMAGES: see board_flash_case in lib.sh).
root=/case/root
outputs=$root/var/lib/lumora/crash-dump

fail() { echo "SCENARIO FAIL: $*"; exit 1; }

# /proc/uptime counts in hundredths of a second.
centiseconds() { tr -d . </proc/uptime | cut -d' ' -f1; }

prepare_case_root() {
    if [ -n "$NANDSIM" ]; then
        board_flash_case || fail "the case's flash"
        board_mtd_chroot "$root" || fail "flash in the test root"
    fi

    mkdir -p "$root/bin" "$root/dev" "$root/proc/device-tree" "$root/sys/class/net" \
        "$root/var/lock" "$root/var/run/crash-dump" "$outputs"
    # The dump script needs a shell, cat, rm, dmesg and tar with bzip2.
    cp /bin/busybox "$root/bin/busybox"
    local applet node
    for applet in sh cat rm dmesg tar bzip2; do ln -sf busybox "$root/bin/$applet"; done
    for node in "mem 1 1" "null 1 3" "urandom 1 9" "kmsg 1 11" "console 5 1"; do
        mknod "$root/dev/${node%% *}" c ${node#* }
    done
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
