#!/bin/sh
# Runs a Windows program under Wine and ends when the program does: Wine's own processes inherit
# what the program that starts them writes to, and keep a pipe open for as long as they live. So the
# program writes to files, which are passed on at its end.
set -u
output=$(mktemp -d) || exit 1
trap 'rm -rf "$output"' EXIT
wine "$@" >"$output/out" 2>"$output/err"
status=$?
cat "$output/out"
cat "$output/err" >&2
exit "$status"
