#!/bin/sh
# compare.sh LIBRARY HEADERS DUMP [--update]: whether a host that was built with the library that DUMP
# describes runs with LIBRARY. Additions are no difference. --update rewrites DUMP.
set -eu
library=$1 headers=$2 dump=$3
new=$(mktemp)
trap 'rm -f "$new"' EXIT

# What hosts can see, and nothing of the machine or of the place in the sources.
abidw --headers-dir "$headers" --drop-private-types --exported-interfaces-only \
  --no-comp-dir-path --no-corpus-path --no-show-locs --no-architecture --no-parameter-names \
  --out-file "$new" "$library"
if [ "${4-}" = --update ]; then
  cp "$new" "$dump"
else
  abidiff --no-added-syms "$dump" "$new"
fi
