// Tasks on a pool that grows to four threads.

//! [includes]
#include "common/thread_pool.h"

#include <atomic>
#include <future>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

#include "common/log.h"
//! [includes]

namespace {

// Prints only the message.
class MessageLogger : public tarsio::Logger {
 public:
  void DoOutput(const char* line) override {
    const std::string text = line;
    std::cout << text.substr(text.rfind("] ") + 2) << '\n';
  }
};

}  // namespace

int main() {
  tarsio::Log::GetInstance().SetLogger(std::make_unique<MessageLogger>());
  std::atomic<int> sum{0};
  //! [submitting]
  // A shared pointer must own the pool. Up to four workers, up to 64 pending tasks.
  const auto pool = std::make_shared<tarsio::ThreadPool>("adders", 4, 0, 64);
  for (int i = 1; i <= 100; ++i) pool->SubmitTask([i, &sum] { sum += i; });
  pool->SubmitTask([] { throw std::runtime_error("boom"); });
  //! [submitting]

  //! [result]
  const auto work = std::make_shared<std::packaged_task<int()>>([] { return 6 * 7; });
  std::future<int> result = work->get_future();
  pool->SubmitTask([work] { (*work)(); });
  const int answer = result.get();
  //! [result]

  //! [waiting]
  // Waits until the workers have exited, after every task has run. This takes up to a second longer
  // than the last task: a worker exits after a second without one.
  pool->Shutdown(tarsio::ThreadPool::SHUTDOWN_DRAIN);
  std::cout << "sum: " << sum << ", workers: " << pool->GetRunningThreadNumber()
            << ", result: " << answer << '\n';
  //! [waiting]
  return 0;
}
