#!/bin/sh
# launcher_test.sh CASE RUNNER CHILD: how run_under_wine.sh handles exit codes, arguments and
# streams, and a Wine that does not start. CHILD is built from child.cpp; the launcher is in the
# same folder.
set -u
case_name=$1 runner=$2 child=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1

fail() {
  echo "FAILED: $*"
  sed 's/^/  out: /' out
  sed 's/^/  err: /' err
  exit 1
}
# run STATUS ARGUMENT...: expects that exit status; writes ./out and ./err without carriage returns.
run() {
  expected=$1
  shift
  "$runner" "$child" "$@" > raw_out 2> raw_err
  status=$?
  tr -d '\r' < raw_out > out
  tr -d '\r' < raw_err > err
  [ "$status" -eq "$expected" ] || fail "status $status, expected $expected, of: $*"
}
says() { grep -q "$1" err || fail "no message about: $1"; }
silent() { [ ! -s err ] || fail "not silent"; }

# Installs a wrapper of `wine` that records each start in ./starts and then runs the script from
# standard input.
replace_wine() {
  real=$(command -v wine)
  mkdir stub
  { echo '#!/bin/sh'; echo "echo >> '$work/starts'"; cat; echo "exec '$real' \"\$@\""; } > stub/wine
  chmod +x stub/wine
  PATH=$work/stub:$PATH
}
starts() { [ "$(wc -l < starts)" -eq "$1" ] || fail "$(wc -l < starts) starts, expected $1"; }

# Starts a program that creates ./running and then reads from a pipe, which breaks when the program
# exits.
start_reader() {
  mkfifo pipe
  "$runner" "$child" create "$work/running" < pipe > out 2> err &
  pid=$!
  exec 3> pipe
  until [ -e running ]; do
    kill -0 "$pid" 2> /dev/null || fail 'the program does not run'
    sleep 0.1
  done
}
await_reader() {
  wait "$pid"
  status=$?
  [ "$status" -eq "$1" ] || fail "status $status, expected $1"
}
# The only child of the runner, and another of the processes that are named like ./running.
launcher_process() { tr -d ' ' < "/proc/$pid/task/$pid/children"; }
program_process() {
  grep -l "$work/[r]unning" /proc/[0-9]*/cmdline 2> /dev/null | cut -d / -f 3 |
    grep -vx -e "$pid" -e "$(launcher_process)"
}

case "$case_name" in
  exit_codes)
    for code in 0 1 255; do
      run "$code" exit "$code"
      silent
    done
    run 255 exit 263
    says 'exit code 263 (0x00000107)$'
    run 255 exit 0x100  # the low 8 bits are 0
    says 'exit code 256 (0x00000100)$'
    ;;
  crash)
    run 255 crash 0x10
    says 'exit code 3221225477 (0xC0000005)$'
    ;;
  terminated)
    run 9 terminate 9
    silent
    run 255 terminate 0xC000013A
    says 'exit code 3221225786 (0xC000013A)$'
    ;;
  arguments)
    # shellcheck disable=SC1003,SC2016 # literal
    set -- '' 'two words' 'a "quoted" word' '"' '\' 'ends in \' 'a\\b' '\"' '\\"x' '*' '$HOME' '%PATH%' '-x' ''
    run 0 arguments "$@"
    printf '<%s>\n' "$@" > expected
    cmp expected out || fail 'the arguments differ'
    ;;
  streams)
    printf 'one\ntwo\n' > in
    run 0 copy < in
    printf 'out one\nout two\n' | cmp - out || fail 'standard output differs'
    printf 'err one\nerr two\n' | cmp - err || fail 'standard error differs'
    ;;
  restart)
    replace_wine <<'END'
[ "$(wc -l < starts)" -gt 2 ] || exit 1
END
    run 7 exit 7
    starts 3
    for restart in 1 2; do
      echo "run_under_wine.sh: $(basename "$child"): nothing has run, status 1; restart $restart"
    done | cmp - err || fail 'the lines differ'
    ;;
  give_up)
    replace_wine <<'END'
exit 0
END
    run 1 exit 0
    starts 4
    says 'nothing has run, status 0; giving up$'
    ;;
  missing_program)
    child=$(dirname "$child")/missing.exe
    run 1 exit 0
    says '^launcher: cannot start .*missing.exe: error 2$'
    says 'nothing has run, status 2; giving up$'
    ;;
  no_launcher)
    cp "$child" child.exe
    child=./child.exe
    run 7 exit 263
    silent
    ;;
  recursion)
    run 255 recursion
    says 'ended without an exit code$'
    ;;
  killed_program)
    start_reader
    kill -9 "$(program_process)" || fail 'no process to kill'
    await_reader 255
    says 'ended without an exit code$'
    ;;
  killed_launcher)
    start_reader
    kill -9 "$(launcher_process)" || fail 'no process to kill'
    await_reader 255
    says 'the launcher was lost, status 137; the exit code is unknown$'
    timeout 60 yes >&3 2> /dev/null
    [ $? -ne 124 ] || fail 'the program still runs'
    ;;
  *) fail "no such case: $case_name" ;;
esac
