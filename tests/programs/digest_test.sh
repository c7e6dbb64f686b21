#!/bin/sh
# digest_test.sh PROGRAM [ARGUMENT...]: runs tarsio-digest as a user would, possibly under Wine.
set -u
# Wine decodes the arguments according to the locale.
export LC_ALL=C.UTF-8
# By default the thread sanitizer waits a second at exit for running threads, such as idle workers.
export TSAN_OPTIONS="${TSAN_OPTIONS:+$TSAN_OPTIONS:}atexit_sleep_ms=0"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
sources=$(cd "$(dirname "$0")/../../examples/digest" && pwd)
cd "$work" || exit 1
failures=0

# begin CASE: empties ./in, the standard input of the case.
begin() {
  case=$1
  : > in
}
# run STATUS ARGUMENT...: expects that exit status. Writes ./out, and ./err without carriage returns.
run() {
  expected=$1
  shift
  eval "$command_line" '"$@"' > out 2> raw_err < in
  status=$?
  # Drop the messages about Wine that failed to start or to exit cleanly.
  tr -d '\r' < raw_err |
    sed '/^run_under_wine.sh: .*; restart [1-3]$/d; /^wine client error:/d' > err
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
says() { grep -q -e "$2" "$1"; }
# Expects standard output to equal ./expected, and standard error to be empty unless an argument is
# given.
is_expected() {
  check 'the output differs' cmp -s out expected
  [ "$#" -gt 0 ] || check 'messages' [ ! -s err ]
}
# Expects the same output and status as `sha256sum --check ARGUMENT...`, and the same messages
# except for the program's name.
checks_like_sha256sum() {
  sha256sum --check "$@" > expected 2> expected_err < in
  run $? --check "$@"
  is_expected and_messages
  sed "s/^sha256sum/tarsio-digest/; s/'standard input'/standard input/" expected_err > expected
  check 'the messages differ' cmp -s err expected
}

under_wine=$(($# > 1))
command_line=
for word in "$@"; do command_line="$command_line '$word'"; done
nothing=e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855
wrong=$(printf '%064d' 0)
mkdir sub
printf 'one' > a.txt
printf 'two\r\n\000' > sub/b.txt
printf 'three' > 'sub/ünï €.txt'
: > empty

begin 'digests are in input order, including that of an empty file'
sha256sum sub/b.txt empty a.txt 'sub/ünï €.txt' > expected
run 0 sub/b.txt empty a.txt 'sub/ünï €.txt'
is_expected

begin 'an absolute name is found'
sha256sum "$work/a.txt" > expected
run 0 "$work/a.txt"
is_expected

begin 'standard input is digested, byte for byte'
printf 'x\r\ny\032z\377' > in
sha256sum < in > expected
run 0
is_expected
sha256sum a.txt - empty - < in > expected
run 0 a.txt - empty -
is_expected

begin 'names come from lists'
printf 'a.txt\n\nempty\n' > list
printf 'sub/b.txt' > in
sha256sum empty a.txt empty sub/b.txt a.txt empty > expected
run 0 --files-from list --files-from - --files-from=list empty
is_expected
printf 'a.txt\000\000sub/b.txt\000' > in
sha256sum a.txt sub/b.txt > expected
run 0 --null --files-from -
is_expected

begin 'a dash in a list is a name'
printf 'dash' > ./-
printf -- '-\n' > list
sha256sum ./- | sed 's|\./||' > expected
run 0 --files-from list
is_expected

begin 'a list that cannot be read is reported'
run 1 a.txt --files-from missing
sha256sum a.txt > expected
is_expected and_messages
check 'no reason' says err '^tarsio-digest: missing: No such file or directory$'

begin 'a file that fails gets one message, and the others are digested'
sha256sum a.txt empty > expected
run 1 a.txt missing sub a.txt/ '' empty
is_expected and_messages
printf 'tarsio-digest: %s\n' 'missing: No such file or directory' 'sub: Is a directory' \
  'a.txt/: Not a directory' "'': No such file or directory" > expected
check 'the messages differ' cmp -s err expected

begin 'the log is written on request'
run 1 --verbose a.txt missing sub empty
check 'no summary' says err '\[INFO\].*\] 4 files, 2 failures, 3 bytes, [0-9.]* seconds, [0-9.]* MB/s$'

begin 'control characters are quoted in messages'
run 1 "$(printf 'no\nsuch\033[1m')"
check 'no quotes' says err "^tarsio-digest: 'no'\$'\\\\n''such'\$'\\\\033''\[1m': No such"

begin 'a name with a NUL is refused'
printf 'a.txt\000b\n' > in
run 1 --files-from -
check 'no reason' says err ': Cannot be named: it has a NUL character$'

begin 'a name that is not UTF-8 is reported and skipped'
printf 'b\377d.txt\na.txt\na\300\257b\n' > in
sha256sum a.txt > expected
run 1 --files-from -
is_expected and_messages
check 'no message' says err "'b'\$'\\\\377''d.txt': Cannot be named: it is not UTF-8$"
check 'overlong name not reported' says err "'a'\$'\\\\300\\\\257''b': Cannot be named: it is not"

begin 'the progress line is shown on request'
run 0 --progress a.txt
check 'no progress' says raw_err '1 file, [0-9.]* MB/s'
run 0 a.txt
check 'progress without a terminal' [ ! -s err ]

begin 'the usage is printed on request'
for option in --help -h; do
  run 0 $option --unknown
  check 'no usage' says out '^usage: tarsio-digest'
  check 'messages' [ ! -s err ]
done

begin 'the manual page and the completions have every option'
grep -oE '^ +(-h, )?--[a-z-]+' out | grep -oE -e '--.*' > options
check 'too few options' [ "$(wc -l < options)" -ge 11 ]
while read -r option; do
  check "$option is not in the manual page" \
    grep -qF -e "$(echo "$option" | sed 's/-/\\-/g')" "$sources/tarsio-digest.1"
  check "$option is not completed" grep -qw -e "$option" "$sources/tarsio-digest.bash"
done < options

begin 'the version includes the system'
run 0 --version
system=Linux
[ "$under_wine" -eq 0 ] || system=Windows
check 'no version' says out "^tarsio-digest [0-9]*\.[0-9]*\.[0-9]* ($system [0-9]*\.[0-9]* x64)\$"

# wrong MESSAGE ARGUMENT...: an invalid command line.
wrong() {
  begin "wrong command line: $1"
  message=$1
  shift
  run 2 "$@"
  check 'output' [ ! -s out ]
  check 'another message' says err "^tarsio-digest: $message\$"
  check 'no hint' says err "^Try 'tarsio-digest --help'\.\$"
}
for jobs in 0 x -1 1025 ''; do
  shown=${jobs:-"''"}
  wrong "--jobs takes a number from 1 to 1024, not $shown" --jobs "$jobs" a.txt
done
wrong '--jobs needs a value' a.txt --jobs
wrong 'unknown option --unknown' --unknown a.txt
wrong 'unknown option -x' -x
wrong 'unknown option --quiet=1' --quiet=1
wrong '--quiet has a meaning only with --check' --quiet a.txt
wrong '--files-from has no meaning with --check' --check --files-from list
wrong '--status has a meaning only with --check' --status a.txt
wrong '--null has a meaning only with --files-from' --null a.txt

begin 'arguments after a double dash are names'
printf 'dash' > ./--quiet
sha256sum -- --quiet > expected
run 0 -- --quiet
is_expected

begin 'relative names are looked up in the roots in order, then in the current directory'
mkdir r1 r2
printf 'first' > r1/x.txt
printf 'second' > r2/x.txt
printf 'only' > r2/y.txt
{ (cd r1 && sha256sum x.txt); (cd r2 && sha256sum y.txt); sha256sum a.txt "$work/a.txt"; } > expected
run 0 --root r1 --root "$work/r2" x.txt y.txt a.txt "$work/a.txt"
is_expected
run 1 --root r1 y.txt
check 'missing file not reported' says err '^tarsio-digest: y.txt: No such file or directory$'

begin 'lists of sha256sum are verified'
sha256sum a.txt sub/b.txt > list
sha256sum --binary empty 'sub/ünï €.txt' >> list
sha256sum --tag a.txt >> list
checks_like_sha256sum list
checks_like_sha256sum --quiet list
checks_like_sha256sum --status list
cp list in
checks_like_sha256sum
checks_like_sha256sum -

begin 'mismatches are reported as sha256sum does'
{ echo "$wrong  a.txt"; echo "$wrong *missing"; echo "$nothing  sub"; echo "$nothing  empty"; } > bad
sed '3d' bad > one_missing  # sha256sum reports a directory differently
checks_like_sha256sum one_missing
checks_like_sha256sum --quiet one_missing
checks_like_sha256sum --status one_missing
run 1 --check bad
printf '%s\n' 'a.txt: FAILED' 'missing: FAILED open or read' 'sub: FAILED open or read' \
  'empty: OK' > expected
is_expected and_messages
check 'no warning' says err '^tarsio-digest: WARNING: 2 listed files could not be read$'
{ cat one_missing; echo; echo '# comment'; echo junk; echo "$wrong"; echo "$wrong a.txt"
  echo "${wrong%0}  a.txt"; echo "${wrong%0}x  a.txt"; printf '\\%s  a\\x\n' "$nothing"
  printf '  \t%s  empty\n' "$nothing"; } > malformed
checks_like_sha256sum malformed
checks_like_sha256sum one_missing list malformed
{ echo "$nothing  empty"; echo junk; } > malformed
checks_like_sha256sum malformed

begin 'a list without digests is a failure'
printf 'junk\n' > junk
checks_like_sha256sum junk empty
checks_like_sha256sum missing

begin 'carriage returns and capital digits are accepted'
printf '%s  empty\r\n' "$(echo $nothing | tr a-f A-F)" > in
checks_like_sha256sum -

begin 'a list may name standard input'
printf 'typed' > in
sha256sum - < in > list
checks_like_sha256sum list
cp list in
checks_like_sha256sum -

begin 'sha256sum verifies the output'
run 0 a.txt empty sub/b.txt 'sub/ünï €.txt'
check 'sha256sum rejects the output' sha256sum --check --status --strict out

if [ "$under_wine" -eq 1 ]; then
  begin 'a name with a backslash is escaped as sha256sum does'
  run 0 'sub\b.txt'
  check 'the line is not escaped' says out '^\\[0-9a-f]\{64\}  sub\\\\b.txt$'
  cp out list
  run 0 --check list
  check 'the name is not found' says out '^sub\\b.txt: OK$'

  begin 'lines of a list may end with a carriage return'
  printf 'a.txt\r\nempty\r\n' > in
  sha256sum a.txt empty > expected
  run 0 --files-from -
  is_expected

  begin 'a device has no digest'
  run 1 NUL
  check 'output' [ ! -s out ]
  check 'no reason' says err '^tarsio-digest: NUL: '
else
  begin 'a name with a backslash or a colon is refused rather than misread'
  printf 'right' > c:d
  printf 'other' > d
  run 1 'sub\b.txt' 'sub\..\a.txt' 'ab:c' "C:$work/a.txt" 'D:a' c:d "/$work/a.txt"
  sha256sum "/$work/a.txt" > expected
  is_expected and_messages
  check 'backslash not reported' [ "$(grep -c ': Cannot be named: it has a backslash$' err)" -eq 2 ]
  check 'colon not reported' [ "$(grep -c ': Cannot be named: it has a colon$' err)" -eq 4 ]
  wrong 'a:b: Cannot be named: it has a colon' --root a:b a.txt

  begin 'names with line ends are escaped as sha256sum does'
  newline=$(printf 'new\nline')
  return=$(printf 'carriage\rreturn')
  printf 'four' > "$newline"
  printf 'five' > "$return"
  sha256sum "$newline" "$return" > expected
  run 0 "$newline" "$return"
  is_expected
  { cat expected; sha256sum --tag "$newline"; } > list
  checks_like_sha256sum list
  printf 'new\nline\000' > in
  sha256sum "$newline" > expected
  run 0 --null --files-from -
  is_expected

  begin 'special files are refused'
  mkfifo fifo
  run 1 /proc/cpuinfo fifo /dev/null empty
  echo "$nothing  empty" > expected
  is_expected and_messages
  printf 'tarsio-digest: %s\n' '/proc/cpuinfo: Its size is not known' 'fifo: Not a regular file' \
    '/dev/null: Not a regular file' > expected
  check 'the messages differ' cmp -s err expected

  begin 'a list may be a FIFO'
  timeout 20 sh -c 'echo a.txt > fifo' &
  sha256sum a.txt > expected
  run 0 --files-from fifo
  is_expected

  begin 'error messages of the system are reported'
  ln -s loop loop
  run 1 loop
  check 'no reason' says err '^tarsio-digest: loop: Too many levels of symbolic links$'

  begin 'a failed digest is not printed'
  printf 'openssl_conf = strict\n[strict]\nalg_section = strict_algorithms\n[strict_algorithms]\ndefault_properties = fips=yes\n' > strict.cnf
  OPENSSL_CONF=$work/strict.cnf run 1 a.txt empty -
  check 'output' [ ! -s out ]
  check 'no reasons' [ "$(grep -c ': libcrypto refuses to compute SHA-256$' err)" -eq 3 ]

  begin 'input that cannot be read is reported'
  ln -sf . in
  for arguments in '' '--files-from -' '--check .'; do
    # shellcheck disable=SC2086 # split into words
    run 1 $arguments
    check "no reason: $arguments" says err '^tarsio-digest: [-.]: Is a directory$'
  done
  rm in

  begin 'output that cannot be written is a failure'
  for argument in a.txt --help --version; do
    eval "$command_line" $argument > /dev/full 2> err
    check "no failure: $argument" [ $? -eq 1 ]
    check "no reason: $argument" says err '^tarsio-digest: standard output cannot be written$'
  done

  # A sanitizer needs more memory.
  limit='ulimit -v 150000; export MALLOC_ARENA_MAX=1'
  if eval "($limit; $command_line --version)" > /dev/null 2>&1; then
    begin 'a file that does not fit into memory is reported'
    truncate -s 1G large
    sha256sum a.txt > expected
    eval "($limit; $command_line large a.txt)" > out 2> err
    check 'no failure' [ $? -eq 1 ]
    is_expected and_messages
    check 'no reason' says err '^tarsio-digest: large: Out of memory$'

    begin 'a long list is not held in memory'
    long=$(printf '%030000d:' 0)
    yes "$long" | head -n 6000 | eval "($limit; $command_line --files-from -)" > out 2> long_err
    check 'no failure' [ $? -eq 1 ]
    check 'names are missing' [ "$(wc -l < long_err)" -eq 6000 ]
    rm long_err

    begin 'a failed thread start is reported'
    eval "(ulimit -s 1000000; $limit; $command_line a.txt)" > out 2> err
    check 'no failure' [ $? -eq 1 ]
    check 'no reason' says err '^tarsio-digest: Resource temporarily unavailable$'
  fi
fi

awk 'BEGIN { for (i = 0; i < 3000; ++i) print (i % 3 == 0 ? "a.txt" : i % 3 == 1 ? "sub/b.txt" : "empty") }' > names
tr '\n' '\0' < names | xargs -0 sha256sum > list
for jobs in 1 3 16; do
  begin "thousands of names stay in order with $jobs jobs"
  cp list expected
  run 0 --jobs "$jobs" --files-from names
  is_expected
done
begin 'thousands of files are verified in order'
sed "1000s/^.\{64\}/$wrong/" list > in
checks_like_sha256sum -

[ "$failures" -eq 0 ] && echo 'all well'
exit "$failures"
