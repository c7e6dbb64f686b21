#include "common/blocking_queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdlib>
#include <deque>
#include <memory>
#include <new>
#include <random>
#include <stdexcept>
#include <thread>
#include <type_traits>

#include "support/allocations.h"
#include "support/background_call.h"
#include "support/cout_recorder.h"
#include "support/gate.h"
#include "support/recording_logger.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::system_clock;
using tarsio::BlockingQueue;
using tarsio_test::AllocationWatch;
using tarsio_test::BackgroundCall;
using tarsio_test::Gate;
using tarsio_test::kTestTimeout;
using tarsio_test::LogRecord;
using tarsio_test::LogRecords;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

using Task = std::function<void()>;

static_assert(!std::is_copy_constructible<BlockingQueue<int>>::value, "a queue is not copied");
static_assert(!std::is_copy_assignable<BlockingQueue<int>>::value, "a queue is not copied");
static_assert(!std::is_default_constructible<BlockingQueue<int>>::value, "no default capacity");
static_assert(std::has_virtual_destructor<BlockingQueue<int>>::value, "hosts derive from it");
static_assert(std::is_same<decltype(&BlockingQueue<int>::Push),
                           bool (BlockingQueue<int>::*)(const int&, int)>::value,
              "takes a const reference");
static_assert(std::is_same<decltype(&BlockingQueue<int>::Pop),
                           bool (BlockingQueue<int>::*)(int&, int)>::value,
              "returns the element by reference");
static_assert(
    std::is_same<decltype(&BlockingQueue<int>::Close), void (BlockingQueue<int>::*)()>::value,
    "no result");
static_assert(
    std::is_same<decltype(&BlockingQueue<int>::Size), uint64_t (BlockingQueue<int>::*)()>::value,
    "sizes are 64 bits wide");

// Whether the member is accessible here. The type of its first parameter is private.
struct AnyReference {
  template <typename T>
  operator T&() const;
};
template <typename T, typename = void>
struct WaitForIsPublic : std::false_type {};
template <typename T>
struct WaitForIsPublic<T, std::void_t<decltype(T::WaitFor(
                              AnyReference(), std::declval<std::unique_lock<std::mutex>&>(), 0,
                              std::declval<bool (*)()>()))>> : std::true_type {};
static_assert(!WaitForIsPublic<BlockingQueue<int>>::value, "private");

// A queue that may outlive its test because a thread still waits in it.
template <typename T>
std::shared_ptr<BlockingQueue<T>> MakeQueue(uint64_t capacity, const std::vector<T>& content = {}) {
  auto queue = std::make_shared<BlockingQueue<T>>(capacity);
  for (const T& item : content) EXPECT_TRUE(queue->Push(item, -1));
  return queue;
}

std::vector<int> PopAll(BlockingQueue<int>& queue) {
  std::vector<int> items;
  for (int item = 0; queue.Pop(item, -1);) items.push_back(item);
  return items;
}

// Returns how long `call` takes in microseconds, on the system clock, which the deadlines use.
template <typename Call>
int64_t MicrosecondsOf(Call call) {
  const auto begin = system_clock::now();
  call();
  const auto end = system_clock::now();
  return std::chrono::duration_cast<std::chrono::microseconds>(end - begin).count();
}

constexpr int64_t kTestTimeoutUs = std::chrono::microseconds(kTestTimeout).count();

// ---- capacity and order ----

TEST(Queue, HoldsCapacity) {
  for (const uint64_t capacity : {uint64_t{0}, uint64_t{1}, uint64_t{2}, uint64_t{1000}}) {
    SCOPED_TRACE(capacity);
    BlockingQueue<int> queue(capacity);
    for (uint64_t size = 0; size < capacity; ++size) {
      EXPECT_EQ(queue.Size(), size);
      ASSERT_TRUE(queue.Push(1, -1));
    }
    EXPECT_FALSE(queue.Push(1, -1));
    EXPECT_EQ(queue.Size(), capacity);
  }
}

TEST(Queue, MaxCapacity) {
  BlockingQueue<int> queue(UINT64_MAX);
  for (int i = 0; i < 10000; ++i) ASSERT_TRUE(queue.Push(i, -1));
  EXPECT_EQ(queue.Size(), 10000U);
}

TEST(Queue, Fifo) {
  BlockingQueue<std::string> queue(100);
  for (int i = 0; i < 100; ++i) ASSERT_TRUE(queue.Push(std::to_string(i), 0));
  for (int i = 0; i < 100; ++i) {
    std::string item;
    ASSERT_TRUE(queue.Pop(item, 0));
    EXPECT_EQ(item, std::to_string(i));
  }
}

TEST(Queue, RandomModel) {
  std::mt19937_64 random(41);
  for (int round = 0; round < 50; ++round) {
    SCOPED_TRACE(round);
    const uint64_t capacity = random() % 20;
    BlockingQueue<int> queue(capacity);
    std::deque<int> model;
    bool closed = false;
    const uint64_t pushShare = 30 + random() % 40;
    for (int step = 0; step < 1000; ++step) {
      const uint64_t dice = random() % 100;
      if (round % 5 == 0 && step == 700) {
        queue.Close();
        model.clear();
        closed = true;
      } else if (dice < pushShare) {
        const bool room = !closed && model.size() < capacity;
        ASSERT_EQ(queue.Push(step, -1), room);
        if (room) model.push_back(step);
      } else {
        int item = -1;
        const bool any = !model.empty();
        ASSERT_EQ(queue.Pop(item, -1), any);
        ASSERT_EQ(item, any ? model.front() : -1);
        if (any) model.pop_front();
      }
      ASSERT_EQ(queue.Size(), model.size());
    }
  }
}

// ---- waiting ----

// The states of a queue in which an operation cannot succeed.
struct HopelessCase {
  const char* name;
  uint64_t capacity;
  std::vector<int> content;
  bool closed;
  bool push;  // else pop

