#!/usr/bin/env bash
# Times our XML parser against `xmllint --noout` on the same reference-like file and prints
# both times and their ratio (xmllint/ours).
#
#   bench/xml_parse_vs_xmllint.sh [FILE]
#
# Without FILE a reference of FILES (default 100000) File elements, spread over 4 volumes
# and laid out with line ends and tabs as the tool writes it, is made in a temporary
# folder and removed afterwards. Each tool runs RUNS times (default 3), alternating, and
# its best wall-clock time counts. ZYN_XML_PARSE names our executable; by default the first
# build*/bench/zyn_xml_parse of the source tree.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
runs="${RUNS:-3}"
files="${FILES:-100000}"

source "$root/bench/common.sh"
ours="$(find_tool zyn_xml_parse ZYN_XML_PARSE)"
command -v xmllint >/dev/null || { echo "xmllint not found" >&2; exit 2; }

# The shape of MediaContent.xml: Media, RelData, CDs, one CD per volume, its File
# elements sorted by path, with long repetitive paths and 64-digit hashes.
make_reference() {
  awk -v files="$files" 'function hex(n,   s, i) {
      s = ""
      for (i = 0; i < 8; ++i) { n = (n * 1103515245 + 12345) % 2147483648; s = s sprintf("%08x", n) }
      return s
    }
    BEGIN {
      volumes = 4
      printf "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n"
      printf "<Media ZYNHachageSomme=\"SHA256_v1_%s\" cdid=\"1\" checkerVersion=\"1.1\">\n", hex(7)
      printf "\t<RelData>\n\t\t<Release product=\"Bench\" level=\"1\">bench release</Release>\n\t</RelData>\n\t<CDs>"
      per = int((files + volumes - 1) / volumes)
      for (v = 0; v < volumes; ++v) {
        printf "\n\t\t<CD>"
        for (f = v * per; f < (v + 1) * per && f < files; ++f) {
          printf "\n\t\t\t<File hash=\"%s\" path=\"/packages/component_%03d/lib/module_%04d/file_%06d.dat\" timestamp=\"%d\"/>",
            hex(f), f % 97, f % 1009, f, 1700000000 + f
        }
        printf "\n\t\t</CD>"
      }
      printf "\n\t</CDs>\n</Media>"
    }'
}

file="${1:-}"
if [[ -z "$file" ]]; then
  tmpdir="$(mktemp -d)"
  file="$tmpdir/MediaContent.xml"
  echo "creating a reference of $files File elements in $tmpdir ..."
  make_reference >"$file"
fi
[[ -r "$file" ]] || { echo "cannot read $file" >&2; exit 2; }
size=$(stat -c %s "$file")

cat "$file" >/dev/null
xmllint --noout "$file" || { echo "xmllint rejects $file" >&2; exit 1; }

now_ns() { date +%s%N; }

# Runs a command with its output in $2 and prints the elapsed nanoseconds.
time_ns() {
  local out="$2" start end
  start=$(now_ns)
  eval "$1" >"$out"
  end=$(now_ns)
  echo $((end - start))
}

best_xmllint=0
best_ours=0
for ((run = 1; run <= runs; ++run)); do
  t=$(time_ns 'xmllint --noout "$file"' "$outdir/xmllint.txt")
  if ((best_xmllint == 0 || t < best_xmllint)); then best_xmllint=$t; fi
  t=$(time_ns '"$ours" "$file"' "$outdir/ours.txt")
  if ((best_ours == 0 || t < best_ours)); then best_ours=$t; fi
done

echo "file:    $file ($size bytes)"
echo "ours:    $(cat "$outdir/ours.txt")"
awk -v size="$size" -v tx="$best_xmllint" -v tz="$best_ours" -v runs="$runs" 'BEGIN {
  mib = size / 1048576
  printf "xmllint --noout: %8.3f s  %7.1f MiB/s (best of %d)\n", tx / 1e9, mib / (tx / 1e9), runs
  printf "zyn_xml_parse:   %8.3f s  %7.1f MiB/s (best of %d)\n", tz / 1e9, mib / (tz / 1e9), runs
  printf "ratio xmllint/ours: %.3f\n", tx / tz
}'
