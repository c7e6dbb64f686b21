#!/bin/sh
# tests/packages/consumers/run_cell.sh WORK SYSTEM WAY KIND COMPILER: builds and runs the host in
# every language standard. SYSTEM is linux or windows, with the package unpacked in WORK/SYSTEM; WAY
# is cmake, toolchain (CMake with the library's toolchain file), pkg-config or add_subdirectory;
# KIND is shared or static.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../../.." && pwd)
work=$1 system=$2 way=$3 kind=$4 compiler=$5
cell=$work/$system-$way-$kind-$compiler
package=$work/$system
[ "$system" = windows ] || package=$package/usr

case "$compiler" in
  clang*)
    # All warnings except those about older standards, padding, statics and backslashes in comments,
    # and those caused by mingw-w64's printf.
    warnings="-Weverything -Wno-c++98-compat -Wno-c++98-compat-pedantic -Wno-padded
      -Wno-exit-time-destructors -Wno-global-constructors
      -Wno-documentation -Wno-documentation-unknown-command -Wno-used-but-marked-unused" ;;
  *)
    warnings="-Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast
      -Wcast-qual -Wcast-align -Wuseless-cast -Wdouble-promotion -Wformat=2 -Wundef -Wextra-semi
      -Wnull-dereference -Wduplicated-cond -Wduplicated-branches -Wlogical-op -Wnon-virtual-dtor
      -Woverloaded-virtual -Wzero-as-null-pointer-constant -Wsuggest-override" ;;
esac
warnings="-Werror $warnings"
target=
compile_one=$compiler
if [ "$system,$compiler" = windows,clang++ ]; then
  target=x86_64-w64-mingw32
  sysroot=$cell/sysroot
  # GCC predefines this macro: its static library defines this function.
  compile_one="clang++ --target=$target --sysroot=$sysroot -D__GXX_TYPEINFO_EQUALITY_INLINE=0"
fi
standards="11 14 17 20 2b"
# GCC 12 defines operator== of type_info twice for Windows, in C++23 and in its static library.
[ "$system,$way,$kind" != windows,pkg-config,static ] || standards="11 14 17 20"

with_cmake() {
  case "$way" in
    add_subdirectory) set -- "-DHOST_SOURCES=$root" ;;
    *) set -- "-DCMAKE_PREFIX_PATH=$package" ;;
  esac
  case "$system,$way" in
    linux,*) ;;
    windows,cmake)
      set -- "$@" -DCMAKE_SYSTEM_NAME=Windows
      [ "$compiler" != clang++ ] || set -- "$@" -DCMAKE_RC_COMPILER=$target-windres \
        "-DCMAKE_CXX_COMPILER_TARGET=$target" "-DCMAKE_CXX_FLAGS=--sysroot=$sysroot" ;;
    *) set -- "$@" "-DCMAKE_TOOLCHAIN_FILE=$root/cmake/toolchains/mingw-w64-x86_64.cmake" ;;
  esac
  # shellcheck disable=SC2086 # split into words
  cmake -S "$here" -B . -G Ninja "-DCMAKE_CXX_COMPILER=$compiler" "-DHOST_KIND=$kind" \
    "-DHOST_WARNINGS=$(printf '%s;' $warnings)" "$@"
  cmake --build . --parallel 1
  # The library's own files must not be installed by the host.
  cmake --install . --prefix installed
  [ ! -e installed ]
}

with_pkg_config() {
  module=$(find "$package" -name tarsio-common.pc)
  PKG_CONFIG_PATH=$(dirname "$module")
  export PKG_CONFIG_PATH
  static=
  [ "$kind" = shared ] || static=--static
  compile=$(pkg-config $static --cflags tarsio-common)
  link=$(pkg-config $static --libs tarsio-common)
  for standard in $standards; do
    # shellcheck disable=SC2086 # split into words
    $compile_one -std=c++$standard $warnings $compile "$here/host.cpp" -o "host$standard" \
      $link ${static#-}
  done
}

# Only the package is in the library search path. CMake has copied the DLLs next to the host.
run() {
  case "$way,$1" in
    pkg-config,*.exe) WINEPATH=$package/bin sh "$root/tools/run_under_wine.sh" "$1" ;;
    *.exe) sh "$root/tools/run_under_wine.sh" "$1" ;;
    *) LD_LIBRARY_PATH=$(dirname "$(find "$package" -name 'libtarsio-common.so.1')") "$1" ;;
  esac
}

# Clang does not recognize the folder of Debian's GCC, since its name is not a version number.
make_sysroot() {
  gcc_folder=$(dirname "$($target-g++-posix -print-libgcc-file-name)")
  mkdir -p "$sysroot/lib/gcc/$target"
  ln -s "$gcc_folder" "$sysroot/lib/gcc/$target/$(basename "$gcc_folder" -posix)"
  ln -s "/usr/$target" "$sysroot"
}

build_and_run() {
  [ -z "$target" ] || make_sysroot
  case "$way" in
    pkg-config) with_pkg_config ;;
    *) with_cmake ;;
  esac
  [ "$system" = linux ] ||
    x86_64-w64-mingw32-g++-posix -std=c++17 -static "$root/tests/launcher/launcher.cpp" -o launcher.exe
  ran=0
  for program in ./host[0-9]*; do
    run "$program"
    ran=$((ran + 1))
  done
  # shellcheck disable=SC2086 # split into words
  [ "$ran" = "$(set -- $standards && echo $#)" ]
}

rm -rf "$cell"
mkdir -p "$cell"
cd "$cell"
started=$(date +%s)
# Not as a condition, so that set -e applies: the first failing command ends it.
build_and_run > log 2>&1 &
wait $! || { cat log; echo "FAILED: $system, $way, $kind, $compiler"; exit 1; }
echo "ok, $(($(date +%s) - started)) s: $system, $way, $kind, $compiler"
