#!/bin/sh
# tools/compare_results.sh FILE FILE: compares the tables that the tests wrote on the two systems.
set -eu
[ -s "$1" ] && [ -s "$2" ] || { echo "missing or empty: $1 or $2" >&2; exit 1; }
if cmp -s "$1" "$2"; then
  echo "$(wc -l < "$1") results are the same"
  exit 0
fi
echo "$(diff -a "$1" "$2" | grep -ac '^[<>]') lines differ; the first:" >&2
diff -a "$1" "$2" | grep -am 2 '^[<>]' >&2
exit 1
