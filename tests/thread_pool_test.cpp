#include "common/thread_pool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>
#include <numeric>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <type_traits>

#include "support/allocations.h"
#include "support/background_call.h"
#include "support/events.h"
#include "support/gate.h"
#include "support/private_member.h"
#include "support/recording_logger.h"
#include "support/thread_end.h"
#include "support/thread_starts.h"
#include "support/thread_traits.h"

namespace tarsio_test {

EXPOSE_PRIVATE(PoolName, &tarsio::ThreadPool::name);
EXPOSE_PRIVATE(PoolWorkersMutex, &tarsio::ThreadPool::workersMutex);
EXPOSE_PRIVATE(PoolWorkers, &tarsio::ThreadPool::workers);
EXPOSE_PRIVATE(PoolWaitMutex, &tarsio::ThreadPool::waitMutex);
EXPOSE_PRIVATE(PoolAddWorker, &tarsio::ThreadPool::AddWorker);

}  // namespace tarsio_test

namespace {

using std::chrono::milliseconds;
using std::chrono::system_clock;
using tarsio::ThreadPool;
using tarsio_test::AllocationWatch;
using tarsio_test::BackgroundCall;
using tarsio_test::Events;
using tarsio_test::Gate;
using tarsio_test::kTestTimeout;
using tarsio_test::LogRecord;
using tarsio_test::LogRecords;
using tarsio_test::RefuseThreadStarts;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

using Task = std::function<void()>;
using PoolPtr = std::shared_ptr<ThreadPool>;

// ---- declarations ----

static_assert(std::is_constructible<ThreadPool, std::string, uint64_t, uint64_t, uint64_t>::value,
              "name, limit, reserved number, capacity");
static_assert(!std::is_constructible<ThreadPool, std::string, uint64_t, uint64_t>::value &&
                  !std::is_constructible<ThreadPool, std::string, uint64_t>::value &&
                  !std::is_constructible<ThreadPool, std::string>::value &&
                  !std::is_default_constructible<ThreadPool>::value,
              "no default arguments");
static_assert(!std::is_copy_constructible<ThreadPool>::value &&
                  !std::is_copy_assignable<ThreadPool>::value,
              "a pool is not copied");
static_assert(std::has_virtual_destructor<ThreadPool>::value, "hosts derive from it");
static_assert(std::is_base_of<std::enable_shared_from_this<ThreadPool>, ThreadPool>::value,
              "a pool is owned by shared pointers");
static_assert(
    std::is_same<std::underlying_type<ThreadPool::SHUTDOWN_METHOD>::type, int32_t>::value &&
        std::is_convertible<ThreadPool::SHUTDOWN_METHOD, int>::value,
    "unscoped, 32 bits wide: any integer is a valid method");
static_assert(ThreadPool::SHUTDOWN_NOW == 0 && ThreadPool::SHUTDOWN_WAIT == 1 &&
                  ThreadPool::SHUTDOWN_DRAIN == 2,
              "fixed values");
static_assert(
    std::is_same<decltype(std::declval<ThreadPool>().SubmitTask(std::declval<Task&>())),
                 bool>::value &&
        std::is_same<decltype(std::declval<ThreadPool>().SubmitTask(Task())), bool>::value,
    "an lvalue and a temporary");
static_assert(
    std::is_same<decltype(std::declval<const ThreadPool>().GetName()), std::string>::value,
    "a copy");
static_assert(
    std::is_same<decltype(&ThreadPool::GetPendingTaskNumber), uint64_t (ThreadPool::*)()>::value &&
        std::is_same<decltype(&ThreadPool::GetRunningThreadNumber),
                     uint64_t (ThreadPool::*)()>::value,
    "numbers are 64 bits wide");

// Whether each member is accessible here.
template <typename T, typename = void>
struct AddWorkerIsPublic : std::false_type {};
template <typename T>
struct AddWorkerIsPublic<T, std::void_t<decltype(&T::AddWorker)>> : std::true_type {};
template <typename T, typename = void>
struct RemoveWorkerIsPublic : std::false_type {};
template <typename T>
struct RemoveWorkerIsPublic<T, std::void_t<decltype(&T::RemoveWorker)>> : std::true_type {};
template <typename T, typename = void>
struct RunTaskIsPublic : std::false_type {};
template <typename T>
struct RunTaskIsPublic<T, std::void_t<decltype(&T::RunTask)>> : std::true_type {};
static_assert(!AddWorkerIsPublic<ThreadPool>::value && !RemoveWorkerIsPublic<ThreadPool>::value &&
                  !RunTaskIsPublic<ThreadPool>::value,
              "the pool manages its workers");

constexpr auto kMethodWithoutName = static_cast<ThreadPool::SHUTDOWN_METHOD>(7);

// An idle worker retires after this time.
constexpr milliseconds kIdleLimit{1000};

PoolPtr MakePool(uint64_t limit, uint64_t capacity = 1000, uint64_t reserved = 0) {
  return std::make_shared<ThreadPool>("test", limit, reserved, capacity);
}

// Keeps `object` until the process ends: a thread that never returns may use it.
template <typename T>
void KeepUntilExit(std::shared_ptr<T> object) {
  static auto* const kept = new std::vector<std::shared_ptr<T>>;
  kept->push_back(std::move(object));
}

// A task that signals its start and then blocks until Release(), at the latest until the end of the
// test.
class HeldTask {
 public:
  HeldTask() = default;
  HeldTask(const HeldTask&) = delete;
  HeldTask& operator=(const HeldTask&) = delete;
  ~HeldTask() { Release(); }

  void SubmitTo(const PoolPtr& pool) const {
    pool->SubmitTask([state = state] {
      state->started.Open();
      state->release.Wait();
      state->thread = std::this_thread::get_id();
      state->end = system_clock::now();
      state->finished.Open();
    });
  }
  // Submits the task and returns whether a worker has started it.
  bool StartIn(const PoolPtr& pool) const {
    SubmitTo(pool);
    return StartsWithin(kTestTimeout);
  }
  bool StartsWithin(milliseconds limit) const { return state->started.WaitFor(limit); }
  void Release() const { state->release.Open(); }
  bool Finishes() const { return state->finished.WaitFor(); }
  bool IsFinished() const { return state->finished.IsOpen(); }
  // Valid once the task has finished.
  system_clock::time_point End() const { return state->end; }
  std::thread::id Thread() const { return state->thread; }

