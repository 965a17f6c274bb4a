# Shared helpers for the target scripts. Sourced, never executed.
#
# Everything armhf is fetched through a private apt tree under the cache
# directory: the host's dpkg never learns about armhf, so host -dev packages
# and armhf ones can never drift apart or block each other's upgrades.

TARGET_CACHE=${CRASH_DUMP_TARGET_CACHE:-/var/cache/crash-dump-target}
TARGET_ARCH=armhf
TARGET_TRIPLET=arm-linux-gnueabihf

log() { printf '[target] %s\n' "$*" >&2; }
die() { printf '[target] error: %s\n' "$*" >&2; exit 1; }

# Sets tmp to an empty scratch directory beside the cache entry OUT, removed
# when the script exits: an entry is built there and moved into place whole,
# so an interrupted build never leaves a half-made entry that looks current.
scratch_beside() { # out
    tmp=$1.new.$$
    rm -rf "$tmp"
    mkdir -p "$tmp"
    trap 'rm -rf "$tmp"' EXIT
}

# Installs host packages that are missing; "apt-get update" runs at most once
# per process and only when something has to be installed, so a prepared
# machine never touches the network here.
_host_apt_updated=
host_require() {
    local missing=() p
    for p in "$@"; do
        dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' ||
            missing+=("$p")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    log "installing host packages: ${missing[*]}"
    if [ -z "$_host_apt_updated" ]; then
        apt-get update -qq || log "apt-get update reported errors; trying anyway"
        _host_apt_updated=1
    fi
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null ||
        die "apt-get install ${missing[*]} failed"
}

_apt_root() { echo "$TARGET_CACHE/apt"; }

# Options that point apt at the private armhf tree. Downloads run as root
# because the cache directory is not readable by the _apt sandbox user.
_apt_opts() {
    local r
    r=$(_apt_root)
    printf '%s\n' \
        -o "Dir::Etc::SourceList=/dev/null" \
        -o "Dir::Etc::SourceParts=$r/sources.list.d" \
        -o "Dir::Etc::Preferences=/dev/null" \
        -o "Dir::Etc::PreferencesParts=$r/preferences.d" \
        -o "Dir::State=$r/state" \
        -o "Dir::State::status=$r/state/status" \
        -o "Dir::Cache=$r/cache" \
        -o "APT::Architecture=$TARGET_ARCH" \
        -o "APT::Architectures::=$TARGET_ARCH" \
        -o "APT::Sandbox::User=root" \
        -o "Debug::NoLocking=1" \
        -o "Acquire::Languages=none"
}

target_apt_get() { local o; mapfile -t o < <(_apt_opts); apt-get "${o[@]}" "$@"; }
target_apt_cache() { local o; mapfile -t o < <(_apt_opts); apt-cache "${o[@]}" "$@"; }

# Mirrors whatever Debian sources the host uses (mirror, snapshot, proxy) so
# that armhf comes from the same place; falls back to the public bookworm
# suites. CRASH_DUMP_DEBIAN_SOURCES may name a deb822 file to use instead.
_apt_write_sources() {
    local r=$1 src=${CRASH_DUMP_DEBIAN_SOURCES:-/etc/apt/sources.list.d/debian.sources}
    mkdir -p "$r/sources.list.d" "$r/preferences.d" "$r/state/lists/partial" "$r/cache/archives/partial"
    touch "$r/state/status"
    if [ -f "$src" ]; then
        cp "$src" "$r/sources.list.d/debian.sources"
    else
        cat >"$r/sources.list.d/debian.sources" <<'EOF'
Types: deb
URIs: http://deb.debian.org/debian
Suites: bookworm bookworm-updates
Components: main
Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg

Types: deb
URIs: http://deb.debian.org/debian-security
Suites: bookworm-security
Components: main
Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg
EOF
    fi
}

# Refreshes the private armhf index when asked to, when it has never been
# fetched, or when it is a day old: Debian drops superseded .debs from the
# pool, so downloading by an old index can fail. An index that fails to download (a mirror caught mid-sync does
# that to bookworm-security now and then) is tolerated as long as the main
# suite is there: we then simply get the point-release versions.
target_apt_update() {
    local force=${1:-} r
    r=$(_apt_root)
    if [ -z "$force" ] && [ -n "$(find "$r/state/lists" -maxdepth 1 -mmin -1440 \
        -name "*_main_binary-${TARGET_ARCH}_Packages*" 2>/dev/null)" ]; then
        return 0
    fi
    _apt_write_sources "$r"
    log "refreshing the armhf package index"
    target_apt_get -qq update 2>&1 | grep -E '^(E|W):' | sed 's/^/[target] apt: /' >&2 || true
    compgen -G "$r/state/lists/*_main_binary-${TARGET_ARCH}_Packages*" >/dev/null ||
        die "no armhf package index could be fetched"
}

