// How much memory a call needs.

#ifndef TARSIO_COMMON_BENCH_SUPPORT_MEMORY_H_
#define TARSIO_COMMON_BENCH_SUPPORT_MEMORY_H_

#include <cstddef>
#include <functional>
#include <string>

#include "support/bench.h"

namespace tarsio_bench {

// Runs `call` in a child process and returns by how many bytes the child's peak memory exceeds its
// memory before. Aborts on failure.
size_t PeakMemoryGrowth(const std::function<void()>& call);

// Registers one side of a comparison of peak memory.
inline void AddMemory(const std::string& workload, const std::string& who,
                      const std::function<void()>& call) {
  Add(workload, who, [call](benchmark::State& state) {
    size_t growth = 0;
    for (auto _ : state) growth = PeakMemoryGrowth(call);
    state.counters["memory_bytes"] = static_cast<double>(growth);
  })->Iterations(1);
}

}  // namespace tarsio_bench

#endif  // TARSIO_COMMON_BENCH_SUPPORT_MEMORY_H_
