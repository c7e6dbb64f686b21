#!/bin/sh
# tools/compare_results.sh FOLDER FOLDER: compares the results that the tests wrote on the two systems: the
# table of calls and, for each input of a fuzz target, a hash.
set -eu

if [ ! -s "$1/parity.txt" ] || [ "$(ls "$1")" != "$(ls "$2")" ]; then
  echo "missing results in $1 or $2" >&2
  exit 1
fi
for one in "$1"/*; do
  name=$(basename "$one" .txt)
  other=$2/$name.txt
  if ! cmp -s "$one" "$other"; then
    echo "$name: $(diff -a "$one" "$other" | grep -ac '^[<>]') lines differ; the first:" >&2
    diff -a "$one" "$other" | grep -am 2 '^[<>]' >&2
    exit 1
  fi
  echo "$name: $(wc -l < "$one") results are the same"
done
