// Lets each lock of queue, pool, latches and timers fail in turn: the caller gets
// std::system_error, other locks are released, and the object is unchanged. Also checks that
// deadlines are on the system clock and that notifications are sent under the lock. The library and
// wrappers of the lock functions are compiled into this program.

#include "support/lock_faults.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <system_error>
#include <thread>
#include <vector>

#include "common/blocking_queue.h"
#include "common/latch.h"
#include "common/thread_pool.h"
#include "common/timer.h"
#include "support/background_call.h"
#include "support/events.h"
#include "support/gate.h"

namespace {

using component::TsTimer;
using std::chrono::milliseconds;
using std::chrono::system_clock;
using tarsio::BlockingQueue;
using tarsio::CountDownLatch;
using tarsio::CountOutWake;
using tarsio::ThreadPool;
using tarsio_test::BackgroundCall;
using tarsio_test::DeadlineWatch;
using tarsio_test::Events;
using tarsio_test::Gate;
using tarsio_test::LockFault;
using tarsio_test::NotificationWatch;

constexpr auto kMethodWithoutName = static_cast<ThreadPool::SHUTDOWN_METHOD>(7);

std::shared_ptr<ThreadPool> MakePool(uint64_t limit) {
  return std::make_shared<ThreadPool>("lock faults", limit, 0U, 10U);
}

// ---- deadlines ----

TEST(Deadlines, SystemClock) {
  BlockingQueue<int> queue(0);
  CountDownLatch latch(1);
  CountOutWake wake;
  const struct {
    const char* name;
    std::function<void()> wait;
    std::chrono::nanoseconds timeout;
  } rows[] = {
      {"Push", [&] { static_cast<void>(queue.Push(1, 30)); }, milliseconds(30)},
      {"Pop",
       [&] {
         int item = 0;
         static_cast<void>(queue.Pop(item, 40));
       },
       milliseconds(40)},
      {"CountDownLatch", [&] { latch.Wait(50); }, milliseconds(50)},
      {"CountOutWake", [&] { wake.Wait(20000000); }, milliseconds(20)},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const auto timeout = std::chrono::duration_cast<system_clock::duration>(row.timeout);
    const DeadlineWatch watch;
    const auto before = system_clock::now();
    row.wait();
    // No tolerance needed: the clock was read between the call and the wait.
    EXPECT_GE(DeadlineWatch::Last(), before + timeout);
    EXPECT_LE(DeadlineWatch::Last(), DeadlineWatch::FirstEntry() + timeout);
  }
}

// Counted from the end of the worker's task; Shutdown() does not change it.
TEST(Deadlines, IdleWorker) {
  constexpr std::chrono::seconds kIdleLimit{1};
  struct Shared {
    std::optional<DeadlineWatch> watch;
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
    while (DeadlineWatch::FirstEntry() < shared->end) {
      std::this_thread::sleep_for(milliseconds(1));
    }
    pool->Shutdown(method);  // waits until the worker has retired
    shared->watch.reset();
    EXPECT_GE(DeadlineWatch::Last(), shared->end + kIdleLimit);
    EXPECT_LE(DeadlineWatch::Last(), DeadlineWatch::FirstEntry() + kIdleLimit);
  }
}

// ---- notifications ----

// So that a woken thread may destroy the object as soon as it gets the lock.
TEST(Notifications, Locked) {
  const auto empty = std::make_shared<BlockingQueue<int>>(1);
  const auto full = std::make_shared<BlockingQueue<int>>(1);
  const auto closing = std::make_shared<BlockingQueue<int>>(0);
  const auto latch = std::make_shared<CountDownLatch>(2);
  const auto wake = std::make_shared<CountOutWake>();
  ASSERT_TRUE(full->Push(1, -1));
  const auto push = [](const auto& queue) { static_cast<void>(queue->Push(1, 0)); };
  const auto pop = [](const auto& queue) {
    int item = 0;
    static_cast<void>(queue->Pop(item, 0));
  };
  using Calls = std::vector<std::function<void()>>;
  const struct {
    const char* name;
    Calls waits;  // started before the call
    std::function<void()> call;
    size_t notifications;
    bool ofAll;
  } rows[] = {
      {"Push", {[=] { pop(empty); }}, [&] { push(empty); }, 1, true},
      {"Pop", {[=] { push(full); }}, [&] { pop(full); }, 1, true},
      {"CountDown, not the last", {[=] { latch->Wait(0); }}, [&] { latch->CountDown(); }, 0, true},
      {"CountDown", {}, [&] { latch->CountDown(); }, 1, true},
      {"CountOut", {[=] { wake->Wait(0); }}, [&] { wake->CountOut(); }, 1, false},
      {"CountAll", {[=] { wake->Wait(0); }}, [&] { wake->CountAll(); }, 1, true},
      // Must be the last row: calls on a closed queue go on waiting.
      {"Close",
       {[=] { push(closing); }, [=] { pop(closing); }},
       [&] { closing->Close(); },
       2,
       true},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const size_t before = tarsio_test::WaitsBegun();
    for (const auto& wait : row.waits) BackgroundCall call(wait);
    while (tarsio_test::WaitsBegun() < before + row.waits.size()) {
      std::this_thread::sleep_for(milliseconds(1));
    }
    const NotificationWatch watch;
    row.call();
    std::vector<const void*> conditions;
    for (const auto& notification : NotificationWatch::All()) {
      EXPECT_EQ(notification.ofAll, row.ofAll);
      EXPECT_TRUE(notification.locked);
      conditions.push_back(notification.condition);
    }
    EXPECT_EQ(conditions.size(), row.notifications);
    // Each condition once, in the order of the fields: Close() first notifies the threads that wait
    // for room.
    const auto end = conditions.end();
    EXPECT_EQ(std::adjacent_find(conditions.begin(), end, std::greater_equal<>()), end);
  }
}

TEST(Notifications, Close) {
  struct Element {
    Element() = default;
    Element(const Element&) = default;
    Element& operator=(const Element&) = default;
    ~Element() {
      if (notified != nullptr) notified->push_back(NotificationWatch::All().size());
    }
    std::vector<size_t>* notified = nullptr;  // the number of notifications at each destruction
  };
  const auto queue = std::make_shared<BlockingQueue<Element>>(2);
  std::vector<size_t> notified;
  notified.reserve(10);
  {
    Element element;
    element.notified = &notified;
    ASSERT_TRUE(queue->Push(element, -1));
    ASSERT_TRUE(queue->Push(element, -1));
  }
  notified.clear();
  const auto waits = std::make_shared<Gate>();
  BackgroundCall push([=] {
    tarsio_test::BeforeNextWait([waits] { waits->Open(); });
    static_cast<void>(queue->Push(Element(), 0));
  });
  ASSERT_TRUE(waits->WaitFor());
  const NotificationWatch watch;
  queue->Close();
  EXPECT_EQ(notified, (std::vector<size_t>{1, 1}));
}

// Neither before the first wait nor after all waiting threads were woken.
TEST(Notifications, NoWaiter) {
  const auto queue = std::make_shared<BlockingQueue<int>>(1);
  int item = 0;
  const auto pushAndPop = [&] {
    const NotificationWatch watch;
    static_cast<void>(queue->Push(1, -1));
    static_cast<void>(queue->Pop(item, -1));
    return NotificationWatch::All().size();
  };
  EXPECT_EQ(pushAndPop(), 0U);

  const size_t begun = tarsio_test::WaitsBegun();
  BackgroundCall pop([queue] {
    int taken = 0;
    static_cast<void>(queue->Pop(taken, 0));
  });
  while (tarsio_test::WaitsBegun() == begun) std::this_thread::sleep_for(milliseconds(1));
  static_cast<void>(queue->Push(1, -1));
  ASSERT_TRUE(pop.ReturnsWithin());
  static_cast<void>(queue->Push(1, -1));
  BackgroundCall push([queue] { static_cast<void>(queue->Push(2, 0)); });
  while (tarsio_test::WaitsBegun() == begun + 1) std::this_thread::sleep_for(milliseconds(1));
  static_cast<void>(queue->Pop(item, -1));
  ASSERT_TRUE(push.ReturnsWithin());
  static_cast<void>(queue->Pop(item, -1));
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
    tarsio_test::BeforeNextWait([shared] {
      shared->first.Open();
      shared->secondRan = shared->second.WaitFor();
      shared->slept.Open();
    });
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

TEST(LockFaults, Queue) {
  BlockingQueue<int> queue(2);
  ASSERT_TRUE(queue.Push(1, -1));
  int item = 7;
  for (const int timeoutMs : {-1, 0, 1}) {
    EXPECT_TRUE(FailsAtLock(0, [&] { static_cast<void>(queue.Push(2, timeoutMs)); }));
    EXPECT_TRUE(FailsAtLock(0, [&] { static_cast<void>(queue.Pop(item, timeoutMs)); }));
  }
  EXPECT_TRUE(FailsAtLock(0, [&] { queue.Close(); }));
  EXPECT_TRUE(FailsAtLock(0, [&] { queue.Size(); }));
  EXPECT_EQ(item, 7);
  EXPECT_EQ(queue.Size(), 1U);
  EXPECT_TRUE(queue.Push(2, -1));
  EXPECT_TRUE(queue.Pop(item, -1));
  EXPECT_EQ(item, 1);
}

TEST(LockFaults, Latches) {
  CountDownLatch latch(2);
  EXPECT_TRUE(FailsAtLock(0, [&] { latch.CountDown(); }));
  EXPECT_TRUE(FailsAtLock(0, [&] { latch.Wait(1); }));
  EXPECT_TRUE(FailsAtLock(0, [&] { latch.GetCount(); }));
  EXPECT_EQ(latch.GetCount(), 2U);
  latch.CountDown();
  EXPECT_EQ(latch.GetCount(), 1U);

  CountOutWake wake(5);
  EXPECT_TRUE(FailsAtLock(0, [&] { wake.CountOut(); }));
  EXPECT_TRUE(FailsAtLock(0, [&] { wake.CountAll(); }));
  EXPECT_TRUE(FailsAtLock(0, [&] { wake.Wait(1); }));
  EXPECT_TRUE(FailsAtLock(0, [&] { wake.GetCount(); }));
  EXPECT_EQ(wake.GetCount(), 5U);
}

// In the order of the locks: if one fails, the earlier ones are released.
TEST(LockFaults, Pool) {
  const auto pool = MakePool(0);
  const struct {
    const char* name;
    size_t locks;
    std::function<void()> call;
  } rows[] = {
      {"SubmitTask", 1, [&] { pool->SubmitTask([] {}); }},
      {"GetPendingTaskNumber", 2, [&] { pool->GetPendingTaskNumber(); }},
      {"GetRunningThreadNumber", 1, [&] { pool->GetRunningThreadNumber(); }},
      {"Wait", 2, [&] { pool->Wait(); }},
      {"Shutdown by an unknown method", 1,
       [&] { pool->Shutdown(static_cast<ThreadPool::SHUTDOWN_METHOD>(7)); }},
      {"Shutdown, waiting", 3, [&] { pool->Shutdown(ThreadPool::SHUTDOWN_WAIT); }},
      {"Shutdown now", 1, [&] { pool->Shutdown(ThreadPool::SHUTDOWN_NOW); }},
  };
  for (const auto& row : rows) {
    for (size_t lock = 0; lock < row.locks; ++lock) {
      SCOPED_TRACE(row.name + (" " + std::to_string(lock)));
      EXPECT_TRUE(FailsAtLock(lock, row.call));
      EXPECT_EQ(pool->GetPendingTaskNumber(), 0U);
      EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
      pool->Wait();
    }
  }
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
