// The end of the process by the rules of each system, and the timers' manager, which normally lives
// until then.

#ifndef TARSIO_COMMON_TESTS_THREADS_EXPLORER_PROCESS_END_H_
#define TARSIO_COMMON_TESTS_THREADS_EXPLORER_PROCESS_END_H_

#include <functional>

#include "common/timer.h"

namespace tarsio_test {

enum class System {
  kLinux,        // the other threads go on
  kWindows,      // the other threads are killed first, wherever they are, and keep their locks
  kForkedChild,  // the calling thread has forked, and its child ends: no other thread exists
};

// Ends the process on this thread: runs the manager's exit handler, then `statics`, the destructors
// of the host's statics. The schedule ends with it, whatever other threads are doing.
[[noreturn]] void EndProcess(System system, const std::function<void()>& statics);

// The manager. The first call must be outside a schedule.
component::TimerManager& Manager();
// Ends the manager as at the end of the process.
void ShutDownManager();
// For Scenario::reset: the manager is as it was created, and the process does not end any more.
void ResetProcess();

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_THREADS_EXPLORER_PROCESS_END_H_
