# What the boot did, for the host: lines tagged with what they are, between
# two marker lines; then the board powers off.
unit=/usr/lib/systemd/system/crash-dump.service dir=/var/lib/lumora/crash-dump
to=/var/lib/uploads/$(cat /proc/sys/kernel/random/boot_id)
show() { systemctl show -P "$2" "$1.service"; }
# Tries what the sandbox must forbid, whether an assertion report reaches the
# kernel log and whether the SoC's registers read through /dev/mem (DIGPROG),
# in a transient service with the given properties.
probe() { # tag property...
    tag=$1
    shift
    systemd-run --quiet --wait --pipe "$@" /bin/sh -c '
        touch /usr/probe 2>/dev/null && rm /usr/probe && echo -n "usr=yes " || echo -n "usr=no "
        touch /etc/probe 2>/dev/null && rm /etc/probe && echo -n "etc=yes " || echo -n "etc=no "
        perl -e "socket(S, 2, 1, 0) or exit 1" && echo -n "socket=yes " || echo -n "socket=no "
        insmod /run/probe.ko 2>/dev/null && rmmod ubi && echo -n "module=yes " || echo -n "module=no "
        echo "<2>ASSERT FAILED: probe '"$tag"'" >/dev/kmsg
        echo "devmem=$(devmem 0x020C8260)"' | sed "s/^/@@probe $tag /"
    echo "@@probe-assert $tag $(dmesg | grep -c "ASSERT FAILED: probe $tag\$")"
}
dump() { [ -f "$to/taken" ] && echo "$to" || echo "$dir"; }

# In one write at the end, on lines of their own: a getty's prompt may end
# the console's last line at any time.
exec >/run/report 2>&1
echo
echo "==== crash-dump results begin ===="
echo "@@status $(show crash-dump ExecMainStatus)"
echo "@@result $(show crash-dump Result)"
for t in collector-start:crash-dump:Start collector-end:crash-dump:Exit player-start:player:Start \
    uploader-start:uploader:Start getty-start:serial-getty@ttymxc0:Start network-start:systemd-networkd:Start; do
    echo "@@time ${t%%:*} $(show "$(echo "$t" | cut -d: -f2)" "ExecMain${t##*:}TimestampMonotonic")"
done
journalctl -b -o cat _SYSTEMD_UNIT=crash-dump.service | sed 's/^/@@stderr /'
ls -A $dir | sed 's/^/@@output /'
sed 's/^/@@taken /' "$to/taken" 2>/dev/null
sed 's/^/@@info /' "$(dump)/crash-dump.info" 2>/dev/null
tar -tjf "$(dump)/crash-dump.tar.bz2" 2>/dev/null | sed 's/^/@@archive /'
echo "@@dmesg-lines $(tar -xjf "$(dump)/crash-dump.tar.bz2" -O ./dmesg 2>/dev/null | wc -l)"
# The sandbox, in the boot that asks for it. The probe takes the unit's
# settings as they are, but for RestrictAddressFamilies=none, which systemd
# 252 takes only from a unit file: AF_UNIX alone still refuses network sockets.
if [ -e /case/probe ]; then
    systemd-analyze security crash-dump.service | sed -n 's/^✗ \([^ ]*\) .* \([0-9.]*\)$/@@marked \1 \2/p;
        s/.*Overall exposure level for crash-dump.service: \([0-9.]*\).*/@@exposure \1/p'
    cp "$(modinfo -n ubi)" /run/probe.ko
    set --
    while IFS= read -r property; do set -- "$@" -p "$property"; done <<PROPERTIES
$(sed -n '/^\[Service\]/,/^\[Install\]/p' $unit | grep -E '^[A-Z]' |
        grep -vE '^(Type|ExecStart|SuccessExitStatus|RemainAfterExit|Standard[A-Za-z]*)=' |
        sed 's/^RestrictAddressFamilies=none$/RestrictAddressFamilies=AF_UNIX/')
PROPERTIES
    probe sandboxed "$@"
    probe plain
    # What the sandbox's set-up adds to a start, on the settled board: the
    # median of five transient runs of true, in milliseconds.
    start_ms() {
        for i in 1 2 3 4 5; do
            s=$(date +%s%N) && systemd-run --quiet --wait "$@" /bin/true && echo $((($(date +%s%N) - s) / 1000000))
        done | sort -n | sed -n 3p
    }
    echo "@@start-ms sandboxed $(start_ms "$@") plain $(start_ms)"
fi
echo "==== crash-dump results end ===="
[ ! -e /case/capture ] || sh /usr/local/lib/board/capture-on-board.sh
echo "BOARD-EXIT: 0"
cat /run/report >/dev/console
systemctl poweroff --no-block
