#!/bin/sh
# tools/package.sh BUILD JOBS: builds this folder's sources in BUILD and puts the packages into
# BUILD/packages. The same commit gives the same bytes, whatever the folders are called.
set -eu
cd "$(dirname "$0")/.."
mkdir -p "$1"
build=$(cd "$1" && pwd)
jobs=$2

# A file's time is never later than the commit's, and nobody's time zone or locale matters.
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct)}
export SOURCE_DATE_EPOCH TZ=UTC LC_ALL=C.UTF-8
umask 022

# build_one FOLDER PRESET OPTION...
build_one() {
  folder=$build/$1 preset=$2
  shift 2
  cmake --preset "$preset" -B "$folder" -DCMAKE_INSTALL_PREFIX=/usr -DTARSIO_BUILD_TESTS=OFF \
    -DTARSIO_BUILD_EXAMPLES=OFF "$@" > "$folder.log" 2>&1 || { cat "$folder.log" >&2; exit 1; }
  cmake --build "$folder" --parallel "$jobs" -- --quiet
}

# pack FOLDER PROJECTS: CPack, as the build in FOLDER sets it up, over the builds in PROJECTS.
pack() {
  cpack --config "$build/$1/CPackConfig.cmake" -B "$build/cpack" \
    -D "CPACK_INSTALL_CMAKE_PROJECTS=$2" > "$build/$1.log" 2>&1 ||
    { cat "$build/$1.log" >&2; exit 1; }
}

build_one shared linux -DBUILD_SHARED_LIBS=ON
build_one static linux -DBUILD_SHARED_LIBS=OFF
build_one windows windows -DBUILD_SHARED_LIBS=ON

rm -rf "$build/cpack" "$build/packages"
pack shared "$build/static;tarsio-common;ALL;/;$build/shared;tarsio-common;ALL;/;\
$build/shared/cmake/debian;Debian;ALL;/"
pack windows "$build/windows;tarsio-common;ALL;/"
mkdir "$build/packages"
mv "$build"/cpack/*.deb "$build/packages"

# CPack's own ZIP has the files in the order in which the file system happens to list them.
cd "$build"/cpack/_CPack_Packages/*/ZIP
for name in tarsio-common-*-windows-x86_64; do
  find "$name" -exec touch --date="@$SOURCE_DATE_EPOCH" {} +
  find "$name" -type f | sort | zip -q -X -9 -@ "$build/packages/$name.zip"
done
