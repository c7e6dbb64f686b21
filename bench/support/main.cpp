#include <benchmark/benchmark.h>

#include <thread>

#include "support/bench.h"

int main(int argc, char** argv) {
  // The C library locks more cheaply in a process that has never had a second thread, which the
  // hosts of this library are not.
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
