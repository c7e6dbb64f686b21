// Support for the benchmark programs.

#ifndef TARSIO_COMMON_BENCH_SUPPORT_BENCH_H_
#define TARSIO_COMMON_BENCH_SUPPORT_BENCH_H_

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace tarsio_bench {

using Sizes = std::vector<size_t>;

// Registers the family's benchmarks. Each program defines it.
void RegisterAll();

// Registers one side of a comparison as "workload/who". `who` is "ours", "peer:NAME" for a library
// that users would choose instead, or "limit:NAME" for the part of the work that cannot be avoided.
// The report shows one row per workload. It prints "_" as a space, and parameters such as a size
// after the name: "split/bytes:1024". If a benchmark counts items, the report shows the time per
// item.
template <typename Function>
benchmark::internal::Benchmark* Add(const std::string& workload, const std::string& who,
                                    Function function) {
  return benchmark::RegisterBenchmark((workload + '/' + who).c_str(), std::move(function));
}

// Add() for a function that does the work once. Its result is not optimised away. If `bytes` is the
// number of bytes that a call processes, the report also shows the rate.
template <typename Call>
void AddCall(const std::string& workload, const std::string& who, Call call, size_t bytes = 0) {
  Add(workload, who, [call, bytes](benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(call());
    if (bytes != 0) state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes));
  });
}

// Returns "NAME/KEY:VALUE".
inline std::string Sized(const std::string& name, const char* key, size_t value) {
  return name + '/' + key + ':' + std::to_string(value);
}

}  // namespace tarsio_bench

#endif  // TARSIO_COMMON_BENCH_SUPPORT_BENCH_H_
