#include "threads/explorer/process_end.h"

#include <array>
#include <cstring>
#include <memory>
#include <optional>

#include "platform/platform.h"
#include "support/private_member.h"
#include "threads/explorer/scheduler.h"

namespace {

using component::TimerManager;
using tarsio_test::System;

struct ExitHandler {
  void (*function)(void*);
  void* argument;
};

// NOLINTBEGIN(*-non-const-global-variables)
ExitHandler lastHandler;
ExitHandler managersHandler;
std::array<char, sizeof(TimerManager)> newManager;
std::optional<System> ending;
// NOLINTEND(*-non-const-global-variables)

}  // namespace

namespace tarsio_test {

EXPOSE_PRIVATE(ShutdownManager, &TimerManager::Shutdown);

void EndProcess(System system, const std::function<void()>& statics) {
  if (system != System::kLinux) TheScheduler().KillOthers();
  ending = system;
  if (managersHandler.function != nullptr) managersHandler.function(managersHandler.argument);
  statics();
  TheScheduler().EndProcess();
}

TimerManager& Manager() {
  // NOLINTNEXTLINE(*-non-const-global-variables): the instance
  static TimerManager& manager = []() -> TimerManager& {
    TimerManager* const created = TimerManager::GetInstance();
    managersHandler = lastHandler;
    std::memcpy(newManager.data(), static_cast<const void*>(created), sizeof *created);
    return *created;
  }();
  return manager;
}

void ShutDownManager() { (Manager().*Reach(ShutdownManager()))(); }

void ResetProcess() {
  ending.reset();
  std::memcpy(static_cast<void*>(&Manager()), newManager.data(), sizeof(TimerManager));
  Manager().RemoveTimer(
      std::make_shared<component::TsTimer>(1, false));  // the order is right again
}

}  // namespace tarsio_test

// The platform layer of the explored sources.
namespace tarsio::platform {

void PinLibrary() {}
bool ProcessIsEnding() { return ending == System::kWindows; }
int ForkCount() { return ending == System::kForkedChild ? 1 : 0; }
bool ThreadsMayBeGone() { return ProcessIsEnding() || ForkCount() > 0; }

}  // namespace tarsio::platform

// NOLINTBEGIN(*-reserved-identifier,*-naming)

extern "C" {

int __real___cxa_atexit(void (*function)(void*), void* argument, void* module);
int __wrap___cxa_atexit(void (*function)(void*), void* argument, void* module) {
  lastHandler = {function, argument};
  return __real___cxa_atexit(function, argument, module);
}

}  // extern "C"

// NOLINTEND(*-reserved-identifier,*-naming)
