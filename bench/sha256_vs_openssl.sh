#!/usr/bin/env bash
# Times our file digest against `openssl dgst -sha256` on the same file, checks that
# both give the same digest, and prints the throughputs and their ratio (ours/openssl).
#
#   bench/sha256_vs_openssl.sh [FILE]
#
# Without FILE a 1 GiB file of random bytes is made in a temporary folder and removed
# afterwards. The file is read once before timing so that both tools hash from the page
# cache; each tool runs RUNS times (default 3), alternating, and its best time counts.
# ZYN_SHA256SUM names our executable; by default the first build*/bench/zyn_sha256sum
# of the source tree. ZYN_SHA256SUM_ARGS=--portable measures the portable compression.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
runs="${RUNS:-3}"

source "$root/bench/common.sh"
ours="$(find_tool zyn_sha256sum ZYN_SHA256SUM)"
command -v openssl >/dev/null || { echo "openssl not found" >&2; exit 2; }

file="${1:-}"
if [[ -z "$file" ]]; then
  tmpdir="$(mktemp -d)"
  file="$tmpdir/sha256_bench.bin"
  echo "creating 1 GiB test file in $tmpdir ..."
  head -c $((1024 * 1024 * 1024)) /dev/urandom >"$file"
fi
[[ -r "$file" ]] || { echo "cannot read $file" >&2; exit 2; }
size=$(stat -c %s "$file")

cat "$file" >/dev/null

now_ns() { date +%s%N; }

# Runs a command with its output in $2 and prints the elapsed nanoseconds.
time_ns() {
  local out="$2" start end
  start=$(now_ns)
  eval "$1" >"$out"
  end=$(now_ns)
  echo $((end - start))
}

best_openssl=0
best_ours=0
for ((run = 1; run <= runs; ++run)); do
  t=$(time_ns 'openssl dgst -sha256 -r "$file"' "$outdir/openssl.txt")
  if ((best_openssl == 0 || t < best_openssl)); then best_openssl=$t; fi
  t=$(time_ns '"$ours" ${ZYN_SHA256SUM_ARGS:-} "$file"' "$outdir/ours.txt")
  if ((best_ours == 0 || t < best_ours)); then best_ours=$t; fi
done

digest_openssl=$(awk '{print $1; exit}' "$outdir/openssl.txt")
digest_ours=$(awk '{print $1; exit}' "$outdir/ours.txt")

echo "file:    $file ($size bytes)"
echo "openssl: $digest_openssl"
echo "ours:    $digest_ours"
if [[ "$digest_openssl" != "$digest_ours" ]]; then
  echo "DIGESTS DIFFER" >&2
  exit 1
fi

awk -v size="$size" -v to="$best_openssl" -v tz="$best_ours" -v runs="$runs" 'BEGIN {
  mib = size / 1048576
  printf "openssl dgst -sha256: %8.1f MiB/s (best of %d, %.3f s)\n", mib / (to / 1e9), runs, to / 1e9
  printf "zyn_sha256sum:        %8.1f MiB/s (best of %d, %.3f s)\n", mib / (tz / 1e9), runs, tz / 1e9
  printf "ratio ours/openssl:   %8.3f\n", to / tz
}'
