#!/usr/bin/env bash
# Cold reads: the page cache dropped before each command, as on the first check of a media
# just inserted or copied. Our generate and check beside `find | xargs -0 -P16 cat` (the
# device read as fast as many readers at once can) and rhash, on 100,000 small files and
# 2,048 files of ~1 MiB, in one run; prints the wall times and the ratios to the cat.
# Needs root: the cache is dropped through /proc/sys/vm/drop_caches.
#   bench/cold_bench.sh        WORK=dir (default build/peers-bench, shared with peers_bench.sh)
set -uo pipefail
cd "$(dirname "$0")/.."
repo="$(pwd)"
work="${WORK:-$repo/build/peers-bench}"
build="${ZYN_BUILD_DIR:-build}"

if ! { : >/proc/sys/vm/drop_caches; } 2>/dev/null; then
  echo "cold_bench.sh: /proc/sys/vm/drop_caches is not writable here (run as root on a machine of" >&2
  echo "your own); cold runs can't be measured" >&2
  exit 2
fi
command -v rhash >/dev/null || { echo "rhash is needed (apt-get install rhash)" >&2; exit 2; }
# shellcheck source=bench/media.sh
source "$repo/bench/media.sh"
build_exe

# cold LABEL COMMAND...: wall seconds of one run after the cache is dropped.
declare -A wall
cold() {
  local label="$1" log="$work/cold-time.log"
  shift
  sync
  echo 3 >/proc/sys/vm/drop_caches
  /usr/bin/time -f '%e' -o "$log" "$@" >/dev/null 2>&1
  wall[$label]="$(tail -n 1 "$log")"
}

run_media() {
  local name="$1" media="$work/$1/media/1" ref="$work/$1/cold-ref"
  # A reference to check against, made warm: the check below reads the media cold.
  rm -rf "$ref" && "$exe" -generate -quiet -CD1Path "$media" -refDir "$ref" >/dev/null
  cold "$name cat -P16" sh -c "find '$media' -type f -print0 | xargs -0 -P16 -n 200 cat >/dev/null"
  cold "$name rhash -r" sh -c "cd '$media' && rhash --sha256 -r . >/dev/null"
  cold "$name generate" "$exe" -generate -quiet -CD1Path "$media" -refDir "$work/$1/cold-gen"
  cold "$name check" "$exe" -quiet -CD1Path "$media" -refDir "$ref" -xml "$work/$1/cold-report.xml"
  rm -rf "$work/$1/cold-gen"
}

mkdir -p "$work"
make_media small 100000 1024 8192
make_media large 2048 786432 1310720
run_media small
run_media large

echo
echo "| run, page cache dropped | wall s | ratio to cat -P16 |"
echo "|---|---|---|"
for name in small large; do
  for tool in "cat -P16" "rhash -r" generate check; do
    label="$name $tool"
    awk -v l="$label" -v w="${wall[$label]}" -v c="${wall[$name cat -P16]}" \
      'BEGIN { printf "| %-16s | %6.2f | %5.2fx |\n", l, w, (c > 0) ? w / c : 0 }'
  done
done
