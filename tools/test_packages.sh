#!/bin/sh
# tools/test_packages.sh PACKAGES WORK JOBS: unpacks the packages in WORK, then builds and runs a host
# against them in every supported way.
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

fail() { echo "packages: $*" >&2; exit 1; }

# The packages must not contain the path of the build machine.
! grep -rlF "$root" "$work/linux" "$work/windows" || fail "these files contain the path of the sources"
for text in gcc-runtime GPL-3 mingw-w64 openssl; do
  [ -s "$work/windows/share/doc/tarsio-common/licences/$text.txt" ] || fail "missing licence: $text"
done
python3 "$root/tests/packages/validate_bill.py" \
  "$work/linux/usr/share/doc/libtarsio-common1/tarsio-common.spdx.json" "$work/linux/usr"
python3 "$root/tests/packages/validate_bill.py" \
  "$work/windows/share/doc/tarsio-common/tarsio-common.spdx.json" "$work/windows"

for folder in "$work/linux/usr/share/doc/libtarsio-common-doc" \
  "$work/windows/share/doc/tarsio-common"; do
  for file in html/index.html examples/path.cpp examples/digest/main.cpp; do
    [ -s "$folder/$file" ] || fail "missing: $folder/$file"
  done
done
sh "$root/tests/packages/consumers/refusals.sh" "$work"

cd "$root"
libraries=$(dirname "$work"/linux/usr/lib/*/libtarsio-common.so.1)
expected=$(sha256sum README.md)
printed=$(LD_LIBRARY_PATH=$libraries "$work/linux/usr/bin/tarsio-digest" README.md)
[ "$printed" = "$expected" ] || fail "tarsio-digest: wrong output"
printed=$(sh tools/run_under_wine.sh "$work/windows/bin/tarsio-digest.exe" README.md | tr -d '\r')
[ "$printed" = "$expected" ] || fail "tarsio-digest.exe: wrong output"

# gdb must find the debug information: on Linux by its build id, on Windows by the link in the DLL.
finds_a_line() {
  "$@" -nx -batch -ex 'info line tarsio::MakeDirs' 2>&1 | grep -q 'of "src/path.cpp" starts' ||
    fail "no debug information: $*"
}
finds_a_line gdb -iex "set debug-file-directory $work/linux/usr/lib/debug" \
  "$libraries/libtarsio-common.so.1"
finds_a_line x86_64-w64-mingw32-gdb "$work/windows/bin/tarsio-common.dll"
# gdb finds the printers by the library's path under /usr.
printers=$(find "$work/linux/usr/share/gdb/auto-load${libraries#"$work/linux"}" -name '*.so.*-gdb.py')
[ -n "$printers" ] || fail "no printers for gdb"

{
  # Slowest first.
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
  for kind in shared static; do
    for compiler in x86_64-w64-mingw32-g++-posix clang++; do
      echo "windows cmake $kind $compiler"
      echo "windows pkg-config $kind $compiler"
    done
    echo "windows toolchain $kind x86_64-w64-mingw32-g++-posix"
  done
} > "$work/matrix"
xargs -P "$jobs" -L 1 sh "$root/tests/packages/consumers/run_cell.sh" "$work" < "$work/matrix"
