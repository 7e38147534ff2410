#!/usr/bin/env bash
# What -json and -junit add to a check of 100,000 files of which 30% are damaged (every
# damaged file rewritten with one byte more, its time kept: 30,000 "altered" findings).
# Each run REPEAT times on a warm page cache; the best wall time is kept.
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

if [[ ! -e "$work/.made" ]]; then
  echo "== making 100,000 files under $work" >&2
  rm -rf "$work" && mkdir -p "$work/media/1"
  python3 - "$work/media/1" <<'PY' || exit 2
import os, random, sys
root, rnd = sys.argv[1], random.Random(7)
pool = rnd.randbytes(8193 << 4)
for i in range(100000):
    folder = os.path.join(root, "d%04d" % (i // 2000), "e%02d" % (i // 50 % 40))
    if i % 50 == 0:
        os.makedirs(folder, exist_ok=True)
    size = rnd.randint(1024, 8192)
    start = rnd.randrange(0, len(pool) - size)
    path = os.path.join(folder, "f%07d.bin" % i)
    with open(path, "wb") as out:
        out.write(pool[start:start + size])
    os.utime(path, (1600000000, 1600000000))
PY
  "$exe" -generate -quiet -CD1Path "$work/media/1" -refDir "$work/ref" || exit 2
  cp -al "$work/media" "$work/damaged"
  python3 - "$work/damaged" <<'PY' || exit 2
import os, sys
n = 0
for folder, _, names in sorted(os.walk(sys.argv[1])):
    for name in sorted(names):
        n += 1
        if n % 10 >= 3:
            continue
        path = os.path.join(folder, name)
        data, stat = open(path, "rb").read(), os.stat(path)
        os.unlink(path)  # a new file: the original keeps its bytes
        with open(path, "wb") as new:
            new.write(data + b"x")
        os.utime(path, (stat.st_atime, stat.st_mtime))
PY
  touch "$work/.made"
fi
find "$work/damaged" -type f -print0 | xargs -0 cat >/dev/null

best() {  # best wall seconds of the command over the repeats
  local best="" seconds
  for ((i = 0; i < repeat; i++)); do
    /usr/bin/time -f '%e' -o "$work/time.log" "$@" >/dev/null 2>&1
    seconds="$(tail -n 1 "$work/time.log")"
    if [[ -z "$best" ]] || awk -v a="$seconds" -v b="$best" 'BEGIN { exit !(a < b) }'; then best="$seconds"; fi
  done
  echo "$best"
}
check=("$exe" -CD1Path "$work/damaged/1" -refDir "$work/ref" -quiet -xml "$work/report.xml")
plain="$(best "${check[@]}")"
json="$(best "${check[@]}" -json "$work/f.jsonl")"
junit="$(best "${check[@]}" -junit "$work/f.xml")"
both="$(best "${check[@]}" -json "$work/f.jsonl" -junit "$work/f.xml")"
echo
echo "| check of 100,000 files, 30% damaged | wall s | added s | file bytes |"
echo "|---|---|---|---|"
echo "| -xml only | $plain | | $(stat -c %s "$work/report.xml") (report) |"
echo "| -xml -json | $json | $(awk -v a="$json" -v b="$plain" 'BEGIN { printf "%+.2f", a - b }') | $(stat -c %s "$work/f.jsonl") |"
echo "| -xml -junit | $junit | $(awk -v a="$junit" -v b="$plain" 'BEGIN { printf "%+.2f", a - b }') | $(stat -c %s "$work/f.xml") |"
echo "| -xml -json -junit | $both | $(awk -v a="$both" -v b="$plain" 'BEGIN { printf "%+.2f", a - b }') | |"
echo "(findings: $(grep -c '"record":"finding"' "$work/f.jsonl"))"
