// A plugin that loads the library and uses its pool and its conversions.

#include <functional>
#include <memory>

#include "common/charset_cvt.h"
#include "common/thread_pool.h"

// Gives the pool to the caller: its last reference must not be dropped after this plugin is
// unloaded.
extern "C" std::shared_ptr<void>* SubmitToNewPool(std::function<void()>* task) {
  const auto pool = std::make_shared<tarsio::ThreadPool>("plugin", 1, 0, 1);
  pool->SubmitTask(*task);
  return new std::shared_ptr<void>(pool);
}

// Installs the library's facet in the global locale.
extern "C" void MakeUserLocaleGlobal() { tarsio::CharsetCvt::U8ToMb("abc"); }
