// A module of a host's: it brings the library with it, and uses its pool.

#include <functional>
#include <memory>

#include "common/thread_pool.h"

// Gives the pool away: its last reference must not be dropped once this module is gone.
extern "C" std::shared_ptr<void>* SubmitToNewPool(std::function<void()>* task) {
  const auto pool = std::make_shared<tarsio::ThreadPool>("plugin", 1, 0, 1);
  pool->SubmitTask(*task);
  return new std::shared_ptr<void>(pool);
}
