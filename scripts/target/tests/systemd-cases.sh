# The collector as systemd starts it, in boots of the device image (README)
# that share its card. Sourced after collector-cases.sh. A boot NAME has
# case_NAME (core bytes, reset cause, bad blocks, "ro" partitions or "-",
# flags: upload, probe, capture, nosoc) and check_NAME RESULTS.
SYSTEMD_BOOTS=(clean_boot crash_boot dump_waiting dump_replaced unknown_silicon)
case_clean_boot() { echo 0 0x1 0,9 - upload; }
# Bad blocks in both partitions, which the kernel write-protects.
case_crash_boot() { echo $((16 << 20)) 0x10 2,8,10 ro upload probe; }
# Two crashes in a row: the first dump waits (and the device is captured for
# capture-replay.sh), the uploader starts beside the second boot's collector.
case_dump_waiting() { echo $((1 << 20)) 0x10 0,9 - capture; }
case_dump_replaced() { echo $((4 << 20)) 0x10 0,9 - upload; }
# No SoC line: the collector maps the SoC's registers through /dev/mem, in its
# sandbox, and QEMU's i.MX6UL is no i.MX6ULZ.
case_unknown_silicon() { echo $((1 << 20)) 0x10 0,9 - nosoc; }

make_root_card() { # card
    local root=$work/root-card t=$target/tests/image
    image_stage "$root" && DESTDIR=$root cmake --install build/device --strip >/dev/null || return 1
    install -m 644 -t "$root/etc/systemd/system" "$t"/*.service
    install -m 644 -t "$root/usr/local/lib/board" "$t"/*.sh "$target/tests/capture-on-board.sh" \
        scripts/capture-device.sh
    printf 5.12.0 >"$root/etc/lumora-version"
    printf ' signage-player-release\n' >"$root/etc/lumora-image-name"
    systemctl --root="$root" enable crash-dump.service player.service uploader.service board-report.service \
        systemd-networkd.service && image_pack "$root" "$work/root.img" 512M &&
        image_card "$1" "$work/root.img" && rm -rf "$root" "$work/root.img"
}

boot_systemd() { # name
    local dir=$work/$1 core cause bad ro flags f soc="SoC: i.MX6UL" started=$SECONDS
    read -r core cause bad ro flags <<<"$(case_"$1")"
    [[ $flags != *nosoc* ]] || soc=
    {
        seed_case "$dir" "$core" 0 "$soc" "$cause" && flash_with_bad_blocks "$dir" "$bad" "${ro#-}" &&
            mkdir -p "$dir/case/files" && for f in $flags; do touch "$dir/case/$f"; done &&
            for f in dev/ltcore dev/lastkmsg proc/panic_flag proc/boardid sys/class/mem/lastkmsg/trigger_dump; do
                mv "$dir/case/root/$f" "$dir/case/files/" || return 1
            done && rm -rf "$dir/case/root" && image_pack "$dir/case" "$work/case.img" 63M &&
            image_case "$work/card" "$work/case.img"
    } >"$logs/$1.prepare" 2>&1 || return 1
    CRASH_DUMP_BOARD_SD=$work/card CRASH_DUMP_BOARD_MEM=1G \
        CRASH_DUMP_BOARD_APPEND="firmware_class.path=/case/files quiet systemd.show_status=false" \
        "$target/run-board.sh" "$(image_initrd)" "$cause" 400 >"$logs/$1.console" 2>&1
    echo $? >"$logs/$1.rc"
    echo $((SECONDS - started)) >"$logs/$1.wall"
    rm -rf "$dir" "$work/case.img"
}

at() { tagged "$1" time | sed -n "s/^$2 //p"; } # results what: systemd's monotonic clock, in microseconds
expect_before() { # results earlier later
    [ "$(at "$1" "$2")" -lt "$(at "$1" "$3")" ] 2>/dev/null || echo "$2 ($(at "$1" "$2")) not before $3 ($(at "$1" "$3"))"
}

# Every boot: the run, the outputs the uploader left, what it took, the
# player's start after the collector's end.
expect_boot() { # results status outputs taken-core-bytes stderr-lines-joined-by-#-as-one-regex
    local r=$1 got
    expect_equal status "$(tagged "$r" status) $(tagged "$r" result)" "$2 success"
    expect_equal "output directory" "$(listing "$r" output)" "$3"
    expect_equal taken "$(tagged "$r" taken)" \
        "${4:+whole=yes info=member ltcore=$(core_image "${4:-0}" | md5sum | cut -c1-32)}"
    got=$(tagged "$r" stderr | paste -sd#)
    grep -qE "^$5\$" <<<"$got" || echo "stderr [$got] is not $5"
    expect_before "$r" collector-end player-start
}
DUMP_STDERR='Reset causes: 0x10 watchdog_reset#Failed to read UBI list: .*volumes_count.*#Post-mortem crash dump generated\.'

check_clean_boot() { expect_boot "$1" 1 "" "" 'Reset causes: 0x1 power_on_reset#No post-mortem crash dump available\.'; }

# One dump, taken once; the gettys and networking start while the collector
# runs; the sandbox rates 2.0 or lower and holds.
check_crash_boot() {
    local r=$1
    expect_boot "$r" 0 "" $((16 << 20)) "$DUMP_STDERR"
    expect_equal "archive members" "$(listing "$r" archive)" "./ ./dmesg ./info ./lastkmsg ./ltcore"
    [ "$(tagged "$r" dmesg-lines)" -gt 0 ] 2>/dev/null || echo "the archive's dmesg is empty"
    expect_dump_facts "$r"
    expect_before "$r" getty-start collector-end
    expect_before "$r" network-start collector-end
    awk '{ exit !($1 <= 2.0) }' <<<"$(tagged "$r" exposure)" || echo "exposure $(tagged "$r" exposure), wanted 2.0 or lower"
    expect_equal "probes, with the unit's sandbox and without" "$(tagged "$r" probe | sed -E 's/=0x[0-9A-F]+$/=read/')" \
        $'sandboxed usr=no etc=no socket=no module=no devmem=read\nplain usr=yes etc=yes socket=yes module=yes devmem=read'
    expect_equal "assertion reports reaching the kernel log" "$(tagged "$r" probe-assert)" $'sandboxed 1\nplain 1'
}

check_dump_waiting() { expect_boot "$1" 0 "crash-dump.info crash-dump.ready crash-dump.tar.bz2" "" "$DUMP_STDERR"; }
check_unknown_silicon() { expect_boot "$1" 1 "" "" 'crash-dump caught exception: Unexpected silicon type'; }

# The uploader, started beside the collector, takes the new dump and only it.
check_dump_replaced() {
    expect_boot "$1" 0 "" $((4 << 20)) "$DUMP_STDERR"
    expect_before "$1" uploader-start collector-end
}

boot_summary() { # name
    local r=$logs/$1.results
    echo "collector active $((($(at "$r" collector-end) - $(at "$r" collector-start)) / 1000)) ms, boot" \
        "$(cat "$logs/$1.wall") s$(tagged "$r" start-ms | sed 's/^/; a start of true (ms): /')$(tagged "$r" exposure | sed 's/^/; exposure /')$(tagged "$r" marked | sed 's/^/, /' | tr -d '\n')"
}