 private:
  struct State {
    Gate started;
    Gate release;
    Gate finished;
    std::thread::id thread;
    system_clock::time_point end;
  };
  const std::shared_ptr<State> state = std::make_shared<State>();
};

// Runs a task and waits until it has run.
bool RunOne(const PoolPtr& pool, const Task& task) {
  const auto done = std::make_shared<Gate>();
  pool->SubmitTask([done, task] {
    task();
    done->Open();
  });
  return done->WaitFor();
}
bool RunOne(const PoolPtr& pool) {
  return RunOne(pool, [] {});
}

// Returns the number of calls that the current thread has made, including this one.
int CallsOfThisThread() {
  thread_local int calls = 0;
  return ++calls;
}

void OpenWhenThisThreadEnds(const std::shared_ptr<Gate>& gate) {
  tarsio_test::WhenThisThreadEnds([gate] { gate->Open(); });
}

// Returns an object that opens `gate` once all copies of it are destroyed.
std::shared_ptr<void> MakeToken(const std::shared_ptr<Gate>& gate) {
  return {nullptr, [gate](void*) { gate->Open(); }};
}

// Waits for a `call` that waits for an empty queue. If it missed the notification of the last task,
// the next task wakes it (by design).
bool ReturnsAtTheNextTask(BackgroundCall& call, const PoolPtr& pool) {
  for (int i = 0; i < 10; ++i) {
    if (call.ReturnsWithin(milliseconds(4000))) return true;
    pool->SubmitTask([] {});
  }
  return false;
}

// ---- name and construction ----

TEST(ThreadPool, Lazy) {
  for (const uint64_t reserved : {uint64_t{0}, uint64_t{3}, UINT64_MAX}) {
    SCOPED_TRACE(reserved);
    const PoolPtr pool = MakePool(4, 10, reserved);
    EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
    EXPECT_EQ(pool->GetPendingTaskNumber(), 0U);
  }
}

TEST(ThreadPool, AnyArgument) {
  for (const uint64_t value : {uint64_t{0}, uint64_t{1}, UINT64_MAX}) {
    SCOPED_TRACE(value);
    const auto pool = std::make_shared<ThreadPool>("", value, value, value);
    EXPECT_EQ(pool->GetName(), "");
    EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
    if (value > 0) {
      EXPECT_TRUE(RunOne(pool));
    }
  }
}

TEST(ThreadPool, SetName) {
  const auto pool = std::make_shared<ThreadPool>("readers", 1, 0, 4);
  EXPECT_EQ(pool->GetName(), "readers");
  ASSERT_TRUE(RunOne(pool));
  pool->SetName("writers, with a name too long for any small buffer");
  EXPECT_EQ(pool->GetName(), "writers, with a name too long for any small buffer");
  pool->SetName((*pool).*Reach(tarsio_test::PoolName()));  // the member itself
  EXPECT_EQ(pool->GetName(), "writers, with a name too long for any small buffer");
  ASSERT_TRUE(RunOne(pool)) << "a worker with the old name still runs tasks";
  pool->SetName("");
  EXPECT_EQ(pool->GetName(), "");
}

TEST(ThreadPool, Reserved) {
  for (const uint64_t reserved : {uint64_t{0}, uint64_t{1}, uint64_t{5}, UINT64_MAX}) {
    SCOPED_TRACE(reserved);
    const PoolPtr pool = MakePool(2, 10, reserved);
    const std::array<HeldTask, 3> tasks;
    ASSERT_TRUE(tasks[0].StartIn(pool));
    EXPECT_EQ(pool->GetRunningThreadNumber(), 1U);
    ASSERT_TRUE(tasks[1].StartIn(pool));
    tasks[2].SubmitTo(pool);
    EXPECT_EQ(pool->GetRunningThreadNumber(), 2U);
    EXPECT_EQ(pool->GetPendingTaskNumber(), 1U);
  }
}

// ---- submitting ----

TEST(ThreadPool, CopiesTask) {
  const PoolPtr pool = MakePool(0);
  const auto token = std::make_shared<int>(0);
  Task task = [token] {};
  EXPECT_EQ(token.use_count(), 2);
  EXPECT_TRUE(pool->SubmitTask(task));
  EXPECT_TRUE(pool->SubmitTask(task));
  EXPECT_EQ(token.use_count(), 4);
  EXPECT_TRUE(task != nullptr);
  EXPECT_EQ(pool->GetPendingTaskNumber(), 2U);
}

TEST(ThreadPool, CopiesAtSubmit) {
  const PoolPtr pool = MakePool(1);
  const HeldTask held;
  ASSERT_TRUE(held.StartIn(pool));
  const auto ran = std::make_shared<std::atomic<int>>(0);
  Task task = [ran] { *ran += 1; };
  EXPECT_TRUE(pool->SubmitTask(task));
  task = [ran] { *ran += 10; };
  EXPECT_TRUE(pool->SubmitTask(task));
  task = nullptr;
  held.Release();
  ASSERT_TRUE(RunOne(pool));
  EXPECT_EQ(*ran, 11);
}

TEST(ThreadPool, TemporaryTask) {
  const PoolPtr pool = MakePool(1);
  const auto runs = std::make_shared<std::atomic<int>>(0);
  EXPECT_TRUE(pool->SubmitTask([runs] { ++*runs; }));
  EXPECT_TRUE(pool->SubmitTask(Task([runs] { ++*runs; })));
  const auto lambda = [runs] { ++*runs; };
  EXPECT_TRUE(pool->SubmitTask(lambda));
  ASSERT_TRUE(RunOne(pool));
  EXPECT_EQ(*runs, 3);
}

TEST(ThreadPool, Fifo) {
  const PoolPtr pool = MakePool(1);
  const auto order = std::make_shared<std::vector<int>>();
  for (int i = 0; i < 500; ++i) pool->SubmitTask([order, i] { order->push_back(i); });
  ASSERT_TRUE(RunOne(pool));
  std::vector<int> expected(500);
  std::iota(expected.begin(), expected.end(), 0);
  EXPECT_EQ(*order, expected);
}

TEST(ThreadPool, DestroysTask) {
  const PoolPtr pool = MakePool(1);
  const HeldTask held;
  ASSERT_TRUE(held.StartIn(pool));
  const auto gone = std::make_shared<Gate>();
  const auto goneBefore = std::make_shared<std::atomic<bool>>(false);
  pool->SubmitTask([token = MakeToken(gone)] {});
  held.Release();
  ASSERT_TRUE(RunOne(pool, [=] { *goneBefore = gone->IsOpen(); }));
  EXPECT_TRUE(*goneBefore);
}

TEST(ThreadPool, Nested) {
  const PoolPtr pool = MakePool(2);
  const auto done = std::make_shared<Gate>();
  const std::weak_ptr<ThreadPool> weak = pool;
  pool->SubmitTask(
      [=] { weak.lock()->SubmitTask([=] { weak.lock()->SubmitTask([=] { done->Open(); }); }); });
  EXPECT_TRUE(done->WaitFor());
}

TEST(ThreadPool, ThrowingCopy) {
  struct Fragile {
    std::shared_ptr<bool> armed;
    explicit Fragile(std::shared_ptr<bool> trigger) : armed(std::move(trigger)) {}
    Fragile(const Fragile& other) : armed(other.armed) {
      if (*armed) throw std::runtime_error("copy");
    }
    void operator()() const {}
  };
  const PoolPtr pool = MakePool(1);
  const auto armed = std::make_shared<bool>(false);
  Task task = Fragile(armed);
  *armed = true;
  EXPECT_THROW(pool->SubmitTask(task), std::runtime_error);
  *armed = false;
  EXPECT_EQ(pool->GetPendingTaskNumber(), 0U);
  EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
  EXPECT_TRUE(RunOne(pool));
}

// ---- growing and shrinking ----

TEST(ThreadPool, Grows) {
  std::vector<uint64_t> numbers;
  system_clock::time_point begin;
  do {  // retry if a worker may have retired on a slow machine
    const PoolPtr pool = MakePool(3);
    numbers.clear();
    begin = system_clock::now();
    for (int i = 0; i < 6; ++i) {
      ASSERT_TRUE(RunOne(pool));
      std::this_thread::sleep_for(milliseconds(5));
      numbers.push_back(pool->GetRunningThreadNumber());
    }
  } while (system_clock::now() - begin >= kIdleLimit);
  EXPECT_THAT(numbers, ElementsAre(1, 2, 3, 3, 3, 3));
}

TEST(ThreadPool, AddWorker) {
  const auto addWorker = Reach(tarsio_test::PoolAddWorker());
  const auto pool = MakePool(1);
  for (int call = 0; call < 2; ++call) {
    EXPECT_TRUE((*pool.*addWorker)());
    EXPECT_EQ(pool->GetRunningThreadNumber(), 1U);
  }
}

TEST(ThreadPool, ThirdWaits) {
  const PoolPtr pool = MakePool(2);
  const std::array<HeldTask, 3> tasks;
  for (const HeldTask& task : tasks) task.SubmitTo(pool);
  while (pool->GetPendingTaskNumber() > 1) std::this_thread::yield();
  std::this_thread::sleep_for(milliseconds(50));
  EXPECT_EQ(pool->GetPendingTaskNumber(), 1U);
  EXPECT_EQ(pool->GetRunningThreadNumber(), 2U);
  tasks[0].Release();
  tasks[1].Release();
  tasks[2].Release();
  EXPECT_TRUE(tasks[2].Finishes());
  EXPECT_EQ(pool->GetPendingTaskNumber(), 0U);
}

TEST(ThreadPool, Limit) {
  constexpr int kLimit = 4;
  struct Shared {
    std::atomic<int> now{0};
    std::atomic<int> most{0};
    std::atomic<int> ran{0};
    Gate full;
    Gate finished;
  };
  const auto shared = std::make_shared<Shared>();
  const PoolPtr pool = MakePool(kLimit);
  uint64_t mostWorkers = 0;
  for (int i = 0; i < 400; ++i) {
    pool->SubmitTask([shared] {
      const int now = ++shared->now;
      int most = shared->most;
      while (now > most && !shared->most.compare_exchange_weak(most, now)) continue;
      if (now == kLimit) shared->full.Open();
      shared->full.WaitFor();  // block until all run concurrently
      --shared->now;
      if (++shared->ran == 400) shared->finished.Open();
    });
    mostWorkers = std::max(mostWorkers, pool->GetRunningThreadNumber());
  }
  ASSERT_TRUE(shared->finished.WaitFor());
  EXPECT_EQ(shared->most, kLimit);
  EXPECT_EQ(mostWorkers, static_cast<uint64_t>(kLimit));
}

// Each submission has seen room for one more worker and checks again under the lock.
TEST(ThreadPool, LimitRace) {
  const PoolPtr pool = MakePool(1);
  const auto goOn = std::make_shared<Gate>();
  const tarsio_test::OpenOnExit guard{goOn};
  std::vector<BackgroundCall> calls;
  {
    const std::lock_guard<std::mutex> lock((*pool).*Reach(tarsio_test::PoolWorkersMutex()));
    for (int i = 0; i < 3; ++i) {
      calls.emplace_back([=] { pool->SubmitTask([goOn] { goOn->Wait(); }); });
    }
    for (BackgroundCall& call : calls) EXPECT_TRUE(call.StaysBlocked(milliseconds(60)));
  }
  for (BackgroundCall& call : calls) EXPECT_TRUE(call.ReturnsWithin());
  EXPECT_EQ(pool->GetRunningThreadNumber(), 1U);
}

TEST(ThreadPool, ZeroLimit) {
  const PoolPtr pool = MakePool(0);
  const auto runs = std::make_shared<std::atomic<int>>(0);
  for (uint64_t i = 1; i <= 3; ++i) {
    EXPECT_TRUE(pool->SubmitTask([runs] { ++*runs; }));
    EXPECT_EQ(pool->GetPendingTaskNumber(), i);
    EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
  }
  BackgroundCall wait([pool] { pool->Wait(); });
  BackgroundCall shutdown([pool] { pool->Shutdown(ThreadPool::SHUTDOWN_WAIT); });
  EXPECT_TRUE(wait.StaysBlocked()) << "no worker takes the tasks";
  EXPECT_TRUE(shutdown.StaysBlocked()) << "no worker takes the tasks";
  EXPECT_EQ(*runs, 0);
  EXPECT_EQ(pool->GetPendingTaskNumber(), 3U);
  EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
}

TEST(ThreadPool, IdleSecond) {
  const PoolPtr pool = MakePool(1);
  std::shared_ptr<Gate> ended;
  const auto lastTask = std::make_shared<system_clock::time_point>();
  // Each task restarts the idle timeout.
  for (int i = 0; i < 3; ++i) {
    std::this_thread::sleep_for(milliseconds(i * 200));
    ended = std::make_shared<Gate>();
    ASSERT_TRUE(RunOne(pool, [=] {
      OpenWhenThisThreadEnds(ended);
      *lastTask = system_clock::now();
    }));
    EXPECT_EQ(pool->GetRunningThreadNumber(), 1U);
  }
  ASSERT_TRUE(ended->WaitFor());  // without a call to the pool
  EXPECT_GE(system_clock::now() - *lastTask, kIdleLimit);
  EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
  EXPECT_EQ(pool->GetPendingTaskNumber(), 0U);

  ASSERT_TRUE(RunOne(pool)) << "the pool grows again";
  EXPECT_EQ(pool->GetRunningThreadNumber(), 1U);
}

// Workers have no thread name, not even the pool's, and the default priority.
TEST(ThreadPool, Threads) {
  tarsio_test::ThreadTraits any;
  std::thread([&any] { any = tarsio_test::TraitsOfThisThread(); }).join();
  const auto worker = std::make_shared<tarsio_test::ThreadTraits>();
  worker->name = "not asked";
  ASSERT_TRUE(RunOne(MakePool(1), [worker] { *worker = tarsio_test::TraitsOfThisThread(); }));
  EXPECT_EQ(worker->name, any.name);
  EXPECT_TRUE(*worker == any);
}

TEST(ThreadPool, AllRetire) {
  const PoolPtr pool = MakePool(3);
  const std::array<HeldTask, 3> tasks;
  for (const HeldTask& task : tasks) ASSERT_TRUE(task.StartIn(pool));
  // Release them one by one; each worker retires a second after its own task.
  for (size_t i = 0; i < tasks.size(); ++i) {
    EXPECT_EQ(pool->GetRunningThreadNumber(), tasks.size() - i);
    tasks[i].Release();
    ASSERT_TRUE(tasks[i].Finishes());
    while (pool->GetRunningThreadNumber() == tasks.size() - i) {
      std::this_thread::sleep_for(milliseconds(1));
    }
    EXPECT_GE(system_clock::now() - tasks[i].End(), kIdleLimit);
  }
  EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
}

TEST(ThreadPool, ListOrder) {
  const PoolPtr pool = MakePool(3);
  const auto list = [pool] {
    const std::lock_guard<std::mutex> lock((*pool).*Reach(tarsio_test::PoolWorkersMutex()));
    std::vector<const void*> workers;
    for (const auto& worker : (*pool).*Reach(tarsio_test::PoolWorkers())) {
      workers.push_back(worker.get());
    }
    return workers;
  };
  const std::array<HeldTask, 3> tasks;
  std::vector<const void*> workers;
  for (const HeldTask& task : tasks) {
    ASSERT_TRUE(task.StartIn(pool));
    const auto longer = list();
    ASSERT_EQ(longer.size(), workers.size() + 1);
    workers.push_back(longer.back());
    EXPECT_EQ(longer, workers) << "appended";
  }
  tasks[0].Release();
  while (pool->GetRunningThreadNumber() == 3) std::this_thread::sleep_for(milliseconds(1));
  EXPECT_THAT(list(), ElementsAre(workers[1], workers[2]));
}

// ---- locks ----

// The test holds the lock of the worker list: calls that need it block, and no others.
TEST(ThreadPool, ListLock) {
  const PoolPtr full = MakePool(0);
  const PoolPtr pool = MakePool(1);
  const auto ran = std::make_shared<Gate>();
  std::vector<BackgroundCall> waiting;
  std::vector<BackgroundCall> others;
  {
    const std::lock_guard<std::mutex> lock((*pool).*Reach(tarsio_test::PoolWorkersMutex()));
    const std::lock_guard<std::mutex> fullLock((*full).*Reach(tarsio_test::PoolWorkersMutex()));
    waiting.emplace_back([pool] { pool->GetPendingTaskNumber(); });
    waiting.emplace_back([pool] { pool->GetRunningThreadNumber(); });
    waiting.emplace_back([pool] { pool->Shutdown(kMethodWithoutName); });
    others.emplace_back([pool] { pool->SetName("new"); });
    EXPECT_TRUE(others.back().ReturnsWithin());  // the name must not be in use
    others.emplace_back([pool] { pool->GetName(); });
    others.emplace_back([pool] { pool->Wait(); });
    // A pool at its limit starts no worker and checks that without the lock.
    others.emplace_back([full] { full->SubmitTask([] {}); });
    for (BackgroundCall& call : others) EXPECT_TRUE(call.ReturnsWithin());
    waiting.emplace_back([pool, ran] { pool->SubmitTask([ran] { ran->Open(); }); });
    for (BackgroundCall& call : waiting) EXPECT_TRUE(call.StaysBlocked(milliseconds(60)));
    EXPECT_FALSE(ran->IsOpen());
  }
  for (BackgroundCall& call : waiting) EXPECT_TRUE(call.ReturnsWithin());
  EXPECT_TRUE(ran->WaitFor());
}

// Tasks are taken and waiters are notified without waitMutex (by design).
TEST(ThreadPool, WaitLock) {
  const PoolPtr pool = MakePool(1);
  const std::lock_guard<std::mutex> lock((*pool).*Reach(tarsio_test::PoolWaitMutex()));
  BackgroundCall wait([pool] { pool->Wait(); });
  EXPECT_TRUE(wait.StaysBlocked());
  BackgroundCall setName([pool] { pool->SetName("new"); });
  ASSERT_TRUE(setName.ReturnsWithin());
  EXPECT_EQ(pool->GetName(), "new");
  EXPECT_TRUE(RunOne(pool));
  EXPECT_EQ(pool->GetPendingTaskNumber(), 0U);
  EXPECT_EQ(pool->GetRunningThreadNumber(), 1U);
  BackgroundCall shutdown([pool] { pool->Shutdown(kMethodWithoutName); });
  EXPECT_TRUE(shutdown.ReturnsWithin());
}

// ---- exceptions of tasks ----

struct HostError : std::exception {
  const char* what() const noexcept override { return "a host's own error"; }
};

TEST(ThreadPool, ThrowingTask) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_ERROR);
  const struct {
    const char* name;
    Task task;
    std::string text;
  } rows[] = {
      {"runtime error", [] { throw std::runtime_error("boom"); }, "boom"},
      {"logic error", [] { throw std::out_of_range("too far"); }, "too far"},
      {"a derived class", [] { throw HostError(); }, "a host's own error"},
      {"memory", [] { throw std::bad_alloc(); }, std::bad_alloc().what()},
      {"format characters", [] { throw std::runtime_error("100 %s of %d%n"); }, "100 %s of %d%n"},
      {"empty message", [] { throw std::runtime_error(""); }, ""},
  };
  const PoolPtr pool = MakePool(1);
  size_t reports = 0;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const auto before = std::make_shared<int>(0);
    const auto after = std::make_shared<int>(0);
    // Submit both at once, so that the worker is never idle in between.
    pool->SubmitTask([=] { *before = CallsOfThisThread(); });
    pool->SubmitTask([task = row.task] { task(); });
    ASSERT_TRUE(RunOne(pool, [=] { *after = CallsOfThisThread(); }));
    EXPECT_EQ(*after, *before + 1) << "the same worker";
    EXPECT_EQ(pool->GetRunningThreadNumber(), 1U);
    ++reports;
    ASSERT_EQ(records->All().size(), reports);
    const LogRecord record = records->All().back();
    EXPECT_EQ(record.level, tarsio::LOG_LEVEL_FATAL);
    EXPECT_EQ(record.file, "src/thread_pool.cpp");
    EXPECT_EQ(record.line, 196);
    EXPECT_EQ(record.function, "tarsio::ThreadPool::RunTask");
    EXPECT_THAT(record.text, EndsWith("][FATAL][thread_pool.cpp:196] task exception: " + row.text));
  }
}

