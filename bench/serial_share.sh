#!/usr/bin/env bash
# The serial share: CPU time of the thread that keeps walk order (the first) against the
# CPU time of all threads, for generate and an intact check, warm, on 100,000 small files
# (and 1,000,000 with --million). At most 1/share times one core can any number of cores
# make a run.
#   bench/serial_share.sh [--million]    WORK=dir (default build/peers-bench)
set -uo pipefail
cd "$(dirname "$0")/.."
repo="$(pwd)"
work="${WORK:-$repo/build/peers-bench}"
build="${ZYN_BUILD_DIR:-build}"
# shellcheck source=bench/media.sh
source "$repo/bench/media.sh"
build_exe

share() {  # NAME: one line for generate and one for check
  local name="$1" media="$work/$1/media/1" ref="$work/$1/share-ref"
  find "$media" -type f -print0 | xargs -0 cat >/dev/null
  rm -rf "$ref"
  printf '%-8s generate: ' "$name"
  ZYN_SERIAL_SHARE=1 "$exe" -generate -quiet -CD1Path "$media" -refDir "$ref" 2>&1 >/dev/null | grep -E '^(serial share|order kept)'
  printf '%-8s check:    ' "$name"
  ZYN_SERIAL_SHARE=1 "$exe" -quiet -CD1Path "$media" -refDir "$ref" -xml "$work/$1/share-report.xml" 2>&1 >/dev/null |
    grep -E '^(serial share|order kept)'
  rm -rf "$ref"
}

mkdir -p "$work"
make_media small 100000 1024 8192
share small
if [[ "${1:-}" == "--million" ]]; then
  make_media million 1000000 1024 8192
  share million
fi
