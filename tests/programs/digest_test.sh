#!/bin/sh
# digest_test.sh PROGRAM [ARGUMENT...]: runs tarsio-digest, under Wine perhaps, as a user would.
set -u

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
failures=0

# run STATUS ARGUMENT...: expects that exit status; leaves ./out and ./err without carriage returns.
run() {
  expected=$1
  shift
  eval "$command_line" '"$@"' > raw_out 2> raw_err < names
  status=$?
  tr -d '\r' < raw_out > out
  # Less what the emulator says when Wine has not come up.
  tr -d '\r' < raw_err | sed '/^run_under_wine.sh: .*; restart [1-3]$/d' > err
  check "exit status $status, expected $expected" [ "$status" -eq "$expected" ]
}
check() {
  what=$1
  shift
  "$@" && return
  echo "FAILED in $case: $what"
  failures=$((failures + 1))
  sed 's/^/  out: /' out
  sed 's/^/  err: /' err
}
says() { grep -q "$2" "$1"; }

command_line=
for word in "$@"; do command_line="$command_line '$word'"; done
mkdir sub
printf 'one' > a.txt
printf 'two\r\n\000' > sub/b.txt
: > empty
: > names

case='digests in the order of the input, an empty file too'
sha256sum sub/b.txt empty a.txt > expected
run 0 sub/b.txt empty a.txt
check 'the output differs' cmp -s out expected

case='a dash reads names from standard input'
printf 'a.txt\n\nempty\n' > names
sha256sum sub/b.txt a.txt empty sub/b.txt > expected
run 0 sub/b.txt - sub/b.txt
check 'the output differs' cmp -s out expected
: > names

case='an absolute name is found'
sha256sum "$work/a.txt" > expected
run 0 "$work/a.txt"
check 'the output differs' cmp -s out expected

if [ "$#" -gt 1 ]; then
  case='a name with a backslash is escaped as sha256sum does it'
  run 0 'sub\b.txt'
  check 'the line is not escaped' says out '^\\[0-9a-f]\{64\}  sub\\\\b.txt$'
else
  case='a name with a backslash or a colon is refused, not taken for another'
  run 1 'sub\b.txt' 'sub\..\a.txt' 'ab:c' "C:$work/a.txt"
  sha256sum "$work/a.txt" | sed 's|  |  C:|' > expected
  check 'the output differs' cmp -s out expected
  check 'no word of the backslash' [ "$(grep -c ': has a backslash$' err)" -eq 2 ]
  check 'no word of the colon' says err '] ab:c: has a colon$'

  case='a digest that fails is no digest'
  printf 'openssl_conf = strict\n[strict]\nalg_section = strict_algorithms\n[strict_algorithms]\ndefault_properties = fips=yes\n' > strict.cnf
  OPENSSL_CONF=$work/strict.cnf run 1 a.txt
  check 'output' [ ! -s out ]
  check 'no reason' says err '] a.txt: libcrypto refuses to compute SHA-256$'

  case='overlong UTF-8 is no name'
  run 1 "$(printf 'a\300\257b')"
  check 'no reason' says err "] 'a'\$'\\\\300\\\\257''b': is not a name in UTF-8$"

  case='a list that cannot be read gives a message and a status'
  eval "$command_line" - > out 2> err < .
  status=$?
  check "exit status $status for a directory as the list" [ "$status" -eq 1 ]
  check 'no reason' says err 'the names on standard input cannot be read$'
fi

case='control characters are quoted in messages'
run 1 "$(printf 'no\nsuch\033[1m')"
check 'no quotes' says err "] 'no'\$'\\\\n''such'\$'\\\\033''\[1m': is missing$"

case='a name with a NUL is refused'
printf 'a.txt\000b\n' > names
run 1 -
check 'no reason' says err ': has a NUL character$'
: > names

case='a file that fails is one warning, and the others go on'
sha256sum a.txt empty > expected
run 1 a.txt missing sub empty
check 'the output differs' cmp -s out expected
check 'no word of the missing file' says err '\]\[WARN\]\[main.cpp:[0-9]*\] missing: is missing$'
check 'no word of the directory' says err '\]\[WARN\]\[main.cpp:[0-9]*\] sub: is a directory$'
check 'other than two warnings' [ "$(grep -c WARN err)" -eq 2 ]
check 'no summary' says err '\[INFO\].*\] 4 files, 2 failures, 3 bytes, [0-9.]* seconds, [0-9.]* MB/s$'

case='quiet leaves out the summary and keeps the warnings'
run 1 --quiet missing
check 'a summary' [ "$(wc -l < err)" -eq 1 ]

for options in '--jobs 0' '--jobs x' '--jobs' '--jobs -1' '--jobs 1025' '--jobs=2' '--unknown' '-x' ''; do
  case="bad options: $options"
  # shellcheck disable=SC2086: split into words
  run 2 $options
  check 'output' [ ! -s out ]
  check 'no usage' says err '^usage: tarsio-digest'
done

case='names behind a double dash are names'
printf 'dash' > ./--quiet
sha256sum -- --quiet > expected
run 0 -- --quiet
check 'the output differs' cmp -s out expected

case='relative names are looked for under the roots in their order, then here'
mkdir r1 r2
printf 'first' > r1/x.txt
printf 'second' > r2/x.txt
printf 'only' > r2/y.txt
{ (cd r1 && sha256sum x.txt); (cd r2 && sha256sum y.txt); sha256sum a.txt "$work/a.txt"; } > expected
run 0 --root r1 --root "$work/r2" x.txt y.txt a.txt "$work/a.txt"
check 'the output differs' cmp -s out expected
run 1 --root r1 y.txt
check 'no word of the missing file' says err 'y.txt: is missing$'

case='a name that is not UTF-8 is reported and left out'
printf 'b\377d.txt\na.txt\n' > names
sha256sum a.txt > expected
run 1 -
check 'the output differs' cmp -s out expected
check 'no word of the name' says err "] 'b'\$'\\\\377''d.txt': is not a name in UTF-8$"
: > names

case='the progress line is shown on request'
run 0 --progress a.txt
check 'no progress' says raw_err '1 files, [0-9.]* MB/s, [01] workers, 0 pending'
run 0 a.txt
check 'progress without a terminal' [ "$(wc -l < err)" -eq 1 ]

case='the version comes with the system'
run 0 --version
check 'no version' says out '^tarsio-digest [0-9]*\.[0-9]*\.[0-9]* (Windows [0-9]*\.[0-9]* x64)$'

for jobs in 1 3 16; do
  case="thousands of names stay in order with $jobs jobs"
  awk 'BEGIN { for (i = 0; i < 3000; ++i) print (i % 3 == 0 ? "a.txt" : i % 3 == 1 ? "sub/b.txt" : "empty") }' > names
  tr '\n' '\0' < names | xargs -0 sha256sum > expected
  run 0 --jobs "$jobs" -
  check 'the output differs' cmp -s out expected
done

[ "$failures" -eq 0 ] && echo 'all well'
exit "$failures"
