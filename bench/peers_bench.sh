#!/usr/bin/env bash
# Our generate and check beside rhash on the media installers carry: many small files, and
# a few thousand large ones. Each tool runs REPEAT times on a warm page cache; the best
# wall time and the largest peak memory are kept. Prints one table with the ratios.
#   bench/peers_bench.sh             100,000 small files and 2,048 files of ~1 MiB
#   bench/peers_bench.sh --million   also 1,000,000 small files (about 4.6 GB of disk)
#   WORK=dir REPEAT=n                scratch folder (default build/peers-bench), repeats (3)
set -uo pipefail
cd "$(dirname "$0")/.."
repo="$(pwd)"
work="${WORK:-$repo/build/peers-bench}"
repeat="${REPEAT:-3}"
build="${ZYN_BUILD_DIR:-build}"
million=0
[[ "${1:-}" == "--million" ]] && million=1

# shellcheck source=bench/media.sh
source "$repo/bench/media.sh"
build_exe
command -v rhash >/dev/null || { echo "rhash is needed (apt-get install rhash)" >&2; exit 2; }

# measure LABEL COMMAND...: best wall seconds and peak KiB over the repeats, and the status.
declare -A wall peak status
measure() {
  local label="$1"
  shift
  local best="" most=0 code=0 log="$work/time.log"
  for ((i = 0; i < repeat; i++)); do
    /usr/bin/time -f '%e %M' -o "$log" "$@" >/dev/null 2>&1
    code=$?
    # A status other than 0 adds a line of its own before the figures.
    read -r seconds kib < <(tail -n 1 "$log")
    if [[ -z "$best" ]] || awk -v a="$seconds" -v b="$best" 'BEGIN { exit !(a < b) }'; then best="$seconds"; fi
    if ((kib > most)); then most="$kib"; fi
  done
  wall[$label]="$best" peak[$label]="$most" status[$label]="$code"
}

# run_media NAME FILES: every tool on one media.
run_media() {
  local name="$1" files="$2" dir="$work/$1"
  local media="$dir/media" ref="$dir/ref" list="$dir/rhash.sha256"
  find "$media" -type f -print0 | xargs -0 cat >/dev/null
  rm -rf "$ref"
  measure "$name rhash -r" sh -c "cd '$media/1' && rhash --sha256 -r . >'$list'"
  measure "$name rhash -c" sh -c "cd '$media/1' && rhash --sha256 -c '$list'"
  measure "$name generate" "$exe" -generate -CD1Path "$media/1" -refDir "$ref"
  measure "$name generate, 1 thread" env QRTSysMultiThreading=FALSE "$exe" -generate -CD1Path "$media/1" -refDir "$ref"
  measure "$name check" "$exe" -CD1Path "$media/1" -refDir "$ref" -quiet -xml "$dir/report.xml"
  measure "$name check, 1 thread" env QRTSysMultiThreading=FALSE "$exe" -CD1Path "$media/1" -refDir "$ref" -quiet -xml "$dir/report.xml"
  if [[ "$name" != large ]]; then
    damage "$name"
    find "$dir/damaged" -type f -print0 | xargs -0 cat >/dev/null
    measure "$name check, 30% damaged" "$exe" -CD1Path "$dir/damaged/1" -refDir "$ref" -quiet -xml "$dir/report.xml"
  fi
  counts[$name]="$files"
}

declare -A counts
mkdir -p "$work"
make_media small 100000 1024 8192
make_media large 2048 786432 1310720
run_media small 100000
run_media large 2048
if ((million)); then
  make_media million 1000000 1024 8192
  run_media million 1000000
fi

row() {  # LABEL [RATIO_OF]
  local label="$1" base="${2:-}" name="${1%% *}"
  awk -v l="$label" -v w="${wall[$label]}" -v k="${peak[$label]}" -v n="${counts[$name]}" -v s="${status[$label]}" \
    -v b="${base:+${wall[$base]}}" -v bl="$base" 'BEGIN {
      ratio = (b > 0) ? sprintf("%.2fx %s", w / b, bl) : ""
      printf "| %-28s | %7.2f | %9.0f | %8.1f | %6.0f | %s | %s |\n", l, w, n / w, k / 1024, k * 1024 / n, s, ratio }'
}
echo
echo "| run | wall s | files/s | peak MiB | B/file | status | ratio |"
echo "|---|---|---|---|---|---|---|"
for name in small large million; do
  [[ -n "${counts[$name]:-}" ]] || continue
  row "$name rhash -r"
  row "$name rhash -c"
  row "$name generate" "$name rhash -r"
  row "$name generate, 1 thread" "$name rhash -r"
  row "$name check" "$name rhash -c"
  row "$name check, 1 thread" "$name rhash -c"
  [[ -n "${wall[$name check, 30% damaged]:-}" ]] && row "$name check, 30% damaged" "$name check"
done
if [[ -n "${counts[million]:-}" ]]; then
  awk -v g1="${wall[million generate]}" -v g0="${wall[small generate]}" -v c1="${wall[million check]}" -v c0="${wall[small check]}" \
    'BEGIN { printf "\ntime at 1M / time at 100k: generate %.1fx, check %.1fx\n", g1 / g0, c1 / c0 }'
fi
echo "(status: exit status of the last repeat; check status 1 is the expected verdict on the damaged copy)"
