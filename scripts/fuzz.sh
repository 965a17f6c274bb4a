#!/usr/bin/env bash
# Builds the fuzz targets and runs each for the given number of seconds
# (default 60) on its seed corpus, with fuzz/<name>.dict as its dictionary
# where there is one. A finding stops the script with its reproducer in
# build/fuzz/findings/.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}

scripts/setup-host.sh
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz

mkdir -p build/fuzz/findings
for target in build/fuzz/fuzz/*_fuzz; do
  name=$(basename "$target" _fuzz)
  corpus=build/fuzz/corpus/$name
  mkdir -p "$corpus"
  rm -f build/fuzz/findings/"$name"-*
  dictionary=()
  [ -f "fuzz/$name.dict" ] && dictionary=(-dict="fuzz/$name.dict")
  echo "== $name for ${seconds}s"
  "$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 "${dictionary[@]}" \
    -artifact_prefix=build/fuzz/findings/"$name"- "$corpus" "fuzz/corpus/$name" 2>&1 \
    | grep -E '^(#[0-9]+[[:space:]]+DONE|stat::|==[0-9]+==ERROR|SUMMARY)' || true
  if ls build/fuzz/findings/"$name"-* >/dev/null 2>&1; then
    echo "finding in $name: $(ls build/fuzz/findings/"$name"-*)"
    exit 1
  fi
done
