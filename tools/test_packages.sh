#!/bin/sh
# tools/test_packages.sh PACKAGES WORK JOBS: unpacks the packages into empty folders in WORK, and builds
# and runs a host over them in every way that there is.
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
packages=$(cd "$1" && pwd)
rm -rf "$2"
mkdir -p "$2"
work=$(cd "$2" && pwd)
jobs=$3

for package in "$packages"/*.deb; do dpkg-deb --extract "$package" "$work/linux"; done
unzip -q "$packages"/*.zip -d "$work"
mv "$work"/tarsio-common-*-windows-x86_64 "$work/windows"

# Debian's own Python has the module that this needs.
/usr/bin/python3 "$root/tests/packages/validate_bill.py" \
  "$work/linux/usr/share/doc/libtarsio-common1/tarsio-common.spdx.json" "$work/linux/usr"
/usr/bin/python3 "$root/tests/packages/validate_bill.py" \
  "$work/windows/share/doc/tarsio-common/tarsio-common.spdx.json" "$work/windows"

{
  # The slowest first.
  for kind in shared static; do
    for compiler in g++ clang++; do echo "linux add_subdirectory $kind $compiler"; done
    echo "windows add_subdirectory $kind x86_64-w64-mingw32-g++-posix"
  done
  for kind in shared static; do
    for compiler in g++ clang++; do
      echo "linux cmake $kind $compiler"
      echo "linux pkg-config $kind $compiler"
    done
  done
  # Of the static library, Windows has no package.
  echo "windows cmake shared x86_64-w64-mingw32-g++-posix"
  echo "windows pkg-config shared x86_64-w64-mingw32-g++-posix"
} > "$work/matrix"
xargs -P "$jobs" -L 1 sh "$root/tests/consumers/cell.sh" "$work" < "$work/matrix"
