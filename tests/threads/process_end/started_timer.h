// Timers of the programs that end.

#ifndef TARSIO_COMMON_TESTS_THREADS_PROCESS_END_STARTED_TIMER_H_
#define TARSIO_COMMON_TESTS_THREADS_PROCESS_END_STARTED_TIMER_H_

#include <functional>
#include <memory>
#include <utility>

#include "common/timer.h"

namespace tarsio_test {

inline std::shared_ptr<component::TsTimer> Started(unsigned long long timeoutMs, bool repeating,
                                                   std::function<void()> action) {
  auto timer = std::make_shared<component::TsTimer>(timeoutMs, repeating);
  timer->Init(std::move(action));
  timer->Start();
  return timer;
}

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_THREADS_PROCESS_END_STARTED_TIMER_H_
