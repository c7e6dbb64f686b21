#include "common/thread_pool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <cstdlib>
#include <exception>
#include <new>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <tuple>
#include <type_traits>

#include "support/background_call.h"
#include "support/events.h"
#include "support/gate.h"
#include "support/private_member.h"
#include "support/recording_logger.h"
#include "support/thread_starts.h"

namespace tarsio_test {

EXPOSE_PRIVATE(PoolName, &tarsio::ThreadPool::name);
EXPOSE_PRIVATE(PoolWorkersMutex, &tarsio::ThreadPool::workersMutex);
EXPOSE_PRIVATE(PoolWorkers, &tarsio::ThreadPool::workers);
EXPOSE_PRIVATE(PoolAddWorker, &tarsio::ThreadPool::AddWorker);

}  // namespace tarsio_test

namespace {

using std::chrono::milliseconds;
using std::chrono::system_clock;
using tarsio::ThreadPool;
using tarsio_test::BackgroundCall;
using tarsio_test::Events;
using tarsio_test::Gate;
using tarsio_test::kBlockedCheck;
using tarsio_test::kTestTimeout;
using tarsio_test::LogRecords;
using tarsio_test::RefuseThreadStarts;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

using Task = std::function<void()>;
using PoolPtr = std::shared_ptr<ThreadPool>;
using Method = ThreadPool::SHUTDOWN_METHOD;

static_assert(std::is_constructible_v<ThreadPool, std::string, uint64_t, uint64_t, uint64_t> &&
                  !std::is_constructible_v<ThreadPool, std::string, uint64_t, uint64_t>,
              "no default arguments");
static_assert(!std::is_copy_constructible_v<ThreadPool> && !std::is_copy_assignable_v<ThreadPool>);
static_assert(std::has_virtual_destructor_v<ThreadPool>, "hosts derive from it");
static_assert(std::is_base_of_v<std::enable_shared_from_this<ThreadPool>, ThreadPool>);
static_assert(std::is_same_v<std::underlying_type_t<Method>, int32_t> &&
                  std::is_convertible_v<Method, int>,
              "unscoped, 32 bits wide: any integer is a valid method");
static_assert(ThreadPool::SHUTDOWN_NOW == 0 && ThreadPool::SHUTDOWN_WAIT == 1 &&
              ThreadPool::SHUTDOWN_DRAIN == 2);
static_assert(std::is_same_v<decltype(std::declval<const ThreadPool>().GetName()), std::string>);

// Members of the same names in a derived class do not override them: with other return types this
// would not compile.
struct NoOverrides : ThreadPool {
  int GetName() const;
  int SetName(const std::string&);
  int GetPendingTaskNumber();
  int GetRunningThreadNumber();
  int SubmitTask(Task&);
  int SubmitTask(Task&&);
  int Shutdown(SHUTDOWN_METHOD);
  int Wait();
};

constexpr auto kMethodWithoutName = static_cast<Method>(7);

// An idle worker retires after this time.
constexpr milliseconds kIdleLimit{1000};

PoolPtr MakePool(uint64_t limit, uint64_t capacity = 1000, uint64_t reserved = 0) {
  return std::make_shared<ThreadPool>("test", limit, reserved, capacity);
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
  bool Finish() const {
    Release();
    return state->finished.WaitFor();
  }
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
bool RunOne(const PoolPtr& pool, const Task& task = nullptr) {
  const auto done = std::make_shared<Gate>();
  pool->SubmitTask([done, task] {
    if (task) task();
    done->Open();
  });
  return done->WaitFor();
}

// Whether the only worker of a pool runs a task after `task`.
bool OutlivesTask(const PoolPtr& pool, const Task& task) {
  // Thread ids may be reused.
  const auto runsOfThisThread = [] {
    thread_local int runs = 0;
    return ++runs;
  };
  const auto before = std::make_shared<int>(0);
  const auto after = std::make_shared<int>(0);
  // Submit all at once, so that the worker is never idle in between.
  pool->SubmitTask([=] { *before = runsOfThisThread(); });
  pool->SubmitTask(task);
  return RunOne(pool, [=] { *after = runsOfThisThread(); }) && *after == *before + 1;
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

// ---- construction ----

TEST(ThreadPool, AnyArgument) {
  for (const uint64_t value : {uint64_t{0}, uint64_t{1}, UINT64_MAX}) {
    SCOPED_TRACE(value);
    const auto pool = std::make_shared<ThreadPool>("", value, value, value);
    EXPECT_EQ(pool->GetName(), "");
    EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
    EXPECT_EQ(pool->GetPendingTaskNumber(), 0U);
    EXPECT_TRUE(value == 0 || RunOne(pool));
  }
}

TEST(ThreadPool, SetName) {
  const PoolPtr pool = MakePool(1);
  EXPECT_EQ(pool->GetName(), "test");
  ASSERT_TRUE(RunOne(pool));
  const std::string longName = "a name too long for any small buffer";
  pool->SetName(longName);
  EXPECT_EQ(pool->GetName(), longName);
  pool->SetName((*pool).*Reach(tarsio_test::PoolName()));  // the member itself
  EXPECT_EQ(pool->GetName(), longName);
  ASSERT_TRUE(RunOne(pool)) << "a worker with the old name still runs tasks";
}

// ---- submitting ----

TEST(ThreadPool, TaskForms) {
  const PoolPtr pool = MakePool(1);
  const HeldTask held;
  ASSERT_TRUE(held.StartIn(pool));
  const auto ran = std::make_shared<std::atomic<int>>(0);
  Task task = [ran] { *ran += 1; };
  EXPECT_TRUE(pool->SubmitTask(task));
  EXPECT_TRUE(task != nullptr) << "the task is copied";
  task = [ran] { *ran += 10; };
  EXPECT_TRUE(pool->SubmitTask(std::as_const(task)));
  EXPECT_TRUE(pool->SubmitTask(Task([ran] { *ran += 100; })));
  const auto lambda = [ran] { *ran += 1000; };
  EXPECT_TRUE(pool->SubmitTask(lambda));
  held.Release();
  ASSERT_TRUE(RunOne(pool));
  EXPECT_EQ(*ran, 1111);
}

TEST(ThreadPool, DestroysTask) {
  const PoolPtr pool = MakePool(1);
  const auto gone = std::make_shared<Gate>();
  pool->SubmitTask([token = MakeToken(gone)] {});
  ASSERT_TRUE(RunOne(pool, [=] { EXPECT_TRUE(gone->IsOpen()) << "before the next task"; }));
}

TEST(ThreadPool, Nested) {
  const PoolPtr pool = MakePool(2);
  const auto done = std::make_shared<Gate>();
  ThreadPool& self = *pool;
  self.SubmitTask([&self, done] { self.SubmitTask([done] { done->Open(); }); });
  EXPECT_TRUE(done->WaitFor());
}

// ---- growing and shrinking ----

// Whatever the number of reserved workers, which has no effect.
TEST(ThreadPool, Limit) {
  for (const uint64_t reserved : {uint64_t{0}, uint64_t{5}, UINT64_MAX}) {
    SCOPED_TRACE(reserved);
    const PoolPtr pool = MakePool(2, 10, reserved);
    EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
    const std::array<HeldTask, 3> tasks;
    ASSERT_TRUE(tasks[0].StartIn(pool));
    EXPECT_EQ(pool->GetRunningThreadNumber(), 1U);
    ASSERT_TRUE(tasks[1].StartIn(pool));
    tasks[2].SubmitTo(pool);
    EXPECT_FALSE(tasks[2].StartsWithin(milliseconds(50)));
    EXPECT_EQ(pool->GetRunningThreadNumber(), 2U);
    EXPECT_EQ(pool->GetPendingTaskNumber(), 1U);
    tasks[0].Release();
    EXPECT_TRUE(tasks[2].StartsWithin(kTestTimeout));
    EXPECT_EQ(pool->GetPendingTaskNumber(), 0U);
  }
}

// Each submission starts a worker, even if others are idle.
TEST(ThreadPool, Grows) {
  std::vector<uint64_t> numbers;
  system_clock::time_point begin;
  do {  // retry if a worker may have retired on a slow machine
    const PoolPtr pool = MakePool(3);
    numbers.clear();
    begin = system_clock::now();
    for (int i = 0; i < 5; ++i) {
      ASSERT_TRUE(RunOne(pool));
      std::this_thread::sleep_for(milliseconds(5));
      numbers.push_back(pool->GetRunningThreadNumber());
    }
  } while (system_clock::now() - begin >= kIdleLimit);
  EXPECT_THAT(numbers, ElementsAre(1, 2, 3, 3, 3));
}

TEST(ThreadPool, AddWorker) {
  const auto pool = MakePool(1);
  for (int call = 0; call < 2; ++call) {
    EXPECT_TRUE(((*pool).*Reach(tarsio_test::PoolAddWorker()))());
    EXPECT_EQ(pool->GetRunningThreadNumber(), 1U);
  }
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
  const auto discarded = std::make_shared<Gate>();
  EXPECT_TRUE(pool->SubmitTask([token = MakeToken(discarded)] { FAIL(); }));
  EXPECT_TRUE(pool->SubmitTask([] { FAIL(); }));
  BackgroundCall wait([pool] { pool->Wait(); });
  BackgroundCall shutdown([pool] { pool->Shutdown(ThreadPool::SHUTDOWN_WAIT); });
  EXPECT_TRUE(wait.StaysBlocked()) << "no worker takes the tasks";
  EXPECT_TRUE(shutdown.StaysBlocked()) << "no worker takes the tasks";
  for (const int method : {7, -1, 2, INT32_MAX, INT32_MIN}) {
    SCOPED_TRACE(method);
    BackgroundCall drain([=] { pool->Shutdown(static_cast<Method>(method)); });
    EXPECT_TRUE(drain.ReturnsWithin()) << "no worker is left";
  }
  EXPECT_EQ(pool->GetPendingTaskNumber(), 2U);
  EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
  EXPECT_FALSE(discarded->IsOpen());
  pool->Shutdown(ThreadPool::SHUTDOWN_NOW);
  EXPECT_TRUE(discarded->IsOpen());
  EXPECT_EQ(pool->GetPendingTaskNumber(), 0U);
}

// Workers have no thread name, not even the pool's, and the default priority.
TEST(ThreadPool, Threads) {
  using Traits = std::tuple<std::string, int, int>;
  const auto traits = [] {
    std::array<char, 64> name{};
    int policy = 0;
    sched_param parameters{};
    pthread_getname_np(pthread_self(), name.data(), name.size());
    pthread_getschedparam(pthread_self(), &policy, &parameters);
    return Traits(name.data(), policy, parameters.sched_priority);
  };
  Traits any;
  std::thread([&] { any = traits(); }).join();
  const auto worker = std::make_shared<Traits>("not asked", 0, 0);
  ASSERT_TRUE(RunOne(MakePool(1), [=] { *worker = traits(); }));
  EXPECT_EQ(*worker, any);
}

// Workers are listed in the order of their start. Each retires a second after its own task.
TEST(ThreadPool, List) {
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
  for (const HeldTask& task : tasks) {
    ASSERT_TRUE(task.Finish());
    while (pool->GetRunningThreadNumber() == workers.size()) {
      std::this_thread::sleep_for(milliseconds(1));
    }
    EXPECT_GE(system_clock::now() - task.End(), kIdleLimit);
    workers.erase(workers.begin());
    EXPECT_EQ(list(), workers);
  }
  ASSERT_TRUE(RunOne(pool)) << "the pool grows again";
  EXPECT_EQ(pool->GetRunningThreadNumber(), 1U);
}

// ---- exceptions of tasks ----

TEST(ThreadPool, ThrowingTask) {
  struct HostError : std::exception {
    const char* what() const noexcept override { return "a host's own error"; }
  };
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_ERROR);
  const struct {
    const char* name;
    Task task;
    std::string text;
  } rows[] = {
      {"a derived class", [] { throw HostError(); }, "a host's own error"},
      {"memory", [] { throw std::bad_alloc(); }, std::bad_alloc().what()},
      {"format characters", [] { throw std::runtime_error("100 %s of %d%n"); }, "100 %s of %d%n"},
      {"empty message", [] { throw std::runtime_error(""); }, ""},
      {"empty task", nullptr, std::bad_function_call().what()},
  };
  const PoolPtr pool = MakePool(1);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_TRUE(OutlivesTask(pool, row.task));
    EXPECT_EQ(pool->GetRunningThreadNumber(), 1U);
    ASSERT_EQ(records->All().size(), static_cast<size_t>(&row - rows) + 1);
    const tarsio_test::LogRecord record = records->All().back();
    EXPECT_EQ(record.level, tarsio::LOG_LEVEL_FATAL);
    EXPECT_EQ(record.file, "src/thread_pool.cpp");
    EXPECT_EQ(record.line, 196);
    EXPECT_EQ(record.function, "tarsio::ThreadPool::RunTask");
    EXPECT_THAT(record.text, EndsWith("][FATAL][thread_pool.cpp:196] task exception: " + row.text));
  }
}

// Installs a sink that runs a callback.
void LogTo(std::function<void()> call) {
  class CallingLogger : public tarsio::Logger {
   public:
    explicit CallingLogger(std::function<void()> target) : call(std::move(target)) {}
    void DoOutput(const char* /*line*/) override { call(); }

   private:
    const std::function<void()> call;
  };
  tarsio::Log::GetInstance().SetLogger(std::make_unique<CallingLogger>(std::move(call)));
}

TEST(ThreadPool, LostReport) {
  const auto reports = std::make_shared<std::atomic<int>>(0);
  LogTo([reports] {
    ++*reports;
    throw std::runtime_error("the sink");
  });
  EXPECT_TRUE(OutlivesTask(MakePool(1), [] { throw std::runtime_error("the task"); }));
  EXPECT_EQ(*reports, 1);
}

void RunInADyingProcess(const Task& task) {
  std::set_terminate([] { std::_Exit(9); });
  const PoolPtr pool = MakePool(1);
  pool->SubmitTask(task);
  Gate().WaitFor();
}

TEST(PoolDeathTest, Exception) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const Task tasks[] = {[] { throw 42; },
                        [] {
                          LogTo([] { throw 42; });
                          throw std::runtime_error("the task");
                        }};
  for (const Task& task : tasks) {
    EXPECT_EXIT(RunInADyingProcess(task), testing::ExitedWithCode(9), "");
  }
}

