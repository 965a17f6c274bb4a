# The board's cases as the host prepares them, and the checks they share.
# Sourced by scripts/target-tests.sh, which provides COLLECTOR (the stripped
# static armhf collector) and SIM (crash-dump-sim, whose make-env and make-fit
# write the flash images). The sweep has prepare_NAME DIR, which fills DIR/case
# (/case on the board), and check_NAME RESULTS, which prints each mismatch.

# Run after run, each cut short by a power cut, by power-cut.scenario.
POWER_CUT_CASE=power_cut_sweep

# 128 MiB of NAND in 2 KiB pages and 128 KiB erase blocks, which the kernel
# names by its ID: the partitions' mtd-id.
ERASE_BLOCK=131072
NAND_CHIP="first_id_byte=0xec second_id_byte=0xa1 third_id_byte=0x00 fourth_id_byte=0x15"
NAND_CHIP_NAME="NAND 128MiB 1,8V 8-bit"
# The boot loader environment in the first 8 blocks, the rescue kernel in the
# 16 after them, and a writable view over the whole chip that the images are
# written through, since the player's partitions may be read-only.
NVRAM_SIZE=$((8 * ERASE_BLOCK))
RESCUE_SIZE=$((16 * ERASE_BLOCK))
FLASH_VIEW=board.flash
RESCUE_VERSION=4.3.2-rescue

# The manufacturing record; the case checks read the values back from the
# info file, re-formatted. Bit 2 of LM_HWFLAGS says that the board has a
# radio, which is what gives the dump a wifi_mac.
BOOT_ENVIRONMENT=(LM_FORMAT=1 LM_SERIAL=PX4C00123 LM_HWREV=0x0a LM_HWFLAGS=0x5
    LM_ETH0_HWADDR=00:1A:2B:3C:4D:5E LM_WLAN0_HWADDR=00:1a:2b:3c:4d:5f bootdelay=3)

# --- preparing a case ----------------------------------------------------------

seed() { # dir path-in-root content
    local file=$1/case/root$2
    mkdir -p "$(dirname "$file")"
    printf '%s' "$3" >"$file"
}

# The collector and what the previous run left behind, as the player's own
# kernel keeps it, on a board that names itself in /proc/boardid.
seed_case() { # dir core-bytes trigger soc-line reset-cause
    install -D -m 755 "$COLLECTOR" "$1/case/root/usr/sbin/crash-dump"
    seed "$1" /proc/panic_flag 0
    seed "$1" /sys/class/mem/lastkmsg/trigger_dump "$3"
    seed "$1" /dev/lastkmsg "$(kernel_log)"
    core_image "$2" >"$1/case/root/dev/ltcore"
    seed "$1" /etc/lumora-version "5.12.0"
    seed "$1" /etc/lumora-image-name $' signage-player-release\n'
    seed "$1" /proc/boardid "Family: corvan
ID: 0x1a
Bootloader-version: uboot-2.4.1
Secure-keys: 0
Secure-boot: 0
$4"
    echo "$5" >"$1/case/reset-cause"
}

# An ELF core header and a deterministic body of exactly that many bytes, that
# the host can check the archived copy against.
core_image() { # bytes
    [ "$1" -gt 0 ] || return 0
    { printf '\177ELF\001\001\001\000'; seq 1 "$1"; } | head -c "$1"
}

# The previous run's kernel log in /dev/kmsg's export format: the player
# asserted, then the watchdog reset the board.
kernel_log() {
    printf '%s\n' \
        '6,1021,5120334,-;Process lmplay (pid: 812, stack limit = 0x8c2b0000)' \
        '3,1022,5120401,-;User space assert from lmplay[812]\x0aASSERT Executing frame.size() > 0 at render.cpp:214' \
        '6,1023,5120455,-;LMPLAY: watchdog starving, last frame 4811'
}

# nandsim with the given bad blocks (indices over the whole chip), the boot
# loader environment in flash0.nvram and the rescue image in flash0.rescue,
# both with the given mtdparts flags ("" or "ro"), then the given further
# partitions ("size(name)", comma-separated); nandwrite on the board steps
# over bad blocks as the device's own writers do.
flash_with_bad_blocks() { # dir bad-blocks flags [partitions]
    local images=$1/case/images
    mkdir -p "$images"
    "$SIM" make-env --erase-size "$ERASE_BLOCK" "${BOOT_ENVIRONMENT[@]}" >"$images/nvram.img" || return 1
    "$SIM" make-fit --version "$RESCUE_VERSION" --gzip --payload 600000 >"$images/rescue.img" || return 1
    cat >"$1/case/case.env" <<EOF
NANDSIM="$NAND_CHIP badblocks=$2"
FLASH_VIEW=$FLASH_VIEW
FLASH_IMAGES="0:nvram.img $NVRAM_SIZE:rescue.img"
EOF
    printf 'mtdparts="%s:%d(flash0.nvram)%s,%d(flash0.rescue)%s,%s-@0(%s)"\n' "$NAND_CHIP_NAME" \
        "$NVRAM_SIZE" "$3" "$RESCUE_SIZE" "$3" "${4:+$4,}" "$FLASH_VIEW" >"$1/case/kernel-cmdline"
}