  std::shared_ptr<BlockingQueue<int>> Make() const {
    auto queue = MakeQueue<int>(capacity, content);
    if (closed) queue->Close();
    return queue;
  }
  bool Call(BlockingQueue<int>& queue, int timeoutMs) const {
    int item = 7;
    return push ? queue.Push(item, timeoutMs) : queue.Pop(item, timeoutMs);
  }
};

const std::vector<HopelessCase>& HopelessCases() {
  static const std::vector<HopelessCase> cases = {
      {"Push, full", 1, {1}, false, true},
      {"Push, capacity 0", 0, {}, false, true},
      {"Push, closed when empty", 2, {}, true, true},
      {"Push, closed when full", 1, {1}, true, true},
      {"Push, closed, capacity 0", 0, {}, true, true},
      {"Pop, empty", 1, {}, false, false},
      {"Pop, capacity 0", 0, {}, false, false},
      {"Pop, closed when empty", 2, {}, true, false},
      {"Pop, closed with elements", 2, {1, 2}, true, false},
  };
  return cases;
}

TEST(Queue, PositiveTimeout) {
  for (const HopelessCase& row : HopelessCases()) {
    SCOPED_TRACE(row.name);
    const auto queue = row.Make();
    for (const int timeoutMs : {1, 2, 20, 150}) {
      SCOPED_TRACE(timeoutMs);
      bool result = true;
      const int64_t lasted = MicrosecondsOf([&] { result = row.Call(*queue, timeoutMs); });
      EXPECT_FALSE(result);
      EXPECT_GE(lasted, timeoutMs * 1000);
      EXPECT_LT(lasted, kTestTimeoutUs);
    }
    EXPECT_EQ(queue->Size(), row.closed ? 0 : row.content.size());
  }
}

TEST(Queue, NegativeTimeout) {
  for (const HopelessCase& row : HopelessCases()) {
    SCOPED_TRACE(row.name);
    const auto queue = row.Make();
    for (const int timeoutMs : {-1, -60000, INT_MIN}) {
      SCOPED_TRACE(timeoutMs);
      const auto result = std::make_shared<std::atomic<bool>>(true);
      BackgroundCall call([=] { *result = row.Call(*queue, timeoutMs); });
      ASSERT_TRUE(call.ReturnsWithin(milliseconds(30000)));
      EXPECT_FALSE(*result);
    }
    EXPECT_EQ(queue->Size(), row.closed ? 0 : row.content.size());
  }
}

// The same on a closed queue and with capacity 0 (by design).
TEST(Queue, ZeroTimeout) {
  std::vector<BackgroundCall> calls;
  for (const HopelessCase& row : HopelessCases()) {
    const auto queue = row.Make();
    calls.emplace_back([=] { row.Call(*queue, 0); });
  }
  for (size_t i = 0; i < calls.size(); ++i) {
    SCOPED_TRACE(HopelessCases()[i].name);
    EXPECT_TRUE(calls[i].StaysBlocked(milliseconds(60)));  // all wait concurrently
  }
}

TEST(Queue, AnyTimeout) {
  for (const int timeoutMs : {INT_MIN, -1, 0, 1, 1000, INT_MAX}) {
    SCOPED_TRACE(timeoutMs);
    BlockingQueue<int> queue(1);
    EXPECT_TRUE(queue.Push(5, timeoutMs));
    int item = 0;
    EXPECT_TRUE(queue.Pop(item, timeoutMs));
    EXPECT_EQ(item, 5);
  }
}

TEST(Queue, ZeroCapacity) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  const auto queue = MakeQueue<int>(0);
  EXPECT_FALSE(queue->Push(1, -1));
  EXPECT_EQ(records->All().size(), 1U);
  EXPECT_GE(MicrosecondsOf([&] { EXPECT_FALSE(queue->Push(1, 100)); }), 100000);
  EXPECT_EQ(records->All().size(), 2U);
  BackgroundCall call([queue] { static_cast<void>(queue->Push(1, 0)); });
  EXPECT_TRUE(call.StaysBlocked());
  EXPECT_EQ(records->All().size(), 2U);
  EXPECT_EQ(queue->Size(), 0U);
}

TEST(Queue, PopTimesOut) {
  BlockingQueue<int> queue(1);
  int item = 3;
  EXPECT_GE(MicrosecondsOf([&] { EXPECT_FALSE(queue.Pop(item, 1000)); }), 1000000);
  EXPECT_EQ(item, 3);
}

TEST(Queue, PushWakesPop) {
  // The largest timeout must not overflow.
  for (const int timeoutMs : {0, 3600 * 1000, INT_MAX}) {
    SCOPED_TRACE(timeoutMs);
    const auto queue = MakeQueue<int>(1);
    const auto result = std::make_shared<std::atomic<int>>(0);
    BackgroundCall pop([=] {
      int item = 0;
      *result = queue->Pop(item, timeoutMs) ? item : -1;
    });
    EXPECT_TRUE(pop.StaysBlocked(milliseconds(100)));
    EXPECT_TRUE(queue->Push(8, -1));
    ASSERT_TRUE(pop.ReturnsWithin());
    EXPECT_EQ(*result, 8);
    EXPECT_EQ(queue->Size(), 0U);
  }
}

TEST(Queue, PopWakesPush) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  for (const int timeoutMs : {0, 3600 * 1000, INT_MAX}) {
    SCOPED_TRACE(timeoutMs);
    const auto queue = MakeQueue<int>(1, {1});
    const auto result = std::make_shared<std::atomic<bool>>(false);
    BackgroundCall push([=] { *result = queue->Push(2, timeoutMs); });
    EXPECT_TRUE(push.StaysBlocked(milliseconds(100)));
    EXPECT_EQ(queue->Size(), 1U);
    int item = 0;
    EXPECT_TRUE(queue->Pop(item, -1));
    ASSERT_TRUE(push.ReturnsWithin());
    EXPECT_TRUE(*result);
    EXPECT_THAT(PopAll(*queue), ElementsAre(2));
  }
  EXPECT_THAT(records->All(), IsEmpty());
}

