// Disturbs the order in which threads get on.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_SCHEDULE_STRESS_H_
#define TARSIO_COMMON_TESTS_SUPPORT_SCHEDULE_STRESS_H_

#include <cstdint>

namespace tarsio_test {

// A program that is linked with support/schedule_stress.cpp, and with the options that go with it,
// gives way at random, or sleeps for a moment, before and after each operation on a mutex or a
// condition variable. Returns how often it has done so.
uint64_t ScheduleDisturbances();

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_SCHEDULE_STRESS_H_
