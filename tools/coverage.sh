#!/bin/sh
# tools/coverage.sh BUILD JOBS: runs the tests that BUILD has built with counters, prints the
# coverage of src and include on Linux and writes BUILD/report/index.html. Fails below the aim.
set -eu
build=$1
jobs=$2

find "$build" -name '*.gcda' -delete
# Without what takes minutes in a build that is not optimised, and reaches nothing that others do not.
ctest --test-dir "$build" -j $((jobs * 3)) --no-label-summary --progress --output-on-failure \
  -E 'AnEnormousText|Million|UpToThreeBytes'

# The standard library throws from nearly every line, so branches to its exceptions are left out.
python3 tools/gcov_tracefile.py "$build" "$build/counts.json"
report() { gcovr --root . --add-tracefile "$build/counts.json" "$@"; }
mkdir -p "$build/report"
report
report --branches
report --html-details "$build/report/index.html" \
  --fail-under-line 98 --fail-under-branch 90
