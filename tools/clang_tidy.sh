#!/bin/sh
# tools/clang_tidy.sh BUILD JOBS: runs clang-tidy on the library and the examples with BUILD's compile
# commands, then on the Windows sources with the cross compiler's headers.
set -eu

tidy() { xargs -P "$jobs" -I{} clang-tidy --quiet --warnings-as-errors='*' "$@"; }

jobs=$2
git ls-files 'src/*.cpp' 'examples/*.cpp' | grep -v /windows/ | tidy -p "$1" {}

# The cross compiler's include folders, in its order.
system=$(x86_64-w64-mingw32-g++-posix -E -x c++ -v /dev/null 2>&1 |
  sed -n 's/^ \(\/.*\(c++\|x86_64-w64-mingw32\/include\|c++\/x86_64-w64-mingw32\)\)$/-isystem \1/p')
git ls-files 'src/platform/windows/*.cpp' 'examples/digest/windows/*.cpp' |
  tidy {} -- --target=x86_64-w64-mingw32 -std=c++17 -DTARSIO_COMMON_BUILDING -Iinclude -Isrc $system
