// Lets each lock of queue, pool, latches and timers fail in turn: the caller gets
// std::system_error, other locks are released, and the object is unchanged. Also checks that
// deadlines are on the system clock and that notifications are sent under the lock. The library and
// wrappers of the lock functions are compiled into this program.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "common/blocking_queue.h"
#include "common/latch.h"
#include "common/thread_pool.h"
#include "common/timer.h"
#include "support/background_call.h"
#include "support/events.h"
#include "support/gate.h"
#include "worker.h"

namespace {

using component::TsTimer;
using std::chrono::milliseconds;
using std::chrono::system_clock;
using tarsio::BlockingQueue;
using tarsio::CountDownLatch;
using tarsio::CountOutWake;
using tarsio::ThreadPool;
using tarsio_test::BackgroundCall;
using tarsio_test::Events;
using tarsio_test::Gate;

constexpr auto kMethodWithoutName = static_cast<ThreadPool::SHUTDOWN_METHOD>(7);

#if defined(_WIN32)
constexpr bool kCreatesConditions = true;
#else
constexpr bool kCreatesConditions = false;
#endif

std::shared_ptr<ThreadPool> MakePool(uint64_t limit) {
  return std::make_shared<ThreadPool>("lock faults", limit, 0U, 10U);
}

// ---- the wrappers ----

std::atomic<const void*> watched{nullptr};  // the thread that is watched, if any
std::atomic<size_t> locksLeft{SIZE_MAX};    // successful locks before the one that fails
std::atomic<system_clock::time_point> lastDeadline{};
std::atomic<system_clock::time_point> firstEntry{};
std::atomic<size_t> waitsBegun{0};  // without a deadline; counted before the lock is released
std::atomic<bool> threadsMayBeGone{false};
size_t conditionsCreated = 0;
size_t conditionsLeft = SIZE_MAX;  // before the creation that fails

struct Notification {
  const void* condition;
  bool ofAll;   // false: of one thread
  bool locked;  // under a lock that was taken after the watch began
};

// Used by the watched thread only.
int locksHeld = 0;
std::vector<Notification> notifications;
std::function<void()> beforeNextWait;
std::function<void()> insteadOfFault;  // called under the lock that would fail

// The current thread, by the address of its errno. Thread-local variables and thread ids may need a
// lock, in a thread that ends even existing ones.
const void* ThisThread() { return &errno; }
bool IsWatched() { return ThisThread() == watched; }

// In its scope, records this thread's deadlines and notifications. Only one object may exist.
class Watch {
 public:
  Watch() {
    lastDeadline = firstEntry = system_clock::time_point();
    locksHeld = 0;
    notifications.clear();
    watched = ThisThread();
  }
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;
  ~Watch() { watched = nullptr; }
};

// In its scope, this thread's lock operation after `allowed` successful ones fails for lack of
// resources. No thread may start meanwhile.
class LockFault {
 public:
  explicit LockFault(size_t allowed) { locksLeft = allowed; }
  LockFault(const LockFault&) = delete;
  LockFault& operator=(const LockFault&) = delete;
  ~LockFault() { locksLeft = SIZE_MAX; }

 private:
  const Watch watch;
};

void Note(const void* condition, bool ofAll) {
  if (IsWatched()) notifications.push_back({condition, ofAll, locksHeld > 0});
}

}  // namespace

// The linker's --wrap option redirects calls of NAME to __wrap_NAME; __real_NAME is the original.
// The thread libraries of both systems have these functions.
extern "C" {

int __real_pthread_mutex_lock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
  if (!IsWatched()) return __real_pthread_mutex_lock(mutex);
  const bool isFault = locksLeft-- == 0;
  if (isFault && !insteadOfFault) return EAGAIN;
  ++locksHeld;
  const int result = __real_pthread_mutex_lock(mutex);
  if (isFault) std::exchange(insteadOfFault, nullptr)();
  return result;
}

int __real_pthread_mutex_unlock(pthread_mutex_t* mutex);
int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
  if (IsWatched()) --locksHeld;
  return __real_pthread_mutex_unlock(mutex);
}

int __real_pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attributes);
int __wrap_pthread_cond_init(pthread_cond_t* condition, const pthread_condattr_t* attributes) {
  if (conditionsLeft-- == 0) return EAGAIN;
  ++conditionsCreated;
  return __real_pthread_cond_init(condition, attributes);
}