TEST(ThreadPool, EmptyTask) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_FATAL);
  const PoolPtr pool = MakePool(1);
  Task empty;
  EXPECT_TRUE(pool->SubmitTask(empty));
  EXPECT_TRUE(pool->SubmitTask(nullptr));
  ASSERT_TRUE(RunOne(pool));
  ASSERT_EQ(records->All().size(), 2U);
  for (const LogRecord& record : records->All()) {
    EXPECT_EQ(record.level, tarsio::LOG_LEVEL_FATAL);
    EXPECT_EQ(record.line, 196);
    EXPECT_THAT(record.text,
                EndsWith(std::string("] task exception: ") + std::bad_function_call().what()));
  }
}

TEST(ThreadPool, NoReports) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  const PoolPtr pool = MakePool(1, 1);
  const HeldTask first;
  const HeldTask second;
  ASSERT_TRUE(first.StartIn(pool));
  second.SubmitTo(pool);
  BackgroundCall submit([pool] { pool->SubmitTask([] {}); });
  EXPECT_TRUE(submit.StaysBlocked()) << "the queue is full";
  first.Release();
  second.Release();
  ASSERT_TRUE(submit.ReturnsWithin());
  pool->Shutdown(ThreadPool::SHUTDOWN_NOW);
  EXPECT_THAT(records->All(), IsEmpty());
}

