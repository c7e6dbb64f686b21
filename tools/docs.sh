#!/bin/sh
# tools/docs.sh: the manual, build/docs/html. Any warning is an error.
set -eu

TARSIO_VERSION=$(sed -n 's/^project(tarsio-common VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
export TARSIO_VERSION
rm -rf build/docs  # no page of an earlier build stays
mkdir -p build/docs
doxygen docs/Doxyfile
echo "build/docs/html/index.html"
