// A module of a host's: it brings the library with it, and uses its pool and its conversions.

#include <functional>
#include <memory>

#include "common/charset_cvt.h"
#include "common/thread_pool.h"

// Gives the pool away: its last reference must not be dropped once this module is gone.
extern "C" std::shared_ptr<void>* SubmitToNewPool(std::function<void()>* task) {
  const auto pool = std::make_shared<tarsio::ThreadPool>("plugin", 1, 0, 1);
  pool->SubmitTask(*task);
  return new std::shared_ptr<void>(pool);
}

// The library's facet is in the global locale afterwards.
extern "C" void MakeUserLocaleGlobal() { tarsio::CharsetCvt::U8ToMb("abc"); }
