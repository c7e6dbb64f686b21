// Wine runs the tests for Windows, but Windows is the reference: a test names what Wine does
// otherwise.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_WINE_H_
#define TARSIO_COMMON_TESTS_SUPPORT_WINE_H_

namespace tarsio_test {

bool RunsUnderWine();

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_WINE_H_
