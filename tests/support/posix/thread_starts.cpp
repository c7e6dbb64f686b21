#include "support/thread_starts.h"

#include <pthread.h>

#include <cstddef>
#include <cstdlib>

namespace tarsio_test {

namespace {

// The default attributes, which std::thread uses.
pthread_attr_t before;

void Check(int error) {
  if (error != 0) std::abort();
}

}  // namespace

// A stack of this size exceeds the address space.
RefuseThreadStarts::RefuseThreadStarts() {
  constexpr size_t kImpossibleStack = size_t{1} << 47;
  Check(pthread_getattr_default_np(&before));
  pthread_attr_t attributes;
  Check(pthread_attr_init(&attributes));
  Check(pthread_attr_setstacksize(&attributes, kImpossibleStack));
  Check(pthread_setattr_default_np(&attributes));
  Check(pthread_attr_destroy(&attributes));
}

RefuseThreadStarts::~RefuseThreadStarts() {
  Check(pthread_setattr_default_np(&before));
  Check(pthread_attr_destroy(&before));
}

}  // namespace tarsio_test
