#!/usr/bin/env bash
# Time added by -sign and -pubkey: generate and check of one media, each with and
# without the signature, RUNS times (default 3), the median printed. The media is
#   MEDIA   an existing media's folder (holding 1/, 2/, ...), or else one is made:
#   FILES   files of the media made (default 100000), small ones, under WORK (default
#           build/signature-bench).
set -uo pipefail
cd "$(dirname "$0")/.."
repo="$(pwd)"
build="${ZYN_BUILD_DIR:-build}"
runs="${RUNS:-3}"
files="${FILES:-100000}"
work="${WORK:-$repo/build/signature-bench}"
command -v minisign >/dev/null || { echo "minisign is needed to make the key" >&2; exit 2; }
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release >/dev/null || exit 2
cmake --build "$build" -j2 --target ZYNInsMediaCheck >/dev/null || exit 2
exe="$repo/$build/ZYNInsMediaCheck"
mkdir -p "$work"
media="${MEDIA:-$work/media}"
if [ ! -d "$media/1" ]; then
  echo "== making a media of $files small files in $media"
  python3 - "$media" "$files" <<'PY' || exit 2
import os, random, sys
root, count = sys.argv[1], int(sys.argv[2])
rnd = random.Random(1)
pool = rnd.randbytes(1 << 20)
for i in range(count):
    folder = os.path.join(root, "1" if i < count * 9 // 10 else "2", "d%03d" % (i // 1000), "e%02d" % (i // 25 % 40))
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, "file%06d.bin" % i), "wb") as out:
        out.write(pool[i % 1000:i % 1000 + rnd.randrange(0, 4096)])
for volume in ("1", "2"):
    os.makedirs(os.path.join(root, volume, "0data"), exist_ok=True)
open(os.path.join(root, "1", "meta.TOCxml"), "w").close()
PY
fi
rm -f "$work/key" "$work/key.pub"
minisign -G -W -p "$work/key.pub" -s "$work/key" >/dev/null || exit 2
find "$media" -type f -print0 | xargs -0 cat >/dev/null

# Seconds of one run of the command.
seconds() {
  local start end
  start=$(date +%s.%N)
  "$@" >/dev/null 2>&1 || { echo "failed: $*" >&2; exit 2; }
  end=$(date +%s.%N)
  echo "$end - $start" | bc
}
median() { printf '%s\n' "$@" | sort -n | sed -n "$((($# + 1) / 2))p"; }
cd1="$media/1"
# Interleaved, so that a slow spell of a shared machine falls on every variant alike.
declare -a gen gensign check checkkey
for _ in $(seq "$runs"); do
  gen+=("$(seconds "$exe" -generate -CD1Path "$cd1" -quiet)")
  gensign+=("$(seconds "$exe" -generate -CD1Path "$cd1" -quiet -sign "$work/key")")
  check+=("$(seconds "$exe" -CD1Path "$cd1" -quiet -xml "$work/report.xml")")
  checkkey+=("$(seconds "$exe" -CD1Path "$cd1" -quiet -xml "$work/report.xml" -pubkey "$work/key.pub")")
done
gen=$(median "${gen[@]}") gensign=$(median "${gensign[@]}")
check=$(median "${check[@]}") checkkey=$(median "${checkkey[@]}")
size=$(stat -c %s "$cd1/0data/MediaContent.xml")
echo "media: $(find "$media" -type f | wc -l) files, reference $size bytes, median of $runs runs"
printf '%-22s %8.3f s\n' "generate" "$gen" "generate -sign" "$gensign" "check" "$check" "check -pubkey" "$checkkey"
printf 'added by -sign:   %+.3f s\nadded by -pubkey: %+.3f s\n' "$(echo "$gensign - $gen" | bc)" "$(echo "$checkkey - $check" | bc)"
# What the signature itself costs: minisign's own verification of the same reference
# (one read, one BLAKE2b pass, two Ed25519 checks).
seconds minisign -Vqm "$cd1/0data/MediaContent.xml" -p "$work/key.pub" | xargs printf 'minisign -Vm of the reference: %.3f s\n'
