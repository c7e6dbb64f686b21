// tarsio-digest: SHA-256 digests of many files, read on a pool of workers.

#include <chrono>
#include <deque>
#include <future>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "common/log.h"
#include "common/thread_pool.h"
#include "console_logger.h"
#include "digest.h"
#include "options.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint64_t kQueueCapacity = 64;

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
      ++next;
    }
    return false;
  }

 private:
  const std::vector<std::string> names;
  size_t next = 0;
};

// Digests files on a pool and prints a line for each, in the order in which they came.
class Digester {
 public:
  explicit Digester(uint64_t jobs)
      : pool(std::make_shared<tarsio::ThreadPool>("digest", jobs, 0, kQueueCapacity)),
        mostInFlight(jobs + kQueueCapacity) {}

  void Add(const std::string& name) {
    auto task =
        std::make_shared<std::packaged_task<Outcome()>>([name] { return DigestFile(name); });
    inFlight.push_back({name, task->get_future()});
    pool->SubmitTask([task] { (*task)(); });
    // A slow file holds back the lines behind it; the bound keeps their number small.
    while (inFlight.size() > mostInFlight || (!inFlight.empty() && IsReady(inFlight.front()))) {
      PrintFirst();
    }
  }

  void Finish() {
    while (!inFlight.empty()) PrintFirst();
    std::cout.flush();
    if (!std::cout) TARSIO_LOG(tarsio::LOG_LEVEL_WARN, "the output cannot be written");
    const double seconds = std::chrono::duration<double>(Clock::now() - started).count();
    const double megabytes = static_cast<double>(bytes) / 1e6;
    TARSIO_LOG(tarsio::LOG_LEVEL_INFO,
               "%llu files, %llu failures, %llu bytes, %.2f seconds, %.1f MB/s", files, failures,
               bytes, seconds, seconds > 0 ? megabytes / seconds : 0.0);
  }

  bool AllWell() const { return failures == 0 && std::cout.good(); }

 private:
  struct Pending {
    std::string name;
    std::future<Outcome> outcome;
  };

  static bool IsReady(const Pending& pending) {
    return pending.outcome.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
  }

  void PrintFirst() {
    const std::string name = inFlight.front().name;
    const Outcome outcome = Await(&inFlight.front().outcome);
    inFlight.pop_front();
    ++files;
    bytes += outcome.bytes;
    if (outcome.failure == nullptr) {
      std::cout << FormatLine(outcome.digest, name) << '\n';
    } else {
      ++failures;
      // A message of 2048 bytes or more would be dropped whole.
      TARSIO_LOG(tarsio::LOG_LEVEL_WARN, "%.1900s: %s", name.c_str(), outcome.failure);
    }
  }

  static Outcome Await(std::future<Outcome>* outcome) {
    try {
      return outcome->get();
    } catch (const std::exception&) {  // a file larger than memory
      Outcome failed;
      failed.failure = "does not fit into memory";
      return failed;
    }
  }

  const std::shared_ptr<tarsio::ThreadPool> pool;
  const size_t mostInFlight;
  std::deque<Pending> inFlight;
  const Clock::time_point started = Clock::now();
  unsigned long long files = 0;
  unsigned long long failures = 0;
  unsigned long long bytes = 0;
};

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (!ParseOptions({argv + 1, argv + argc}, &options)) {
    std::cerr << kUsage;
    return 2;
  }
  std::ios::sync_with_stdio(false);
  tarsio::Log::GetInstance().SetLogger(std::make_unique<ConsoleLogger>());
  tarsio::Log::GetInstance().SetLevel(options.quiet ? tarsio::LOG_LEVEL_WARN
                                                    : tarsio::LOG_LEVEL_INFO);
  Digester digester(options.jobs);
  NameSource names(options.names);
  std::string name;
  while (names.Next(&name)) digester.Add(name);
  digester.Finish();
  // The idle workers are not waited for: they hold the pool, and end with the process.
  return digester.AllWell() ? 0 : 1;
}
