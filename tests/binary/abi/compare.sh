#!/bin/sh
# compare.sh LIBRARY HEADERS DUMP [--update]: whether hosts built with the library described by DUMP
# run with LIBRARY. Additions are compatible. --update rewrites DUMP.
set -eu
library=$1 headers=$2 dump=$3
new=$(mktemp)
trap 'rm -f "$new"' EXIT

# Only what is visible to hosts, without machine-specific data and source locations.
abidw --headers-dir "$headers" --drop-private-types --exported-interfaces-only \
  --no-comp-dir-path --no-corpus-path --no-show-locs --no-architecture --no-parameter-names \
  --out-file "$new" "$library"
if [ "${4-}" = --update ]; then
  cp "$new" "$dump"
else
  abidiff --no-added-syms "$dump" "$new"
fi
