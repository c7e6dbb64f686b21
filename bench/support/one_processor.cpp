#include "support/one_processor.h"

#include <pthread.h>

#include <cstdlib>

namespace tarsio_bench {

OneProcessor::OneProcessor() {
  const pthread_t self = pthread_self();
  if (pthread_getaffinity_np(self, sizeof before, &before) != 0) std::abort();
  size_t first = 0;
  while (!CPU_ISSET(first, &before)) ++first;
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(first, &one);
  if (pthread_setaffinity_np(self, sizeof one, &one) != 0) std::abort();
}

OneProcessor::~OneProcessor() { pthread_setaffinity_np(pthread_self(), sizeof before, &before); }

}  // namespace tarsio_bench
