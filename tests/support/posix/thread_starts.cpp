#include "support/thread_starts.h"

#include <pthread.h>

#include <cstddef>
#include <cstdlib>

namespace tarsio_test {

namespace {

// The attributes that a thread is started with when it names none, as std::thread's never do.
pthread_attr_t before;

void Check(int error) {
  if (error != 0) std::abort();
}

}  // namespace

// No address space has room for a stack of this size.
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
