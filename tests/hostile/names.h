#ifndef TARSIO_COMMON_TESTS_HOSTILE_NAMES_H_
#define TARSIO_COMMON_TESTS_HOSTILE_NAMES_H_

namespace tarsio_test {

// Passes hostile names of all kinds to every call that takes a name, in a directory that they must
// not escape. No name contains ".." followed by a component, since such a name may escape.
void UseHostileNames();

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_HOSTILE_NAMES_H_
