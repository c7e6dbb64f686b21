#!/bin/sh
# tests/consumers/cell.sh WORK SYSTEM WAY KIND COMPILER: builds and runs the host in every language
# standard. SYSTEM is linux or windows, whose package lies unpacked in WORK/SYSTEM; WAY is cmake,
# pkg-config or add_subdirectory; KIND is shared or static.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
work=$1 system=$2 way=$3 kind=$4 compiler=$5
cell=$work/$system-$way-$kind-$compiler
package=$work/$system
[ "$system" = windows ] || package=$package/usr

case "$compiler" in
  clang*)
    # All but those against older standards, padded structures, statics and backslashes in comments.
    warnings="-Weverything -Wno-c++98-compat -Wno-c++98-compat-pedantic -Wno-padded
      -Wno-exit-time-destructors -Wno-global-constructors
      -Wno-documentation -Wno-documentation-unknown-command" ;;
  *)
    warnings="-Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast
      -Wcast-qual -Wcast-align -Wuseless-cast -Wdouble-promotion -Wformat=2 -Wundef -Wextra-semi
      -Wnull-dereference -Wduplicated-cond -Wduplicated-branches -Wlogical-op -Wnon-virtual-dtor
      -Woverloaded-virtual -Wzero-as-null-pointer-constant -Wsuggest-override" ;;
esac
warnings="-Werror $warnings"

with_cmake() {
  if [ "$way" = add_subdirectory ]; then
    set -- "-DHOST_SOURCES=$root"
    [ "$system" = linux ] ||
      set -- "$@" "-DCMAKE_TOOLCHAIN_FILE=$root/cmake/toolchains/mingw-w64-x86_64.cmake"
  else
    set -- "-DCMAKE_PREFIX_PATH=$package"
    [ "$system" = linux ] || set -- "$@" -DCMAKE_SYSTEM_NAME=Windows
  fi
  # shellcheck disable=SC2086 # the warnings are words
  cmake -S "$here" -B . -G Ninja "-DCMAKE_CXX_COMPILER=$compiler" "-DHOST_KIND=$kind" \
    "-DHOST_WARNINGS=$(printf '%s;' $warnings)" "$@"
  cmake --build . --parallel 1
}

with_pkg_config() {
  module=$(find "$package" -name tarsio-common.pc)
  PKG_CONFIG_PATH=$(dirname "$module")
  export PKG_CONFIG_PATH
  static=
  [ "$kind" = shared ] || static=--static
  compile=$(pkg-config $static --cflags tarsio-common)
  link=$(pkg-config $static --libs tarsio-common)
  for standard in 11 14 17 20 2b; do
    # shellcheck disable=SC2086 # what pkg-config prints are words, and so are the warnings
    "$compiler" -std=c++$standard $warnings $compile "$here/host.cpp" -o "host$standard" \
      $link ${static#-}
  done
}

# With nothing but the package where libraries are looked for.
run() {
  case "$1" in
    *.exe) WINEPATH=$package/bin sh "$root/tools/run_under_wine.sh" "$1" ;;
    *) LD_LIBRARY_PATH=$(dirname "$(find "$package" -name 'libtarsio-common.so.1')") "$1" ;;
  esac
}

build_and_run() {
  case "$way" in
    pkg-config) with_pkg_config ;;
    *) with_cmake ;;
  esac
  [ "$system" = linux ] ||
    "$compiler" -std=c++17 -static "$root/tests/launcher/launcher.cpp" -o launcher.exe
  ran=0
  for program in ./host[0-9]*; do
    run "$program"
    ran=$((ran + 1))
  done
  [ "$ran" = 5 ]
}

rm -rf "$cell"
mkdir -p "$cell"
cd "$cell"
started=$(date +%s)
# Not as a condition: the first command that fails ends it.
build_and_run > log 2>&1 &
wait $! || { cat log; echo "FAILED: $system, $way, $kind, $compiler"; exit 1; }
echo "ok, $(($(date +%s) - started)) s: $system, $way, $kind, $compiler"
