#ifndef TARSIO_DIGEST_DIGESTER_H_
#define TARSIO_DIGEST_DIGESTER_H_

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "common/misc.h"
#include "common/path.h"
#include "common/thread_pool.h"
#include "digest.h"
#include "sums.h"

// A file to digest.
struct Item : Entry {
  bool isStandardInput = false;
};

// Digests files on a thread pool, whose workers read the names from a source.
class Digester {
 public:
  // Stores the next item and returns true. Returns false at the end.
  using Source = std::function<bool(Item*)>;
  using Sink = std::function<void(const Item&, const Outcome&)>;

  // Looks up relative names in `roots`, in order, then in the current directory.
  Digester(uint64_t jobCount, const std::vector<std::string>& roots);

  Digester(const Digester&) = delete;
  Digester& operator=(const Digester&) = delete;

  // Digests all items from `source` and passes each with its outcome to `sink`, in the order of the
  // source. Each is called by one thread at a time. Throws what they throw, and `std::system_error`
  // if no worker can be started.
  void Run(Source source, Sink sink);

  // Returns, for example, "12 files, 3.4 MB/s". May be called from any thread.
  std::string Progress() const;

  void LogSummary() const;

 private:
  struct Job;

  void StartWorkers();
  void Work();
  std::shared_ptr<Job> Take();
  void PassOn(const std::shared_ptr<Job>& job);
  void Stop(std::exception_ptr cause);
  double Seconds() const;
  double MegabytesPerSecond() const;

  const uint64_t jobs;
  const tarsio::PathResolver resolver;
  const std::shared_ptr<tarsio::ThreadPool> pool;
  const long long startedMs = tarsio::GetTimeNowMsSinceEpoch();
  std::atomic<unsigned long long> filesDone{0};
  std::atomic<unsigned long long> failures{0};
  std::atomic<unsigned long long> bytesDone{0};

  std::mutex sourceMutex;  // taken before `mutex`
  Source source;           // guarded by sourceMutex; null once exhausted

  std::mutex mutex;
  std::condition_variable room;               // notified when inFlight shrinks, and on an error
  std::deque<std::shared_ptr<Job>> inFlight;  // guarded by mutex; not yet passed to the sink
  Sink sink;                                  // guarded by mutex
  std::exception_ptr error;                   // guarded by mutex; stops the workers
};

#endif  // TARSIO_DIGEST_DIGESTER_H_
