// The rows of each family of functions.

#ifndef TARSIO_COMMON_TESTS_PARITY_FAMILIES_H_
#define TARSIO_COMMON_TESTS_PARITY_FAMILIES_H_

#include "parity/table.h"

namespace tarsio_test {

void AddPaths(Table& table);
void AddEncodings(Table& table);
void AddStrings(Table& table);
void AddLogLines(Table& table);

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_PARITY_FAMILIES_H_