# A crash at a watchdog reset, its output directory on UBIFS in a partition of
# its own, and an earlier dump waiting there: the board cuts the power at one
# point of the run after another (power-cut.scenario), and writes the core
# images itself, random bytes. The earlier crash's core is the smaller: making
# that dump only sets the scene.
prepare_power_cut_sweep() {
    seed_case "$1" 0 0 "SoC: i.MX6UL" 0x10
    # 96 blocks: UBI keeps 20 for bad blocks (as many per 1024 of the
    # chip's) and 4 for itself, UBIFS about a dozen; the rest holds both
    # dumps with a few MiB to spare.
    flash_with_bad_blocks "$1" 0 "" "$((96 * ERASE_BLOCK))(flash0.data)" || return
    cat >>"$1/case/case.env" <<EOF
DATA_PARTITION=flash0.data
EARLIER_CORE_BYTES=$((512 * 1024))
CORE_BYTES=$((2 * 1024 * 1024))
EOF
}

# --- checking a case's results -------------------------------------------------

# The lines the board tagged with TAG, in order.
tagged() { sed -n "s/^@@$2 //p" "$1"; }

expect_equal() { # what got want
    [ "$2" = "$3" ] || printf '%s: got [%s], wanted [%s]\n' "$1" "$2" "$3"
}

listing() { tagged "$1" "$2" | sort | tr '\n' ' ' | sed 's/ $//'; }

# The facts of a dump at a watchdog reset after the player's assert.
expect_dump_facts() { # results
    local r=$1 entry
    for entry in type=post-mortem reset=watchdog_reset reset_flags=0x10 \
        reset_flag_strings=watchdog_reset serial=PX4C00123 hwrev=10 \
        eth_mac=00:1a:2b:3c:4d:5e wifi_mac=00:1a:2b:3c:4d:5f \
        "rescue=$RESCUE_VERSION" soc=i.MX6UL board=0x1a boot=2.4.1 family=corvan \
        run=5.12.0 image_name=signage-player-release td=0 console=1 process=lmplay \
        "assert=frame.size() > 0 at render.cpp:214" \
        "lmplay=watchdog starving, last frame 4811"; do
        tagged "$r" info | grep -qxF -- "$entry" ||
            printf 'info lacks %s (has: %s)\n' "$entry" "$(tagged "$r" info | grep -F -- "${entry%%=*}=" | head -n1)"
    done
    tagged "$r" info | grep -qE '^salt=[0-9a-f]{32}$' || echo "info has no 32-digit salt"
    tagged "$r" info | grep -E '^(triggered|customer_ubis)=' | sed 's/^/info has, wanted none: /'
}

# The runs that a cut reached, "N facts" a line.
cut_runs() { tagged "$1" cut | grep ' cut=yes '; }

# Those that break the promise: a marker that stands beside an archive that
# does not read whole, or beside an info file that is not the archive's own,
# or beside neither run's dump.
misleading_runs() { cut_runs "$1" | grep -v ' marker=no$' | grep -vE ' whole=yes info=member run=(earlier|new)$'; }

# At least 20 cut points, each followed by no misleading marker; the run that
# no cut reached (the last) leaves the new dump marked.
check_power_cut_sweep() {
    local points last
    misleading_runs "$1" | sed 's/^\([0-9]*\) /cut after \1 header writes: the marker stands beside a broken or mixed dump: /'
    points=$(cut_runs "$1" | wc -l)
    [ "$points" -ge 20 ] || echo "$points cut points, wanted at least 20"
    last=$(tagged "$1" cut | tail -n1)
    case $last in
    *" cut=no status=0 marker=yes whole=yes info=member run=new") ;;
    *" cut=no "*) echo "the run that no cut reached left no new dump marked: $last" ;;
    *) echo "the sweep stopped before a run ended ahead of its cut: last [$last]" ;;
    esac
}

# One line: the cut points, what each left marked, and the violations.
power_cut_summary() { # results
    local runs
    runs=$(cut_runs "$1")
    printf '%d cut points over a run of %s header writes: the earlier dump marked after %d, the new one after %d, no marker after %d; %d violations\n' \
        "$(grep -c . <<<"$runs")" "$(tagged "$1" header-writes)" "$(grep -c ' run=earlier$' <<<"$runs")" \
        "$(grep -c ' run=new$' <<<"$runs")" "$(grep -c ' marker=no$' <<<"$runs")" "$(misleading_runs "$1" | grep -c .)"
}
