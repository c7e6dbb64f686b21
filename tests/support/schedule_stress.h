// Disturbs the scheduling of threads.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_SCHEDULE_STRESS_H_
#define TARSIO_COMMON_TESTS_SUPPORT_SCHEDULE_STRESS_H_

#include <cstdint>

namespace tarsio_test {

// A program linked with support/schedule_stress.cpp and its linker options yields at random, or
// sleeps briefly, before and after each operation on a mutex or a condition variable. Returns the
// number of disturbances so far.
uint64_t ScheduleDisturbances();

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_SCHEDULE_STRESS_H_