TEST(Queue, ManyWaiters) {
  constexpr int kWaiters = 8;
  const auto queue = MakeQueue<int>(kWaiters);
  std::vector<BackgroundCall> pops;
  for (int i = 0; i < kWaiters; ++i) {
    pops.emplace_back([queue, i] {
      int item = 0;
      static_cast<void>(queue->Pop(item, i % 2 == 0 ? 0 : INT_MAX));
    });
  }
  for (BackgroundCall& pop : pops) EXPECT_TRUE(pop.StaysBlocked(milliseconds(20)));
  for (int i = 0; i < kWaiters; ++i) EXPECT_TRUE(queue->Push(i, -1));
  for (BackgroundCall& pop : pops) ASSERT_TRUE(pop.ReturnsWithin());

  for (int i = 0; i < kWaiters; ++i) EXPECT_TRUE(queue->Push(i, -1));
  std::vector<BackgroundCall> pushes;
  for (int i = 0; i < kWaiters; ++i) {
    pushes.emplace_back(
        [queue, i] { static_cast<void>(queue->Push(i, i % 2 == 0 ? 0 : INT_MAX)); });
  }
  for (BackgroundCall& push : pushes) EXPECT_TRUE(push.StaysBlocked(milliseconds(20)));
  int item = 0;
  for (int i = 0; i < kWaiters; ++i) EXPECT_TRUE(queue->Pop(item, -1));
  for (BackgroundCall& push : pushes) ASSERT_TRUE(push.ReturnsWithin());
  EXPECT_EQ(queue->Size(), static_cast<uint64_t>(kWaiters));
}

// Many threads wait; every 30 ms all are notified and one succeeds. The first deadlines must pass
// before all threads had their turn.
void ExpectDeadlinesStandUnderTraffic(bool push) {
  constexpr int kWaiters = 40;
  static constexpr int kTimeoutMs = 400;
  struct Shared {
    BlockingQueue<int> queue{1};
    std::atomic<int> returned{0};
    std::atomic<int> refused{0};
    std::atomic<int> early{0};
  };
  const auto shared = std::make_shared<Shared>();
  if (push) {
    ASSERT_TRUE(shared->queue.Push(0, -1));
  }
  std::vector<BackgroundCall> waiters;
  for (int i = 0; i < kWaiters; ++i) {
    waiters.emplace_back([shared, push] {
      int item = 0;
      bool served = false;
      const int64_t lasted = MicrosecondsOf([&] {
        served = push ? shared->queue.Push(item, kTimeoutMs) : shared->queue.Pop(item, kTimeoutMs);
      });
      if (!served) ++shared->refused;
      if (!served && lasted < kTimeoutMs * 1000) ++shared->early;
      ++shared->returned;
    });
  }
  int item = 0;
  while (shared->returned < kWaiters) {
    std::this_thread::sleep_for(milliseconds(30));
    if (push) {
      static_cast<void>(shared->queue.Pop(item, -1));
    } else {
      static_cast<void>(shared->queue.Push(item, -1));
    }
  }
  // If notifications moved the deadlines, all threads would have succeeded.
  EXPECT_GT(shared->refused, 0);
  EXPECT_EQ(shared->early, 0);
}

TEST(Queue, PopDeadline) { ExpectDeadlinesStandUnderTraffic(false); }

TEST(Queue, PushDeadline) { ExpectDeadlinesStandUnderTraffic(true); }

TEST(Queue, ClosedDeadline) {
  for (const bool push : {false, true}) {
    SCOPED_TRACE(push ? "Push" : "Pop");
    const auto queue = MakeQueue<int>(1);
    queue->Close();
    const auto lasted = std::make_shared<std::atomic<int64_t>>(0);
    BackgroundCall call([=] {
      int item = 0;
      *lasted = MicrosecondsOf(
          [&] { static_cast<void>(push ? queue->Push(item, 300) : queue->Pop(item, 300)); });
    });
    bool returned = false;
    for (int i = 0; i < 2000 && !returned; ++i) {
      queue->Close();  // wakes all waiting threads
      returned = call.ReturnsWithin(milliseconds(10));
    }
    EXPECT_TRUE(returned) << "every wake-up moved the deadline";
    ASSERT_TRUE(call.ReturnsWithin());
    EXPECT_GE(*lasted, 300000);
  }
}

// ---- calls made under the lock ----

// An element that reports each operation on it.
class Hooked {
 public:
  struct Hooks {
    std::function<void()> copied;
    std::function<void()> moved;
    std::function<void()> destroyed;
  };

  explicit Hooked(std::shared_ptr<Hooks> target, int number = 0)
      : hooks(std::move(target)), value(number) {}
  Hooked(const Hooked& other) : hooks(other.hooks), value(other.value) { Run(hooks->copied); }
  Hooked& operator=(const Hooked&) = delete;
  Hooked& operator=(Hooked&& other) {
    Run(hooks->moved);
    value = other.value;
    return *this;
  }
  ~Hooked() { Run(hooks->destroyed); }

  int Value() const { return value; }

 private:
  static void Run(const std::function<void()>& hook) {
    if (hook) hook();
  }

  std::shared_ptr<Hooks> hooks;
  int value;
};

TEST(Queue, LateElement) {
  const auto hooks = std::make_shared<Hooked::Hooks>();
  const auto queue = MakeQueue<Hooked>(1);
  const auto copying = std::make_shared<Gate>();
  const auto goOn = std::make_shared<Gate>();
  const tarsio_test::OpenOnExit guard{goOn};
  hooks->copied = [=] {
    copying->Open();
    goOn->Wait();
  };
  const auto result = std::make_shared<std::atomic<int>>(0);
  const auto otherHooks = std::make_shared<Hooked::Hooks>();
  BackgroundCall pop([=] {
    Hooked item(otherHooks);
    *result = queue->Pop(item, 1000) ? item.Value() : -1;
  });
  EXPECT_TRUE(pop.StaysBlocked(milliseconds(50)));
  BackgroundCall push([=] {
    static_cast<void>(queue->Push(Hooked(hooks, 9), -1));
  });  // holds the lock during the copy
  ASSERT_TRUE(copying->WaitFor());
  EXPECT_TRUE(pop.StaysBlocked(milliseconds(1300)));
  goOn->Open();
  ASSERT_TRUE(push.ReturnsWithin());
  ASSERT_TRUE(pop.ReturnsWithin());
  EXPECT_EQ(*result, 9);
}

