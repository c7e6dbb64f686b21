#!/bin/sh
# tools/cppcheck.sh: Cppcheck over what is handed on and the fuzz targets, once for each system. Not
# over the tests: they misuse the library on purpose.
set -eu

check() {
  cppcheck --quiet --error-exitcode=1 --std=c++17 --language=c++ --suppressions-list=.cppcheck \
    --enable=warning,style,performance,portability -I include -I src -I tests "$@"
}

check -i src/platform/windows -i examples/digest/windows src examples fuzz
check -i src/platform/posix -i examples/digest/posix --platform=win64 -D_WIN32 -DWINAPI= src examples
