#include <array>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include "common/latch.h"
#include "common/log.h"
#include "common/thread_pool.h"
#include "support/private_member.h"
#include "threads/explorer/explorer.h"
#include "threads/explorer/process_end.h"
#include "worker.h"

namespace tarsio_test {

EXPOSE_PRIVATE(WorkersOfPool, &tarsio::ThreadPool::workers);

}  // namespace tarsio_test

namespace {

using tarsio::Log;
using tarsio::ThreadPool;
using tarsio_test::Check;
using tarsio_test::EndProcess;
using tarsio_test::Exploration;
using tarsio_test::Faults;
using tarsio_test::NowMs;
using tarsio_test::Point;
using tarsio_test::Require;
using tarsio_test::Scenario;
using tarsio_test::Shared;
using tarsio_test::SleepMs;
using tarsio_test::System;

constexpr int kTasks = 3;
constexpr int64_t kIdleMs = 1000;

// What happened in one schedule.
struct History {
  std::array<int, kTasks> accepted{};
  std::array<Shared<int>, kTasks> runs{};
  uint64_t limit = 1;
  Shared<uint64_t> active;  // tasks that run now
  Shared<bool> closed;
  bool inWait = false;
  int logged = 0;
  Shared<int64_t> lastRun;

  bool AllRan() const { return std::equal(runs.begin(), runs.end(), accepted.begin()); }
};

History history;

class CountingLogger : public tarsio::Logger {
 public:
  void DoOutput(const char* /*line*/) override { ++history.logged; }
};

class PoolSchedules : public testing::Test {
 protected:
  // Allocates what the log keeps.
  static void SetUpTestSuite() {
    Log::GetInstance().SetLogger(std::make_unique<CountingLogger>());
    Log::GetInstance().DoLog(tarsio::LOG_LEVEL_FATAL, "", 0, "", "first");
  }

