// Ties threads to one processor.

#ifndef TARSIO_COMMON_BENCH_SUPPORT_ONE_PROCESSOR_H_
#define TARSIO_COMMON_BENCH_SUPPORT_ONE_PROCESSOR_H_

#include <sched.h>

namespace tarsio_bench {

// While it lives, the calling thread and those that it starts run on one processor: what a
// hand-over between threads costs does not depend on which processors the system picks for them.
class OneProcessor {
 public:
  OneProcessor();
  OneProcessor(const OneProcessor&) = delete;
  OneProcessor& operator=(const OneProcessor&) = delete;
  ~OneProcessor();

 private:
  cpu_set_t before;
};

}  // namespace tarsio_bench

#endif  // TARSIO_COMMON_BENCH_SUPPORT_ONE_PROCESSOR_H_
