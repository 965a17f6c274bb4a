#!/bin/sh
# Runs on the board after the collector's boot: captures the device's state
# with capture-device.sh (beside this script), as any device is captured, and
# prints the capture's exit status, standard error and scenario directory (a
# gzipped tar in base64) between two marker lines, tagged.
here=$(dirname "$0")
echo "==== capture begin ===="
started=$(cut -d' ' -f1 /proc/uptime)
sh "$here/capture-device.sh" /tmp/scenario >/dev/null 2>/tmp/capture.stderr
echo "@@status $?"
echo "@@seconds $started $(cut -d' ' -f1 /proc/uptime)"
sed 's/^/@@stderr /' /tmp/capture.stderr
tar -C /tmp/scenario -cf - . | gzip | base64 | sed 's/^/@@tar /'
echo "==== capture end ===="