  static Exploration CheckPool(int bound, uint64_t atLeast, std::function<void()> body,
                               Scenario scenario = {}) {
    scenario.bound = bound;
    scenario.reset = tarsio_test::ResetProcess;
    scenario.body = [body = std::move(body)] {
      history = {};
      body();
    };
    if (!scenario.after) scenario.after = [] { return history.AllRan(); };
    return Check(scenario, atLeast);
  }
};

std::shared_ptr<ThreadPool> MakePool(uint64_t limit, uint64_t capacity = kTasks) {
  history.limit = limit;
  return std::make_shared<ThreadPool>("pool", limit, 0U, capacity);
}

void RunTask(int number, ThreadPool* pool) {
  Require(!history.closed, "a task runs after the end of SHUTDOWN_NOW");
  Require(++history.active <= history.limit, "too many tasks at a time");
  Require(++history.runs[static_cast<size_t>(number)] == 1, "a task runs twice");
  if (pool != nullptr) {
    const uint64_t workers = pool->GetRunningThreadNumber();
    Require(workers > 0 && workers <= history.limit, "a wrong number of workers");
  }
  Point();
  history.lastRun = NowMs();
  --history.active;
}

void Submit(ThreadPool& pool, int number) {
  // Counted first: the task may run before the call returns.
  history.accepted[static_cast<size_t>(number)] = 1;
  pool.SubmitTask([number, &pool] { RunTask(number, &pool); });
}

// The pool is at rest: nothing waits, and no worker is left.
void Drain(ThreadPool& pool, ThreadPool::SHUTDOWN_METHOD method = ThreadPool::SHUTDOWN_DRAIN) {
  pool.Shutdown(method);
  Require(pool.GetRunningThreadNumber() == 0, "a worker is left");
  Require(pool.GetPendingTaskNumber() == 0, "a task is left");
  Require(history.active == 0, "a task still runs");
  Require(NowMs() >= history.lastRun + kIdleMs, "a worker retires early");
}

// A task is submitted exactly when the worker retires.
TEST_F(PoolSchedules, Retirement) {
  const auto body = [] {
    const auto pool = MakePool(1);
    for (int i = 0; i < kTasks; ++i) {
      if (i > 0) SleepMs(kIdleMs);
      Submit(*pool, i);
    }
    Drain(*pool);
    Require(history.AllRan(), "a task has not run");
  };
  CheckPool(4, 150000, body);
}

TEST_F(PoolSchedules, TwoWorkersRetire) {
  const auto body = [] {
    const auto pool = MakePool(2);
    Submit(*pool, 0);
    Submit(*pool, 1);
    SleepMs(kIdleMs);
    Submit(*pool, 2);
    Drain(*pool);
    Require(history.AllRan(), "a task has not run");
  };
  CheckPool(2, 150000, body);
}

// Two threads submit to a pool whose queue is too short.
void TwoHosts(uint64_t limit, int tasks) {
  const auto pool = MakePool(limit, 1);
  std::thread host([&pool] { Submit(*pool, 0); });
  Submit(*pool, 1);
  if (tasks > 2) {
    SleepMs(kIdleMs);
    Submit(*pool, 2);
  }
  host.join();
  Drain(*pool);
  Require(history.AllRan(), "a task has not run");
}

TEST_F(PoolSchedules, TwoHostsOneWorker) {
  CheckPool(3, 130000, [] { TwoHosts(1, 3); });
}
TEST_F(PoolSchedules, TwoHostsTwoWorkers) {
  CheckPool(2, 69000, [] { TwoHosts(2, 2); });
}

// At any moment of two tasks, and twice at the same time.
TEST_F(PoolSchedules, ShutdownNow) {
  Scenario scenario;
  int discards = 0;
  scenario.after = [&discards] {
    discards += history.AllRan() ? 0 : 1;
    return true;
  };
  const auto body = [] {
    const auto pool = MakePool(1);
    Submit(*pool, 0);
    Submit(*pool, 1);
    std::thread other([&pool] { pool->Shutdown(ThreadPool::SHUTDOWN_NOW); });
    Drain(*pool, ThreadPool::SHUTDOWN_NOW);
    history.closed = true;
    other.join();
  };
  CheckPool(4, 51000, body, scenario);
  EXPECT_GT(discards, 0);
}

void ShutdownWhile(ThreadPool::SHUTDOWN_METHOD method) {
  const auto pool = MakePool(1);
  Submit(*pool, 0);
  Submit(*pool, 1);
  history.inWait = true;
  if (method == ThreadPool::SHUTDOWN_WAIT) pool->Wait();
  history.inWait = false;
  const bool hasWaited = method == ThreadPool::SHUTDOWN_WAIT;
  Require(!hasWaited || pool->GetPendingTaskNumber() == 0, "Wait() leaves a task");
  Drain(*pool, method);
  Require(history.AllRan(), "a task has not run");
}

TEST_F(PoolSchedules, ShutdownDrain) {
  CheckPool(5, 8300, [] { ShutdownWhile(ThreadPool::SHUTDOWN_DRAIN); });
}

TEST_F(PoolSchedules, ShutdownUnnamed) {
  CheckPool(4, 2300, [] { ShutdownWhile(static_cast<ThreadPool::SHUTDOWN_METHOD>(7)); });
}

// Wait() may miss that the last task is dequeued. No schedule blocks for another reason.
TEST_F(PoolSchedules, ShutdownWait) {
  Scenario scenario;
  scenario.mayBlock = [] { return history.inWait && history.AllRan(); };
  const auto wait = [] { ShutdownWhile(ThreadPool::SHUTDOWN_WAIT); };
  EXPECT_EQ(CheckPool(0, 1, wait, scenario).blocked, 0U) << "missed without a preemption";
  const auto result = CheckPool(5, 57000, wait, scenario);
  EXPECT_GT(result.blocked, 0U) << "the documented miss is not found";
}

// Both threads wait, the only worker is in the first task: the last one wakes both.
TEST_F(PoolSchedules, TwoInWait) {
  const auto body = [] {
    const auto pool = MakePool(1);
    pool->SubmitTask([] { SleepMs(1); });
    Submit(*pool, 0);
    std::thread other([&] { pool->Wait(); });
    pool->Wait();
    other.join();
    Drain(*pool);
  };
  CheckPool(0, 1, body);
}

// Wait() does not wait for a task that has been dequeued.
TEST_F(PoolSchedules, WaitDuringTask) {
  const auto body = [] {
    const auto pool = MakePool(1);
    tarsio::CountDownLatch waited(1);
    pool->SubmitTask([&] { waited.Wait(0); });
    pool->Wait();
    waited.CountDown();
    Drain(*pool);
  };
  CheckPool(0, 1, body);
}

// The hosts drop the pool at any moment; the last owner may be a worker.
void DropWith(uint64_t limit) {
  auto pool = MakePool(limit);
  std::thread other([copy = pool]() mutable {
    Submit(*copy, 0);
    copy.reset();
  });
  Submit(*pool, 1);
  SleepMs(kIdleMs);
  Submit(*pool, 2);
  pool.reset();
  other.join();
}

TEST_F(PoolSchedules, DropOneWorker) {
  Scenario scenario;
  scenario.unlockPoints = true;
  CheckPool(
      3, 110000, [] { DropWith(1); }, scenario);
}

TEST_F(PoolSchedules, DropTwoWorkers) {
  Scenario scenario;
  scenario.unlockPoints = true;
  CheckPool(
      2, 290000, [] { DropWith(2); }, scenario);
}

// A host drops the pool while the workers leave after a shutdown.
TEST_F(PoolSchedules, DropAfterShutdown) {
  Scenario scenario;
  scenario.unlockPoints = true;
  const auto body = [] {
    auto pool = MakePool(2);
    Submit(*pool, 0);
    Submit(*pool, 1);
    Drain(*pool);
    pool.reset();
  };
  CheckPool(3, 170000, body, scenario);
}

// The host may rename the pool as soon as it has submitted a task, whatever the workers do.
TEST_F(PoolSchedules, SetName) {
  static const std::string oldName(40, 'a');
  static const std::string newName(80, 'b');
  Scenario scenario;
  scenario.allocationPoints = true;
  scenario.everyOrder = true;
  const auto body = [] {
    const auto pool = std::make_shared<ThreadPool>(oldName, 1U, 0U, 2U);
    const auto submit = [&pool](int number) {
      history.accepted[static_cast<size_t>(number)] = 1;
      pool->SubmitTask([number, &pool] {
        for (const auto& worker : (*pool).*Reach(tarsio_test::WorkersOfPool())) {
          Require(worker->Name() == oldName, "a torn or new name");
        }
        RunTask(number, nullptr);
      });
    };
    submit(0);
    SleepMs(kIdleMs);
    submit(1);
    pool->SetName(newName);
    Require(pool->GetName() == newName, "another name");
    Drain(*pool);
  };
  CheckPool(3, 45000, body, scenario);
}

TEST_F(PoolSchedules, TaskSubmits) {
  const auto body = [] {
    const auto pool = MakePool(1);
    history.accepted = {1, 1, 1};
    pool->SubmitTask([&pool] {
      RunTask(0, nullptr);
      pool->SubmitTask([] { RunTask(1, nullptr); });
    });
    SleepMs(kIdleMs);
    pool->SubmitTask([] { RunTask(2, nullptr); });
    Drain(*pool);
  };
  CheckPool(4, 27000, body);
}

TEST_F(PoolSchedules, TaskThrows) {
  const auto body = [] {
    const auto pool = MakePool(2);
    history.accepted = {1, 1};
    pool->SubmitTask([] {
      RunTask(0, nullptr);
      throw std::runtime_error("boom");
    });
    pool->SubmitTask([] { RunTask(1, nullptr); });
    pool->SubmitTask(std::function<void()>());
    Drain(*pool);
    Require(history.logged == 2, "not one line for each failing task");
  };
  CheckPool(3, 130000, body);
}

// Returns whether the task is queued.
bool SubmitWithFaults(ThreadPool& pool, int number) {
  const Faults faults;
  try {
    Submit(pool, number);
  } catch (const std::system_error&) {
    // No thread was started; the task is queued.
  } catch (const std::bad_alloc&) {
    const bool hasRun = history.runs[static_cast<size_t>(number)] > 0;
    return hasRun || pool.GetPendingTaskNumber() > 0;
  }
  return true;
}

// One thread start or allocation fails, perhaps that of a successor of a worker that retires.
TEST_F(PoolSchedules, FailingStart) {
  Scenario scenario;
  scenario.faults = 1;
  const auto body = [] {
    const auto pool = MakePool(1, 1);
    while (!SubmitWithFaults(*pool, 0)) {
    }
    SleepMs(kIdleMs);
    while (!SubmitWithFaults(*pool, 1)) {
    }
    Submit(*pool, 2);  // starts a worker if there is none
    Drain(*pool);
    Require(history.AllRan(), "a task has not run");
  };
  CheckPool(3, 63000, body, scenario);
}

// The process ends in the middle of submissions, tasks and retirements. Statics that own pools do
// not wait forever. On Linux the other threads go on, so they must own the pools they use.
void EndWithPool(System system) {
  auto pool = MakePool(1);
  auto idle = MakePool(1);
  Submit(*pool, 0);
  const auto copy = system == System::kLinux ? pool : nullptr;
  const std::thread host([copy, &used = *pool, &idle, system] {
    Submit(used, 1);
    if (system != System::kLinux) idle->GetPendingTaskNumber();
  });
  SleepMs(kIdleMs);
  EndProcess(system, [&] {
    if (system == System::kWindows) {
      Require(!pool->SubmitTask([] { RunTask(2, nullptr); }), "a task is accepted");
      Require(pool->GetPendingTaskNumber() == 0, "a task is pending");
      Require(pool->GetRunningThreadNumber() == 0, "a worker is running");
      pool->Wait();
      pool->Shutdown(ThreadPool::SHUTDOWN_WAIT);
    }
    pool.reset();
    idle.reset();
  });
}

TEST_F(PoolSchedules, EndOnLinux) {
  CheckPool(4, 97000, [] { EndWithPool(System::kLinux); });
}
TEST_F(PoolSchedules, EndOnWindows) {
  CheckPool(4, 23000, [] { EndWithPool(System::kWindows); });
}
TEST_F(PoolSchedules, EndOfForkedChild) {
  CheckPool(4, 23000, [] { EndWithPool(System::kForkedChild); });
}

// A task ends the process, while another thread submits to a pool that it does not own.
void EndInTask(System system) {
  auto pool = MakePool(1);
  auto other = MakePool(1);
  const auto copy = system == System::kLinux ? other : nullptr;
  const std::thread host([copy, &used = *other] { used.SubmitTask([] {}); });
  pool->SubmitTask([&] {
    EndProcess(system, [&] {
      if (system == System::kWindows) {
        pool->Wait();
        pool->Shutdown(ThreadPool::SHUTDOWN_WAIT);
        other->Shutdown(ThreadPool::SHUTDOWN_NOW);
      }
      pool.reset();
      other.reset();
    });
  });
  tarsio::CountDownLatch(1).Wait(0);
}

TEST_F(PoolSchedules, EndInTaskOnLinux) {
  CheckPool(3, 20000, [] { EndInTask(System::kLinux); });
}
TEST_F(PoolSchedules, EndInTaskOnWindows) {
  CheckPool(3, 9900, [] { EndInTask(System::kWindows); });
}
TEST_F(PoolSchedules, ForkInTask) {
  CheckPool(3, 9900, [] { EndInTask(System::kForkedChild); });
}

// Two threads submit to a static pool whose queue is short, so one of them may be waiting.
void EndWithTwoHosts(System system) {
  auto pool = MakePool(2, 1);
  const auto submit = [&used = *pool] { used.SubmitTask([] {}); };
  const std::thread first(submit);
  const std::thread second(submit);
  SleepMs(kIdleMs);
  EndProcess(system, [&] { pool.reset(); });
}

TEST_F(PoolSchedules, TwoHostsOnWindows) {
  CheckPool(2, 53000, [] { EndWithTwoHosts(System::kWindows); });
}
TEST_F(PoolSchedules, TwoHostsOfForkedChild) {
  CheckPool(2, 53000, [] { EndWithTwoHosts(System::kForkedChild); });
}

}  // namespace