// ---- a pool without an owner ----

TEST(ThreadPool, NoOwner) {
  ThreadPool pool("on the stack", 1, 0, 10);
  Task task = [] { FAIL(); };
  EXPECT_THAT([&] { pool.SubmitTask(task); },
              testing::ThrowsMessage<std::bad_weak_ptr>(testing::HasSubstr("make_shared")));
  EXPECT_EQ(pool.GetPendingTaskNumber(), 1U) << "queued, and the lock was released";
  EXPECT_EQ(pool.GetRunningThreadNumber(), 0U);
  pool.Shutdown(kMethodWithoutName);  // no worker is listed
  EXPECT_EQ(pool.GetPendingTaskNumber(), 1U);
  EXPECT_TRUE(ThreadPool("on the stack", 0, 0, 10).SubmitTask(task)) << "needs no worker";
}

// ---- a full queue ----

TEST(ThreadPool, FullQueue) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  const PoolPtr pool = MakePool(1, 2);
  const std::array<HeldTask, 3> tasks;
  ASSERT_TRUE(tasks[0].StartIn(pool));
  tasks[1].SubmitTo(pool);
  pool->SubmitTask([] {});
  const auto result = std::make_shared<std::atomic<bool>>(false);
  BackgroundCall submit([=] { *result = pool->SubmitTask([] {}); });
  EXPECT_TRUE(submit.StaysBlocked());
  EXPECT_EQ(pool->GetPendingTaskNumber(), 2U);
  tasks[0].Release();
  ASSERT_TRUE(submit.ReturnsWithin()) << "a task was taken";
  EXPECT_TRUE(*result);
  EXPECT_EQ(pool->GetPendingTaskNumber(), 2U);
  tasks[1].Release();
  ASSERT_TRUE(tasks[2].StartIn(pool)) << "all earlier tasks have run";
  EXPECT_EQ(pool->GetPendingTaskNumber(), 0U);
  EXPECT_THAT(records->All(), IsEmpty());
}

