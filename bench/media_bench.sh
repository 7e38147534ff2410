#!/usr/bin/env bash
# Times generate mode against common digest tools over one synthetic media, then the
# check of that media. Sizes come from the environment:
#   FILES     number of files (default 100000)
#   TOTAL_MB  approximate total size in MiB (default 1024)
#   WORK      scratch folder (default build/media-bench); the media is rebuilt when
#             FILES or TOTAL_MB change
# All runs read a warm page cache: the media is read once before the first timing.
set -uo pipefail
cd "$(dirname "$0")/.."
repo="$(pwd)"
files="${FILES:-100000}"
total_mb="${TOTAL_MB:-1024}"
work="${WORK:-$repo/build/media-bench}"
build="${ZYN_BUILD_DIR:-build}"

echo "== building"
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE="${ZYN_BUILD_TYPE:-Release}" >/dev/null || exit 2
cmake --build "$build" -j"$(nproc 2>/dev/null || echo 2)" --target ZYNInsMediaCheck >/dev/null || exit 2
exe="$repo/$build/ZYNInsMediaCheck"

if ! command -v rhash >/dev/null || ! command -v hashdeep >/dev/null; then
  if command -v apt-get >/dev/null && [ "$(id -u)" = 0 ]; then
    echo "== installing rhash and hashdeep"
    apt-get install -y rhash hashdeep >/dev/null 2>&1 || echo "   (not installed; those rows are skipped)"
  fi
fi

media="$work/media"
stamp="$work/.made-$files-$total_mb"
if [ ! -e "$stamp" ]; then
  echo "== making a media of $files files, about $total_mb MiB, in $media"
  rm -rf "$work" && mkdir -p "$work"
  python3 - "$media" "$files" "$total_mb" <<'PY' || exit 2
import os, random, sys
root, count, total = sys.argv[1], int(sys.argv[2]), int(sys.argv[3]) * 1024 * 1024
rnd = random.Random(1)
pool = rnd.randbytes(32 * 1024 * 1024)
# Sizes: mostly small, a long tail; scaled so that the sum is about `total`.
raw = [int(rnd.paretovariate(1.3) * 1000) % (8 * 1024 * 1024) for _ in range(count)]
scale = total / max(1, sum(raw))
for i, size in enumerate(raw):
    size = int(size * scale)
    volume = "1" if i < count * 9 // 10 else "2"
    # About 25 files to a folder, two levels deep, a few files one level up.
    leaf = i // 25
    folder = os.path.join(root, volume, "d%03d" % (leaf // 40))
    if i % 25 != 0:
        folder = os.path.join(folder, "e%02d" % (leaf % 40))
    os.makedirs(folder, exist_ok=True)
    path = os.path.join(folder, "file%06d.bin" % i)
    start = rnd.randrange(0, len(pool) - size) if size < len(pool) else 0
    with open(path, "wb") as out:
        out.write(pool[start:start + size])
    os.utime(path, (1600000000, 1600000000))
for volume in ("1", "2"):
    os.makedirs(os.path.join(root, volume, "0data"), exist_ok=True)
open(os.path.join(root, "1", "meta.TOCxml"), "w").close()
PY
  touch "$stamp"
fi
count="$(find "$media" -type f | wc -l)"
bytes="$(find "$media" -type f -printf '%s\n' | awk '{ s += $1 } END { print s + 0 }')"
echo "== media: $count files, $((bytes / 1024 / 1024)) MiB"
find "$media" -type f -print0 | xargs -0 cat >/dev/null

declare -a names walls rsss statuses
# Runs one command under /usr/bin/time and records wall seconds and peak memory.
measure() {
  local name="$1"
  shift
  local log="$work/time-$name.log"
  /usr/bin/time -v -o "$log" bash -c "$*" >/dev/null 2>"$work/stderr-$name.log"
  local status=$?
  local wall rss
  wall="$(awk -F': ' '/Elapsed \(wall clock\)/ { n = split($2, p, ":"); s = 0; for (i = 1; i <= n; i++) s = s * 60 + p[i]; print s }' "$log")"
  rss="$(awk -F': ' '/Maximum resident set size/ { print $2 }' "$log")"
  names+=("$name") walls+=("$wall") rsss+=("$rss") statuses+=("$status")
}

ref="$work/ref"
rm -rf "$ref"
measure generate "'$exe' -generate -CD1Path '$media/1' -refDir '$ref'"
measure sha256sum "find '$media' -type f -print0 | xargs -0 sha256sum"
measure openssl "find '$media' -type f -print0 | xargs -0 openssl dgst -sha256"
command -v rhash >/dev/null && measure rhash "rhash --sha256 -r '$media'"
command -v hashdeep >/dev/null && measure hashdeep "hashdeep -c sha256 -r '$media'"
measure check "'$exe' -CD1Path '$media/1' -refDir '$ref'"

echo
printf '%-10s %7s %10s %12s %9s %7s\n' tool wall_s files/s peak_MiB vs_ours status
ours="${walls[0]}"
for i in "${!names[@]}"; do
  awk -v n="${names[$i]}" -v w="${walls[$i]}" -v r="${rsss[$i]}" -v o="$ours" -v c="$count" -v s="${statuses[$i]}" \
    'BEGIN { printf "%-10s %7.2f %10.0f %12.1f %8.2fx %7s\n", n, w, (w > 0 ? c / w : 0), r / 1024, (o > 0 ? w / o : 0), s }'
done
echo "(vs_ours: wall time of the tool divided by ours; above 1 means ours is faster)"
