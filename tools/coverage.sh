#!/bin/sh
# tools/coverage.sh BUILD JOBS: builds in BUILD with counters, runs the tests, prints the coverage of
# src and include on Linux and writes BUILD/report/index.html. Fails below the aim.
set -eu
build=$1
jobs=$2

# The sources are compiled several times over, into the library and into tests. Unless no function
# counts as replaceable by another, the branches differ between these.
cmake --preset linux -B "$build" -DCMAKE_BUILD_TYPE=Debug \
  "-DCMAKE_CXX_FLAGS=--coverage -fprofile-update=atomic -fno-semantic-interposition" > "$build.configure.log" 2>&1 ||
  { cat "$build.configure.log" >&2; exit 1; }
cmake --build "$build" -- --quiet
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