int __real_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex);
int __wrap_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
  if (IsWatched() && beforeNextWait) std::exchange(beforeNextWait, nullptr)();
  ++waitsBegun;
  return __real_pthread_cond_wait(condition, mutex);
}

int __real_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                  const timespec* deadline);
int __wrap_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                  const timespec* deadline) {
  if (IsWatched()) {
    if (firstEntry.load() == system_clock::time_point()) firstEntry = system_clock::now();
    lastDeadline = system_clock::time_point(std::chrono::duration_cast<system_clock::duration>(
        std::chrono::seconds(deadline->tv_sec) + std::chrono::nanoseconds(deadline->tv_nsec)));
  }
  return __real_pthread_cond_timedwait(condition, mutex, deadline);
}

int __real_pthread_cond_signal(pthread_cond_t* condition);
int __wrap_pthread_cond_signal(pthread_cond_t* condition) {
  Note(condition, false);
  return __real_pthread_cond_signal(condition);
}

int __real_pthread_cond_broadcast(pthread_cond_t* condition);
int __wrap_pthread_cond_broadcast(pthread_cond_t* condition) {
  Note(condition, true);
  return __real_pthread_cond_broadcast(condition);
}

// tarsio::platform::ThreadsMayBeGone()
bool __real__ZN6tarsio8platform16ThreadsMayBeGoneEv();
bool __wrap__ZN6tarsio8platform16ThreadsMayBeGoneEv() {
  return threadsMayBeGone || __real__ZN6tarsio8platform16ThreadsMayBeGoneEv();
}

}  // extern "C"

