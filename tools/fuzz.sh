#!/bin/sh
# tools/fuzz.sh BUILD SECONDS JOBS: runs each fuzz target for SECONDS, JOBS at a time. They start from
# fuzz/corpus, which is not changed. New inputs go to BUILD/found/NAME, failing inputs to
# BUILD/broken-NAME-*. To reproduce a failure, run the target with the file as its argument.
set -eu

if [ "${1-}" = --one ]; then
  build=$2 seconds=$3 name=$4
  corpus=fuzz/corpus/$name
  mkdir -p "$build/found/$name"
  [ -d "$corpus" ] || corpus=
  "$build/bin/${name}_fuzz" "-max_total_time=$seconds" -timeout=20 -rss_limit_mb=2048 \
    -print_final_stats=1 "-artifact_prefix=$build/broken-$name-" \
    "$build/found/$name" $corpus > "$build/$name.log" 2>&1 ||
    { tail -n 40 "$build/$name.log" >&2; echo "$name: FAILED" >&2; exit 1; }
  awk -v name="$name" '
    /cov: / { for (i = 1; i < NF; ++i) if ($i == "cov:") coverage = $(i + 1) }
    /number_of_executed_units/ { runs = $2 }
    /new_units_added/ { found = $2 }
    END { printf "%-10s %10d inputs, %5d new, %d edges\n", name, runs, found, coverage }' \
    "$build/$name.log"
  exit
fi

for program in "$1"/bin/*_fuzz; do basename "$program" _fuzz; done |
  xargs -P "$3" -I{} sh "$0" --one "$1" "$2" {}