// A sink that runs a callback.
class CallingLogger : public tarsio::Logger {
 public:
  explicit CallingLogger(std::function<void()> target) : call(std::move(target)) {}
  void DoOutput(const char* /*line*/) override { call(); }

 private:
  const std::function<void()> call;
};

void LogTo(std::function<void()> call) {
  tarsio::Log::GetInstance().SetLogger(std::make_unique<CallingLogger>(std::move(call)));
}

TEST(ThreadPool, LostReport) {
  const auto reports = std::make_shared<std::atomic<int>>(0);
  LogTo([reports] {
    ++*reports;
    throw std::runtime_error("the sink");
  });
  const PoolPtr pool = MakePool(1);
  const auto before = std::make_shared<int>(0);
  const auto after = std::make_shared<int>(0);
  pool->SubmitTask([=] { *before = CallsOfThisThread(); });
  pool->SubmitTask([] { throw std::runtime_error("the task"); });
  ASSERT_TRUE(RunOne(pool, [=] { *after = CallsOfThisThread(); }));
  EXPECT_EQ(*reports, 1);
  EXPECT_EQ(*after, *before + 1) << "the same worker";
}

void RunInADyingProcess(const Task& task) {
  std::set_terminate([] {
    std::fputs("the terminate handler\n", stderr);
    std::_Exit(9);
  });
  const PoolPtr pool = MakePool(1);
  pool->SubmitTask([task] { task(); });
  Gate().WaitFor();
  std::_Exit(0);
}

TEST(PoolDeathTest, Exception) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  struct Unrelated {};
  EXPECT_EXIT(RunInADyingProcess([] { throw 42; }), testing::ExitedWithCode(9), "the terminate");
  EXPECT_EXIT(RunInADyingProcess([] { throw "text"; }), testing::ExitedWithCode(9),
              "the terminate");
  EXPECT_EXIT(RunInADyingProcess([] { throw Unrelated(); }), testing::ExitedWithCode(9),
              "the terminate");
  const Task throwInReport = [] {
    LogTo([] { throw 42; });
    throw std::runtime_error("the task");
  };
  EXPECT_EXIT(RunInADyingProcess(throwInReport), testing::ExitedWithCode(9), "the terminate");
}

// ---- a pool without an owner ----

TEST(ThreadPool, NoOwner) {
  ThreadPool pool("on the stack", 1, 0, 10);
  Task task = [] { FAIL(); };
  EXPECT_THROW(pool.SubmitTask(task), std::bad_weak_ptr);
  EXPECT_EQ(pool.GetPendingTaskNumber(), 1U) << "queued, and the lock was released";
  EXPECT_EQ(pool.GetRunningThreadNumber(), 0U);
  EXPECT_THAT([&] { pool.SubmitTask(task); },
              testing::ThrowsMessage<std::bad_weak_ptr>(testing::HasSubstr("make_shared")));
  EXPECT_EQ(pool.GetPendingTaskNumber(), 2U);
  pool.Shutdown(kMethodWithoutName);  // no worker is listed
  EXPECT_EQ(pool.GetPendingTaskNumber(), 2U);
}

TEST(ThreadPool, NoOwnerZero) {
  ThreadPool pool("on the stack", 0, 0, 10);
  EXPECT_TRUE(pool.SubmitTask([] {}));
  EXPECT_EQ(pool.GetPendingTaskNumber(), 1U);
}

// ---- a full queue ----

TEST(ThreadPool, FullQueue) {
  const PoolPtr pool = MakePool(1, 2);
  const HeldTask held;
  const HeldTask next;
  ASSERT_TRUE(held.StartIn(pool));
  next.SubmitTo(pool);
  pool->SubmitTask([] {});
  EXPECT_EQ(pool->GetPendingTaskNumber(), 2U);
  const auto ran = std::make_shared<Gate>();
  const auto result = std::make_shared<std::atomic<bool>>(false);
  BackgroundCall submit([=] { *result = pool->SubmitTask([ran] { ran->Open(); }); });
  EXPECT_TRUE(submit.StaysBlocked());
  EXPECT_EQ(pool->GetPendingTaskNumber(), 2U);
  held.Release();
  ASSERT_TRUE(submit.ReturnsWithin()) << "a task was taken";
  EXPECT_TRUE(*result);
  EXPECT_EQ(pool->GetPendingTaskNumber(), 2U);
  EXPECT_FALSE(ran->IsOpen());
  next.Release();
  EXPECT_TRUE(ran->WaitFor());
}

TEST(ThreadPool, ZeroCapacity) {
  const PoolPtr pool = MakePool(2, 0);
  BackgroundCall first([pool] { pool->SubmitTask([] {}); });
  BackgroundCall second([pool] { pool->SubmitTask([] {}); });
  EXPECT_TRUE(first.StaysBlocked());
  EXPECT_TRUE(second.StaysBlocked());
  EXPECT_EQ(pool->GetPendingTaskNumber(), 0U);
  EXPECT_EQ(pool->GetRunningThreadNumber(), 0U) << "a worker is started after the task is queued";
}

