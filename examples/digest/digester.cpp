#include "digester.h"

#include <sstream>
#include <system_error>
#include <utility>

#include "common/latch.h"
#include "common/log.h"
#include "names.h"

namespace {

// Results are printed in order, so a slow file delays those after it. This limits how many wait.
constexpr size_t kMostInFlight = 4096;

tarsio::PathResolver MakeResolver(const std::vector<std::string>& roots) {
  tarsio::PathResolver resolver;
  for (auto root = roots.rbegin(); root != roots.rend(); ++root) resolver.Prepend(WithDrive(*root));
  return resolver;
}

}  // namespace

struct Digester::Job {
  Item item;
  Outcome outcome;
  bool done = false;
};

Digester::Digester(uint64_t jobCount, const std::vector<std::string>& roots)
    : jobs(jobCount),
      resolver(MakeResolver(roots)),
      pool(std::make_shared<tarsio::ThreadPool>("digest", jobs, 0, jobs)) {}

void Digester::Run(Source newSource, Sink newSink) {
  source = std::move(newSource);
  sink = std::move(newSink);
  try {
    StartWorkers();
  } catch (...) {
    Stop(std::current_exception());
    pool->Shutdown(tarsio::ThreadPool::SHUTDOWN_NOW);  // waits for workers that have started
    throw;
  }
  if (error != nullptr) std::rethrow_exception(error);
}

// Starts the workers and waits until all have finished.
void Digester::StartWorkers() {
  const auto running = std::make_shared<tarsio::CountDownLatch>(static_cast<unsigned>(jobs));
  for (uint64_t i = 0; i < jobs; ++i) {
    try {
      pool->SubmitTask([this, running] {
        Work();
        running->CountDown();
      });
    } catch (const std::system_error&) {
      // The task is queued nevertheless. A running worker executes it after its own.
      if (pool->GetRunningThreadNumber() == 0) throw;
    }
  }
  while (running->GetCount() != 0) running->Wait(0);  // in a loop, since Wait() may return early
}

void Digester::Work() {
  try {
    while (const std::shared_ptr<Job> job = Take()) {
      Outcome& outcome = job->outcome;
      if (!job->item.isStandardInput) outcome = DigestFile(job->item.name, resolver);
      ++filesDone;
      bytesDone += outcome.bytes;
      if (!outcome.failure.empty()) ++failures;
      PassOn(job);
    }
  } catch (...) {
    Stop(std::current_exception());
  }
}

// Returns the next job, or null if there is no more work.
std::shared_ptr<Digester::Job> Digester::Take() {
  const std::lock_guard<std::mutex> sourceLock(sourceMutex);
  {
    std::unique_lock<std::mutex> lock(mutex);
    room.wait(lock, [this] { return error != nullptr || inFlight.size() < kMostInFlight; });
    if (error != nullptr) return nullptr;
  }
  if (source == nullptr) return nullptr;
  auto job = std::make_shared<Job>();
  if (!source(&job->item)) {
    source = nullptr;
    return nullptr;
  }
  // Read under the lock, so that the first of several "-" gets the content.
  if (job->item.isStandardInput) job->outcome = DigestStandardInput();
  const std::lock_guard<std::mutex> lock(mutex);
  inFlight.push_back(job);
  return job;
}

void Digester::PassOn(const std::shared_ptr<Job>& job) {
  const std::lock_guard<std::mutex> lock(mutex);
  job->done = true;
  while (error == nullptr && !inFlight.empty() && inFlight.front()->done) {
    const std::shared_ptr<Job> first = std::move(inFlight.front());
    inFlight.pop_front();
    sink(first->item, first->outcome);
  }
  room.notify_all();
}

void Digester::Stop(std::exception_ptr cause) {
  const std::lock_guard<std::mutex> lock(mutex);
  if (error == nullptr) error = std::move(cause);
  room.notify_all();
}

std::string Digester::Progress() const {
  std::ostringstream text;
  text.precision(1);
  const uint64_t files = filesDone;
  text << files << (files == 1 ? " file, " : " files, ") << std::fixed << MegabytesPerSecond()
       << " MB/s";
  return text.str();
}

void Digester::LogSummary() const {
  TARSIO_LOG(tarsio::LOG_LEVEL_INFO,
             "%llu files, %llu failures, %llu bytes, %.2f seconds, %.1f MB/s", filesDone.load(),
             failures.load(), bytesDone.load(), Seconds(), MegabytesPerSecond());
}

double Digester::Seconds() const {
  return static_cast<double>(tarsio::GetTimeNowMsSinceEpoch() - startedMs) / 1000;
}

double Digester::MegabytesPerSecond() const {
  const double seconds = Seconds();
  return seconds > 0 ? static_cast<double>(bytesDone) / 1e6 / seconds : 0;
}
