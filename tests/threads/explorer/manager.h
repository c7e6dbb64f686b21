// The timers' manager, which normally ends with the process only.

#ifndef TARSIO_COMMON_TESTS_THREADS_EXPLORER_MANAGER_H_
#define TARSIO_COMMON_TESTS_THREADS_EXPLORER_MANAGER_H_

#include <memory>

#include "common/timer.h"
#include "support/private_member.h"

namespace tarsio_test {

EXPOSE_PRIVATE(ShutdownManager, &component::TimerManager::Shutdown);
EXPOSE_PRIVATE(ManagerHasEnded, &component::TimerManager::ended);

// What the process does when it ends.
inline void ShutDownManager() {
  (component::TimerManager::GetInstance()->*Reach(ShutdownManager()))();
}

// After this, the manager is as it was created.
inline void EndManager() {
  ShutDownManager();
  component::TimerManager& manager = *component::TimerManager::GetInstance();
  manager.*Reach(ManagerHasEnded()) = false;
  manager.RemoveTimer(std::make_shared<component::TsTimer>(1, false));  // the order is right again
}

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_THREADS_EXPLORER_MANAGER_H_