// ---- Wait ----

TEST(ThreadPool, WaitOnEmpty) {
  const PoolPtr withoutWorkers = MakePool(0, 0);
  for (const PoolPtr& pool : {MakePool(1), withoutWorkers}) {
    BackgroundCall wait([pool] { pool->Wait(); });
    EXPECT_TRUE(wait.ReturnsWithin());
  }
}

TEST(ThreadPool, WaitForQueue) {
  const PoolPtr pool = MakePool(2);
  const std::array<HeldTask, 4> tasks;
  ASSERT_TRUE(tasks[0].StartIn(pool));
  ASSERT_TRUE(tasks[1].StartIn(pool));
  tasks[2].SubmitTo(pool);
  tasks[3].SubmitTo(pool);
  BackgroundCall wait([pool] { pool->Wait(); });
  EXPECT_TRUE(wait.StaysBlocked());
  tasks[0].Release();
  EXPECT_TRUE(wait.StaysBlocked(milliseconds(100))) << "one task is still pending";
  tasks[1].Release();
  ASSERT_TRUE(wait.ReturnsWithin());
  EXPECT_EQ(pool->GetPendingTaskNumber(), 0U);
  EXPECT_FALSE(tasks[2].IsFinished());
  EXPECT_FALSE(tasks[3].IsFinished());
}

TEST(ThreadPool, WaitMany) {
  const PoolPtr pool = MakePool(1);
  const HeldTask first;
  const HeldTask second;
  ASSERT_TRUE(first.StartIn(pool));
  second.SubmitTo(pool);
  std::vector<BackgroundCall> waits;
  for (int i = 0; i < 5; ++i) waits.emplace_back([pool] { pool->Wait(); });
  for (BackgroundCall& wait : waits) EXPECT_TRUE(wait.StaysBlocked(milliseconds(60)));
  first.Release();
  for (BackgroundCall& wait : waits) EXPECT_TRUE(wait.ReturnsWithin());
  EXPECT_FALSE(second.IsFinished());
}

// Taking a task does not synchronize with Wait() (by design): a notification between Wait()'s check
// and its sleep is missed until the next task. This test relies on chance; lock_faults_test forces
// the order.
TEST(ThreadPool, WaitMisses) {
  const PoolPtr pool = MakePool(1);
  int missed = 0;
  for (int round = 0; round < 200; ++round) {
    const HeldTask held;
    ASSERT_TRUE(held.StartIn(pool));
    for (int i = 0; i < 3; ++i) pool->SubmitTask([] {});
    BackgroundCall wait([pool] { pool->Wait(); });
    held.Release();
    for (int next = 0; !wait.ReturnsWithin(milliseconds(next < 10 ? 300 : 4000)); ++next) {
      ASSERT_LT(next, 20);
      ++missed;
      ASSERT_TRUE(RunOne(pool));
    }
  }
  RecordProperty("missed", missed);
}

TEST(ThreadPool, WaitInTask) {
  const PoolPtr pool = MakePool(2);
  const HeldTask held;
  ASSERT_TRUE(held.StartIn(pool));
  const auto started = std::make_shared<Gate>();
  const auto waited = std::make_shared<Gate>();
  const auto goOn = std::make_shared<Gate>();
  const tarsio_test::OpenOnExit guard{goOn};
  pool->SubmitTask([=, weak = std::weak_ptr<ThreadPool>(pool)] {
    started->Open();
    goOn->Wait();
    weak.lock()->Wait();
    waited->Open();
  });
  ASSERT_TRUE(started->WaitFor());
  pool->SubmitTask([] {});
  goOn->Open();
  EXPECT_FALSE(waited->WaitFor(milliseconds(200)));
  held.Release();
  for (int i = 0; i < 10 && !waited->WaitFor(milliseconds(4000)); ++i) pool->SubmitTask([] {});
  EXPECT_TRUE(waited->IsOpen());
}

TEST(ThreadPool, WaitForever) {
  const PoolPtr pool = MakePool(1);
  KeepUntilExit(pool);
  const auto goOn = std::make_shared<Gate>();
  const auto waited = std::make_shared<Gate>();
  pool->SubmitTask([=] {
    goOn->Wait();
    pool->Wait();
    waited->Open();
  });
  pool->SubmitTask([] {});
  goOn->Open();
  EXPECT_FALSE(waited->WaitFor(tarsio_test::kBlockedCheck));
  while (pool->GetPendingTaskNumber() != 1) std::this_thread::yield();
  EXPECT_FALSE(waited->WaitFor(tarsio_test::kBlockedCheck));
}

// ---- Shutdown ----

TEST(ThreadPool, ShutdownNow) {
  const PoolPtr pool = MakePool(2);
  const std::array<HeldTask, 2> tasks;
  ASSERT_TRUE(tasks[0].StartIn(pool));
  ASSERT_TRUE(tasks[1].StartIn(pool));
  const auto discarded = std::make_shared<Gate>();
  const auto runs = std::make_shared<std::atomic<int>>(0);
  std::shared_ptr<void> token = MakeToken(discarded);
  for (int i = 0; i < 5; ++i) pool->SubmitTask([runs, token] { ++*runs; });
  token.reset();
  EXPECT_EQ(pool->GetPendingTaskNumber(), 5U);

  BackgroundCall shutdown([pool] { pool->Shutdown(ThreadPool::SHUTDOWN_NOW); });
  ASSERT_TRUE(discarded->WaitFor());
  EXPECT_EQ(pool->GetPendingTaskNumber(), 0U);
  EXPECT_TRUE(shutdown.StaysBlocked(milliseconds(1300))) << "the tasks are not interrupted";
  EXPECT_EQ(pool->GetRunningThreadNumber(), 2U);
  tasks[0].Release();
  ASSERT_TRUE(tasks[0].Finishes());
  tasks[1].Release();
  ASSERT_TRUE(shutdown.ReturnsWithin());
  const auto end = system_clock::now();
  EXPECT_TRUE(tasks[1].IsFinished());
  EXPECT_GE(end - tasks[1].End(), kIdleLimit)
      << "closing the queue does not shorten the idle second";
  EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
  EXPECT_EQ(*runs, 0);
}

TEST(ThreadPool, NowIdle) {
  const PoolPtr pool = MakePool(1);
  const HeldTask task;
  ASSERT_TRUE(task.StartIn(pool));
  task.Release();
  ASSERT_TRUE(task.Finishes());
  std::this_thread::sleep_for(milliseconds(200));
  pool->Shutdown(ThreadPool::SHUTDOWN_NOW);
  EXPECT_GE(system_clock::now() - task.End(), kIdleLimit);
  EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
}

TEST(ThreadPool, NoWorkers) {
  for (const auto method :
       {ThreadPool::SHUTDOWN_NOW, ThreadPool::SHUTDOWN_WAIT, kMethodWithoutName}) {
    SCOPED_TRACE(method);
    const PoolPtr pool = MakePool(1);
    BackgroundCall shutdown([=] { pool->Shutdown(method); });
    EXPECT_TRUE(shutdown.ReturnsWithin());
  }
}

// A closed queue never accepts a task again (by design).
TEST(ThreadPool, AfterClose) {
  const PoolPtr pool = MakePool(1);
  ASSERT_TRUE(RunOne(pool));
  pool->Shutdown(ThreadPool::SHUTDOWN_NOW);
  BackgroundCall submit([pool] { pool->SubmitTask([] {}); });
  EXPECT_TRUE(submit.StaysBlocked());

  // All other members work and return at once.
  for (const auto method :
       {ThreadPool::SHUTDOWN_NOW, ThreadPool::SHUTDOWN_WAIT, kMethodWithoutName}) {
    SCOPED_TRACE(method);
    BackgroundCall shutdown([=] { pool->Shutdown(method); });
    EXPECT_TRUE(shutdown.ReturnsWithin());
  }
  BackgroundCall wait([pool] { pool->Wait(); });
  EXPECT_TRUE(wait.ReturnsWithin());
  EXPECT_EQ(pool->GetPendingTaskNumber(), 0U);
  EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
  EXPECT_TRUE(submit.StaysBlocked(milliseconds(1))) << "Shutdown() does not reopen the pool";
}