TEST(ThreadPool, ZeroCapacity) {
  const PoolPtr pool = MakePool(2, 0);
  BackgroundCall submit([pool] { pool->SubmitTask([] {}); });
  EXPECT_TRUE(submit.StaysBlocked());
  EXPECT_EQ(pool->GetPendingTaskNumber(), 0U);
  EXPECT_EQ(pool->GetRunningThreadNumber(), 0U) << "a worker is started after the task is queued";
}

// ---- Wait ----

TEST(ThreadPool, Wait) {
  const PoolPtr pool = MakePool(2);
  BackgroundCall onEmpty([pool] { pool->Wait(); });
  EXPECT_TRUE(onEmpty.ReturnsWithin());
  const std::array<HeldTask, 4> tasks;
  ASSERT_TRUE(tasks[0].StartIn(pool));
  ASSERT_TRUE(tasks[1].StartIn(pool));
  tasks[2].SubmitTo(pool);
  tasks[3].SubmitTo(pool);
  std::vector<BackgroundCall> waits;
  for (int i = 0; i < 5; ++i) waits.emplace_back([pool] { pool->Wait(); });
  for (BackgroundCall& wait : waits) EXPECT_TRUE(wait.StaysBlocked(milliseconds(60)));
  tasks[0].Release();
  EXPECT_TRUE(waits[0].StaysBlocked(milliseconds(100))) << "one task is still pending";
  tasks[1].Release();
  for (BackgroundCall& wait : waits) EXPECT_TRUE(wait.ReturnsWithin());
  EXPECT_EQ(pool->GetPendingTaskNumber(), 0U);
  EXPECT_FALSE(tasks[2].IsFinished());
  EXPECT_FALSE(tasks[3].IsFinished());
}

