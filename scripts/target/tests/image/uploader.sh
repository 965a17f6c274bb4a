# Picks a dump up as the README's "Picking a dump up" says, then checks what
# it took: the archive reads whole and its info member equals the info file.
lock=/var/lock/crash-dump-complete dir=/var/lib/lumora/crash-dump
to=/var/lib/uploads/$(cat /proc/sys/kernel/random/boot_id)
# No lock file: the collector has not started yet.
until [ -e $lock ]; do sleep 0.1; done
exec 9<$lock
flock -s 9 || exit 1
[ -e $dir/crash-dump.ready ] || exit 0
mkdir -p "$to" && cp $dir/crash-dump.tar.bz2 $dir/crash-dump.info "$to/" && rm $dir/crash-dump.ready &&
    sync $dir && rm $dir/crash-dump.tar.bz2 $dir/crash-dump.info && cd "$to" || exit 1
tar -tjf crash-dump.tar.bz2 >/dev/null 2>&1 && whole=yes || whole=no
tar -xjf crash-dump.tar.bz2 -O ./info 2>/dev/null | cmp -s - crash-dump.info && info=member || info=differs
echo "whole=$whole info=$info ltcore=$(tar -xjf crash-dump.tar.bz2 -O ./ltcore | md5sum | cut -c1-32)" >taken
