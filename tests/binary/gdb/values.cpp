// Values to be printed by the debugger. All of them are alive when Stop() is called.

#include <memory>
#include <string>

#include "common/blocking_queue.h"
#include "common/latch.h"
#include "common/path.h"
#include "common/thread_pool.h"
#include "common/ts_string.h"

using tarsio::BlockingQueue;
using tarsio::CountDownLatch;
using tarsio::Path;
using tarsio::ThreadPool;
using tarsio::TsString;
using tarsio::TsStringPair;

namespace {

void Stop() {}

Path Parsed(const std::string& text, Path::PathType type) {
  Path path;
  path.Set(text, type);
  return path;
}

// A pool whose only worker runs a task until the latch opens, with one more task queued.
std::shared_ptr<ThreadPool> BusyPool(CountDownLatch& release) {
  auto pool = std::make_shared<ThreadPool>("the \"busy\" one", 1, 0, 8);
  const auto started = std::make_shared<CountDownLatch>(1);
  pool->SubmitTask([started, &release] {
    started->CountDown();
    while (release.GetCount() > 0) release.Wait(1000);
  });
  pool->SubmitTask([] {});
  while (started->GetCount() > 0) started->Wait(1000);
  return pool;
}

}  // namespace

int main() {
  const Path empty;
  const Path drive("C:\\data\\a \"b\".txt");
  const Path share("\\\\server\\share\\f");
  const Path relative("a/b/..");
  const Path posix = Parsed("/usr/lib", Path::POSIX_PATH);
  const Path root = Parsed("/", Path::POSIX_PATH);
  const Path cafe("C:\\caf\xC3\xA9");
  const Path plain("C:\\" + std::string(256, 'x'));
  const Path longer("C:\\" + std::string(257, 'x'));
  const Path longShare("\\\\server\\" + std::string(257, 'x'));

  const TsString none(nullptr);
  const TsString stopped("up to\0here");
  TsString shorter("a text that needs a larger buffer");
  shorter = "short";
  TsStringPair pair;
  pair.first = "Content-Type";
  pair.second = "text/plain";

  BlockingQueue<int> numbers(4);
  for (int i = 1; i <= 3; ++i) static_cast<void>(numbers.Push(i, -1));
  BlockingQueue<std::string> texts(2);
  static_cast<void>(texts.Push("one", -1));
  BlockingQueue<int> closed(3);
  static_cast<void>(closed.Push(1, -1));
  closed.Close();

  CountDownLatch release(1);
  const std::shared_ptr<ThreadPool> pool = BusyPool(release);
  // References for the debugger, so that it need not dereference smart pointers.
  [[maybe_unused]] const ThreadPool& busy = *pool;
  const auto other = std::make_shared<ThreadPool>("down", 2, 0, 0);
  [[maybe_unused]] const ThreadPool& down = *other;
  other->Shutdown(ThreadPool::SHUTDOWN_NOW);

  Stop();

  release.CountDown();
  pool->Shutdown(ThreadPool::SHUTDOWN_NOW);
  return 0;
}
