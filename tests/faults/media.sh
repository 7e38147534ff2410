# Shared by the fault scripts: a small media of volumes 1 and 2 (or 3) under $work/m,
# its reference set sealed by a run without faults, and the checks of what is left.
# Sourced; expects $exe and $work.

volumes() { ls -d "$work"/m/[0-9] | wc -l; }

# make_media COUNT: volumes 1..COUNT, a few files and folders on each.
make_media() {
  rm -rf "$work/m"
  for v in $(seq 1 "$1"); do
    mkdir -p "$work/m/$v/sub/deep"
    for f in a sub/b sub/deep/c; do echo "$v $f" >"$work/m/$v/$f"; done
  done
  touch -d @1600000000 "$work"/m/*/a "$work"/m/*/sub/b "$work"/m/*/sub/deep/c
}

# The reference and the tags, as one listing of path and digest.
set_of() { (cd "$work/m" && sha256sum */0data/*) | sort; }

# Every 0data folder holds its one file: nothing a run left beside it.
only_the_set() {
  for v in "$work"/m/[0-9]; do
    [ "$(ls -A "$v/0data")" = MediaContent.xml ] || return 1
  done
}

# Nor beside the volumes, where the hidden names and the journal of a set wait.
nothing_beside_the_volumes() { [ -z "$(ls -A "$work/m" | grep -v '^[0-9]$')" ]; }

# run_to OUT STATUSFILE COMMAND...: runs bounded in time; 124 on a hang.
run_to() {
  local out=$1 st=$2
  shift 2
  timeout -k 5 20 "$@" >"$out" 2>&1 </dev/null
  echo $? >"$st"
}