TEST(Queue, TimeoutAfterLock) {
  for (const bool push : {false, true}) {
    SCOPED_TRACE(push ? "Push" : "Pop");
    const auto plain = std::make_shared<Hooked::Hooks>();
    const auto queue = MakeQueue<Hooked>(1);
    if (push) {
      ASSERT_TRUE(queue->Push(Hooked(plain), -1));
    }
    // Another thread holds the lock and changes nothing.
    const auto hooks = std::make_shared<Hooked::Hooks>();
    const auto locked = std::make_shared<Gate>();
    const auto goOn = std::make_shared<Gate>();
    const tarsio_test::OpenOnExit guard{goOn};
    hooks->copied = hooks->moved = [=] {
      locked->Open();
      goOn->Wait();
      throw std::runtime_error("no change");
    };
    BackgroundCall other([=] {
      Hooked item(hooks);
      EXPECT_THROW(static_cast<void>(push ? queue->Pop(item, -1) : queue->Push(item, -1)),
                   std::runtime_error);
    });
    ASSERT_TRUE(locked->WaitFor());

    const auto end = std::make_shared<system_clock::time_point>();
    BackgroundCall call([=] {
      Hooked item(plain);
      EXPECT_FALSE(push ? queue->Push(item, 300) : queue->Pop(item, 300));
      *end = system_clock::now();
    });
    EXPECT_TRUE(call.StaysBlocked(milliseconds(500)));
    const auto released = system_clock::now();
    goOn->Open();
    ASSERT_TRUE(call.ReturnsWithin());
    EXPECT_GE(*end - released, milliseconds(300));
    EXPECT_TRUE(other.ReturnsWithin());
  }
}

// Checks whether Size() blocks on another thread. The call returns once the lock is released.
template <typename T>
class LockProbe {
 public:
  explicit LockProbe(std::shared_ptr<BlockingQueue<T>> target) : queue(std::move(target)) {}

  // Runs the check on the thread that may hold the lock.
  void Run() {
    calls.emplace_back([queue = queue] { queue->Size(); });
    if (calls.back().StaysBlocked(milliseconds(150))) ++held;
  }
  // Expects `times` checks, all of them blocked.
  void ExpectHeldEveryTime(size_t times) {
    EXPECT_EQ(calls.size(), times);
    EXPECT_EQ(held, times);
    for (BackgroundCall& call : calls) EXPECT_TRUE(call.ReturnsWithin());
  }

 private:
  const std::shared_ptr<BlockingQueue<T>> queue;
  std::vector<BackgroundCall> calls;
  size_t held = 0;
};

TEST(Queue, PushCopiesLocked) {
  const auto hooks = std::make_shared<Hooked::Hooks>();
  const auto queue = MakeQueue<Hooked>(2);
  LockProbe<Hooked> probe(queue);
  const Hooked item(hooks);
  hooks->copied = [&] { probe.Run(); };
  EXPECT_TRUE(queue->Push(item, 0));
  hooks->copied = nullptr;
  probe.ExpectHeldEveryTime(1);
}

TEST(Queue, PopMovesLocked) {
  const auto hooks = std::make_shared<Hooked::Hooks>();
  const auto queue = MakeQueue<Hooked>(2);
  LockProbe<Hooked> probe(queue);
  Hooked item(hooks);
  EXPECT_TRUE(queue->Push(item, 0));
  hooks->moved = hooks->destroyed = [&] { probe.Run(); };
  EXPECT_TRUE(queue->Pop(item, 0));
  hooks->moved = hooks->destroyed = nullptr;
  probe.ExpectHeldEveryTime(2);
}

TEST(Queue, CloseLocked) {
  const auto hooks = std::make_shared<Hooked::Hooks>();
  const auto queue = MakeQueue<Hooked>(3);
  LockProbe<Hooked> probe(queue);
  const Hooked item(hooks);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(queue->Push(item, 0));
  hooks->destroyed = [&] { probe.Run(); };
  queue->Close();
  hooks->destroyed = nullptr;
  probe.ExpectHeldEveryTime(3);
  EXPECT_EQ(queue->Size(), 0U);
}

// ---- reports ----

// A sink that runs a callback.
class CallingLogger : public tarsio::Logger {
 public:
  explicit CallingLogger(std::function<void()> target) : call(std::move(target)) {}
  void DoOutput(const char* /*line*/) override { call(); }

  // Installs the sink as long as the object lives.
  class Installed {
   public:
    explicit Installed(std::function<void()> call) {
      tarsio::Log::GetInstance().SetLogger(std::make_unique<CallingLogger>(std::move(call)));
      tarsio::Log::GetInstance().SetLevel(tarsio::LOG_LEVEL_WARN);
    }
    Installed(const Installed&) = delete;
    Installed& operator=(const Installed&) = delete;
    ~Installed() {
      tarsio::Log::GetInstance().SetLevel(tarsio::LOG_LEVEL_ERROR);
      tarsio::Log::GetInstance().SetLogger(std::make_unique<tarsio::Logger>());
    }
  };

 private:
  const std::function<void()> call;
};

TEST(Queue, ReportLocked) {
  const auto queue = MakeQueue<int>(0);
  LockProbe<int> probe(queue);
  const CallingLogger::Installed logger([&] { probe.Run(); });
  EXPECT_FALSE(queue->Push(1, -1));
  EXPECT_FALSE(queue->Push(1, 1));
  probe.ExpectHeldEveryTime(2);
}

TEST(Queue, ThrowingSink) {
  const auto queue = MakeQueue<int>(1, {4});
  {
    const CallingLogger::Installed logger([] { throw std::runtime_error("sink"); });
    EXPECT_THROW(static_cast<void>(queue->Push(1, -1)), std::runtime_error);
  }
  BackgroundCall size([queue] { queue->Size(); });
  ASSERT_TRUE(size.ReturnsWithin());
  EXPECT_THAT(PopAll(*queue), ElementsAre(4));
}

