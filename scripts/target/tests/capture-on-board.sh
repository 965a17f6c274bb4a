#!/bin/sh
# Runs on the emulated board after the collector's run in ROOT: captures the
# board's state with capture-device.sh (beside this script), as a device is
# captured, and prints the capture's exit status, standard error and scenario
# directory (a gzipped tar in base64) between two marker lines, tagged.
root=$1
here=$(dirname "$0")

# Chrooted into ROOT, capture-device.sh reads what the collector read; what
# it needs beyond that is the board's own, as on a device: the tools, the MTD
# devices' geometry and flags in sysfs (whose class links point into
# /sys/devices), the host name in procfs.
capture_root() {
    local dir
    for dir in bin sbin usr/bin usr/sbin lib sys/devices sys/class/mtd proc/sys; do
        mkdir -p "$root/$dir" && mount --bind "/$dir" "$root/$dir" || return 1
    done
    mkdir -p "$root/tmp" && cp "$here/capture-device.sh" "$root/tmp/capture-device.sh"
}

echo "==== capture begin ===="
if capture_root; then
    started=$(cut -d' ' -f1 /proc/uptime)
    chroot "$root" /bin/sh /tmp/capture-device.sh /tmp/scenario >/dev/null 2>/tmp/capture.stderr
    echo "@@status $?"
    echo "@@seconds $started $(cut -d' ' -f1 /proc/uptime)"
    sed 's/^/@@stderr /' /tmp/capture.stderr
    tar -C "$root/tmp/scenario" -cf - . | gzip | base64 | sed 's/^/@@tar /'
else
    echo "@@status no root to capture in: binding the board's tools into $root failed"
fi
echo "==== capture end ===="