# Recursive Depends/Pre-Depends closure of the given packages, one name per
# line. Virtual names are dropped: each one we meet is provided by a real
# package that is already in the closure.
target_closure() {
    target_apt_cache depends --recurse --no-recommends --no-suggests --no-conflicts \
        --no-breaks --no-replaces --no-enhances "$@" |
        grep -v '^ ' | grep -v '^<' | sort -u
}

# Downloads the given packages (NAME or NAME=VERSION) into DIR unless already
# there, then prints the absolute path of each .deb. apt verifies the
# checksums it downloads.
target_fetch_debs() {
    local dir=$1; shift
    mkdir -p "$dir"
    local uris missing=() line file
    uris=$(target_apt_get download --print-uris "$@") || die "cannot resolve: $*"
    while read -r line; do
        [ -n "$line" ] || continue
        file=$(awk '{print $2}' <<<"$line")
        [ -s "$dir/$file" ] || missing+=("$(deb_file_spec "$file")")
    done <<<"$uris"
    if [ ${#missing[@]} -gt 0 ]; then
        log "downloading ${#missing[@]} armhf packages"
        (cd "$dir" && target_apt_get -qq download "${missing[@]}") >&2 || die "download failed"
    fi
    awk -v d="$dir" 'NF { print d "/" $2 }' <<<"$uris"
}

# NAME=VERSION of a .deb file name (NAME_VERSION_ARCH.deb, with an epoch's
# colon written %3a), so that exactly the resolved version is downloaded.
deb_file_spec() {
    local name=${1%%_*} version=${1#*_}
    version=${version%_*}
    echo "$name=${version//%3a/:}"
}

# Debian packages carry absolute symlinks (libz.so -> /lib/...); inside a
# directory tree they would point at the host. Rewrite them relative.
fix_absolute_symlinks() {
    local root=$1 link target
    while IFS= read -r -d '' link; do
        target=$(readlink "$link")
        ln -sfn "$(realpath -s -m --relative-to="$(dirname "$link")" "$root$target")" "$link"
    done < <(find "$root" -type l -lname '/*' -print0)
}

# Unpacks .debs into a fresh directory next to DEST, then swaps it in, so an
# interrupted run never leaves a half-filled tree behind a valid stamp.
unpack_debs_atomically() {
    local dest=$1; shift
    local tmp="$dest.new.$$"
    rm -rf "$tmp"
    mkdir -p "$tmp"
    local deb
    for deb in "$@"; do dpkg-deb -x "$deb" "$tmp" || die "cannot unpack $deb"; done
    fix_absolute_symlinks "$tmp"
    rm -rf "$dest.old"
    [ -e "$dest" ] && mv "$dest" "$dest.old"
    mv "$tmp" "$dest"
    rm -rf "$dest.old"
}

# The list of deb file names identifies a tree's content exactly.
debs_fingerprint() {
    local f
    for f in "$@"; do basename "$f"; done | sort | sha256sum | cut -d' ' -f1
}

# Copies into TREE/lib/arm-linux-gnueabihf every shared library that the
# armhf ELF files in TREE need, taken from SYSROOT, until nothing is missing.
# Statically linked files need nothing and are left alone.
copy_needed_libs() {
    local tree=$1 sysroot=$2 libdir=$1/lib/$TARGET_TRIPLET
    local f lib src changed=1 dynamic=
    mkdir -p "$libdir"
    while [ -n "$changed" ]; do
        changed=
        while IFS= read -r -d '' f; do
            head -c4 "$f" 2>/dev/null | grep -q $'^\x7fELF' || continue
            while read -r lib; do
                dynamic=1
                [ -e "$libdir/$lib" ] && continue
                src=
                for d in lib/$TARGET_TRIPLET usr/lib/$TARGET_TRIPLET; do
                    [ -e "$sysroot/$d/$lib" ] && { src=$sysroot/$d/$lib; break; }
                done
                [ -n "$src" ] || die "${f#"$tree"/} needs $lib, which $sysroot lacks"
                cp -L "$src" "$libdir/$lib"
                changed=1
            done < <("$TARGET_TRIPLET-readelf" -d "$f" 2>/dev/null |
                sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
        done < <(find "$tree" -type f -print0)
    done
    if [ -n "$dynamic" ] && [ ! -e "$tree/lib/ld-linux-armhf.so.3" ]; then
        ln -s "$TARGET_TRIPLET/ld-linux-armhf.so.3" "$tree/lib/ld-linux-armhf.so.3"
    fi
}
