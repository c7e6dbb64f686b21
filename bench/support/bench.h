// What the benchmark programs share.

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

// Registers the benchmarks of a family; each program defines it.
void RegisterAll();

// Registers one side of a comparison as "workload/who". `who` is "ours", "peer:NAME" for what a
// user would pick instead, or "limit:NAME" for what no implementation can beat: the report puts
// those of one workload in a row. A size belongs to the workload: "split/bytes:1024". Where a
// benchmark counts items, the report gives the time of one item.
template <typename Function>
benchmark::internal::Benchmark* Add(const std::string& workload, const std::string& who,
                                    Function function) {
  return benchmark::RegisterBenchmark((workload + '/' + who).c_str(), std::move(function));
}

// Add() for a function that does the work once; its result is not optimised away. `bytes` is what
// one call works through, if a rate says more than a time.
template <typename Call>
void AddCall(const std::string& workload, const std::string& who, Call call, size_t bytes = 0) {
  Add(workload, who, [call, bytes](benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(call());
    if (bytes != 0) state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes));
  });
}

// "NAME/KEY:VALUE".
inline std::string Sized(const std::string& name, const char* key, size_t value) {
  return name + '/' + key + ':' + std::to_string(value);
}

}  // namespace tarsio_bench

#endif  // TARSIO_COMMON_BENCH_SUPPORT_BENCH_H_