TEST(ThreadPool, WaitInTask) {
  const PoolPtr pool = MakePool(2);
  const std::array<HeldTask, 2> tasks;
  ASSERT_TRUE(tasks[0].StartIn(pool));
  const auto waited = std::make_shared<Gate>();
  const auto goOn = std::make_shared<Gate>();
  const tarsio_test::OpenOnExit guard{goOn};
  pool->SubmitTask([=, &self = *pool] {
    goOn->Wait();
    self.Wait();
    waited->Open();
  });
  tasks[1].SubmitTo(pool);
  goOn->Open();
  EXPECT_FALSE(waited->WaitFor(kBlockedCheck)) << "a task is pending";
  tasks[0].Release();
  for (int i = 0; i < 10 && !waited->WaitFor(milliseconds(4000)); ++i) pool->SubmitTask([] {});
  EXPECT_TRUE(waited->IsOpen());
}

// In its own task, either waits for itself. The pools are never destroyed.
TEST(ThreadPool, SelfWait) {
  void (*const calls[])(ThreadPool&) = {
      [](ThreadPool& pool) { pool.Wait(); },  // for the second task
      [](ThreadPool& pool) { pool.Shutdown(kMethodWithoutName); },
  };
  for (const auto call : calls) {
    const PoolPtr& pool = *new PoolPtr(MakePool(1));
    const auto goOn = std::make_shared<Gate>();
    const auto returned = std::make_shared<Gate>();
    pool->SubmitTask([=, &pool] {
      goOn->Wait();
      call(*pool);
      returned->Open();
    });
    pool->SubmitTask([] {});
    goOn->Open();
    EXPECT_FALSE(returned->WaitFor(milliseconds(1500)));
    EXPECT_EQ(pool->GetPendingTaskNumber(), 1U);
    EXPECT_EQ(pool->GetRunningThreadNumber(), 1U);
  }
}

