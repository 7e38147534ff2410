#!/usr/bin/env bash
# What -json and -junit add to a check of 100,000 files of which 30% are damaged (every
# damaged file rewritten with one byte more, its time kept: 30,000 "altered" findings).
# Each run REPEAT times on a warm page cache; the best wall time and the best processor
# time (user and system, all threads) are kept: on a shared machine the latter says more.
#   WORK=dir REPEAT=n   scratch folder kept between runs (default /tmp/findings-bench), repeats (5)
set -uo pipefail
cd "$(dirname "$0")/.."
repo="$(pwd)"
work="${WORK:-/tmp/findings-bench}"
repeat="${REPEAT:-5}"
build="${ZYN_BUILD_DIR:-build}"
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null || exit 2
cmake --build "$build" -j"$(nproc)" --target ZYNInsMediaCheck >/dev/null || exit 2
exe="$repo/$build/ZYNInsMediaCheck"

# shellcheck source=bench/media.sh
source "$repo/bench/media.sh"
make_media small 100000 1024 8192
[[ -e "$work/small/ref" ]] || "$exe" -generate -quiet -CD1Path "$work/small/media/1" -refDir "$work/small/ref" || exit 2
damage small
find "$work/small/damaged" -type f -print0 | xargs -0 cat >/dev/null

# The variants take turns within each repeat, so that a machine busy for a while
# slows them alike; the best wall time of each is kept.
check=("$exe" -CD1Path "$work/small/damaged/1" -refDir "$work/small/ref" -quiet -xml "$work/report.xml")
labels=("-xml only" "-xml -json" "-xml -junit" "-xml -json -junit")
extras=("" "-json $work/f.jsonl" "-junit $work/f.xml" "-json $work/f.jsonl -junit $work/f.xml")
if [[ -n "${BASELINE:-}" ]]; then
  labels+=("baseline, -xml only")
  extras+=("")
fi
declare -A best cpu
for ((i = 0; i < repeat; i++)); do
  for ((v = 0; v < ${#labels[@]}; v++)); do
    command=("${check[@]}")
    [[ "${labels[$v]}" == baseline* ]] && command[0]="$BASELINE"
    # shellcheck disable=SC2206
    command+=(${extras[$v]})
    /usr/bin/time -f '%e %U %S' -o "$work/time.log" "${command[@]}" >/dev/null 2>&1
    read -r seconds user system < <(tail -n 1 "$work/time.log")
    processor="$(awk -v u="$user" -v s="$system" 'BEGIN { printf "%.2f", u + s }')"
    label="${labels[$v]}"
    if [[ -z "${best[$label]:-}" ]] || awk -v a="$seconds" -v b="${best[$label]}" 'BEGIN { exit !(a < b) }'; then
      best[$label]="$seconds"
    fi
    if [[ -z "${cpu[$label]:-}" ]] || awk -v a="$processor" -v b="${cpu[$label]}" 'BEGIN { exit !(a < b) }'; then
      cpu[$label]="$processor"
    fi
  done
done
plain="${best[-xml only]}" plaincpu="${cpu[-xml only]}"
size() { stat -c %s "$1"; }
echo
echo "| check of 100,000 files, 30% damaged | best wall s of $repeat | added | best processor s | added | file bytes |"
echo "|---|---|---|---|---|---|"
for label in "${labels[@]}"; do
  added="$(awk -v a="${best[$label]}" -v b="$plain" 'BEGIN { printf "%+.2f", a - b }')"
  addedcpu="$(awk -v a="${cpu[$label]}" -v b="$plaincpu" 'BEGIN { printf "%+.2f", a - b }')"
  case "$label" in
    "-xml only") bytes="$(size "$work/report.xml") (report)" added="" addedcpu="" ;;
    "-xml -json") bytes="$(size "$work/f.jsonl")" ;;
    "-xml -junit") bytes="$(size "$work/f.xml")" ;;
    *) bytes="" ;;
  esac
  echo "| $label | ${best[$label]} | $added | ${cpu[$label]} | $addedcpu | $bytes |"
done
echo "(findings: $(grep -c '"record":"finding"' "$work/f.jsonl"))"