TEST(Queue, RefusedPushLogs) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_WARN);
  size_t reports = 0;
  for (const HopelessCase& row : HopelessCases()) {
    if (!row.push) continue;
    for (const int timeoutMs : {-1, 5}) {
      SCOPED_TRACE(std::string(row.name) + ", " + std::to_string(timeoutMs));
      EXPECT_FALSE(row.Call(*row.Make(), timeoutMs));
      ++reports;
      ASSERT_EQ(records->All().size(), reports);
      const LogRecord record = records->All().back();
      EXPECT_EQ(record.level, tarsio::LOG_LEVEL_WARN);
      EXPECT_EQ(record.file, "include/common/blocking_queue.h");
      EXPECT_EQ(record.line, 86);
      EXPECT_EQ(record.function, "tarsio::BlockingQueue<int>::Push");
      EXPECT_THAT(record.text, EndsWith("][WARN][blocking_queue.h:86] queue full or timeout"));
    }
  }
}

TEST(Queue, ReportOfTasks) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_WARN);
  BlockingQueue<Task> queue(0);
  EXPECT_FALSE(queue.Push([] {}, -1));
  ASSERT_EQ(records->All().size(), 1U);
  EXPECT_EQ(records->All()[0].function,
            "tarsio::BlockingQueue<class std::function<void __cdecl(void)> >::Push");
}

struct NamedElement {};

template <typename T>
std::string FunctionOfTheReport(const T& item) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_WARN);
  static_cast<void>(BlockingQueue<T>(0).Push(item, -1));
  return records->All().size() == 1 ? records->All()[0].function : "";
}

TEST(Queue, OtherTypes) {
  EXPECT_EQ(FunctionOfTheReport<int>(1), "tarsio::BlockingQueue<int>::Push");
  EXPECT_EQ(FunctionOfTheReport<double>(1), "tarsio::BlockingQueue<double>::Push");
  const struct {
    std::string function;
    const char* part;
  } rows[] = {
      {FunctionOfTheReport<NamedElement>({}), "NamedElement"},
      {FunctionOfTheReport<std::string>(""), "string"},
      {FunctionOfTheReport<std::shared_ptr<NamedElement>>(nullptr), "NamedElement"},
      {FunctionOfTheReport<std::function<int(char)>>([](char) { return 0; }), "int"},
      {FunctionOfTheReport<int(*)[3]>(nullptr), "[3]"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.part);
    EXPECT_THAT(row.function, StartsWith("tarsio::BlockingQueue<"));
    EXPECT_THAT(row.function, HasSubstr(row.part));
    EXPECT_THAT(row.function, EndsWith(">::Push"));
    EXPECT_THAT(row.function, testing::Not(HasSubstr("T =")));
    EXPECT_THAT(row.function, testing::Not(HasSubstr(";")));
  }
}

TEST(Queue, SuccessIsSilent) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  BlockingQueue<int> queue(1);
  int item = 0;
  EXPECT_TRUE(queue.Push(1, -1));
  EXPECT_TRUE(queue.Pop(item, -1));
  EXPECT_FALSE(queue.Pop(item, -1));
  EXPECT_FALSE(queue.Pop(item, 5));
  queue.Close();
  EXPECT_FALSE(queue.Pop(item, -1));
  EXPECT_FALSE(queue.Pop(item, 5));
  EXPECT_THAT(records->All(), IsEmpty());
}

// Runs in the destructor of a static object that was constructed before the queue's first report.
void ReportWhileTheProcessEnds() {
  static const auto records = LogRecords::Install(tarsio::LOG_LEVEL_WARN);
  static const struct Last {
    ~Last() {
      static_cast<void>(BlockingQueue<Task>(0).Push([] {}, -1));
      const auto all = records->All();
      const bool same = all.size() == 2 && all[0].function == all[1].function;
      std::_Exit(same ? 7 : 1);
    }
  } last;
  static_cast<void>(BlockingQueue<Task>(0).Push([] {}, -1));
  std::exit(0);
}

TEST(QueueDeathTest, ReportAtExit) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(ReportWhileTheProcessEnds(), testing::ExitedWithCode(7), "");
}

// A separate process: no other test may have set the threshold.
TEST(QueueDeathTest, DroppedReport) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto push = [](int level) {
    const tarsio_test::CoutRecorder recorder;
    if (level >= 0) tarsio::Log::GetInstance().SetLevel(static_cast<tarsio::LOG_LEVEL>(level));
    static_cast<void>(BlockingQueue<int>(0).Push(1, -1));
    std::exit(recorder.Events().empty() ? 0 : 1);
  };
  EXPECT_EXIT(push(-1), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(push(tarsio::LOG_LEVEL_ERROR), testing::ExitedWithCode(0), "");
  EXPECT_EXIT(push(tarsio::LOG_LEVEL_WARN), testing::ExitedWithCode(1), "");
}

// ---- elements ----

// Counts copies, moves and live objects.
struct Counters {
  int copies = 0;
  int moves = 0;
  int alive = 0;
};

class Counted {
 public:
  Counted(Counters* target, std::string content) : counters(target), text(std::move(content)) {
    ++counters->alive;
  }
  Counted(const Counted& other) : counters(other.counters), text(other.text) {
    ++counters->copies;
    ++counters->alive;
  }
  Counted& operator=(const Counted& other) {
    text = other.text;
    ++counters->copies;
    return *this;
  }
  Counted(Counted&& other) noexcept : counters(other.counters), text(std::move(other.text)) {
    ++counters->moves;
    ++counters->alive;
  }
  Counted& operator=(Counted&& other) noexcept {
    text = std::move(other.text);
    ++counters->moves;
    return *this;
  }
  ~Counted() { --counters->alive; }

  const std::string& Text() const { return text; }

 private:
  Counters* counters;
  std::string text;
};

