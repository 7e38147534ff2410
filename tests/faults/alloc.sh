#!/usr/bin/env bash
# Fails one allocation of a regeneration (a preloaded malloc), at evenly spaced calls: a
# run that ends with 0 must have sealed what the media holds, and no run may walk past
# its volumes, and none may end on a signal.
# Usage: alloc.sh EXECUTABLE FAILMALLOC_LIBRARY [SAMPLES]
set -u
exe=$(readlink -f "$1")
lib=$(readlink -f "$2")
samples=${3:-80}
work=$(mktemp -d /tmp/zynalloc.XXXXXX)
trap 'rm -rf "$work"' EXIT
. "$(dirname "$0")/media.sh"

make_media 2
"$exe" -generate -quiet -CD1Path "$work/m/1" >/dev/null || exit 1
echo "changed" >"$work/m/1/a"
mkdir "$work/keep" && cp -a "$work/m" "$work/keep/m"
calls=$(ZYN_FAIL_MALLOC_AT=0 LD_PRELOAD="$lib" "$exe" -generate -quiet -CD1Path "$work/m/1" 2>&1 >/dev/null |
  sed -n 's/^malloc calls //p')
[ -n "$calls" ] || { echo "the interposer counted nothing"; exit 1; }
bad=0 zero=0 two=0
for i in $(seq 0 $((samples - 1))); do
  k=$((1 + i * (calls - 1) / (samples - 1)))
  rm -rf "$work/m" && cp -a "$work/keep/m" "$work/m"
  timeout 20 env ZYN_FAIL_MALLOC_AT=$k LD_PRELOAD="$lib" "$exe" -generate -CD1Path "$work/m/1" >"$work/out" 2>&1
  status=$?
  case $status in
    0) zero=$((zero + 1))
       "$exe" -quiet -CD1Path "$work/m/1" -xml "$work/r.xml" </dev/null >/dev/null 2>&1 ||
         { bad=$((bad + 1)); echo "FAIL at malloc $k: status 0, and the sound media fails its check"; } ;;
    2) two=$((two + 1)) ;;
    124) bad=$((bad + 1)); echo "FAIL at malloc $k: hang" ;;
    *) bad=$((bad + 1)); echo "FAIL at malloc $k: status $status"; tail -3 "$work/out" ;;
  esac
  # Only the volumes' own files are named: never a path of the root's.
  if grep -qE "path=/(etc|usr|proc|bin|tmp)/" "$work/out"; then bad=$((bad + 1)); echo "FAIL at malloc $k: walked /"; fi
done
echo "failed mallocs $samples of $calls: ended 0 $zero, ended 2 $two, wrong $bad"
[ "$bad" = 0 ]