// ---- Shutdown ----

TEST(ThreadPool, ShutdownNow) {
  const PoolPtr pool = MakePool(2);
  const std::array<HeldTask, 2> tasks;
  ASSERT_TRUE(tasks[0].StartIn(pool));
  ASSERT_TRUE(tasks[1].StartIn(pool));
  const auto discarded = std::make_shared<Gate>();
  {
    const std::shared_ptr<void> token = MakeToken(discarded);
    for (int i = 0; i < 5; ++i) pool->SubmitTask([token] { FAIL(); });
  }
  EXPECT_EQ(pool->GetPendingTaskNumber(), 5U);
  BackgroundCall shutdown([pool] { pool->Shutdown(ThreadPool::SHUTDOWN_NOW); });
  ASSERT_TRUE(discarded->WaitFor());
  EXPECT_EQ(pool->GetPendingTaskNumber(), 0U);
  EXPECT_TRUE(shutdown.StaysBlocked(milliseconds(1300))) << "the tasks are not interrupted";
  EXPECT_EQ(pool->GetRunningThreadNumber(), 2U);
  ASSERT_TRUE(tasks[0].Finish());
  ASSERT_TRUE(tasks[1].Finish());
  ASSERT_TRUE(shutdown.ReturnsWithin());
  EXPECT_GE(system_clock::now() - tasks[1].End(), kIdleLimit)
      << "closing the queue does not shorten the idle second";
  EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
}

