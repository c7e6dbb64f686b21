#!/bin/sh
# tools/reproduce_packages.sh PACKAGES WORK JOBS: builds the packages again from a copy of the sources in
# another folder, with another umask, time zone and locale. Compares them byte for byte with PACKAGES.
set -eu
cd "$(dirname "$0")/.."
packages=$(cd "$1" && pwd)
rm -rf "$2"
copy=$2/the-sources-of-another-user
mkdir -p "$copy"
copy=$(cd "$copy" && pwd)

git ls-files -z | xargs -0 cp --parents --target-directory="$copy"
cp -RL .deps "$copy"
SOURCE_DATE_EPOCH=$(git log -1 --format=%ct)
(
  umask 077
  export SOURCE_DATE_EPOCH TZ=Asia/Tokyo LC_ALL=C
  sh "$copy/tools/package.sh" "$copy/made-here" "$3"
)

cd "$packages"
sha256sum -- * > "$copy/checksums"
cd "$copy/made-here/packages"
sha256sum --check --quiet "$copy/checksums"
echo "$(wc -l < "$copy/checksums") packages are identical"
