#!/bin/sh
# The manual page renders without a single warning: groff always, mandoc where installed.
page=$1
command -v groff >/dev/null || { echo "groff is not installed"; exit 77; }
warnings=$( { groff -ww -z -man "$page"; if command -v mandoc >/dev/null; then mandoc -T lint "$page"; fi; } 2>&1)
[ -z "$warnings" ] || { printf '%s\n' "$warnings"; exit 1; }
