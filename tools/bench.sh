#!/bin/sh
# tools/bench.sh BUILD [--quick] [--docs] [FAMILY]...: runs the benchmarks of the given families, or
# all, and prints a table. Writes the results to BUILD/results and a chart to BUILD/ratios.svg.
# --docs updates docs/performance.md and docs/performance.svg.
set -eu

root=$(cd "$(dirname "$0")/.." && pwd)
build=$1
shift
runs=7 seconds=0.05 docs=
families=
for argument; do
  case "$argument" in
    --quick) runs=3 seconds=0.01 ;;
    --docs) docs="--docs $root/docs" ;;
    -*) echo "bench: unknown option $argument" >&2; exit 2 ;;
    *) families="$families $argument" ;;
  esac
done

if [ -z "$families" ]; then
  for source in "$root"/bench/*_bench.*; do
    family=${source##*/}
    families="$families ${family%_bench.*}"
  done
fi

rm -rf "$build/results"
mkdir -p "$build/results"
head -n 1 /proc/stat > "$build/results/processors"
# Each run is a separate process, and the report uses medians. So neither a slow moment of the machine
# nor the memory layout of one process distorts the result.
run=1
while [ "$run" -le "$runs" ]; do
  for family in $families; do
    [ ! -t 2 ] || printf '\r\033[Krun %d of %d: %s' "$run" "$runs" "$family" >&2
    result=$build/results/$family.$run.json
    if [ -f "$root/bench/${family}_bench.py" ]; then
      python3 "$root/bench/${family}_bench.py" "$build/bin/tarsio-digest" > "$result"
    elif [ -x "$build/bin/${family}_bench" ]; then
      "$build/bin/${family}_bench" --benchmark_min_time=$seconds --benchmark_out="$result" \
        > "$build/results/$family.log" 2>&1 || { cat "$build/results/$family.log" >&2; exit 1; }
    else
      echo "bench: unknown family $family; benchmarks:" "$(cd "$root/bench" && echo *_bench.*)" >&2
      exit 2
    fi
  done
  run=$((run + 1))
done
[ ! -t 2 ] || printf '\r\033[K' >&2

head -n 1 /proc/stat >> "$build/results/processors"
times >> "$build/results/processors"

# shellcheck disable=SC2086 # $docs is empty, or an option and its value
python3 "$root/tools/bench_report.py" "$build/results" --svg "$build/ratios.svg" $docs
