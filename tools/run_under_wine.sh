#!/bin/sh
# tools/run_under_wine.sh PROGRAM [ARGUMENT...]: runs a Windows program under Wine and ends when the
# program does: Wine's own processes inherit what the program that starts them writes to, and keep a
# pipe open for as long as they live. So the program writes to files, which are passed on at its end.
#
# The tests build launcher.exe beside their programs, which reports the program's exit code. Without
# it, the status is what Wine makes of that code: its last 8 bits.
set -u
say() { echo "run_under_wine.sh: $name: $*" >&2; }

output=$(mktemp -d) || exit 1
trap 'rm -rf "$output"' EXIT

# With random addresses, one start in some thousands fails silently: the heap of Wine's loader takes
# the place of a page that Wine needs at a fixed address. Some containers do not allow this.
setarch=
setarch -R true 2>/dev/null && setarch='setarch -R'
start() {
  $setarch wine "$@" >"$output/out" 2>"$output/err"
  status=$?
}
pass_on() {
  cat "$output/out"
  cat "$output/err" >&2
}

folder=$(cd "$(dirname "$1")" && pwd) || exit 1
name=$(basename "$1")
shift
if [ ! -f "$folder/launcher.exe" ]; then
  start "$folder/$name" "$@"
  pass_on
  exit "$status"
fi

# Z: is the root.
program=$(printf 'Z:%s/%s' "$folder" "$name" | tr / '\134')
restarts=0
while start "$folder/launcher.exe" "Z:$output/code" "$program" "$@"; [ ! -f "$output/code" ]; do
  if [ "$restarts" -eq 3 ]; then
    pass_on
    say "nothing has run, status $status; giving up"
    exit 1
  fi
  restarts=$((restarts + 1))
  say "nothing has run, status $status; restart $restarts"
done
pass_on

code=$(cat "$output/code")
case "$code" in
  '') say "the launcher was lost, status $status; the exit code is unknown" ;;
  lost) say "ended without an exit code" ;;
  ? | ?? | 1?? | 2[0-4]? | 25[0-5]) exit "$code" ;;
  *) say "exit code $code ($(printf '0x%08X' "$code"))" ;;
esac
exit 255