TEST(Queue, CopyAndMove) {
  Counters counters;
  BlockingQueue<Counted> queue(2);
  {
    const Counted original(&counters, "content");
    EXPECT_TRUE(queue.Push(original, 0));
    EXPECT_EQ(original.Text(), "content");
    EXPECT_EQ(counters.copies, 1);
    EXPECT_EQ(counters.moves, 0);
    EXPECT_EQ(counters.alive, 2);
  }
  Counted item(&counters, "former");
  EXPECT_TRUE(queue.Pop(item, 0));
  EXPECT_EQ(item.Text(), "content");
  EXPECT_EQ(counters.copies, 1);
  EXPECT_EQ(counters.moves, 1);
  EXPECT_EQ(counters.alive, 1) << "the moved-from element is destroyed immediately";
}

TEST(Queue, RefusedPushNoCopy) {
  Counters counters;
  BlockingQueue<Counted> queue(0);
  const Counted item(&counters, "content");
  EXPECT_FALSE(queue.Push(item, -1));
  EXPECT_FALSE(queue.Push(item, 1));
  EXPECT_EQ(counters.copies, 0);
  EXPECT_EQ(counters.alive, 1);
}

TEST(Queue, PopReleases) {
  const auto former = std::make_shared<int>(1);
  const auto next = std::make_shared<int>(2);
  BlockingQueue<Task> queue(1);
  EXPECT_TRUE(queue.Push([next] {}, 0));
  EXPECT_EQ(next.use_count(), 2);
  Task item = [former] {};
  EXPECT_EQ(former.use_count(), 2);
  EXPECT_TRUE(queue.Pop(item, 0));
  EXPECT_EQ(former.use_count(), 1);
  EXPECT_EQ(next.use_count(), 2) << "moved, with one owner";
  item = nullptr;
  EXPECT_EQ(next.use_count(), 1);
}

TEST(Queue, FailedPop) {
  Counters counters;
  BlockingQueue<Counted> queue(1);
  Counted item(&counters, "mine");
  for (const bool closed : {false, true}) {
    SCOPED_TRACE(closed);
    if (closed) queue.Close();
    for (const int timeoutMs : {-1, 1, 30}) {
      EXPECT_FALSE(queue.Pop(item, timeoutMs));
      EXPECT_EQ(item.Text(), "mine");
    }
  }
  EXPECT_EQ(counters.copies, 0);
  EXPECT_EQ(counters.moves, 0);
}

// Records the address of its copy and counts self-assignments.
struct Findable {
  explicit Findable(Findable** target) : place(target) {}
  Findable(const Findable& other) : place(other.place) { *place = this; }
  Findable& operator=(Findable&& other) noexcept {
    place = other.place;
    ++Assignments();
    return *this;
  }
  static int& Assignments() {
    static int count = 0;
    return count;
  }

  Findable** place;
};

TEST(Queue, PopIntoFront) {
  BlockingQueue<Findable> queue(2);
  Findable* front = nullptr;
  EXPECT_TRUE(queue.Push(Findable(&front), 0));
  ASSERT_NE(front, nullptr);
  Findable::Assignments() = 0;
  EXPECT_TRUE(queue.Pop(*front, 0));
  EXPECT_EQ(Findable::Assignments(), 0);
  EXPECT_EQ(queue.Size(), 0U);
}

// Throws on copy or move while armed.
struct Explosive {
  Explosive(int number, const bool* trigger) : value(number), armed(trigger) {}
  Explosive(const Explosive& other) : value(other.value), armed(other.armed) {
    if (*armed) throw std::runtime_error("copy");
  }
  Explosive& operator=(Explosive&& other) {
    if (*armed) throw std::runtime_error("move");
    value = other.value;
    return *this;
  }

  int value;
  const bool* armed;
};

TEST(Queue, ThrowingCopy) {
  bool armed = false;
  const auto queue = MakeQueue<Explosive>(1000);
  for (int i = 0; i < 500; ++i) {
    armed = true;
    EXPECT_THROW(static_cast<void>(queue->Push(Explosive(-1, &armed), 0)), std::runtime_error);
    armed = false;
    ASSERT_EQ(queue->Size(), static_cast<uint64_t>(i));
    ASSERT_TRUE(queue->Push(Explosive(i, &armed), 0));
  }
  Explosive item(-1, &armed);
  for (int i = 0; i < 500; ++i) {
    ASSERT_TRUE(queue->Pop(item, -1));
    ASSERT_EQ(item.value, i);
  }
  EXPECT_FALSE(queue->Pop(item, -1));
}

TEST(Queue, ThrowingMove) {
  bool armed = false;
  const auto queue = MakeQueue<Explosive>(1);
  EXPECT_TRUE(queue->Push(Explosive(5, &armed), 0));
  Explosive item(-1, &armed);
  armed = true;
  EXPECT_THROW(static_cast<void>(queue->Pop(item, 0)), std::runtime_error);
  armed = false;
  BackgroundCall size([queue] { queue->Size(); });
  ASSERT_TRUE(size.ReturnsWithin());
  EXPECT_EQ(queue->Size(), 1U);
  EXPECT_TRUE(queue->Pop(item, -1));
  EXPECT_EQ(item.value, 5);
}

// Every change wakes all threads, so a call that throws delays no other thread.
TEST(Queue, ThrowingPushRoom) {
  static const bool throws = true;
  static const bool succeeds = false;
  const auto queue = MakeQueue<Explosive>(1);
  ASSERT_TRUE(queue->Push(Explosive(1, &succeeds), 0));
  std::vector<BackgroundCall> throwing;
  for (int i = 0; i < 4; ++i) {
    throwing.emplace_back([queue] {
      EXPECT_THROW(static_cast<void>(queue->Push(Explosive(2, &throws), 0)), std::runtime_error);
    });
    EXPECT_TRUE(throwing.back().StaysBlocked(milliseconds(20)));
  }
  BackgroundCall last([queue] { static_cast<void>(queue->Push(Explosive(3, &succeeds), 0)); });
  EXPECT_TRUE(last.StaysBlocked(milliseconds(50)));
  Explosive item(0, &succeeds);
  EXPECT_TRUE(queue->Pop(item, -1));
  ASSERT_TRUE(last.ReturnsWithin());
  EXPECT_TRUE(queue->Pop(item, -1));
  EXPECT_EQ(item.value, 3);
  for (BackgroundCall& call : throwing) EXPECT_TRUE(call.ReturnsWithin());
}

