#!/bin/sh
# tools/compare_results.sh FILE FILE: whether the tables that two systems' tests wrote are the same.
set -eu
[ -s "$1" ] && [ -s "$2" ] || { echo "no table: $1, $2" >&2; exit 1; }
if cmp -s "$1" "$2"; then
  echo "$(wc -l < "$1") results are the same"
  exit 0
fi
echo "the first lines that differ, of $(diff -a "$1" "$2" | grep -ac '^[<>]'):" >&2
diff -a "$1" "$2" | grep -am 2 '^[<>]' >&2
exit 1
