#!/usr/bin/env bash
# Fails, once per run, the k-th call of each kind the program makes (strace -e inject), in
# a regeneration of a changed two-volume media and in a check of an intact one, for every
# k up to the number of such calls a run makes (past $ZYN_FAULTS_SAMPLE calls, that many
# evenly spaced ones, first and last included). Every run must end by itself, with no
# crash, with status 0 only where the work was done and with a message where it wasn't,
# leave the old reference set or the whole new one and nothing beside it, and a check of
# the sound media must find nothing wrong with its files. A volume that can't be read is
# asked for on standard input, which is empty.
# Usage: inject.sh EXECUTABLE   (exit 77 where strace can't trace)
set -u
exe=$(readlink -f "$1")
sample=${ZYN_FAULTS_SAMPLE:-400}
command -v strace >/dev/null || exit 77
work=$(mktemp -d /tmp/zynfaults.XXXXXX)
trap 'rm -rf "$work"' EXIT
. "$(dirname "$0")/media.sh"
strace -qq -o /dev/null true 2>/dev/null || exit 77

make_media 2
"$exe" -generate -quiet -CD1Path "$work/m/1" >/dev/null || { echo "no reference"; exit 1; }
old=$(set_of)
mkdir "$work/keep" && cp -a "$work/m" "$work/keep/old"
echo "changed" >"$work/m/1/a"
"$exe" -generate -quiet -CD1Path "$work/m/1" >/dev/null || exit 1
new=$(set_of)
cp -a "$work/m" "$work/keep/new"
[ "$old" != "$new" ] || { echo "the change changed nothing"; exit 1; }

# The state before each run: a changed media with its old set (generate), or the sound
# media with its set (check).
restore() {
  rm -rf "$work/m" "$work/r.xml"
  cp -a "$work/keep/old" "$work/m"
  [ "$1" = generate ] && cp -a "$work/keep/new/1/a" "$work/m/1/a"
  return 0
}
command_of() {
  if [ "$1" = generate ]; then echo "$exe -generate -CD1Path $work/m/1"; else
    echo "$exe -CD1Path $work/m/1 -xml $work/r.xml"; fi
}

# SYSCALL:ERRNO as fits the call: a medium that fails, a full disk, a run out of memory
# or descriptors. fstat is made through newfstatat here; clone through clone3; the new
# files are named with linkat and swapped in with renameat2.
faults="openat:EMFILE openat:EIO read:EIO write:ENOSPC fsync:EIO rename:ENOSPC renameat2:EIO linkat:ENOSPC
getdents64:EIO newfstatat:EIO mmap:ENOMEM clone3:ENOMEM clone:ENOMEM"
# A failed run says so in words, beyond the status.
said() { grep -qE "Error|error|[Uu]nable|cannot|FAILED" "$work/out"; }
runs=0 bad=0 failed_runs=0 blamed=0 loader=0
declare -A per
fail() {
  bad=$((bad + 1))
  echo "FAIL $mode $call:$err when=$k: $1 (status $status)"
  sed 's/^/    /' "$work/out" | head -20
}
for mode in generate check; do
  for fault in $faults; do
    call=${fault%%:*} err=${fault#*:}
    restore "$mode"
    # shellcheck disable=SC2046
    strace -f -qq -o "$work/trace" -e trace="$call,set_robust_list" $(command_of $mode) >/dev/null 2>&1
    # The loader's calls come before the first thread's set_robust_list: not the program's.
    first=$(awk -v c="$call(" '{ sub(/^[0-9]+ +/, "") } index($0, c) == 1 { n++ } /^set_robust_list/ { print n + 0; exit }' "$work/trace")
    total=$(awk -v c="$call(" '{ sub(/^[0-9]+ +/, "") } index($0, c) == 1 { n++ } END { print n + 0 }' "$work/trace")
    [ "$total" -gt "$first" ] || continue
    ks=$(if [ $((total - first)) -le "$sample" ]; then seq $((first + 1)) "$total"; else
      awk -v a="$((first + 1))" -v n="$total" -v s="$sample" \
        'BEGIN { for (i = 0; i < s; i++) print a + int(i * (n - a) / (s - 1)) }' | uniq; fi)
    for k in $ks; do
      restore "$mode"
      # shellcheck disable=SC2046
      run_to "$work/out" "$work/st" strace -f -qq -o /dev/null -e trace="$call" \
        -e inject="$call:error=$err:when=$k" $(command_of $mode)
      status=$(cat "$work/st")
      runs=$((runs + 1))
      per[$mode/$call:$err]=$((${per[$mode/$call:$err]:-0} + 1))
      [ "$status" = 124 ] && { fail "hang"; continue; }
      # The loader's own allocations (libraries, their lookup tables, thread storage) fail
      # before any code of ours runs: glibc's fatal error or the loader's "out of memory",
      # nothing written.
      if [ "$status" = 127 ] && grep -qE '^(Fatal glibc error|out of memory$)' "$work/out" && [ "$(set_of)" = "$old" ]; then
        loader=$((loader + 1))
        continue
      fi
      [ "$status" -le 2 ] || { fail "crash"; continue; }
      [ "$status" = 0 ] || failed_runs=$((failed_runs + 1))
      now=$(set_of)
      only_the_set && nothing_beside_the_volumes ||
        { fail "left beside the set: $(ls -A "$work"/m "$work"/m/*/0data | tr '\n' ' ')"; continue; }
      if [ "$mode" = generate ]; then
        [ "$status" = 0 ] && [ "$now" != "$new" ] && { fail "status 0 without the new set"; continue; }
        [ "$now" = "$old" ] || [ "$now" = "$new" ] || { fail "neither the old set nor the new"; continue; }
        [ "$status" = 0 ] || [ "$status" = 2 ] || { fail "generate ends with 2 on a failure"; continue; }
        [ "$status" = 0 ] || said || { fail "no message"; continue; }
        # What was sealed is what the media holds.
        if [ "$now" = "$new" ]; then
          "$exe" -quiet -CD1Path "$work/m/1" -xml "$work/r.xml" >/dev/null 2>&1 || { fail "the new set fails its check"; continue; }
        fi
      else
        [ "$now" = "$old" ] || { fail "a check changed the reference set"; continue; }
        [ "$status" = 0 ] || said || { fail "no message"; continue; }
        if [ "$status" = 1 ]; then
          # A finding about a sound file: the medium's own fault (EIO) may show as the
          # file that couldn't be read, a fault of the run (memory, descriptors) never.
          if [ "$err" != EIO ]; then
            blamed=$((blamed + 1))
            fail "a fault of the run reported as a finding"
            continue
          fi
        fi
      fi
    done
  done
done
echo "runs $runs (failed $failed_runs, run faults blamed on the media $blamed, refused by the loader $loader), wrong $bad"
for key in "${!per[@]}"; do echo "  $key ${per[$key]}"; done | sort
[ "$bad" = 0 ]