// A closed queue never accepts a task again (by design).
TEST(ThreadPool, AfterClose) {
  const PoolPtr pool = MakePool(1);
  const Method methods[] = {ThreadPool::SHUTDOWN_WAIT, kMethodWithoutName,
                            ThreadPool::SHUTDOWN_NOW};
  const auto allReturn = [&] {
    for (const Method method : methods) {
      SCOPED_TRACE(method);
      BackgroundCall shutdown([=] { pool->Shutdown(method); });
      EXPECT_TRUE(shutdown.ReturnsWithin());
    }
  };
  allReturn();  // this closes the queue
  BackgroundCall submit([pool] { pool->SubmitTask([] {}); });
  EXPECT_TRUE(submit.StaysBlocked());
  allReturn();
  BackgroundCall wait([pool] { pool->Wait(); });
  EXPECT_TRUE(wait.ReturnsWithin());
  EXPECT_EQ(pool->GetPendingTaskNumber(), 0U);
  EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
  EXPECT_TRUE(submit.StaysBlocked(milliseconds(1))) << "Shutdown() does not reopen the pool";
}

// All methods but SHUTDOWN_NOW run every pending task, including later ones, and leave the pool
// open.
TEST(ThreadPool, Shutdown) {
  const PoolPtr pool = MakePool(2);
  for (const Method method :
       {ThreadPool::SHUTDOWN_WAIT, ThreadPool::SHUTDOWN_DRAIN, kMethodWithoutName}) {
    SCOPED_TRACE(method);
    const std::array<HeldTask, 3> tasks;
    ASSERT_TRUE(tasks[0].StartIn(pool));
    ASSERT_TRUE(tasks[1].StartIn(pool));
    const auto runs = std::make_shared<std::atomic<int>>(0);
    for (int i = 0; i < 20; ++i) pool->SubmitTask([=] { ++*runs; });
    BackgroundCall shutdown([=] { pool->Shutdown(method); });
    EXPECT_TRUE(shutdown.StaysBlocked(milliseconds(150)));
    pool->SubmitTask([=] { ++*runs; });
    tasks[2].SubmitTo(pool);
    EXPECT_EQ(pool->GetPendingTaskNumber(), 22U);
    tasks[0].Release();
    tasks[1].Release();
    EXPECT_TRUE(shutdown.StaysBlocked(milliseconds(150)));
    EXPECT_EQ(*runs, 21);
    tasks[2].Release();
    ASSERT_TRUE(ReturnsAtTheNextTask(shutdown, pool));
    EXPECT_GE(system_clock::now() - tasks[2].End(), kIdleLimit);
    EXPECT_EQ(pool->GetPendingTaskNumber(), 0U);
    EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
  }
}