TEST(Queue, ThrowingPopSkips) {
  static const bool throws = true;
  static const bool succeeds = false;
  const auto queue = MakeQueue<Explosive>(1);
  std::vector<BackgroundCall> throwing;
  for (int i = 0; i < 4; ++i) {
    throwing.emplace_back([queue] {
      Explosive item(0, &throws);
      EXPECT_THROW(static_cast<void>(queue->Pop(item, 0)), std::runtime_error);
    });
    EXPECT_TRUE(throwing.back().StaysBlocked(milliseconds(20)));
  }
  const auto value = std::make_shared<std::atomic<int>>(0);
  BackgroundCall last([=] {
    Explosive item(0, &succeeds);
    static_cast<void>(queue->Pop(item, 0));
    *value = item.value;
  });
  EXPECT_TRUE(last.StaysBlocked(milliseconds(50)));
  EXPECT_TRUE(queue->Push(Explosive(3, &succeeds), -1));
  ASSERT_TRUE(last.ReturnsWithin());
  EXPECT_EQ(*value, 3);
  EXPECT_TRUE(queue->Push(Explosive(4, &succeeds), -1));
  for (BackgroundCall& call : throwing) EXPECT_TRUE(call.ReturnsWithin());
}

TEST(Queue, OutOfMemory) {
  BlockingQueue<int> queue(2000);
  int failures = 0;
  for (int i = 0; i < 2000; ++i) {
    bool pushed = false;
    try {
      const AllocationWatch watch(0);
      pushed = queue.Push(i, -1);
    } catch (const std::bad_alloc&) {
      ++failures;
    }
    if (pushed) continue;
    ASSERT_EQ(queue.Size(), static_cast<uint64_t>(i));
    ASSERT_TRUE(queue.Push(i, -1));
  }
  EXPECT_EQ(failures > 0, tarsio_test::kAllocationsAreSeen);
  const std::vector<int> items = PopAll(queue);
  ASSERT_EQ(items.size(), 2000U);
  for (int i = 0; i < 2000; ++i) ASSERT_EQ(items[static_cast<size_t>(i)], i);
}

TEST(Queue, Destructor) {
  const auto token = std::make_shared<int>(0);
  int runs = 0;
  class Derived : public BlockingQueue<Task> {
   public:
    Derived(bool* target) : BlockingQueue<Task>(4), destroyed(target) {}
    ~Derived() override { *destroyed = true; }

   private:
    bool* const destroyed;
  };
  bool destroyed = false;
  std::unique_ptr<BlockingQueue<Task>> queue = std::make_unique<Derived>(&destroyed);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(queue->Push([token, &runs] { ++runs; }, 0));
  EXPECT_EQ(token.use_count(), 4);
  queue.reset();
  EXPECT_TRUE(destroyed);
  EXPECT_EQ(token.use_count(), 1);
  EXPECT_EQ(runs, 0);
}

// Members of the same names in a derived class must not override those of the base.
TEST(Queue, Virtual) {
  class Derived : public BlockingQueue<int> {
   public:
    Derived() : BlockingQueue<int>(1) {}
    bool Push(const int& /*item*/, int /*timeoutMs*/) { return false; }
    bool Pop(int& /*item*/, int /*timeoutMs*/) { return false; }
    void Close() {}
    uint64_t Size() { return 99; }
  };
  Derived derived;
  BlockingQueue<int>& queue = derived;
  int item = 0;
  EXPECT_TRUE(queue.Push(5, -1));
  EXPECT_EQ(queue.Size(), 1U);
  EXPECT_TRUE(queue.Pop(item, -1));
  EXPECT_EQ(item, 5);
  queue.Close();
  EXPECT_FALSE(queue.Push(5, -1));
}

// ---- closing ----

TEST(Queue, CloseDiscards) {
  const auto token = std::make_shared<int>(0);
  int runs = 0;
  BlockingQueue<Task> queue(10);
  for (int i = 0; i < 7; ++i) EXPECT_TRUE(queue.Push([token, &runs] { ++runs; }, 0));
  EXPECT_EQ(token.use_count(), 8);
  queue.Close();
  EXPECT_EQ(queue.Size(), 0U);
  EXPECT_EQ(token.use_count(), 1);
  EXPECT_EQ(runs, 0);
}

TEST(Queue, SecondClose) {
  BlockingQueue<int> queue(2);
  EXPECT_TRUE(queue.Push(1, 0));
  for (int i = 0; i < 3; ++i) {
    queue.Close();
    EXPECT_EQ(queue.Size(), 0U);
    EXPECT_FALSE(queue.Push(2, -1));
    int item = 0;
    EXPECT_FALSE(queue.Pop(item, -1));
  }
}

