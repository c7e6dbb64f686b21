#!/bin/sh
# printers_test.sh GDB PROGRAM LIBRARY_FOLDER EXPECTED: stops PROGRAM in the debugger, which finds
# the printers next to the library, prints values, and compares the output with the file EXPECTED.
set -eu

folder=$(dirname "$0")
# Keep only the printed values: gdb's other output contains addresses and thread numbers.
LC_ALL=C.UTF-8 "$1" --nx --batch -iex "add-auto-load-safe-path $3" -x "$folder/values.gdb" "$2" 2>&1 |
  sed -n -e 's/^\$[0-9]* = //p' -e '/warning:\|[Ee]rror\|Traceback/p' | diff "$4" -
