#!/bin/sh
# tools/fuzz.sh BUILD SECONDS JOBS: runs every fuzz target for SECONDS, JOBS at a time, from the
# corpus in fuzz/corpus, which stays as it is. What is found goes to BUILD/found/NAME, an input that
# breaks a promise to BUILD/broken-NAME-*; run the target with that file's name to see it again.
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
    END { printf "%-10s %10d inputs, %5d of them new, %d edges\n", name, runs, found, coverage }' \
    "$build/$name.log"
  exit
fi

for program in "$1"/bin/*_fuzz; do basename "$program" _fuzz; done |
  xargs -P "$3" -I{} sh "$0" --one "$1" "$2" {}