TEST(ThreadPool, ManyShutdowns) {
  const PoolPtr pool = MakePool(2);
  const HeldTask held;
  ASSERT_TRUE(held.StartIn(pool));
  std::vector<BackgroundCall> calls;
  for (int i = 0; i < 6; ++i) {
    calls.emplace_back([=] { pool->Shutdown(static_cast<Method>(i % 3)); });
  }
  for (BackgroundCall& call : calls) EXPECT_TRUE(call.StaysBlocked(milliseconds(20)));
  held.Release();
  for (BackgroundCall& call : calls) EXPECT_TRUE(call.ReturnsWithin());
  EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
}

// ---- ownership ----

TEST(ThreadPool, WorkersOwnPool) {
  struct Destruction {
    system_clock::time_point time = system_clock::now();
    std::thread::id thread = std::this_thread::get_id();
    uint64_t workers = UINT64_MAX;
  };
  const auto ran = std::make_shared<std::atomic<int>>(0);
  const auto destroyed = std::make_shared<Gate>();
  const auto destruction = std::make_shared<Destruction>();
  const auto destroy = [=](ThreadPool* pool) {
    *destruction = Destruction();
    destruction->workers = pool->GetRunningThreadNumber();
    delete pool;
    destroyed->Open();
  };
  const std::array<HeldTask, 3> tasks;
  {
    const PoolPtr pool(new ThreadPool("dropped", 2, 0, 1000), destroy);
    ASSERT_TRUE(tasks[0].StartIn(pool));
    ASSERT_TRUE(tasks[1].StartIn(pool));
    for (int i = 0; i < 50; ++i) pool->SubmitTask([ran] { ++*ran; });
    tasks[2].SubmitTo(pool);
  }
  EXPECT_FALSE(destroyed->WaitFor(kBlockedCheck)) << "the workers still own it";
  for (const HeldTask& task : tasks) ASSERT_TRUE(task.Finish());
  ASSERT_TRUE(destroyed->WaitFor());
  EXPECT_EQ(*ran, 50);
  EXPECT_GE(destruction->time - tasks[2].End(), kIdleLimit);
  EXPECT_EQ(destruction->workers, 0U);
  EXPECT_THAT(destruction->thread, testing::AnyOf(tasks[0].Thread(), tasks[1].Thread()));
}

// ---- a thread that cannot be started ----