TEST(ThreadPool, DuringClose) {
  const PoolPtr pool = MakePool(0, 1);
  pool->SubmitTask([] {});
  BackgroundCall submit([pool] { pool->SubmitTask([] {}); });
  EXPECT_TRUE(submit.StaysBlocked(milliseconds(100)));
  pool->Shutdown(ThreadPool::SHUTDOWN_NOW);
  EXPECT_EQ(pool->GetPendingTaskNumber(), 0U);
  EXPECT_TRUE(submit.StaysBlocked());
}

TEST(ThreadPool, NowZeroLimit) {
  const PoolPtr pool = MakePool(0);
  const auto discarded = std::make_shared<Gate>();
  pool->SubmitTask([token = MakeToken(discarded)] { FAIL(); });
  EXPECT_FALSE(discarded->IsOpen());
  pool->Shutdown(ThreadPool::SHUTDOWN_NOW);
  EXPECT_TRUE(discarded->IsOpen());
  EXPECT_EQ(pool->GetPendingTaskNumber(), 0U);
}

// All methods but SHUTDOWN_NOW run every pending task, including later ones, and leave the pool
// open.
void ExpectShutdownRunsEverything(ThreadPool::SHUTDOWN_METHOD method) {
  const PoolPtr pool = MakePool(2);
  for (int round = 0; round < 2; ++round) {
    SCOPED_TRACE(round);
    const std::array<HeldTask, 2> tasks;
    ASSERT_TRUE(tasks[0].StartIn(pool));
    ASSERT_TRUE(tasks[1].StartIn(pool));
    const auto runs = std::make_shared<std::atomic<int>>(0);
    for (int i = 0; i < 20; ++i) pool->SubmitTask([=] { ++*runs; });
    BackgroundCall shutdown([=] { pool->Shutdown(method); });
    EXPECT_TRUE(shutdown.StaysBlocked(milliseconds(150)));
    pool->SubmitTask([=] { ++*runs; });
    const HeldTask last;
    last.SubmitTo(pool);
    EXPECT_EQ(pool->GetPendingTaskNumber(), 22U);
    tasks[0].Release();
    tasks[1].Release();
    EXPECT_TRUE(shutdown.StaysBlocked(milliseconds(150)));
    EXPECT_EQ(*runs, 21);
    last.Release();
    ASSERT_TRUE(ReturnsAtTheNextTask(shutdown, pool));
    EXPECT_GE(system_clock::now() - last.End(), kIdleLimit);
    EXPECT_EQ(*runs, 21);
    EXPECT_EQ(pool->GetPendingTaskNumber(), 0U);
    EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
  }
  EXPECT_TRUE(RunOne(pool)) << "the pool is open";
}

TEST(ThreadPool, ShutdownWait) { ExpectShutdownRunsEverything(ThreadPool::SHUTDOWN_WAIT); }

TEST(ThreadPool, ShutdownDrain) { ExpectShutdownRunsEverything(ThreadPool::SHUTDOWN_DRAIN); }

TEST(ThreadPool, ConstTask) {
  const PoolPtr pool = MakePool(1);
  const auto ran = std::make_shared<Gate>();
  const Task task = [ran] { ran->Open(); };
  EXPECT_TRUE(pool->SubmitTask(task));
  EXPECT_TRUE(ran->WaitFor());
  EXPECT_NE(task, nullptr);
}

TEST(ThreadPool, Unknown) { ExpectShutdownRunsEverything(kMethodWithoutName); }

TEST(ThreadPool, UnknownFull) {
  for (const int method : {7, -1, 2, INT32_MAX, INT32_MIN}) {
    SCOPED_TRACE(method);
    const PoolPtr pool = MakePool(0);
    pool->SubmitTask([] {});
    BackgroundCall shutdown(
        [=] { pool->Shutdown(static_cast<ThreadPool::SHUTDOWN_METHOD>(method)); });
    EXPECT_TRUE(shutdown.ReturnsWithin());
    EXPECT_EQ(pool->GetPendingTaskNumber(), 1U);
  }
}

TEST(ThreadPool, ManyShutdowns) {
  const PoolPtr pool = MakePool(2);
  const HeldTask held;
  ASSERT_TRUE(held.StartIn(pool));
  std::vector<BackgroundCall> calls;
  for (int i = 0; i < 6; ++i) {
    calls.emplace_back([=] { pool->Shutdown(static_cast<ThreadPool::SHUTDOWN_METHOD>(i % 3)); });
  }
  for (BackgroundCall& call : calls) EXPECT_TRUE(call.StaysBlocked(milliseconds(20)));
  held.Release();
  for (BackgroundCall& call : calls) EXPECT_TRUE(call.ReturnsWithin());
  EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
}

// A caller's error with a defined result.
TEST(ThreadPool, SelfShutdown) {
  const PoolPtr pool = MakePool(1);
  KeepUntilExit(pool);
  const auto started = std::make_shared<Gate>();
  const auto returned = std::make_shared<Gate>();
  pool->SubmitTask([=] {
    started->Open();
    pool->Shutdown(kMethodWithoutName);
    returned->Open();
  });
  ASSERT_TRUE(started->WaitFor());
  EXPECT_FALSE(returned->WaitFor(milliseconds(1500)));
  EXPECT_EQ(pool->GetRunningThreadNumber(), 1U);
}

// ---- ownership ----

// Records the destruction of a pool.
struct Destruction {
  std::thread::id thread;
  system_clock::time_point time;
  uint64_t workers = UINT64_MAX;
  uint64_t pending = UINT64_MAX;
  Gate begun;
  Gate finished;
};

PoolPtr MakeWatchedPool(uint64_t limit, const std::shared_ptr<Destruction>& destruction) {
  return {new ThreadPool("watched", limit, 0, 1000), [destruction](ThreadPool* pool) {
            destruction->thread = std::this_thread::get_id();
            destruction->time = system_clock::now();
            destruction->workers = pool->GetRunningThreadNumber();
            destruction->pending = pool->GetPendingTaskNumber();
            destruction->begun.Open();
            delete pool;
            destruction->finished.Open();
          }};
}

TEST(ThreadPool, WorkersOwnPool) {
  struct Shared {
    std::mutex mutex;
    std::vector<std::thread::id> threads;  // guarded by mutex
    system_clock::time_point last;         // guarded by mutex
  };
  const auto shared = std::make_shared<Shared>();
  const auto destruction = std::make_shared<Destruction>();
  const std::array<HeldTask, 2> tasks;
  {
    const PoolPtr pool = MakeWatchedPool(2, destruction);
    ASSERT_TRUE(tasks[0].StartIn(pool));
    ASSERT_TRUE(tasks[1].StartIn(pool));
    for (int i = 0; i < 50; ++i) {
      pool->SubmitTask([shared] {
        const std::lock_guard<std::mutex> lock(shared->mutex);
        shared->threads.push_back(std::this_thread::get_id());
        shared->last = system_clock::now();
      });
    }
  }
  EXPECT_FALSE(destruction->begun.WaitFor(tarsio_test::kBlockedCheck))
      << "the workers still own it";
  tasks[0].Release();
  tasks[1].Release();
  ASSERT_TRUE(destruction->finished.WaitFor());
  const std::lock_guard<std::mutex> lock(shared->mutex);
  EXPECT_EQ(shared->threads.size(), 50U);
  EXPECT_GE(destruction->time - shared->last, kIdleLimit);
  EXPECT_EQ(destruction->workers, 0U);
  EXPECT_EQ(destruction->pending, 0U);
  EXPECT_NE(destruction->thread, std::this_thread::get_id());
}

TEST(ThreadPool, LastWorker) {
  const auto destruction = std::make_shared<Destruction>();
  const auto lastWorker = std::make_shared<std::thread::id>();
  const auto otherGone = std::make_shared<Gate>();
  {
    const PoolPtr pool = MakeWatchedPool(2, destruction);
    const auto started = std::make_shared<Gate>();
    // Two tasks that wait for each other need two workers. One of the workers outlives the other.
    pool->SubmitTask([=] {
      started->Wait();
      OpenWhenThisThreadEnds(otherGone);
    });
    pool->SubmitTask([=] {
      *lastWorker = std::this_thread::get_id();
      started->Open();
      otherGone->Wait();
    });
    ASSERT_TRUE(started->WaitFor());
  }
  ASSERT_TRUE(destruction->finished.WaitFor());
  EXPECT_EQ(destruction->thread, *lastWorker);
  EXPECT_TRUE(otherGone->IsOpen());
}

