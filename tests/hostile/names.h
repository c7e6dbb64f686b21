#ifndef TARSIO_COMMON_TESTS_HOSTILE_NAMES_H_
#define TARSIO_COMMON_TESTS_HOSTILE_NAMES_H_

namespace tarsio_test {

// Names of every hostile kind through every call that takes one, in a directory that they must not
// leave. None climbs and then names something, for that may be reached.
void UseHostileNames();

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_HOSTILE_NAMES_H_