TEST(ThreadPool, FailedStart) {
  const PoolPtr pool = MakePool(2);
  const auto order = std::make_shared<std::vector<int>>();
  {
    const RefuseThreadStarts refuse;
    const auto again = testing::Property(&std::system_error::code,
                                         testing::Eq(std::errc::resource_unavailable_try_again));
    for (int i = 0; i < 3; ++i) {
      const Task task = [=] { order->push_back(i); };
      EXPECT_THAT([&] { pool->SubmitTask(task); }, testing::Throws<std::system_error>(again));
      EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
      EXPECT_EQ(pool->GetPendingTaskNumber(), static_cast<uint64_t>(i + 1)) << "stays queued";
      EXPECT_EQ(pool.use_count(), 1) << "no worker owns the pool";
    }
  }
  BackgroundCall shutdown([pool] { pool->Shutdown(kMethodWithoutName); });
  EXPECT_TRUE(shutdown.ReturnsWithin()) << "no worker is listed";
  EXPECT_THAT(*order, IsEmpty());
  const HeldTask held;
  ASSERT_TRUE(held.StartIn(pool)) << "one more worker runs all tasks";
  EXPECT_THAT(*order, ElementsAre(0, 1, 2));
  const RefuseThreadStarts refuse;
  const auto ran = std::make_shared<Gate>();
  EXPECT_THROW(pool->SubmitTask([ran] { ran->Open(); }), std::system_error);
  held.Release();
  EXPECT_TRUE(ran->WaitFor()) << "by the worker that runs already";
  EXPECT_EQ(pool->GetRunningThreadNumber(), 1U);
}

// Otherwise the second submission would block on a full queue that has no worker.
TEST(ThreadPool, FailedFull) {
  const auto pool = MakePool(1, 1);
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

// A task is submitted while the only worker retires. No successor can be started, so it goes on.
// worker_test covers the successor.
TEST(ThreadPool, NoSuccessor) {
  const PoolPtr pool = MakePool(1);
  const HeldTask first;
  const HeldTask late;
  ASSERT_TRUE(first.StartIn(pool));
  const RefuseThreadStarts refuse;
  {
    const std::lock_guard<std::mutex> lock((*pool).*Reach(tarsio_test::PoolWorkersMutex()));
    ASSERT_TRUE(first.Finish());
    std::this_thread::sleep_until(first.End() + kIdleLimit + milliseconds(200));
    late.SubmitTo(pool);  // the worker has timed out and waits for the lock
  }
  ASSERT_TRUE(late.Finish());
  EXPECT_EQ(late.Thread(), first.Thread());
  EXPECT_EQ(pool->GetRunningThreadNumber(), 1U);
  pool->Shutdown(kMethodWithoutName);  // retires a second later
  EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
}

// races_test counts each task on a disturbed schedule. Here all members run concurrently.
TEST(ThreadPool, Load) {
  const PoolPtr pool = MakePool(3, 20);
  std::atomic<bool> stop{false};
  std::atomic<int> submitted{0};
  const auto runs = std::make_shared<std::atomic<int>>(0);
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      for (; !stop; ++submitted) pool->SubmitTask([runs] { ++*runs; });
    });
  }
  std::vector<BackgroundCall> calls;
  for (int i = 0; i < 3; ++i) {
    calls.emplace_back([pool] { pool->Wait(); });
    calls.emplace_back([pool] { pool->Shutdown(ThreadPool::SHUTDOWN_WAIT); });
    calls.emplace_back([pool] { pool->Shutdown(kMethodWithoutName); });
  }
  for (const auto end = system_clock::now() + milliseconds(500); system_clock::now() < end;) {
    EXPECT_LE(pool->GetPendingTaskNumber(), 20U);
    EXPECT_LE(pool->GetRunningThreadNumber(), 3U);
    EXPECT_EQ(pool->GetName(), "test");
  }
  stop = true;
  for (std::thread& thread : threads) thread.join();
  for (BackgroundCall& call : calls) EXPECT_TRUE(ReturnsAtTheNextTask(call, pool));
  // Again, since the first call returned at once if it ran before the first worker started.
  pool->Shutdown(kMethodWithoutName);
  EXPECT_EQ(*runs, submitted);
  EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
}

}  // namespace
