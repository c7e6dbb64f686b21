// Wine runs the tests for Windows, but Windows is the reference: tests check for Wine where it
// differs.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_WINE_H_
#define TARSIO_COMMON_TESTS_SUPPORT_WINE_H_

namespace tarsio_test {

bool RunsUnderWine();

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_WINE_H_