// The worker may not even have started when the pool is dropped.
TEST(ThreadPool, DropAtOnce) {
  for (int round = 0; round < 20; ++round) {
    SCOPED_TRACE(round);
    const auto ran = std::make_shared<Gate>();
    BackgroundCall drop([ran] { MakePool(1)->SubmitTask([ran] { ran->Open(); }); });
    ASSERT_TRUE(drop.ReturnsWithin(milliseconds(20000))) << "dropping the pool must not block";
    ASSERT_TRUE(ran->WaitFor(milliseconds(20000)));
  }
}

TEST(ThreadPool, DropUnused) {
  const auto destruction = std::make_shared<Destruction>();
  const auto discarded = std::make_shared<Gate>();
  {
    const PoolPtr pool = MakeWatchedPool(0, destruction);
    pool->SubmitTask([token = MakeToken(discarded)] { FAIL(); });
    pool->SubmitTask([token = MakeToken(discarded)] { FAIL(); });
  }
  EXPECT_TRUE(destruction->finished.IsOpen());
  EXPECT_TRUE(discarded->IsOpen());
  EXPECT_EQ(destruction->thread, std::this_thread::get_id());
  EXPECT_EQ(destruction->pending, 2U);
}

TEST(ThreadPool, DropRetired) {
  const auto destruction = std::make_shared<Destruction>();
  {
    const PoolPtr pool = MakeWatchedPool(2, destruction);
    ASSERT_TRUE(RunOne(pool));
    ASSERT_TRUE(RunOne(pool));
    pool->Shutdown(kMethodWithoutName);
    // A worker releases the pool shortly after it has left the list.
    while (pool.use_count() > 1) std::this_thread::sleep_for(milliseconds(1));
  }
  EXPECT_TRUE(destruction->finished.IsOpen());
  EXPECT_EQ(destruction->thread, std::this_thread::get_id());
}

TEST(ThreadPool, DerivedPool) {
  class Derived : public ThreadPool {
   public:
    explicit Derived(std::shared_ptr<Gate> gate)
        : ThreadPool("derived", 1, 0, 4), destroyed(std::move(gate)) {}
    ~Derived() override { destroyed->Open(); }

   private:
    const std::shared_ptr<Gate> destroyed;
  };
  const auto destroyed = std::make_shared<Gate>();
  PoolPtr pool = std::make_shared<Derived>(destroyed);
  ASSERT_TRUE(RunOne(pool));
  EXPECT_FALSE(destroyed->IsOpen());
  pool.reset();
  EXPECT_TRUE(destroyed->WaitFor());
}

// Members of the same names in a derived class must not override those of the base.
TEST(ThreadPool, Virtual) {
  class Derived : public ThreadPool {
   public:
    Derived() : ThreadPool("base", 0, 0, 4) {}
    std::string GetName() const { return "derived"; }
    void SetName(const std::string& /*newName*/) {}
    uint64_t GetPendingTaskNumber() { return 99; }
    uint64_t GetRunningThreadNumber() { return 99; }
    bool SubmitTask(Task& /*task*/) { return false; }
    bool SubmitTask(Task&& /*task*/) { return false; }
    void Shutdown(SHUTDOWN_METHOD /*method*/) {}
    void Wait() {}
  };
  const PoolPtr pool = std::make_shared<Derived>();
  EXPECT_EQ(pool->GetName(), "base");
  pool->SetName("other");
  EXPECT_EQ(pool->GetName(), "other");
  Task task = [] {};
  EXPECT_TRUE(pool->SubmitTask(task));
  EXPECT_TRUE(pool->SubmitTask([] {}));
  EXPECT_EQ(pool->GetPendingTaskNumber(), 2U);
  EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
  BackgroundCall wait([pool] { pool->Wait(); });
  EXPECT_TRUE(wait.StaysBlocked());
  pool->Shutdown(ThreadPool::SHUTDOWN_NOW);
  EXPECT_EQ(pool->GetPendingTaskNumber(), 0U);
}

void EndTheProcess(const std::string& workers) {
  static PoolPtr pool;  // destroyed at process exit
  static HeldTask held;
  static std::atomic<int> runs{0};
  pool = MakePool(2);
  RunOne(pool);
  if (workers == "busy") held.StartIn(pool);
  if (workers == "working") {
    for (int i = 0; i < 900; ++i) pool->SubmitTask([] { ++runs; });
  }
  std::exit(0);
}

TEST(PoolDeathTest, Exit) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (const char* how : {"idle", "busy", "working"}) {
    SCOPED_TRACE(how);
    EXPECT_EXIT(EndTheProcess(how), testing::ExitedWithCode(0), "");
  }
}

// ---- a thread that cannot be started ----

TEST(ThreadPool, FailedStart) {
  const PoolPtr pool = MakePool(2);
  const auto order = std::make_shared<std::vector<int>>();
  {
    const RefuseThreadStarts refuse;
    for (int i = 0; i < 3; ++i) {
      Task task = [=] { order->push_back(i); };
      try {
        pool->SubmitTask(task);
        ADD_FAILURE() << "no exception";
      } catch (const std::system_error& e) {
        EXPECT_EQ(e.code(), std::errc::resource_unavailable_try_again);
      }
      EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
      EXPECT_EQ(pool->GetPendingTaskNumber(), static_cast<uint64_t>(i + 1))
          << "the task stays queued";
    }
  }
  BackgroundCall shutdown([pool] { pool->Shutdown(kMethodWithoutName); });
  EXPECT_TRUE(shutdown.ReturnsWithin()) << "no worker is listed";
  EXPECT_THAT(*order, IsEmpty());

  ASSERT_TRUE(RunOne(pool)) << "one more worker runs all tasks";
  EXPECT_EQ(pool->GetRunningThreadNumber(), 1U);
  EXPECT_THAT(*order, ElementsAre(0, 1, 2));
}

TEST(ThreadPool, FailedRuns) {
  const PoolPtr pool = MakePool(3);
  const HeldTask held;
  ASSERT_TRUE(held.StartIn(pool));
  const auto ran = std::make_shared<Gate>();
  {
    const RefuseThreadStarts refuse;
    EXPECT_THROW(pool->SubmitTask([ran] { ran->Open(); }), std::system_error);
    EXPECT_EQ(pool->GetRunningThreadNumber(), 1U);
    EXPECT_EQ(pool->GetPendingTaskNumber(), 1U);
    held.Release();
    EXPECT_TRUE(ran->WaitFor());
  }
  pool->Shutdown(kMethodWithoutName);
  EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
}

// Otherwise the second submission would block on a full queue that has no worker.
TEST(ThreadPool, FailedFull) {
  const auto pool = std::make_shared<ThreadPool>("pool", 1, 0, 1);
  const auto ran = std::make_shared<Events>();
  {
    const RefuseThreadStarts refuse;
    EXPECT_THROW(pool->SubmitTask([ran] { ran->Add(); }), std::system_error);
    EXPECT_THROW(pool->SubmitTask([ran] { ran->Add(); }), std::system_error);
    EXPECT_EQ(pool->GetPendingTaskNumber(), 1U) << "the second submission was refused";
  }
  BackgroundCall submission([pool, ran] { pool->SubmitTask([ran] { ran->Add(); }); });
  EXPECT_TRUE(submission.ReturnsWithin());
  EXPECT_TRUE(ran->Await(2));
}

TEST(ThreadPool, FailedDrop) {
  const auto destruction = std::make_shared<Destruction>();
  const auto discarded = std::make_shared<Gate>();
  {
    const PoolPtr pool = MakeWatchedPool(2, destruction);
    const RefuseThreadStarts refuse;
    EXPECT_THROW(pool->SubmitTask([token = MakeToken(discarded)] {}), std::system_error);
    EXPECT_EQ(pool.use_count(), 1) << "no reference is left";
  }
  EXPECT_TRUE(destruction->finished.IsOpen());
  EXPECT_TRUE(discarded->IsOpen());
  EXPECT_EQ(destruction->thread, std::this_thread::get_id());
}

