#!/usr/bin/env bash
# The README's "Use in CI" as written: the script lines of its GitLab job and its jq
# one-liner, run on a damaged media with the built tool on PATH; the job's JUnit report
# must be valid against the JUnit schema and the one-liner must list the findings.
#   ci_readme_test.sh EXECUTABLE SOURCE_DIR
set -uo pipefail
exe="$1" src="$2"
for tool in jq xmllint; do
  command -v "$tool" >/dev/null || { echo "$tool is not installed"; exit 77; }
done
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/bin" "$work/media/1/sub" "$work/media/2"
ln -s "$exe" "$work/bin/ZYNInsMediaCheck"
export PATH="$work/bin:$PATH"
cd "$work" || exit 1
echo a >media/1/sub/kept && echo b >media/1/gone && echo c >media/1/changed && echo d >media/2/two
ZYNInsMediaCheck -generate -CD1Path "$work/media/1" -quiet || { echo "generate failed"; exit 1; }
rm media/1/gone && echo C >media/1/changed

# The "Use in CI" section: its yaml block and the jq line of the sh block after it.
section="$(sed -n '/^## Use in CI/,/^## /p' "$src/README.md")"
job="$(printf '%s\n' "$section" | sed -n '/^```yaml/,/^```/p')"
script="$(printf '%s\n' "$job" | sed -n '/^  script:/,/^  [a-z]/p' | sed -n 's/^    - //p')"
junit="$(printf '%s\n' "$job" | sed -n 's/^      junit: //p')"
oneliner="$(printf '%s\n' "$section" | grep '^jq ')"
[[ -n "$script" && -n "$junit" && -n "$oneliner" ]] || { echo "README: job or one-liner not found"; exit 1; }

# GitLab runs each line with the shell; the check's own status 1 fails the job, as it should.
bash -c "$script"
status=$?
[[ $status -eq 1 ]] || { echo "the job's check ended with $status, not 1"; exit 1; }
xmllint --noout --schema "$src/tests/support/junit.xsd" "$junit" || exit 1
listed="$(bash -c "$oneliner")" || { echo "the one-liner failed"; exit 1; }
expected="$(printf 'altered\t/changed\nmissing\t/gone')"
[[ "$listed" == "$expected" ]] || { printf 'the one-liner gave:\n%s\n' "$listed"; exit 1; }
echo "README job and one-liner: ok"
