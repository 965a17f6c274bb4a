# Capture on the board, replay on the host: after a boot that left a dump,
# scripts/capture-device.sh captures the device's state as it would any
# device's (capture-on-board.sh, run by the board's reporter), and the host's
# crash-dump-sim runs the collector on that scenario; both runs must tell the
# same. Sourced by scripts/target-tests.sh, in the
# repository's root.

CAPTURE_CASE=dump_waiting

# The collector's standard error as crash-dump-sim reports it: the lines after
# its heading, up to the blank line before the exit status's heading.
replayed_stderr() { # report
    awk '/^== (exit status|ended by signal)/ { exit } on { print } /^== crash-dump.s standard error$/ { on = 1 }' "$1" |
        sed '$d'
}

# Prints the lines in which the board's run and the replay differ.
differs() { # what board replay
    diff <(echo "$2") <(echo "$3") | grep '^[<>]' | sed "s/^/$1 (< board, > replay): /"
}

# Compares NAME's board run with the replay of its capture, printing what
# differs; what was compared goes to $logs/NAME.replay-summary.
capture_replay_agrees() { # name
    local capture=$logs/$1.capture results=$logs/$1.results report=$logs/$1.replay
    local scenario=$work/$1.scenario device=$work/$1.device summary=$logs/$1.replay-summary
    local status info keys differences
    rm -f "$summary"
    tr -d '\r' <"$logs/$1.console" | sed -n '/^==== capture begin ====$/,/^==== capture end ====$/p' |
        grep '^@@' >"$capture"
    if [ "$(tagged "$capture" status)" != 0 ]; then
        echo "the capture on the board failed: $(tagged "$capture" status)"
        tagged "$capture" stderr
        return 1
    fi
    mkdir -p "$scenario"
    tagged "$capture" tar | base64 -d | tar -xzf - -C "$scenario" ||
        { echo "the capture does not unpack"; return 1; }
    if [ -n "$(find "$scenario/root/var" -mindepth 1 2>/dev/null)" ]; then
        echo "the capture holds what the collector wrote:"
        find "$scenario/root/var"
        return 1
    fi

    "$SIM" --keep "$device" "$scenario" >"$report" 2>&1
    status=$?
    info=$device/var/lib/lumora/crash-dump
    if [ ! -d "$info" ]; then
        echo "crash-dump-sim ran no collector (status $status):"
        cat "$report"
        return 1
    fi
    differences=$(
        differs "exit status" "$(tagged "$results" status)" "$status"
        differs "standard error" "$(tagged "$results" stderr)" "$(replayed_stderr "$report")"
        differs info "$(tagged "$results" info | grep -vE '^(time|salt)=' | LC_ALL=C sort)" \
            "$(grep -vsE '^(time|salt)=' "$info/crash-dump.info" | LC_ALL=C sort)"
    )
    keys=$(tagged "$results" info | cut -d= -f1 | grep -vxE 'time|salt' | LC_ALL=C sort)
    {
        echo "compared: exit status $status, $(tagged "$results" stderr | wc -l) lines of standard error," \
            "$(wc -l <<<"$keys") info keys (all but time and salt):"
        echo "  "$keys
        tagged "$capture" seconds | awk '{ printf "capture-device.sh ran %.1f s on the board\n", $2 - $1 }'
    } >"$summary"
    [ -z "$differences" ] || { echo "$differences"; return 1; }
}

check_capture_replay() {
    check "board: capture and replay agree" capture_replay_agrees "$CAPTURE_CASE"
    [ -s "$logs/$CAPTURE_CASE.replay-summary" ] && sed 's/^/     /' "$logs/$CAPTURE_CASE.replay-summary"
}
