#include <benchmark/benchmark.h>

#include <thread>

#include "support/bench.h"

int main(int argc, char** argv) {
  // In a process that never had a second thread, the C library's locks are cheaper. Hosts of this
  // library have threads.
  std::thread([] {}).join();

  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::AddCustomContext("compiler", TARSIO_BENCH_COMPILER);
  benchmark::AddCustomContext("build_type", TARSIO_BENCH_BUILD_TYPE);
  benchmark::AddCustomContext("peers", TARSIO_BENCH_PEERS);
  tarsio_bench::RegisterAll();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
}
