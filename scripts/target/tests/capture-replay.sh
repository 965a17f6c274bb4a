# Capture on the board, replay on the host: after the complete dump's run,
# scripts/capture-device.sh captures the board's state as it would a device's
# (capture-on-board.sh), and the host's crash-dump-sim runs the collector on
# that scenario. Both runs must tell the same: the exit status, standard error
# line for line and the info file key for key, but for "time" (the board has
# no clock) and "salt" (random). Sourced by scripts/target-tests.sh after
# collector-cases.sh, whose tagged() it uses, in the repository's root; it
# provides target, logs, work, SIM and check.

CAPTURE_CASE=complete_dump

# The capture's scripts go into the case, and collector.scenario runs them
# after the collector.
seed_capture() { # dir
    install -D -m 755 scripts/capture-device.sh "$1/case/capture/capture-device.sh"
    install -m 755 "$target/tests/capture-on-board.sh" "$1/case/capture/capture-on-board.sh"
}

# The collector's standard error as crash-dump-sim reports it: the lines after
# its heading, up to the blank line before the exit status's heading.
replayed_stderr() { # report
    awk '/^== (exit status|ended by signal)/ { exit } on { print } /^== crash-dump.s standard error$/ { on = 1 }' "$1" |
        sed '$d'
}

# Compares NAME's board run with the replay of its capture, printing what
# differs; what was compared goes to $logs/NAME.replay-summary.
capture_replay_agrees() { # name
    local console=$logs/$1.console capture=$logs/$1.capture results=$logs/$1.results
    local report=$logs/$1.replay summary=$logs/$1.replay-summary
    local scenario=$work/$1.scenario device=$work/$1.device
    rm -f "$summary"
    tr -d '\r' <"$console" | sed -n '/^==== capture begin ====$/,/^==== capture end ====$/p' |
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
    local replay_status=$? board_status
    board_status=$(tagged "$results" status)
    if [ ! -d "$device/var/lib/lumora/crash-dump" ]; then
        echo "crash-dump-sim ran no collector (status $replay_status):"
        cat "$report"
        return 1
    fi

    local -A board replay
    local info=$device/var/lib/lumora/crash-dump/crash-dump.info line key got_board got_replay stderr_diff
    local differ=0 keys=()
    while IFS= read -r line; do board[${line%%=*}]=${line#*=}; done < <(tagged "$results" info)
    [ ! -f "$info" ] || while IFS= read -r line; do replay[${line%%=*}]=${line#*=}; done <"$info"
    for key in $(printf '%s\n' "${!board[@]}" "${!replay[@]}" | LC_ALL=C sort -u); do
        case $key in time | salt) continue ;; esac
        keys+=("$key")
        got_board=none got_replay=none
        [ -z "${board[$key]+set}" ] || got_board="[${board[$key]}]"
        [ -z "${replay[$key]+set}" ] || got_replay="[${replay[$key]}]"
        [ "$got_board" = "$got_replay" ] && continue
        echo "info $key: board $got_board, replay $got_replay"
        differ=$((differ + 1))
    done
    if ! stderr_diff=$(diff <(tagged "$results" stderr) <(replayed_stderr "$report")); then
        echo "standard error differs (< board, > replay):"
        grep '^[<>]' <<<"$stderr_diff"
        differ=$((differ + 1))
    fi
    if [ "$board_status" != "$replay_status" ]; then
        echo "exit status: board $board_status, replay $replay_status"
        differ=$((differ + 1))
    fi

    {
        echo "compared: exit status $board_status, $(tagged "$results" stderr | wc -l) lines of standard error," \
            "${#keys[@]} info keys (all but time and salt):"
        echo "  ${keys[*]}"
        echo "the board's info has time: ${board[time]-none}; the replay's: ${replay[time]-none}"
        tagged "$capture" seconds | awk '{ printf "capture-device.sh ran %.1f s on the board\n", $2 - $1 }'
    } >"$summary"
    [ "$differ" -eq 0 ]
}

check_capture_replay() {
    check "board: capture and replay agree" capture_replay_agrees "$CAPTURE_CASE"
    [ -s "$logs/$CAPTURE_CASE.replay-summary" ] && sed 's/^/     /' "$logs/$CAPTURE_CASE.replay-summary"
}
