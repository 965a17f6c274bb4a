# The board's NAND as the case describes it, mtdparts= from its command line.
. /usr/local/lib/board/lib.sh
. /case/case.env
mtdparts=$(sed -n 's/^mtdparts="\(.*\)"$/\1/p' /case/kernel-cmdline 2>/dev/null)
board_flash_case
