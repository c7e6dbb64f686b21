// Pins threads to one processor.

#ifndef TARSIO_COMMON_BENCH_SUPPORT_ONE_PROCESSOR_H_
#define TARSIO_COMMON_BENCH_SUPPORT_ONE_PROCESSOR_H_

#include <sched.h>

namespace tarsio_bench {

// Pins the calling thread, and threads that it starts, to one processor until destroyed. So the
// cost of a switch between threads does not depend on which processors the system chooses.
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
