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

# quietly LOG COMMAND...: shows what the command printed only if it fails.
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

# pack FOLDER PROJECTS: CPack, as the build in FOLDER sets it up, over the builds in PROJECTS.
pack() {
  quietly "$build/$1.log" cpack --config "$build/$1/CPackConfig.cmake" -B "$build/cpack" \
    -D "CPACK_INSTALL_CMAKE_PROJECTS=$2"
}

quietly "$build/docs.log" sh tools/docs.sh
# Programs in /usr/bin need no path to the library, and the path of the build would change the build id.
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

# CPack's own ZIP has the files in the order in which the file system happens to list them.
cd "$build"/cpack/_CPack_Packages/*/ZIP
for name in tarsio-common-*-windows-x86_64; do
  find "$name" -exec touch --date="@$SOURCE_DATE_EPOCH" {} +
  find "$name" -type f | sort | zip -q -X -9 -@ "$build/packages/$name.zip"
done
