#!/bin/sh
# tools/docs.sh: builds the manual in build/docs/html. Warnings are errors.
set -eu

TARSIO_VERSION=$(sed -n 's/^project(tarsio-common VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
export TARSIO_VERSION
rm -rf build/docs  # removes pages of earlier builds
mkdir -p build/docs
doxygen docs/Doxyfile
echo "build/docs/html/index.html"
