// Synchronizes the plugin's initializer and a thread of the host, which both use the library for
// the first time in the process.

#ifndef TARSIO_COMMON_TESTS_LOADER_LOCK_MEETING_H_
#define TARSIO_COMMON_TESTS_LOADER_LOCK_MEETING_H_

#include <memory>
#include <string>

#include "common/thread_pool.h"
#include "support/events.h"
#include "support/gate.h"

namespace tarsio_test {

struct Meeting {
  std::string mode;  // timer, log, task or system_information
  std::shared_ptr<tarsio::ThreadPool> pool;
  Gate initialising;  // the plugin's initializer runs
  Gate begun;         // the host's thread is about to use the library
  Gate returned;      // the host's thread has used it
  Events used;        // counts timers fired, tasks run and calls returned
};

// The only instance; never destroyed.
Meeting& TheMeeting();

// Uses the library as the mode requires and prints when that starts and ends.
void Use(const char* who);

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_LOADER_LOCK_MEETING_H_
