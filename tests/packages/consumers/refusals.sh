#!/bin/sh
# tests/packages/consumers/refusals.sh WORK: how the packages in WORK/linux and WORK/windows reject
# projects for other targets. Each project is described by the variables that CMake sets for it.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
work=$1
failed=0

# refuses SYSTEM MESSAGE VARIABLE...
refuses() {
  system=$1 message=$2
  shift 2
  config=$(find "$work/$system" -name tarsio-common-config.cmake)
  rm -rf "$work/refusal"
  cmake -S "$here/refusal" -B "$work/refusal" -G Ninja "-Dtarsio-common_DIR=$(dirname "$config")" "$@" \
    > "$work/refusal.log" 2>&1 || true
  # CMake wraps its messages.
  tr -s '\n ' ' ' < "$work/refusal.log" | grep -qF "$message" ||
    { cat "$work/refusal.log"; echo "not refused: $system, $*"; failed=1; }
}

linux="This package is for programs for Linux on x86_64 only."
windows="This package is for programs for Windows on x86_64 only."
refuses linux "$linux" -DCMAKE_SYSTEM_NAME=Windows
refuses linux "$linux" -DCMAKE_SYSTEM_NAME=Linux -DCMAKE_SYSTEM_PROCESSOR=aarch64
refuses linux "$linux" -DCMAKE_CXX_LIBRARY_ARCHITECTURE=aarch64-linux-gnu
refuses linux "$linux" -DCMAKE_SIZEOF_VOID_P=4
refuses linux "libc++ cannot be mixed with" "-DCMAKE_CXX_IMPLICIT_LINK_LIBRARIES=c++;m;gcc_s;c"
refuses windows "$windows" -DCMAKE_SYSTEM_NAME=Linux
refuses windows "$windows" -DCMAKE_SYSTEM_NAME=Windows -DCMAKE_SYSTEM_PROCESSOR=ARM64
refuses windows "$windows" -DCMAKE_SYSTEM_NAME=Windows -DCMAKE_SIZEOF_VOID_P=4
refuses windows "MSVC cannot be mixed with" -DCMAKE_SYSTEM_NAME=Windows -DMSVC=1
refuses windows "libc++ cannot be mixed with" -DCMAKE_SYSTEM_NAME=Windows \
  "-DCMAKE_CXX_IMPLICIT_LINK_LIBRARIES=c++;mingw32"
[ "$failed" = 0 ]
echo "ok: the packages reject other targets"
