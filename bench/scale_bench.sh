#!/usr/bin/env bash
# How generate and an intact check scale with cores, beside `find | xargs -0 -P<cores> rhash`:
# each run limited by taskset to the first 1, 2, 4, ... CPUs, warm page cache, median wall
# time of REPEAT runs, every core count and tool in turn within each repeat. Prints one
# table: seconds, our ratio to rhash at the same cores, the speed-up over the first core
# count, and the machine's own: the speed-up of one independent digest per core (a
# SHA-256 of 512 MiB of zeros from a pipe, no file and no shared state), which a shared
# or virtual machine may hold well below the core count.
#   bench/scale_bench.sh [MEDIA...]  small (100,000 files of 1-8 KiB, the default), large
#                                    (2,048 of ~1 MiB), million (1,000,000 small, 4.6 GB)
#   WORK=dir REPEAT=n CORES="1 2 4"  scratch folder (default build/peers-bench), repeats (3),
#                                    core counts (powers of two up to the CPUs here)
set -uo pipefail
cd "$(dirname "$0")/.."
repo="$(pwd)"
work="${WORK:-$repo/build/peers-bench}"
repeat="${REPEAT:-3}"
build="${ZYN_BUILD_DIR:-build}"
# shellcheck source=bench/media.sh
source "$repo/bench/media.sh"
build_exe
command -v rhash >/dev/null || { echo "rhash is needed (apt-get install rhash)" >&2; exit 2; }
command -v taskset >/dev/null || { echo "taskset is needed (util-linux)" >&2; exit 2; }
cpus="$(nproc)"
cores="${CORES:-}"
if [[ -z "$cores" ]]; then
  for ((n = 1; n < cpus; n *= 2)); do cores+="$n "; done
  cores+="$cpus"
fi


# since START: wall seconds from START (an $EPOCHREALTIME) to now.
since() { awk -v a="$1" -v b="$EPOCHREALTIME" 'BEGIN { printf "%.3f", b - a }'; }

# once N COMMAND...: wall seconds of one run on the first N CPUs.
once() {
  local n="$1" start="$EPOCHREALTIME"
  shift
  taskset -c "0-$((n - 1))" "$@" >/dev/null 2>&1
  since "$start"
}

# sums N: wall seconds of N independent digests at once, one on each of the first N CPUs.
sums() {
  local n="$1" start="$EPOCHREALTIME" cpu
  for ((cpu = 0; cpu < n; cpu++)); do
    taskset -c "$cpu" sh -c 'head -c 536870912 /dev/zero | sha256sum' >/dev/null 2>&1 &
  done
  wait
  since "$start"
}

# median TIMES...: the median of the wall times given.
median() {
  printf '%s\n' "$@" | sort -n | awk '{ t[NR] = $1 } END { print t[int((NR + 1) / 2)] }'
}

# Each repeat runs every core count and tool in turn, so that a burst of load on this
# shared machine falls on all of them alike rather than on one core count's runs.
run_media() {
  local name="$1" media="$work/$1/media/1" ref="$work/$1/scale-ref" one_gen="" one_check="" one_sums=""
  find "$media" -type f -print0 | xargs -0 cat >/dev/null
  rm -rf "$ref" && "$exe" -generate -quiet -CD1Path "$media" -refDir "$ref" >/dev/null
  declare -A times
  for ((i = 0; i < repeat; i++)); do
    for n in $cores; do
      times[$n s]+=" $(sums "$n")"
      times[$n r]+=" $(once "$n" sh -c "find '$media' -type f -print0 | xargs -0 -P$n -n 500 rhash --sha256 >/dev/null")"
      rm -rf "$work/$1/scale-gen"
      times[$n g]+=" $(once "$n" "$exe" -generate -quiet -CD1Path "$media" -refDir "$work/$1/scale-gen")"
      times[$n c]+=" $(once "$n" "$exe" -quiet -CD1Path "$media" -refDir "$ref" -xml "$work/$1/scale-report.xml")"
    done
  done
  echo
  local first="${cores%% *}"
  echo "$name, warm page cache, medians of $repeat runs taken in turn:"
  echo "| cores | rhash -P s | generate s | check s | generate/rhash | check/rhash | generate speed-up over $first | check speed-up over $first | machine's speed-up over $first |"
  echo "|---|---|---|---|---|---|---|---|---|"
  for n in $cores; do
    local r g c m
    # shellcheck disable=SC2086
    r="$(median ${times[$n r]})" g="$(median ${times[$n g]})" c="$(median ${times[$n c]})" m="$(median ${times[$n s]})"
    [[ -z "$one_gen" ]] && one_gen="$g" one_check="$c" one_sums="$m"
    # The machine's speed-up: n digests in the time it took for n, against one.
    awk -v n="$n" -v r="$r" -v g="$g" -v c="$c" -v g1="$one_gen" -v c1="$one_check" -v m="$m" -v m1="$one_sums" \
      -v n1="$first" 'BEGIN {
      printf "| %2d | %6.3f | %6.3f | %6.3f | %5.2fx | %5.2fx | %5.2fx | %5.2fx | %5.2fx |\n",
        n, r, g, c, g / r, c / r, g1 / g, c1 / c, (n / n1) * m1 / m }'
  done
  rm -rf "$ref" "$work/$1/scale-gen"
}

mkdir -p "$work"
echo "CPUs: $cpus; repeats: $repeat"
for name in "${@:-small}"; do
  case "$name" in
    small) make_media small 100000 1024 8192 ;;
    large) make_media large 2048 786432 1310720 ;;
    million) make_media million 1000000 1024 8192 ;;
    *) echo "unknown media $name: small, large or million" >&2; exit 2 ;;
  esac
  run_media "$name"
done