// Waiting threads are woken but do not return early (by design).
TEST(Queue, CloseWakesNoThread) {
  struct Waiter {
    bool push;
    int timeoutMs;
    int64_t lasted = 0;
    bool result = true;
  };
  // Consumers wait on the empty queue, producers on the full one.
  const auto empty = MakeQueue<int>(2);
  const auto full = MakeQueue<int>(2, {1, 2});
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_WARN);
  std::vector<std::shared_ptr<Waiter>> waiters;
  std::vector<BackgroundCall> calls;
  for (const bool push : {false, true}) {
    for (const int timeoutMs : {500, 700, 900}) {
      waiters.push_back(std::make_shared<Waiter>(Waiter{push, timeoutMs}));
      calls.emplace_back([=, waiter = waiters.back()] {
        int item = 0;
        waiter->lasted = MicrosecondsOf([&] {
          waiter->result = push ? full->Push(item, timeoutMs) : empty->Pop(item, timeoutMs);
        });
      });
    }
  }
  BackgroundCall popForEver([=] {
    int item = 0;
    static_cast<void>(empty->Pop(item, 0));
  });
  BackgroundCall pushForEver([=] { static_cast<void>(full->Push(1, 0)); });
  EXPECT_TRUE(popForEver.StaysBlocked(milliseconds(100)));
  EXPECT_TRUE(pushForEver.StaysBlocked(milliseconds(100)));

  empty->Close();
  full->Close();
  EXPECT_EQ(full->Size(), 0U) << "the elements are destroyed immediately";
  for (size_t i = 0; i < calls.size(); ++i) {
    SCOPED_TRACE((waiters[i]->push ? "Push " : "Pop ") + std::to_string(waiters[i]->timeoutMs));
    ASSERT_TRUE(calls[i].ReturnsWithin());
    EXPECT_FALSE(waiters[i]->result);
    EXPECT_GE(waiters[i]->lasted, waiters[i]->timeoutMs * 1000);
  }
  EXPECT_TRUE(popForEver.StaysBlocked());
  EXPECT_TRUE(pushForEver.StaysBlocked());
  EXPECT_EQ(records->All().size(), 3U) << "one for each refused Push";
}

// ---- under load ----

TEST(QueueLoad, MillionElements) {
  constexpr uint64_t kProducers = 4;
  constexpr uint64_t kConsumers = 4;
  constexpr uint64_t kPerProducer = 250000;
  constexpr uint64_t kEnd = UINT64_MAX;
  BlockingQueue<uint64_t> queue(1000);
  std::vector<std::vector<uint64_t>> taken(kConsumers);
  std::vector<std::thread> consumers;
  for (auto& mine : taken) {
    mine.reserve(kProducers * kPerProducer / 2);
    consumers.emplace_back([&queue, &mine] {
      for (uint64_t item = 0;;) {
        if (!queue.Pop(item, mine.size() % 16 == 0 ? 1000 : 0)) continue;
        if (item == kEnd) return;
        mine.push_back(item);
      }
    });
  }
  std::vector<std::thread> producers;
  for (uint64_t producer = 0; producer < kProducers; ++producer) {
    producers.emplace_back([&queue, producer] {
      for (uint64_t i = 0; i < kPerProducer; ++i) {
        const uint64_t item = producer * kPerProducer + i;
        while (!queue.Push(item, i % 16 == 0 ? 1000 : 0)) continue;
      }
    });
  }
  for (std::thread& producer : producers) producer.join();
  for (uint64_t i = 0; i < kConsumers; ++i) EXPECT_TRUE(queue.Push(kEnd, 0));
  for (std::thread& consumer : consumers) consumer.join();
  EXPECT_EQ(queue.Size(), 0U);

  std::vector<int> times(kProducers * kPerProducer);
  for (const auto& mine : taken) {
    std::vector<uint64_t> next(kProducers);  // the smallest value expected from each producer
    for (const uint64_t item : mine) {
      ASSERT_LT(item, times.size());
      ++times[item];
      ASSERT_GE(item % kPerProducer, next[item / kPerProducer]) << "out of order";
      next[item / kPerProducer] = item % kPerProducer + 1;
    }
  }
  EXPECT_EQ(std::count(times.begin(), times.end(), 1), static_cast<int64_t>(times.size()))
      << "lost or duplicated";
}

TEST(QueueLoad, ProducerOrder) {
  constexpr int kProducers = 4;
  constexpr int kPerProducer = 5000;
  BlockingQueue<int> queue(3);
  std::vector<std::thread> producers;
  for (int producer = 0; producer < kProducers; ++producer) {
    producers.emplace_back([&queue, producer] {
      for (int i = 0; i < kPerProducer; ++i)
        static_cast<void>(queue.Push(producer * kPerProducer + i, 0));
    });
  }
  std::vector<int> next(kProducers);
  for (int i = 0; i < kProducers * kPerProducer; ++i) {
    int item = 0;
    EXPECT_TRUE(queue.Pop(item, 0));
    const size_t producer = static_cast<size_t>(item / kPerProducer);
    EXPECT_EQ(item % kPerProducer, next[producer]);
    ++next[producer];
  }
  for (std::thread& producer : producers) producer.join();
}

TEST(QueueLoad, AllOperations) {
  tarsio::Log::GetInstance().SetLevel(tarsio::LOG_LEVEL_ERROR);
  for (int round = 0; round < 20; ++round) {
    SCOPED_TRACE(round);
    const auto token = std::make_shared<int>(0);
    BlockingQueue<std::shared_ptr<int>> queue(5);
    std::atomic<bool> stop{false};
    std::atomic<int> sizesTooLarge{0};
    std::atomic<int64_t> pushed{0};
    std::atomic<int64_t> popped{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
      threads.emplace_back([&, i] {
        while (!stop) {
          if (queue.Push(token, i == 0 ? 1 : -1)) ++pushed;
        }
      });
      threads.emplace_back([&, i] {
        std::shared_ptr<int> item;
        while (!stop) {
          if (queue.Pop(item, i == 0 ? 1 : -1)) ++popped;
        }
      });
      threads.emplace_back([&] {
        while (!stop) {
          if (queue.Size() > 5) ++sizesTooLarge;
        }
      });
    }
    std::this_thread::sleep_for(milliseconds(20));
    std::thread closer([&] { queue.Close(); });
    queue.Close();
    closer.join();
    EXPECT_EQ(queue.Size(), 0U);
    const int64_t pushedAtClose = pushed;
    std::this_thread::sleep_for(milliseconds(5));
    stop = true;
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(queue.Size(), 0U);
    EXPECT_LE(pushed - pushedAtClose, 2) << "nothing enters a closed queue";
    EXPECT_GE(pushed - popped, 0);
    EXPECT_LE(pushed - popped, 5) << "only elements in the queue at Close() are discarded";
    EXPECT_EQ(sizesTooLarge, 0);
    EXPECT_EQ(token.use_count(), 1) << "every element is destroyed";
  }
}

}  // namespace
