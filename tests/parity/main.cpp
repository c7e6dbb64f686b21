// parity FILE: writes the results of the library's pure functions for some thousand inputs. The
// files of two systems must be identical.

#include <cstdio>

#include "parity/families.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: parity FILE\n", stderr);
    return 2;
  }
  tarsio_test::Table table(argv[1]);
  tarsio_test::AddPaths(table);
  tarsio_test::AddEncodings(table);
  tarsio_test::AddStrings(table);
  tarsio_test::AddLogLines(table);
  const size_t count = table.Finish();
  std::printf("%lu cases\n", static_cast<unsigned long>(count));
  return count > 0 ? 0 : 1;
}
