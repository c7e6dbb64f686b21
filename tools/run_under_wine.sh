#!/bin/sh
# tools/run_under_wine.sh PROGRAM [ARGUMENT...]: runs a Windows program under Wine and exits when the
# program does. The program's output goes to files, which are copied when it has exited: Wine's own
# processes inherit the output and would keep a pipe open as long as they live.
#
# If launcher.exe is next to the program, as in test builds, it reports the program's exit code. Without
# it, the exit status is Wine's: the last 8 bits of that code.
set -u
say() { echo "run_under_wine.sh: $name: $*" >&2; }

output=$(mktemp -d) || exit 1
trap 'rm -rf "$output"' EXIT

# With random addresses, one start in a few thousand fails silently because the heap of Wine's loader
# occupies a page that Wine needs at a fixed address. Some containers do not allow setarch.
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

# Drive Z: is the root.
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
