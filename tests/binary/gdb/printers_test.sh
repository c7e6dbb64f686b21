#!/bin/sh
# printers_test.sh GDB PROGRAM LIBRARY_FOLDER EXPECTED: stops PROGRAM in the debugger, which finds the
# printers beside the library, prints its values, and compares them with the file EXPECTED.
set -eu

folder=$(dirname "$0")
# The printed values alone: what gdb says besides holds addresses and numbers of threads.
LC_ALL=C.UTF-8 "$1" --nx --batch -iex "add-auto-load-safe-path $3" -x "$folder/values.gdb" "$2" 2>&1 |
  sed -n -e 's/^\$[0-9]* = //p' -e '/warning:\|[Ee]rror\|Traceback/p' | diff "$4" -
