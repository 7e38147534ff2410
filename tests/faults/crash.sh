#!/usr/bin/env bash
# Kills a regeneration of a changed three-volume media at random moments (SIGKILL, and a
# few SIGTERM, SIGINT and SIGHUP), then checks it: the check first replays the journal a
# run killed between two swaps of the set left, so that what is then left must be the old
# reference set or the new one, whole, with nothing beside it (no hidden name, no
# journal), and the check's verdict the one the media deserves (1 against the old set, 0
# against the new). The moments are uniform over the time a whole regeneration takes,
# measured first; 24 more are at given calls, where strace can trace.
# Usage: crash.sh EXECUTABLE [KILLS]
set -u
exe=$(readlink -f "$1")
kills=${2:-200}
work=$(mktemp -d /tmp/zyncrash.XXXXXX)
# Only the script's own shell cleans up: a subshell stopped by a signal before its exec
# would otherwise run this trap and take the media of every later round with it.
trap '[ "$BASHPID" = "$$" ] && rm -rf "$work"' EXIT
. "$(dirname "$0")/media.sh"

make_media 3
for v in 1 2 3; do head -c 1000000 /dev/urandom >"$work/m/$v/sub/large"; done
"$exe" -generate -quiet -CD1Path "$work/m/1" >/dev/null || { echo "no reference"; exit 1; }
old=$(set_of)
echo "changed" >"$work/m/1/a"
echo "changed" >"$work/m/3/sub/b"
mkdir "$work/keep" && cp -a "$work/m" "$work/keep/changed"
span=0
for i in 1 2 3; do
  rm -rf "$work/m" && cp -a "$work/keep/changed" "$work/m"
  start=$(date +%s%N)
  "$exe" -generate -quiet -CD1Path "$work/m/1" >/dev/null || exit 1
  span=$((span + ($(date +%s%N) - start) / 3000)) # microseconds
done
new=$(set_of)
[ "$old" != "$new" ] || { echo "the change changed nothing"; exit 1; }

bad=0 olds=0 news=0 outside=0 journals=0
# After a kill ($1 names it): the check replays what the run left, then what is left is
# judged, the check's verdict with it.
judge() {
  [ -e "$work/m/.MediaContent.xml.journal" ] && journals=$((journals + 1))
  timeout 20 "$exe" -quiet -CD1Path "$work/m/1" -xml "$work/r.xml" </dev/null >/dev/null 2>&1
  local verdict=$? now expected= left=
  now=$(set_of)
  [ "$now" = "$old" ] && expected=1 && olds=$((olds + 1))
  [ "$now" = "$new" ] && expected=0 && news=$((news + 1))
  nothing_beside_the_volumes && only_the_set || { left=1 && outside=$((outside + 1)); }
  if [ -z "$expected" ] || [ -n "$left" ] || [ "$verdict" != "$expected" ]; then
    bad=$((bad + 1))
    echo "FAIL $1: check $verdict, left $(ls -A "$work"/m "$work"/m/*/0data | tr '\n' ' ')"
  fi
}

# The moments a random kill rarely hits, where strace can stop the run there: at each
# name made, each swap, each file removed and each flush.
if strace -qq -o /dev/null true 2>/dev/null; then
  for call in linkat renameat2 unlink fsync; do
    for k in 1 2 3 4 5 6; do
      rm -rf "$work/m" && cp -a "$work/keep/changed" "$work/m"
      (strace -f -qq -o /dev/null -e trace="$call" -e inject="$call:signal=KILL:when=$k" \
        "$exe" -generate -quiet -CD1Path "$work/m/1" || true) >/dev/null 2>&1
      judge "at $call $k"
    done
  done
fi

for i in $(seq 1 "$kills"); do
  signal=KILL
  [ $((i % 20)) = 0 ] && signal=TERM
  [ $((i % 20)) = 10 ] && signal=INT
  [ $((i % 40)) = 5 ] && signal=HUP
  rm -rf "$work/m" && cp -a "$work/keep/changed" "$work/m"
  delay=$(((RANDOM * 32768 + RANDOM) % (span + 1)))
  # Without the script's EXIT trap, in case the signal comes before the exec.
  (
    trap - EXIT
    exec "$exe" -generate -quiet -CD1Path "$work/m/1" >/dev/null 2>&1
  ) &
  pid=$!
  sleep "$(printf '%d.%06d' $((delay / 1000000)) $((delay % 1000000)))"
  kill -s "$signal" "$pid" 2>/dev/null
  wait "$pid" 2>/dev/null
  judge "$signal after ${delay}us"
done
echo "kills $kills (and 24 at calls) over ${span}us: old set $olds, new set $news, wrong $bad," \
  "something left beside the set $outside (a journal replayed after $journals)"
[ "$bad" = 0 ]
