#!/bin/sh
# tools/demo.sh BUILD DIR: digests every file under DIR with BUILD's tarsio-digest and compares each
# line with the output of sha256sum.
set -eu

bin=$1/bin
dir=$(cd "$2" && pwd)
program=$bin/tarsio-digest
[ -x "$program" ] || program="wine $bin/tarsio-digest.exe"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Passes the names one per line. A name with a backslash or a colon cannot be part of a Windows path.
find "$dir" -type f | LC_ALL=C sort > "$work/all"
grep -v '[\\:]' "$work/all" > "$work/names" || true
total=$(wc -l < "$work/names")
left_out=$(($(wc -l < "$work/all") - total))
[ "$total" -gt 0 ] || { echo "no files under $dir" >&2; exit 1; }

echo "$total files under $dir; $program"
status=0
$program --verbose --files-from - < "$work/names" 2> "$work/log" |
  awk -v total="$total" '{ print }
    NR % 500 == 0 { printf "\r%d of %d", NR, total > "/dev/stderr" }
    END { printf "\r%d of %d\n", NR, total > "/dev/stderr" }' > "$work/ours" || status=$?
tr '\n' '\0' < "$work/names" | xargs -0 sha256sum > "$work/theirs" || status=$?

tr -d '\r' < "$work/log" | tail -n 5
agreed=$(awk 'NR == FNR { theirs[$0] = 1; next } $0 in theirs { n++ } END { print n + 0 }' \
  "$work/theirs" "$work/ours")
echo "$agreed of $total lines agree with sha256sum"
[ "$left_out" -eq 0 ] || echo "$left_out names with a backslash or a colon were skipped"
cmp -s "$work/ours" "$work/theirs" || { echo "the outputs differ" >&2; exit 1; }
exit "$status"
