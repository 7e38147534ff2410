# Sourced by the comparison scripts: finding our bench tool and a scratch folder that
# goes away with the script.

# find_tool TARGET VARIABLE: the value of VARIABLE if set, else the first
# build*/bench/TARGET of the source tree; exits with 2 when there is none.
find_tool() {
  local target="$1" variable="$2" found="${!2:-}"
  if [[ -z "$found" ]]; then
    for candidate in "$root"/build/bench/"$target" "$root"/build*/bench/"$target"; do
      if [[ -x "$candidate" ]]; then found="$candidate"; break; fi
    done
  fi
  if [[ -z "$found" || ! -x "$found" ]]; then
    echo "$target not found: build the target $target or set $variable" >&2
    exit 2
  fi
  printf '%s\n' "$found"
}

tmpdir=""
outdir="$(mktemp -d)"
cleanup() {
  rm -rf "$outdir"
  if [[ -n "$tmpdir" ]]; then rm -rf "$tmpdir"; fi
}
trap cleanup EXIT
