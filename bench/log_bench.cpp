// The cost of a log line that is written, and of one that is filtered out.

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>

#include "common/log.h"
#include "support/bench.h"

#ifdef TARSIO_BENCH_SPDLOG
#define SPDLOG_LEVEL_NAMES \
  { "TRACE", "DEBUG", "INFO", "WARN", "ERROR", "FATAL", "OFF" }
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>
#endif

namespace tarsio_bench {

namespace {

// Google Benchmark also reports on standard output, so discard it only while a benchmark runs.
int reportOutput = -1;

void DiscardOutput(const benchmark::State& /*state*/) {
  std::cout.flush();
  reportOutput = ::dup(STDOUT_FILENO);
  const int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (reportOutput < 0 || null < 0 || ::dup2(null, STDOUT_FILENO) < 0) std::abort();
  ::close(null);
}

void RestoreOutput(const benchmark::State& /*state*/) {
  std::cout.flush();
  ::dup2(reportOutput, STDOUT_FILENO);
  ::close(reportOutput);
}

template <typename Call>
void AddLine(const std::string& who, Call call) {
  for (const int threads : {1, 2}) {
    Add("log_a_line", who,
        [call](benchmark::State& state) {
          for (auto _ : state) call();
        })
        ->Threads(threads)
        ->UseRealTime()
        ->Setup(DiscardOutput)
        ->Teardown(RestoreOutput);
  }
}

template <typename Call>
void AddFiltered(const std::string& who, Call call) {
  Add("filter_out_a_line", who, [call](benchmark::State& state) {
    for (auto _ : state) call();
  });
}

#ifdef TARSIO_BENCH_SPDLOG
void AddSpdlog() {
  const auto logger =
      std::make_shared<spdlog::logger>("bench", std::make_shared<spdlog::sinks::stdout_sink_mt>());
  logger->set_pattern("[%Y-%m-%d %H:%M:%S.%e][%l][%s:%#] %v");
  logger->set_level(spdlog::level::info);
  logger->flush_on(spdlog::level::trace);
  AddLine("peer:spdlog", [logger] {
    SPDLOG_LOGGER_CALL(logger, spdlog::level::info, "{} files, {} bytes", 7961, "115753084");
  });
  AddFiltered("peer:spdlog", [logger] {
    SPDLOG_LOGGER_CALL(logger, spdlog::level::debug, "{} files, {} bytes", 7961, "115753084");
  });
}
#endif

}  // namespace

void RegisterAll() {
  // The C library's default if standard output is not a terminal, so that results do not depend on
  // it.
  std::setvbuf(stdout, nullptr, _IOFBF, BUFSIZ);

  tarsio::Log::GetInstance().SetLevel(tarsio::LOG_LEVEL_INFO);
  AddLine("ours",
          [] { TARSIO_LOG(tarsio::LOG_LEVEL_INFO, "%d files, %s bytes", 7961, "115753084"); });
  AddFiltered("ours",
              [] { TARSIO_LOG(tarsio::LOG_LEVEL_DEBUG, "%d files, %s bytes", 7961, "115753084"); });
#ifdef TARSIO_BENCH_SPDLOG
  AddSpdlog();
#endif

  AddLine("limit:write", [] {
    static const std::string line =
        "[2026-11-21 11:57:53.763][INFO][log_bench.cpp:72] 7961 files, 115753084 bytes\n";
    if (::write(STDOUT_FILENO, line.data(), line.size()) < 0) std::abort();
  });
  AddFiltered("limit:load", [] {
    static std::atomic<int> level{tarsio::LOG_LEVEL_INFO};
    benchmark::DoNotOptimize(level.load(std::memory_order_relaxed) < tarsio::LOG_LEVEL_DEBUG);
  });
}

}  // namespace tarsio_bench