TEST(ThreadPool, FailedLocks) {
  const PoolPtr pool = MakePool(1);
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  Gate go;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      go.Wait();
      for (int j = 0; j < 100; ++j) {
        try {
          pool->SubmitTask([] {});
        } catch (const std::system_error&) {
          ++failures;
        }
      }
    });
  }
  {
    const RefuseThreadStarts refuse;
    go.Open();
    for (std::thread& thread : threads) thread.join();
  }
  EXPECT_EQ(failures, 300);
  EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
  EXPECT_EQ(pool->GetPendingTaskNumber(), 300U);
  ASSERT_TRUE(RunOne(pool));
  EXPECT_EQ(pool->GetPendingTaskNumber(), 0U);
}

TEST(ThreadPool, OutOfMemory) {
  // Where the library's allocations cannot be intercepted, the first submission succeeds.
  const PoolPtr pool = MakePool(1);
  const auto runs = std::make_shared<std::atomic<uint64_t>>(0);
  uint64_t queued = 0;
  bool submitted = false;
  Task task = [runs] { ++*runs; };
  for (size_t allowed = 0; !submitted; ++allowed) {
    SCOPED_TRACE(allowed);
    ASSERT_LT(allowed, 100U);
    try {
      const AllocationWatch watch(allowed);
      submitted = pool->SubmitTask(task);
    } catch (const std::bad_alloc&) {
      EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
      const uint64_t pending = pool->GetPendingTaskNumber();
      EXPECT_GE(pending, queued);
      EXPECT_LE(pending, queued + 1) << "a queued task stays queued";
      queued = pending;
    }
  }
  ASSERT_TRUE(RunOne(pool));
  EXPECT_EQ(*runs, queued + 1);
  EXPECT_EQ(pool->GetRunningThreadNumber(), 1U);
}

// ---- no task is lost ----

// At the limit, a task submitted while the only worker retires runs without another submission.
TEST(ThreadPool, RetireRace) {
  constexpr int kPools = 30;
  constexpr int kRounds = 3;
  std::atomic<int> left{0};
  std::vector<std::thread> hosts;
  for (int i = 0; i < kPools; ++i) {
    hosts.emplace_back([&left, i] {
      const PoolPtr pool = MakePool(1);
      for (int round = 0; round < kRounds; ++round) {
        const HeldTask task;
        task.SubmitTo(pool);
        task.Release();
        const auto ran = std::make_shared<Gate>();
        if (!task.Finishes()) {
          ++left;
          return;
        }
        // From 0.3 ms before the worker's idle second ends to 2.6 ms after.
        std::this_thread::sleep_until(task.End() + kIdleLimit +
                                      std::chrono::microseconds(100 * (i - 3)));
        pool->SubmitTask([ran] { ran->Open(); });
        if (!ran->WaitFor(milliseconds(10000))) ++left;
      }
    });
  }
  for (std::thread& host : hosts) host.join();
  EXPECT_EQ(left, 0);
}

// Makes the only worker of a pool time out and wait for the lock that it needs to retire; the
// object holds that lock. Meanwhile a task is submitted. The pool is at its limit, so no worker is
// started for it.
class RetiringWorker {
 public:
  void Prepare() {
    for (int round = 0; round < 10; ++round) {
      const HeldTask first;
      ASSERT_TRUE(first.StartIn(pool));
      lock = std::unique_lock<std::mutex>((*pool).*Reach(tarsio_test::PoolWorkersMutex()));
      first.Release();
      ASSERT_TRUE(first.Finishes());
      worker = first.Thread();
      std::this_thread::sleep_until(first.End() + kIdleLimit + milliseconds(200));
      late = std::make_shared<HeldTask>();
      late->Release();
      late->SubmitTo(pool);
      if (!late->StartsWithin(tarsio_test::kBlockedCheck)) return;  // the worker waits for the lock
      lock.unlock();  // the worker was late and took the task as usual
    }
    FAIL() << "the worker has not retired";
  }
  void LetGo() { lock.unlock(); }

  const PoolPtr& Pool() const { return pool; }
  bool TaskRuns() const { return late->Finishes(); }
  bool RanTheTask() const { return late->Thread() == worker; }

 private:
  const PoolPtr pool = MakePool(1);
  std::unique_lock<std::mutex> lock;
  std::thread::id worker;
  std::shared_ptr<HeldTask> late;
};

TEST(ThreadPool, Successor) {
  RetiringWorker worker;
  ASSERT_NO_FATAL_FAILURE(worker.Prepare());
  worker.LetGo();
  ASSERT_TRUE(worker.TaskRuns());
  EXPECT_FALSE(worker.RanTheTask());
  EXPECT_EQ(worker.Pool()->GetPendingTaskNumber(), 0U);
  EXPECT_EQ(worker.Pool()->GetRunningThreadNumber(), 1U);
}

TEST(ThreadPool, NoSuccessor) {
  RetiringWorker worker;
  ASSERT_NO_FATAL_FAILURE(worker.Prepare());
  const RefuseThreadStarts refuse;
  worker.LetGo();
  ASSERT_TRUE(worker.TaskRuns());
  EXPECT_TRUE(worker.RanTheTask());
  EXPECT_EQ(worker.Pool()->GetRunningThreadNumber(), 1U);
  worker.Pool()->Shutdown(kMethodWithoutName);  // retires a second later
  EXPECT_EQ(worker.Pool()->GetRunningThreadNumber(), 0U);
}

// ---- under load ----

TEST(PoolLoad, TasksRunOnce) {
  constexpr size_t kHosts = 4;
  constexpr size_t kPerHost = 50000;
  struct Shared {
    std::vector<std::atomic<int>> runs = std::vector<std::atomic<int>>(kHosts * kPerHost);
    std::atomic<size_t> done{0};
    Gate finished;
  };
  const auto shared = std::make_shared<Shared>();
  const PoolPtr pool = MakePool(4, 256);
  std::vector<std::thread> hosts;
  for (size_t host = 0; host < kHosts; ++host) {
    hosts.emplace_back([=] {
      for (size_t i = 0; i < kPerHost; ++i) {
        pool->SubmitTask([=, number = host * kPerHost + i] {
          ++shared->runs[number];
          if (++shared->done == kHosts * kPerHost) shared->finished.Open();
        });
      }
    });
  }
  do {
    EXPECT_LE(pool->GetPendingTaskNumber(), 256U);
    EXPECT_LE(pool->GetRunningThreadNumber(), 4U);
    EXPECT_EQ(pool->GetName(), "test");
  } while (!shared->finished.WaitFor(milliseconds(2)) && shared->done < kHosts * kPerHost);
  for (std::thread& host : hosts) host.join();
  ASSERT_TRUE(shared->finished.WaitFor());
  EXPECT_EQ(std::count(shared->runs.begin(), shared->runs.end(), 1),
            static_cast<int64_t>(kHosts * kPerHost));
  pool->Shutdown(ThreadPool::SHUTDOWN_NOW);
  EXPECT_EQ(shared->done, kHosts * kPerHost);
}

TEST(PoolLoad, AllOperations) {
  const PoolPtr pool = MakePool(3, 20);
  std::atomic<bool> stop{false};
  std::atomic<int> submitted{0};
  const auto runs = std::make_shared<std::atomic<int>>(0);
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      while (!stop) {
        pool->SubmitTask([runs] { ++*runs; });
        ++submitted;
      }
    });
  }
  threads.emplace_back([&] {
    while (!stop) {
      pool->GetPendingTaskNumber();
      pool->GetRunningThreadNumber();
    }
  });
  BackgroundCall wait([pool] { pool->Wait(); });
  BackgroundCall shutdown([pool] { pool->Shutdown(kMethodWithoutName); });
  BackgroundCall shutdownWait([pool] { pool->Shutdown(ThreadPool::SHUTDOWN_WAIT); });
  std::this_thread::sleep_for(milliseconds(500));
  stop = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(ReturnsAtTheNextTask(wait, pool));
  EXPECT_TRUE(ReturnsAtTheNextTask(shutdownWait, pool));
  EXPECT_TRUE(shutdown.ReturnsWithin());
  // Again, since the first call returned at once if it ran before the first worker started.
  pool->Shutdown(kMethodWithoutName);
  EXPECT_EQ(*runs, submitted);
  EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
}

}  // namespace
