#!/usr/bin/env bash
# Kills a regeneration of a changed three-volume media at random moments (SIGKILL, and a
# few SIGTERM, SIGINT and SIGHUP): what is left must be the old reference set or the new
# one, whole, with nothing beside it, and the next check must give the verdict the media
# deserves (1 against the old set, 0 against the new). A run killed by SIGKILL between
# naming its new files and swapping them in leaves hidden names beside the volumes, where
# no check looks; one killed between two of the swaps (back to back, but a loaded machine
# may stop the process there) leaves each file whole, some old and some new, which no
# order of renames can avoid: both are counted, not failed. The moments are uniform over the
# time a whole regeneration takes, measured first.
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

bad=0 olds=0 news=0 outside=0 mixed=0
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
  nothing_beside_the_volumes || outside=$((outside + 1))
  now=$(set_of)
  expected=
  [ "$now" = "$old" ] && expected=1 && olds=$((olds + 1))
  [ "$now" = "$new" ] && expected=0 && news=$((news + 1))
  # Killed between the swaps of the set, some microseconds: each file whole, old or new.
  if [ -z "$expected" ] && only_the_set && [ -z "$(comm -23 <(echo "$now") <(printf '%s\n%s\n' "$old" "$new" | sort))" ]; then
    mixed=$((mixed + 1))
    continue
  fi
  if [ -z "$expected" ] || ! only_the_set; then
    bad=$((bad + 1))
    echo "FAIL $signal after ${delay}us: $(ls -A "$work"/m/*/0data | tr '\n' ' ')"
    continue
  fi
  timeout 20 "$exe" -quiet -CD1Path "$work/m/1" -xml "$work/r.xml" </dev/null >/dev/null 2>&1
  verdict=$?
  [ "$verdict" = "$expected" ] || { bad=$((bad + 1)); echo "FAIL $signal after ${delay}us: check $verdict"; }
done
echo "kills $kills over ${span}us: old set $olds, new set $news, killed between the swaps $mixed," \
  "hidden names left beside the volumes $outside, wrong $bad"
[ "$bad" = 0 ]
