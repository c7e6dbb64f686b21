// A plugin that loads the library and uses its pool, its timers and its conversions.

#include <functional>
#include <memory>

#include "common/charset_cvt.h"
#include "common/thread_pool.h"
#include "common/timer.h"

// Both objects are given to the caller: their last reference must not be dropped after this plugin
// is unloaded.
extern "C" std::shared_ptr<void>* SubmitToNewPool(std::function<void()>* task) {
  const auto pool = std::make_shared<tarsio::ThreadPool>("plugin", 1, 0, 1);
  pool->SubmitTask(*task);
  return new std::shared_ptr<void>(pool);
}

extern "C" std::shared_ptr<void>* StartNewTimer(std::function<void()>* action) {
  const auto timer = std::make_shared<component::TsTimer>(1, true);
  timer->Init(*action);
  timer->Start();
  return new std::shared_ptr<void>(timer);
}

// Installs the library's facet in the global locale.
extern "C" void MakeUserLocaleGlobal() { tarsio::CharsetCvt::U8ToMb("abc"); }
