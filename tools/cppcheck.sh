#!/bin/sh
# tools/cppcheck.sh: runs Cppcheck on the library, the examples and the fuzz targets, once for each
# system. Leaves out the tests, since they misuse the library to see what happens.
set -eu

check() {
  cppcheck --quiet --error-exitcode=1 --std=c++17 --language=c++ --suppressions-list=.cppcheck \
    --enable=warning,style,performance,portability -I include -I src -I tests "$@"
}

check -i src/platform/windows -i examples/digest/windows src examples fuzz
check -i src/platform/posix -i examples/digest/posix --platform=win64 -D_WIN32 -DWINAPI= src examples