namespace {

// ---- deadlines ----

TEST(Deadlines, SystemClock) {
  BlockingQueue<int> queue(0);
  CountDownLatch latch(1);
  CountOutWake wake;
  int item = 0;
  const struct {
    const char* name;
    std::function<void()> wait;
    std::chrono::nanoseconds timeout;
  } rows[] = {
      {"Push", [&] { static_cast<void>(queue.Push(1, 30)); }, milliseconds(30)},
      {"Pop", [&] { static_cast<void>(queue.Pop(item, 40)); }, milliseconds(40)},
      {"CountDownLatch", [&] { latch.Wait(50); }, milliseconds(50)},
      {"CountOutWake", [&] { wake.Wait(20000001); }, std::chrono::nanoseconds(20000001)},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const auto timeout = std::chrono::duration_cast<system_clock::duration>(row.timeout);
    const Watch watch;
    const auto before = system_clock::now();
    row.wait();
    // No tolerance needed: the clock was read between the call and the wait.
    EXPECT_GE(lastDeadline.load(), before + timeout);
    EXPECT_LE(lastDeadline.load(), firstEntry.load() + timeout);
  }
}

// Counted from the end of the worker's task; Shutdown() does not change it.
TEST(Deadlines, IdleWorker) {
  constexpr std::chrono::seconds kIdleLimit{1};
  struct Shared {
    std::optional<Watch> watch;
    system_clock::time_point end;
    Gate ran;
  };
  for (const auto method : {kMethodWithoutName, ThreadPool::SHUTDOWN_NOW}) {
    SCOPED_TRACE(method);
    const auto shared = std::make_shared<Shared>();
    const auto pool = MakePool(1);
    pool->SubmitTask([shared] {
      shared->watch.emplace();  // watches the worker's thread
      shared->end = system_clock::now();
      shared->ran.Open();
    });
    ASSERT_TRUE(shared->ran.WaitFor());
    while (firstEntry.load() < shared->end) std::this_thread::sleep_for(milliseconds(1));
    pool->Shutdown(method);  // waits until the worker has retired
    shared->watch.reset();
    EXPECT_GE(lastDeadline.load(), shared->end + kIdleLimit);
    EXPECT_LE(lastDeadline.load(), firstEntry.load() + kIdleLimit);
  }
}

// ---- condition variables ----

// On Windows the constructor creates them; the runtime would do so under a lock of its own, which a
// thread that is killed at process exit may hold.
TEST(Conditions, Created) {
  const struct {
    const char* name;
    size_t conditions;
    std::function<void()> construct;
  } rows[] = {
      {"BlockingQueue", 2, [] { const BlockingQueue<int> queue(1); }},
      {"CountDownLatch", 1, [] { const CountDownLatch latch(1); }},
      {"CountOutWake", 1, [] { const CountOutWake wake; }},
      {"ThreadPool", 4, [] { MakePool(1); }},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    conditionsCreated = 0;
    row.construct();
    const size_t created = conditionsCreated;
    EXPECT_EQ(created, kCreatesConditions ? row.conditions : 0);
    for (size_t i = 0; i < created; ++i) {
      conditionsLeft = i;
      EXPECT_THROW(row.construct(), std::system_error) << "condition " << i;
    }
    conditionsLeft = SIZE_MAX;
  }
}

// ---- notifications ----

void Push(const std::shared_ptr<BlockingQueue<int>>& queue) {
  static_cast<void>(queue->Push(1, 0));
}

void Pop(const std::shared_ptr<BlockingQueue<int>>& queue) {
  int item = 0;
  static_cast<void>(queue->Pop(item, 0));
}

// Starts a call on another thread and returns when it waits.
BackgroundCall StartWait(const std::function<void()>& call) {
  const size_t before = waitsBegun;
  BackgroundCall waiting(call);
  while (waitsBegun == before) std::this_thread::sleep_for(milliseconds(1));
  return waiting;
}

// Under the lock, so that a woken thread may destroy the object as soon as it gets the lock. Each
// condition once, in the order of the fields: Close() first notifies the threads that wait for
// room.
TEST(Notifications, Locked) {
  const auto empty = std::make_shared<BlockingQueue<int>>(1);
  const auto full = std::make_shared<BlockingQueue<int>>(1);
  const auto closing = std::make_shared<BlockingQueue<int>>(0);
  const auto latch = std::make_shared<CountDownLatch>(2);
  const auto wake = std::make_shared<CountOutWake>();
  Push(full);
  const struct {
    const char* name;
    std::vector<std::function<void()>> waits;  // started before the call
    std::function<void()> call;
    size_t notifications;
    bool ofAll;
  } rows[] = {
      {"Push", {[=] { Pop(empty); }}, [=] { Push(empty); }, 1, true},
      {"Pop", {[=] { Push(full); }}, [=] { Pop(full); }, 1, true},
      {"CountDown, not the last", {[=] { latch->Wait(0); }}, [=] { latch->CountDown(); }, 0, true},
      {"CountDown", {}, [=] { latch->CountDown(); }, 1, true},
      {"CountOut", {[=] { wake->Wait(0); }}, [=] { wake->CountOut(); }, 1, false},
      {"CountAll", {[=] { wake->Wait(0); }}, [=] { wake->CountAll(); }, 1, true},
      {"Close",
       {[=] { Push(closing); }, [=] { Pop(closing); }},
       [=] { closing->Close(); },
       2,
       true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    for (const auto& wait : row.waits) StartWait(wait);
    const Watch watch;
    row.call();
    std::vector<const void*> conditions;
    for (const Notification& notification : notifications) {
      EXPECT_EQ(notification.ofAll, row.ofAll);
      EXPECT_TRUE(notification.locked);
      conditions.push_back(notification.condition);
    }
    EXPECT_EQ(conditions.size(), row.notifications);
    const auto end = conditions.end();
    EXPECT_EQ(std::adjacent_find(conditions.begin(), end, std::greater_equal<>()), end);
  }
}

// Close() notifies before it destroys elements.
TEST(Notifications, Close) {
  // Records the number of notifications at its destruction.
  using Element = std::shared_ptr<void>;
  const auto queue = std::make_shared<BlockingQueue<Element>>(1);
  size_t notified = 0;
  const auto record = [&](void*) { notified = notifications.size(); };
  ASSERT_TRUE(queue->Push(Element(nullptr, record), -1));
  StartWait([queue] { static_cast<void>(queue->Push(nullptr, 0)); });
  const Watch watch;
  queue->Close();
  EXPECT_EQ(notified, 1U);
}

// Neither before the first wait nor after all waiting threads were woken.
TEST(Notifications, NoWaiter) {
  const auto queue = std::make_shared<BlockingQueue<int>>(1);
  const auto pushAndPop = [&] {
    const Watch watch;
    Push(queue);
    Pop(queue);
    return notifications.size();
  };
  EXPECT_EQ(pushAndPop(), 0U);
  BackgroundCall pop = StartWait([queue] { Pop(queue); });
  Push(queue);
  ASSERT_TRUE(pop.ReturnsWithin());
  Push(queue);
  BackgroundCall push = StartWait([queue] { Push(queue); });
  Pop(queue);
  ASSERT_TRUE(push.ReturnsWithin());
  Pop(queue);
  EXPECT_EQ(pushAndPop(), 0U);
}

// The pool does not synchronize taking a task with Wait() (by design): a notification between
// Wait()'s check and its sleep is missed until the next task.
TEST(Notifications, Missed) {
  struct Shared {
    const std::shared_ptr<ThreadPool> pool = MakePool(1);
    Gate first;
    Gate second;
    bool secondRan = false;
    Gate slept;
  };
  const auto shared = std::make_shared<Shared>();
  shared->pool->SubmitTask([shared] { shared->first.Wait(); });
  shared->pool->SubmitTask([shared] { shared->second.Open(); });
  BackgroundCall wait([shared] {
    const Watch watch;
    // After the last check of the queue, with the lock still held.
    beforeNextWait = [shared] {
      watched = nullptr;
      shared->first.Open();
      shared->secondRan = shared->second.WaitFor();
      shared->slept.Open();
    };
    shared->pool->Wait();
  });
  ASSERT_TRUE(shared->slept.WaitFor());
  EXPECT_TRUE(shared->secondRan) << "taking a task does not need waitMutex";
  EXPECT_EQ(shared->pool->GetPendingTaskNumber(), 0U);
  EXPECT_TRUE(wait.StaysBlocked());
  shared->pool->SubmitTask([] {});
  EXPECT_TRUE(wait.ReturnsWithin());
}

// ---- locks ----

// Whether `call` throws std::system_error when the lock after `allowed` successful ones fails.
testing::AssertionResult FailsAtLock(size_t allowed, const std::function<void()>& call) {
  const LockFault fault(allowed);
  try {
    call();
  } catch (const std::system_error& error) {
    if (error.code() == std::errc::resource_unavailable_try_again) {
      return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << error.what();
  }
  return testing::AssertionFailure() << "no exception";
}

TEST(LockFaults, QueueAndLatches) {
  BlockingQueue<int> queue(2);
  CountDownLatch latch(2);
  CountOutWake wake(5);
  ASSERT_TRUE(queue.Push(1, -1));
  int item = 7;
  const std::function<void()> calls[] = {
      [&] { static_cast<void>(queue.Push(2, -1)); },
      [&] { static_cast<void>(queue.Push(2, 0)); },
      [&] { static_cast<void>(queue.Push(2, 1)); },
      [&] { static_cast<void>(queue.Pop(item, -1)); },
      [&] { static_cast<void>(queue.Pop(item, 0)); },
      [&] { static_cast<void>(queue.Pop(item, 1)); },
      [&] { queue.Close(); },
      [&] { queue.Size(); },
      [&] { latch.CountDown(); },
      [&] { latch.Wait(1); },
      [&] { latch.GetCount(); },
      [&] { wake.CountOut(); },
      [&] { wake.CountAll(); },
      [&] { wake.Wait(1); },
      [&] { wake.GetCount(); },
  };
  for (const auto& call : calls) EXPECT_TRUE(FailsAtLock(0, call)) << "call " << &call - calls;
  EXPECT_EQ(item, 7);
  EXPECT_TRUE(queue.Push(2, -1));
  EXPECT_EQ(queue.Size(), 2U);
  EXPECT_TRUE(queue.Pop(item, -1));
  EXPECT_EQ(item, 1);
  EXPECT_EQ(latch.GetCount(), 2U);
  EXPECT_EQ(wake.GetCount(), 5U);
}

// In the order of the locks: if one fails, the earlier ones are released. No call takes more.
TEST(LockFaults, Pool) {
  std::shared_ptr<ThreadPool> pool;
  const struct {
    const char* name;
    size_t locks;
    std::function<void()> call;
  } rows[] = {
      {"SubmitTask", 2, [&] { pool->SubmitTask([] {}); }},
      {"GetPendingTaskNumber", 2, [&] { pool->GetPendingTaskNumber(); }},
      {"GetRunningThreadNumber", 1, [&] { pool->GetRunningThreadNumber(); }},
      {"Wait", 2, [&] { pool->Wait(); }},
      {"Shutdown by an unknown method", 1, [&] { pool->Shutdown(kMethodWithoutName); }},
      {"Shutdown, waiting", 3, [&] { pool->Shutdown(ThreadPool::SHUTDOWN_WAIT); }},
      {"Shutdown now", 2, [&] { pool->Shutdown(ThreadPool::SHUTDOWN_NOW); }},
  };
  for (const auto& row : rows) {
    pool = MakePool(0);
    for (size_t lock = 0; lock < row.locks; ++lock) {
      SCOPED_TRACE(row.name + (" " + std::to_string(lock)));
      EXPECT_TRUE(FailsAtLock(lock, row.call));
      EXPECT_EQ(pool->GetPendingTaskNumber(), 0U);
      EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
      pool->Wait();
    }
    const LockFault fault(row.locks);
    EXPECT_NO_THROW(row.call()) << row.name;
  }
  pool = MakePool(0);
  EXPECT_TRUE(FailsAtLock(0, [&] { pool->Shutdown(ThreadPool::SHUTDOWN_NOW); }));
  EXPECT_TRUE(pool->SubmitTask([] {})) << "the pool is still open";
}

// Whichever lock fails, the tasks are destroyed.
TEST(LockFaults, DropPool) {
  for (size_t lock = 0; lock < 2; ++lock) {
    SCOPED_TRACE(lock);
    auto pool = MakePool(0);
    const auto owned = std::make_shared<int>(0);
    pool->SubmitTask([owned] {});
    {
      const LockFault fault(lock);
      pool.reset();
    }
    EXPECT_EQ(owned.use_count(), 1);
  }
}

// A worker that was not started has no thread to wait for.
TEST(LockFaults, DropWorker) {
  auto worker = std::make_shared<tarsio::Worker>("worker", std::weak_ptr<ThreadPool>());
  const LockFault fault(0);
  worker.reset();
}

// At process exit Windows kills a thread that is starting a worker; then a DLL's static destroys
// the pool. The thread's locks are never released.
TEST(LockFaults, KilledInStart) {
  const auto pool = std::make_shared<std::shared_ptr<ThreadPool>>(MakePool(1));
  const auto killed = std::make_shared<Gate>();
  BackgroundCall submission([&used = **pool, killed] {
    const LockFault fault(3);
    insteadOfFault = [killed] {
      watched = nullptr;
      locksLeft = SIZE_MAX;
      killed->Open();
      Gate().Wait();
    };
    used.SubmitTask([] {});
  });
  ASSERT_TRUE(killed->WaitFor());
  threadsMayBeGone = true;
  BackgroundCall end([pool] { pool->reset(); });
  EXPECT_TRUE(end.ReturnsWithin());
  threadsMayBeGone = false;
}

TEST(LockFaults, QueuedTask) {
  const auto ran = std::make_shared<Events>();
  std::function<void()> task = [ran] { ran->Add(); };
  const auto first = MakePool(1);
  first->SubmitTask(task);  // one-time allocations happen here
  ASSERT_TRUE(ran->Await(1));

  const auto pool = MakePool(1);
  EXPECT_TRUE(FailsAtLock(0, [&] { pool->SubmitTask(task); })) << "check for a full queue";
  EXPECT_TRUE(FailsAtLock(1, [&] { pool->SubmitTask(task); })) << "push";
  EXPECT_EQ(pool->GetPendingTaskNumber(), 0U);
  EXPECT_TRUE(FailsAtLock(2, [&] { pool->SubmitTask(task); })) << "worker list";
  EXPECT_EQ(pool->GetPendingTaskNumber(), 1U);
  EXPECT_TRUE(FailsAtLock(3, [&] { pool->SubmitTask(task); })) << "worker";
  EXPECT_EQ(pool->GetPendingTaskNumber(), 2U);
  EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
  EXPECT_TRUE(pool->SubmitTask(task));
  EXPECT_TRUE(ran->Await(4));
}

TEST(LockFaults, Timer) {
  constexpr unsigned long long kLong = 3600000;
  const auto warm = std::make_shared<TsTimer>(kLong, false);
  warm->Start();  // one-time allocations happen here
  warm->Stop();

  const auto timer = std::make_shared<TsTimer>(kLong, false);
  timer->SetExpire(77);

  EXPECT_TRUE(FailsAtLock(0, [&] { timer->Start(); })) << "manager";
  EXPECT_EQ(timer.use_count(), 1);
  EXPECT_TRUE(FailsAtLock(0, [&] { timer->Start(); }))
      << "not marked started, so the second attempt starts it";
  EXPECT_EQ(timer->GetExpire(), 77U);

  timer->Start();
  EXPECT_EQ(timer.use_count(), 2);
  EXPECT_TRUE(FailsAtLock(0, [&] { timer->Stop(); }));
  timer->Stop();  // already marked stopped
  EXPECT_EQ(timer.use_count(), 2) << "still queued";
  timer->SetState(true);
  timer->Stop();
  EXPECT_EQ(timer.use_count(), 1);
}

}  // namespace
