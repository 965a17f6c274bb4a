# The collector as systemd starts it, in boots of a device image that share
# one root card: the cached root (build-image.sh), the armhf collector
# installed and its unit enabled as an integrator's image build does, the
# stand-in player, uploader and reporter (image/), and a case card per boot
# whose files casefiles.ko serves as the player kernel's. Sourced after
# collector-cases.sh by scripts/target-tests.sh; each boot NAME has
# case_NAME (core bytes, reset cause, flags) and check_NAME RESULTS.
SYSTEMD_BOOTS=(clean_boot crash_boot dump_waiting dump_replaced)
case_clean_boot() { echo 0 0x1 upload; }
case_crash_boot() { echo $((16 << 20)) 0x10 upload probe; }
# Two crashes in a row: the first dump is not uploaded, the uploader starts
# beside the second boot's collector.
case_dump_waiting() { echo $((1 << 20)) 0x10; }
case_dump_replaced() { echo $((4 << 20)) 0x10 upload; }

# The card with the root: the collector from build/armhf, installed as
# integrators do.
make_root_card() { # card
    local root=$work/root-card t=$target/tests/image
    image_stage "$root" && DESTDIR=$root cmake --install build/armhf --prefix /usr >/dev/null || return 1
    install -m 644 -t "$root/etc/systemd/system" "$t"/*.service
    install -D -m 644 -t "$root/usr/local/lib/board" "$t"/*.sh "$target/board/lib.sh"
    install -m 755 "$TARGET_CACHE/board/base/bin/busybox" "$root/usr/local/lib/board/"
    echo casefiles >"$root/etc/modules-load.d/casefiles.conf"
    printf 5.12.0 >"$root/etc/lumora-version"
    printf ' signage-player-release\n' >"$root/etc/lumora-image-name"
    mkdir -p "$root/case"
    systemctl --root="$root" enable crash-dump.service player.service uploader.service board-report.service \
        board-flash.service systemd-networkd.service 2>/dev/null &&
        image_pack "$root" "$work/root.img" 512M && image_card "$1" "$work/root.img" && rm -rf "$root" "$work/root.img"
}

# The case: the previous run's leftovers as casefiles.ko serves them, the
# flash, and the flags that switch the uploader and the sandbox probe on.
make_case_card() { # name card
    local dir=$work/$1 core cause flags flag f
    read -r core cause flags <<<"$(case_"$1")"
    seed_case "$dir" "$core" 0 "SoC: i.MX6UL" "$cause" && flash_with_bad_blocks "$dir" 0,9 "" || return 1
    mkdir -p "$dir/case/files"
    for f in dev/ltcore dev/lastkmsg proc/panic_flag proc/boardid sys/class/mem/lastkmsg/trigger_dump; do
        mv "$dir/case/root/$f" "$dir/case/files/"
    done
    rm -rf "$dir/case/root"
    for flag in $flags; do touch "$dir/case/$flag"; done
    image_pack "$dir/case" "$work/case.img" 63M && image_case "$2" "$work/case.img"
}

boot_systemd() { # name
    make_case_card "$1" "$work/card" >"$logs/$1.prepare" 2>&1 || return 1
    local started=$SECONDS
    CRASH_DUMP_BOARD_SD=$work/card CRASH_DUMP_BOARD_MEM=1G \
        CRASH_DUMP_BOARD_APPEND="firmware_class.path=/case/files quiet systemd.show_status=false" \
        "$target/run-board.sh" "$(image_initrd)" "$(cat "$work/$1/case/reset-cause")" 400 >"$logs/$1.console" 2>&1
    echo $? >"$logs/$1.rc"
    echo "$((SECONDS - started))" >"$logs/$1.wall"
    rm -rf "$work/$1" "$work/case.img"
}

# Microseconds of systemd's monotonic clock, as the board reported them.
at() { tagged "$1" time | sed -n "s/^$2 //p"; }
expect_before() { # results earlier later
    [ "$(at "$1" "$2")" -lt "$(at "$1" "$3")" ] 2>/dev/null || echo "$2 ($(at "$1" "$2")) not before $3 ($(at "$1" "$3"))"
}
taken_core() { echo "whole=yes info=member ltcore=$(core_image "$1" | md5sum | cut -c1-32)"; }

# The collector's run and the player's start after its end, in every boot.
expect_boot() { # results status outputs stderr-lines-joined-by-#-as-one-regex
    local r=$1
    expect_equal status "$(tagged "$r" status)" "$2 success"
    expect_equal "output directory" "$(listing "$r" output)" "$3"
    tagged "$r" stderr | paste -sd# | grep -qE "^$4\$" || echo "stderr [$(tagged "$r" stderr | paste -sd#)] is not $4"
    expect_before "$r" collector-end player-start
}
DUMP_STDERR='Reset causes: 0x10 watchdog_reset#Failed to read UBI list: .*volumes_count.*#Post-mortem crash dump generated\.'

check_clean_boot() {
    expect_boot "$1" 1 "" 'Reset causes: 0x1 power_on_reset#No post-mortem crash dump available\.'
    expect_equal taken "$(tagged "$1" taken)" ""
}

# The 16 MiB core: one dump, taken once; the gettys and networking start
# while the collector runs; the sandbox rates 2.0 or lower and holds.
check_crash_boot() {
    local r=$1
    expect_boot "$r" 0 "" "$DUMP_STDERR"
    expect_equal taken "$(tagged "$r" taken)" "$(taken_core $((16 << 20)))"
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

check_dump_waiting() {
    expect_boot "$1" 0 "crash-dump.info crash-dump.ready crash-dump.tar.bz2" "$DUMP_STDERR"
    expect_equal taken "$(tagged "$1" taken)" ""
}

# The earlier dump was waiting: the uploader, started beside the collector,
# takes the new dump and only it.
check_dump_replaced() {
    expect_boot "$1" 0 "" "$DUMP_STDERR"
    expect_equal taken "$(tagged "$1" taken)" "$(taken_core $((4 << 20)))"
    expect_before "$1" uploader-start collector-end
}

# The collector's active time and the boot's wall time.
boot_summary() { # name
    local r=$logs/$1.results
    echo "collector active $((($(at "$r" collector-end) - $(at "$r" collector-start)) / 1000)) ms," \
        "boot $(cat "$logs/$1.wall") s; exposure $(tagged "$r" exposure) $(tagged "$r" marked | paste -sd' ')"
}
