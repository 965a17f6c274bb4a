#!/usr/bin/env bash
# Installs everything the host build, the tests and the demo need from Debian's
# packages. Idempotent: packages already present are not fetched again.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config
  libboost1.74-dev libboost-iostreams1.74-dev libboost-filesystem1.74-dev
  libboost-system1.74-dev
  libfmt-dev zlib1g-dev libcap-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  bzip2 tar util-linux coreutils
  clang libclang-rt-14-dev
  valgrind strace
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

if [ ${#missing[@]} -gt 0 ]; then
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
