#!/bin/sh
# tools/coverage.sh BUILD JOBS: runs the tests in BUILD, which must be built with counters, prints the
# coverage of src and include and writes BUILD/report/index.html. Fails if the coverage is too low.
set -eu
build=$1
jobs=$2

find "$build" -name '*.gcda' -delete
# Skips tests that take minutes without optimisation and reach no code that others do not, and two whose
# limits on the size of files apply to the counters as well. The explorer does not count.
ctest --test-dir "$build" -j $((jobs * 3)) --no-label-summary --progress --output-on-failure -LE explorer \
  -E 'HugeInput|FourBytes|TarsioDigest|Hostile\.(names|log_to_full_file|write_beyond_limit)'

# Leaves out branches to exceptions: nearly every line calls something that may throw.
python3 tools/gcov_tracefile.py "$build" "$build/counts.json"
report() { gcovr --root . --add-tracefile "$build/counts.json" "$@"; }
mkdir -p "$build/report"
report
report --branches
report --html-details "$build/report/index.html" \
  --fail-under-line 98 --fail-under-branch 90
