// tarsio-digest: SHA-256 digests of many files, read on a pool of workers.

#include <atomic>
#include <deque>
#include <iostream>
#include <memory>
#include <new>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "common/latch.h"
#include "common/log.h"
#include "common/misc.h"
#include "common/path.h"
#include "common/sys_info.h"
#include "common/thread_pool.h"
#include "common/timer.h"
#include "console.h"
#include "digest.h"
#include "options.h"

namespace {

constexpr uint64_t kQueueCapacity = 64;
constexpr unsigned long long kProgressPeriodMs = 200;

// The names to digest, one at a time, so that a long list is never held whole.
class NameSource {
 public:
  explicit NameSource(std::vector<std::string> operands) : names(std::move(operands)) {}

  bool Next(std::string* name) {
    while (next < names.size()) {
      if (names[next] != "-") {
        *name = names[next++];
        return true;
      }
      while (std::getline(std::cin, *name)) {
        if (!name->empty()) return true;
      }
      if (std::cin.bad()) throw std::runtime_error("the names on standard input cannot be read");
      ++next;
    }
    return false;
  }

 private:
  const std::vector<std::string> names;
  size_t next = 0;
};

// The directories to look through: the roots, then the current one.
tarsio::PathResolver MakeResolver(const std::vector<std::string>& roots) {
  tarsio::PathResolver resolver;
  for (auto root = roots.rbegin(); root != roots.rend(); ++root) resolver.Prepend(WithDrive(*root));
  return resolver;
}

// Digests files on a pool and prints a line for each, in the order in which they came.
class Digester {
 public:
  explicit Digester(const Options& options)
      : resolver(MakeResolver(options.roots)),
        pool(std::make_shared<tarsio::ThreadPool>("digest", options.jobs, 0, kQueueCapacity)),
        mostInFlight(options.jobs + kQueueCapacity) {}

  Digester(const Digester&) = delete;
  Digester& operator=(const Digester&) = delete;

  // After an exception, tasks that use this object may still be running.
  ~Digester() {
    if (!inFlight.empty()) pool->Shutdown(tarsio::ThreadPool::SHUTDOWN_NOW);
  }

  void Add(const std::string& name) {
    auto job = std::make_shared<Job>(name);
    inFlight.push_back(job);
    try {
      pool->SubmitTask([this, job] {
        job->outcome = DigestFile(job->name, resolver);
        ++filesDone;
        bytesDone += job->outcome.bytes;
        job->done.CountDown();
      });
    } catch (const std::system_error&) {
      // The task is queued all the same, and any worker will do.
      if (pool->GetRunningThreadNumber() == 0) throw;
    }
    // A slow file holds back the lines behind it; the bound keeps their number small.
    while (inFlight.size() > mostInFlight || (!inFlight.empty() && inFlight.front()->IsDone())) {
      PrintFirst();
    }
  }

  // Prints what is left. Afterwards no task is running.
  void Finish() {
    while (!inFlight.empty()) PrintFirst();
    std::cout.flush();
    if (!std::cout) TARSIO_LOG(tarsio::LOG_LEVEL_WARN, "the output cannot be written");
  }

  void LogSummary() const {
    TARSIO_LOG(tarsio::LOG_LEVEL_INFO,
               "%llu files, %llu failures, %llu bytes, %.2f seconds, %.1f MB/s", filesDone.load(),
               failures, bytesDone.load(), Seconds(), MegabytesPerSecond());
  }

  // May be called from any thread.
  std::string Progress() const {
    std::ostringstream text;
    text.precision(1);
    text << filesDone << " files, " << std::fixed << MegabytesPerSecond() << " MB/s, "
         << pool->GetRunningThreadNumber() << " workers, " << pool->GetPendingTaskNumber()
         << " pending";
    return text.str();
  }

  bool AllWell() const { return failures == 0 && std::cout.good(); }

 private:
  struct Job {
    explicit Job(std::string file) : name(std::move(file)) {}
    bool IsDone() { return done.GetCount() == 0; }

