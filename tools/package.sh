#!/bin/sh
# tools/package.sh BUILD JOBS: builds this checkout in BUILD and writes the packages to BUILD/packages.
# The packages are reproducible: the same commit gives the same bytes in any folder.
set -eu
cd "$(dirname "$0")/.."
mkdir -p "$1"
build=$(cd "$1" && pwd)
jobs=$2

# No timestamp is later than the commit. The user's time zone and locale have no effect.
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct)}
export SOURCE_DATE_EPOCH TZ=UTC LC_ALL=C.UTF-8
umask 022

# quietly LOG COMMAND...: shows the command's output only if it fails.
quietly() {
  log=$1
  shift
  "$@" > "$log" 2>&1 || { cat "$log" >&2; exit 1; }
}

# build_one FOLDER PRESET TARGET OPTION...
build_one() {
  folder=$build/$1 preset=$2 target=$3
  shift 3
  quietly "$folder.log" cmake --preset "$preset" -B "$folder" -DCMAKE_INSTALL_PREFIX=/usr \
    -DTARSIO_BUILD_TESTS=OFF "$@"
  cmake --build "$folder" --target "$target" --parallel "$jobs" -- --quiet
}

# pack FOLDER PROJECTS: packs the builds in PROJECTS with FOLDER's CPack configuration.
pack() {
  quietly "$build/$1.log" cpack --config "$build/$1/CPackConfig.cmake" -B "$build/cpack" \
    -D "CPACK_INSTALL_CMAKE_PROJECTS=$2"
}

quietly "$build/docs.log" sh tools/docs.sh
# A program in /usr/bin needs no RPATH, and the build folder's path would change the build id.
build_one shared linux tarsio-digest -DCMAKE_SKIP_RPATH=ON
build_one static linux tarsio-common -DBUILD_SHARED_LIBS=OFF -DTARSIO_BUILD_EXAMPLES=OFF
build_one windows windows tarsio-digest
build_one windows-static windows tarsio-common -DBUILD_SHARED_LIBS=OFF -DTARSIO_BUILD_EXAMPLES=OFF

rm -rf "$build/cpack" "$build/packages"
pack shared "$build/static;tarsio-common;ALL;/;$build/shared;tarsio-common;ALL;/;\
$build/shared/cmake/debian;Debian;ALL;/"
pack windows "$build/windows-static;tarsio-common;ALL;/;$build/windows;tarsio-common;ALL;/"
mkdir "$build/packages"
mv "$build"/cpack/*.deb "$build/packages"

# CPack's own ZIP is not reproducible: its order is the file system's.
cd "$build"/cpack/_CPack_Packages/*/ZIP
for name in tarsio-common-*-windows-x86_64; do
  find "$name" -exec touch --date="@$SOURCE_DATE_EPOCH" {} +
  find "$name" -type f | sort | zip -q -X -9 -@ "$build/packages/$name.zip"
done