    const std::string name;
    Outcome outcome;
    tarsio::CountDownLatch done{1};
  };

  void PrintFirst() {
    const std::shared_ptr<Job> job = inFlight.front();
    while (!job->IsDone()) job->done.Wait(0);  // a wait may end early
    inFlight.pop_front();
    if (job->outcome.failure == nullptr) {
      std::cout << FormatLine(job->outcome.digest, job->name) << '\n';
    } else {
      ++failures;
      // A message of 2048 bytes or more would be dropped whole.
      TARSIO_LOG(tarsio::LOG_LEVEL_WARN, "%.1900s: %s", Quoted(job->name).c_str(),
                 job->outcome.failure);
    }
  }

  double Seconds() const {
    return static_cast<double>(tarsio::GetTimeNowMsSinceEpoch() - startedMs) / 1000;
  }

  double MegabytesPerSecond() const {
    const double seconds = Seconds();
    return seconds > 0 ? static_cast<double>(bytesDone) / 1e6 / seconds : 0;
  }

  const tarsio::PathResolver resolver;
  const std::shared_ptr<tarsio::ThreadPool> pool;
  const size_t mostInFlight;
  const long long startedMs = tarsio::GetTimeNowMsSinceEpoch();
  std::deque<std::shared_ptr<Job>> inFlight;
  std::atomic<unsigned long long> filesDone{0};
  std::atomic<unsigned long long> bytesDone{0};
  unsigned long long failures = 0;
};

int PrintVersion() {
  auto system = std::make_shared<tarsio::ClientDeviceInfo>();
  if (!tarsio::SysInfo::GetClientOsInfo(system)) return 1;
  std::cout << "tarsio-digest " TARSIO_COMMON_VERSION " (" << system->osArch << ' '
            << system->osVersion << ' ' << system->osManufacturingModel << ")\n";
  return 0;
}

// Stops a timer, and waits for a callback that is running.
class StopOnExit {
 public:
  explicit StopOnExit(std::shared_ptr<component::Timer> stopped) : timer(std::move(stopped)) {}
  StopOnExit(const StopOnExit&) = delete;
  StopOnExit& operator=(const StopOnExit&) = delete;
  ~StopOnExit() { timer->Stop(); }

 private:
  const std::shared_ptr<component::Timer> timer;
};

int DigestAll(const Options& options, const std::shared_ptr<Console>& console) {
  Digester digester(options);
  const auto timer = std::make_shared<component::TsTimer>(kProgressPeriodMs, true);
  timer->Init([&digester, console] { console->ShowStatus(digester.Progress()); });
  const StopOnExit stop(timer);
  if (options.progress || Console::IsTerminal()) timer->Start();

  NameSource names(options.names);
  std::string name;
  while (names.Next(&name)) digester.Add(name);
  digester.Finish();

  timer->Stop();  // waits for a callback that is running
  if (options.progress) console->ShowStatus(digester.Progress());
  console->ShowStatus("");
  digester.LogSummary();
  // The idle workers are not waited for: they hold the pool, and end with the process.
  return digester.AllWell() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (!ParseOptions({argv + 1, argv + argc}, &options)) {
    std::cerr << kUsage;
    return 2;
  }
  if (options.version) return PrintVersion();

  std::ios::sync_with_stdio(false);
  const auto console = std::make_shared<Console>();
  tarsio::Log::GetInstance().SetLogger(std::make_unique<ConsoleLogger>(console));
  tarsio::Log::GetInstance().SetLevel(options.quiet ? tarsio::LOG_LEVEL_WARN
                                                    : tarsio::LOG_LEVEL_INFO);
  try {
    return DigestAll(options, console);
  } catch (const std::bad_alloc&) {
    TARSIO_LOG(tarsio::LOG_LEVEL_FATAL, "out of memory");
  } catch (const std::exception& error) {
    TARSIO_LOG(tarsio::LOG_LEVEL_FATAL, "%s", error.what());
  }
  return 1;
}
