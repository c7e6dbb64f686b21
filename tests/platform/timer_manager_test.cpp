// The timers with a fake wall clock that only changes when a test sets it, so that expiries are
// exact and the test decides which timers are due. The timer thread is real.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "common/timer.h"
#include "platform/platform.h"
#include "support/background_call.h"
#include "support/events.h"
#include "support/gate.h"
#include "support/private_member.h"
#include "support/thread_end.h"
#include "support/thread_starts.h"

namespace {

using component::Timer;
using component::TimerManager;
using component::TsTimer;
using tarsio_test::BackgroundCall;
using tarsio_test::Events;
using tarsio_test::Gate;
using tarsio_test::kTestTimeout;
using tarsio_test::OpenOnExit;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;

using Milliseconds = unsigned long long;

constexpr Milliseconds kNever = std::numeric_limits<Milliseconds>::max();
constexpr Milliseconds kStart = 1700000000000;  // the clock at the beginning of each test
constexpr Milliseconds kHour = 3600000;
constexpr bool kOnce = false;
constexpr bool kRepeating = true;
constexpr std::chrono::milliseconds kSeveralPasses(50);

// Set on the tests' threads. A clock read on any other thread, outside actions, begins a pass.
thread_local bool isApplicationThread = false;
thread_local bool isInAction = false;
thread_local bool isPassThread = false;

struct FakePlatform {
  // Never destroyed: the timer thread reads the clock during process exit.
  static FakePlatform& Get() {
    static auto* const platform = new FakePlatform;
    return *platform;
  }

  // Returns the number of the last pass that may have read the previous time.
  int SetClock(int64_t ticks) {
    const std::lock_guard<std::mutex> lock(mutex);
    clock = ticks;
    return passes;
  }

  int64_t ReadClock() {
    std::unique_lock<std::mutex> lock(mutex);
    if (!isApplicationThread && !isInAction) {
      if (!std::exchange(isPassThread, true)) ++passThreads;
      ++passes;
      passed.notify_all();
    }
    if (isApplicationThread && atNextRead) {
      const std::function<void()> interruption = std::exchange(atNextRead, nullptr);
      lock.unlock();
      interruption();
      lock.lock();
    }
    return clock;
  }

  bool AwaitPassAfter(int number) {
    std::unique_lock<std::mutex> lock(mutex);
    return passed.wait_for(lock, kTestTimeout, [&] { return passes > number; });
  }
  bool AwaitPasses(int count = 1) { return AwaitPassAfter(passes + count - 1); }

  // Runs `action` once, at the next clock read of a test's thread, which holds the manager's lock
  // then.
  void AtNextRead(std::function<void()> action) {
    const std::lock_guard<std::mutex> lock(mutex);
    atNextRead = std::move(action);
  }

  std::atomic<int> pins{0};
  std::atomic<bool> threadBeforePin{false};
  std::atomic<bool> processIsEnding{false};
  std::atomic<int> endingAsked{0};
  std::atomic<int> forks{0};
  std::atomic<int> passes{0};
  std::atomic<int> passThreads{0};
  std::atomic<int> lockTries{0};  // by threads other than the tests' own

  std::mutex mutex;                           // guards the members below
  std::set<std::chrono::nanoseconds> sleeps;  // of threads other than the tests' own

 private:
  std::condition_variable passed;
  int64_t clock = 0;  // 100-ns ticks
  std::function<void()> atNextRead;
};

FakePlatform& Platform() { return FakePlatform::Get(); }

}  // namespace

// The linker's --wrap option redirects calls of nanosleep here; __real_nanosleep is the original.
// The standard libraries of both systems sleep with it.
extern "C" int __real_nanosleep(const timespec* duration, timespec* left);
extern "C" int __wrap_nanosleep(const timespec* duration, timespec* left) {
  if (!isApplicationThread) {
    const std::lock_guard<std::mutex> lock(Platform().mutex);
    Platform().sleeps.insert(std::chrono::seconds(duration->tv_sec) +
                             std::chrono::nanoseconds(duration->tv_nsec));
  }
  return __real_nanosleep(duration, left);
}

// Wrapped like nanosleep.
extern "C" int __real_pthread_mutex_trylock(pthread_mutex_t* mutex);
extern "C" int __wrap_pthread_mutex_trylock(pthread_mutex_t* mutex) {
  if (!isApplicationThread) ++Platform().lockTries;
  return __real_pthread_mutex_trylock(mutex);
}

namespace tarsio_test {

EXPOSE_PRIVATE(TimerMark, &Timer::state);
EXPOSE_PRIVATE(ManagerThread, &TimerManager::thread);
EXPOSE_PRIVATE(ManagerRunning, &TimerManager::running);
EXPOSE_PRIVATE(ManagerMutex, &TimerManager::mutex);

}  // namespace tarsio_test

namespace tarsio::platform {

int64_t WallClockTicks() { return Platform().ReadClock(); }

// The first call waits until no thread holds the manager's lock. The real function may wait for a
// thread that is loading a module and then needs the lock.
void PinLibrary() {
  if (Platform().pins++ > 0) return;
  std::thread visitor;
  try {
    visitor = std::thread([] {
      TimerManager& manager = *TimerManager::GetInstance();
      const std::lock_guard<std::recursive_mutex> lock(manager.*Reach(tarsio_test::ManagerMutex()));
      Platform().threadBeforePin = manager.*Reach(tarsio_test::ManagerThread()) != nullptr;
    });
  } catch (const std::system_error&) {
    return;  // this test lets thread starts fail
  }
  visitor.join();
}

bool ProcessIsEnding() {
  ++Platform().endingAsked;
  return Platform().processIsEnding;
}

int ForkCount() { return Platform().forks; }

}  // namespace tarsio::platform

namespace {

// A timer that is removed from the queue at the end of a test, however it is marked by then.
class TestTimer {
 public:
  TestTimer(
      Milliseconds timeoutMs, bool repeating, const std::function<void()>& action = [] {})
      : timer(std::make_shared<TsTimer>(timeoutMs, repeating)) {
    timer->Init([action] {
      const struct InAction {
        InAction() { isInAction = true; }
        ~InAction() { isInAction = false; }
      } inAction;
      action();
    });
  }
  TestTimer(const TestTimer&) = delete;
  TestTimer& operator=(const TestTimer&) = delete;
  ~TestTimer() {
    TimerManager::GetInstance()->RemoveTimer(timer);
    timer->SetState(false);
  }

  TsTimer* operator->() const { return timer.get(); }
  const std::shared_ptr<TsTimer>& Get() const { return timer; }
  // One reference by the test and one for each queue entry.
  long Entries() const { return timer.use_count() - 1; }
  bool IsMarkedStarted() const { return (*timer).*Reach(tarsio_test::TimerMark()); }

 private:
  const std::shared_ptr<TsTimer> timer;
};

class ManagerTest : public testing::Test {
 protected:
  ManagerTest() {
    // For InNewProcess().
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    isApplicationThread = true;
    SetClock(kStart);
  }

  static TimerManager& Manager() { return *TimerManager::GetInstance(); }

  static int SetClock(Milliseconds ms, int64_t ticksWithin = 0) {
    return Platform().SetClock(static_cast<int64_t>(ms) * 10000 + ticksWithin);
  }

  // Sets the clock and returns after a pass that has read the new time.
  static void PassAt(Milliseconds ms, int64_t ticksWithin = 0) {
    const int last = SetClock(ms, ticksWithin);
    ASSERT_TRUE(Platform().AwaitPassAfter(last)) << "the timer thread does not run";
    Manager().RemoveTimer(nullptr);  // waits for the pass
  }

  static void StartTheThread() { TestTimer(kHour, kOnce)->Start(); }

  std::function<void()> Noting(const std::string& name) {
    return [this, name] { notes.push_back(name); };
  }
  // Returns what fired since the last call. Used by actions and, between passes, by the test.
  std::vector<std::string> Fired() { return std::exchange(notes, {}); }

 private:
  std::vector<std::string> notes;
};

void Print(const char* text) {
  std::fprintf(stderr, "%s\n", text);
  std::fflush(stderr);
}

// Ends a child process that hangs.
void StartWatchdog() {
  std::thread([] {
    std::this_thread::sleep_for(kTestTimeout);
    Print("the process hangs");
    std::_Exit(3);
  }).detach();
}

// Runs `body` in a new process, in which there is no manager yet. No check may fail, and the
// process must exit with status 0 and print what `output` matches.
void InNewProcess(const std::function<void()>& body,
                  const testing::Matcher<const std::string&>& output = testing::_) {
  const auto run = [&body] {
    StartWatchdog();
    body();
    const auto& checks = *testing::UnitTest::GetInstance()->current_test_info()->result();
    for (int i = 0; i < checks.total_part_count(); ++i) {
      Print(checks.GetTestPartResult(i).message());
    }
    std::exit(checks.Failed() ? 1 : 0);
  };
  EXPECT_EXIT(run(), testing::ExitedWithCode(0), output);
}

// ---- the clock ----

TEST_F(ManagerTest, ClockUnit) {
  const struct {
    int64_t ticks;
    Milliseconds expected;
  } rows[] = {{0, 0},
              {9999, 0},
              {10000, 1},
              {19999, 1},
              {-9999, 0},
              {17000000000005000, 1700000000000},
              {std::numeric_limits<int64_t>::max(), 922337203685477}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.ticks);
    Platform().SetClock(row.ticks);
    EXPECT_EQ(Manager().GetCurrentMillisecs(), row.expected);
  }
}

// ---- the timer thread ----

TEST_F(ManagerTest, Lazy) {
  InNewProcess([] {
    EXPECT_FALSE(Manager().*Reach(tarsio_test::ManagerRunning()));
    EXPECT_EQ(Manager().GetCurrentMillisecs(), kStart);
    const TestTimer zero(0, kRepeating);
    const TestTimer stopped(10, kOnce);
    for (const TestTimer* timer : {&zero, &stopped}) (*timer)->SetExpire(77);
    zero->Start();
    EXPECT_TRUE(zero.IsMarkedStarted());
    Manager().AddTimer(zero.Get());
    Manager().AddTimer(nullptr);
    for (const auto& timer : {zero.Get(), stopped.Get(), std::shared_ptr<TsTimer>()}) {
      Manager().ResetTimer(timer);
      Manager().RemoveTimer(timer);
    }
    std::this_thread::sleep_for(kSeveralPasses);
    EXPECT_EQ(Platform().passes, 0);
    EXPECT_EQ(Platform().pins, 0);
    for (const TestTimer* timer : {&zero, &stopped}) {
      EXPECT_EQ((*timer)->GetExpire(), 77U);
      EXPECT_EQ(timer->Entries(), 0);
    }
    zero->Stop();
    EXPECT_FALSE(zero.IsMarkedStarted());
  });
}

// A manager would ask the platform during process exit, before the handler runs.
TEST_F(ManagerTest, NoOwner) {
  InNewProcess([] {
    std::atexit([] { std::_Exit(Platform().endingAsked); });
    TsTimer timer(10, kOnce);
    EXPECT_THROW(timer.Start(), std::bad_weak_ptr);
    timer.SetState(false);
  });
}

TEST_F(ManagerTest, FirstStart) {
  InNewProcess([] {
    // At process exit the system may no longer be able to look up its function.
    int askedBefore = 0;
    Platform().AtNextRead([&] { askedBefore = Platform().endingAsked; });
    StartTheThread();
    EXPECT_GT(askedBefore, 0);
    EXPECT_TRUE(Platform().AwaitPasses(3));
    EXPECT_EQ(Platform().pins, 1);
    EXPECT_FALSE(Platform().threadBeforePin);
  });
}

TEST_F(ManagerTest, OneThread) {
  InNewProcess([] {
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
      threads.emplace_back([] {
        isApplicationThread = true;
        StartTheThread();
      });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_TRUE(Platform().AwaitPasses(5)) << "it goes on with an empty queue";
    StartTheThread();
    Manager().AddTimer(nullptr);
    EXPECT_TRUE(Platform().AwaitPasses(5));
    EXPECT_EQ(Platform().passThreads, 1);
  });
}

// The timers stay queued and marked. The next start of any timer starts the thread, even if it adds
// nothing to the queue.
TEST_F(ManagerTest, NoThread) {
  for (const char* next : {"null", "timeout 0", "an hour"}) {
    SCOPED_TRACE(next);
    InNewProcess([next = std::string(next)] {
      Events fired;
      const TestTimer timers[] = {{10, kOnce, [&] { fired.Add(); }},
                                  {10, kOnce, [&] { fired.Add(); }}};
      for (const TestTimer& timer : timers) {
        const tarsio_test::RefuseThreadStarts refuse;
        try {
          timer->Start();
          ADD_FAILURE() << "no exception";
        } catch (const std::system_error& e) {
          EXPECT_EQ(e.code(), std::errc::resource_unavailable_try_again);
        }
        timer->Start();  // marked, so this does nothing
      }
      EXPECT_EQ(Platform().passes, 0);
      if (next == "null") Manager().AddTimer(nullptr);
      if (next == "timeout 0") Manager().AddTimer(std::make_shared<TsTimer>(0, kOnce));
      if (next == "an hour") StartTheThread();
      SetClock(kStart + 10);
      EXPECT_TRUE(fired.Await(2));
      EXPECT_EQ(Platform().passThreads, 1);
    });
  }
}

// The pass locks with one blocking call: polling with try_lock could starve the owner if the timer
// thread has a higher priority.
TEST_F(ManagerTest, ClockLocked) {
  const TestTimer queued(kHour, kOnce);
  const TestTimer fresh(kHour, kOnce);
  queued->Start();
  const std::function<void()> calls[] = {[&] { fresh->Start(); },
                                         [&] { Manager().ResetTimer(queued.Get()); }};
  for (const auto& call : calls) {
    ASSERT_TRUE(Platform().AwaitPasses());
    int passes = -1;
    Platform().AtNextRead([&passes] {  // under the lock
      const int before = Platform().passes;
      std::this_thread::sleep_for(kSeveralPasses);
      passes = Platform().passes - before;
    });
    call();
    EXPECT_EQ(passes, 0);
    EXPECT_EQ(Platform().lockTries, 0);
  }
}

// Whatever the wall clock shows, and however early a timer is due.
TEST_F(ManagerTest, Interval) {
  for (const Milliseconds now : {kStart, kStart + 1000 * kHour, kStart - 1000 * kHour, 0ULL}) {
    const int last = SetClock(now);
    const TestTimer timer(1, kOnce);
    timer->Start();
    EXPECT_TRUE(Platform().AwaitPassAfter(last + 3));
  }
  const std::lock_guard<std::mutex> lock(Platform().mutex);
  EXPECT_THAT(Platform().sleeps, ElementsAre(std::chrono::milliseconds(5)));
}

// ---- callers and actions ----

TEST_F(ManagerTest, CallersWait) {
  const auto entered = std::make_shared<Gate>();
  const auto release = std::make_shared<Gate>();
  const TestTimer fresh(1000, kOnce);
  const TestTimer reset(1000, kOnce);
  const TestTimer stopped(kHour, kOnce);
  const TestTimer blocking(10, kRepeating, [=] {
    entered->Open();
    release->WaitFor();
  });
  const OpenOnExit guard({release});
  for (const TestTimer* timer : {&reset, &stopped, &blocking}) (*timer)->Start();
  SetClock(kStart + 10);
  ASSERT_TRUE(entered->WaitFor());
  BackgroundCall calls[] = {
      BackgroundCall([timer = fresh.Get()] { timer->Start(); }),
      BackgroundCall([timer = reset.Get()] { Manager().ResetTimer(timer); }),
      BackgroundCall([timer = stopped.Get()] { timer->Stop(); }),
      BackgroundCall([timer = blocking.Get()] { timer->Stop(); }),
  };
  for (BackgroundCall& call : calls) EXPECT_TRUE(call.StaysBlocked());
  BackgroundCall unrelated([] {
    TsTimer timer(0, kOnce);
    timer.SetExpire(timer.GetExpire() + timer.GetTimeout());
    timer.SetState(timer.GetLoop());
    Manager().GetCurrentMillisecs();
  });
  EXPECT_TRUE(unrelated.ReturnsWithin(kTestTimeout / 4));  // before the action times out

  SetClock(kStart + 500);
  release->Open();
  for (BackgroundCall& call : calls) EXPECT_TRUE(call.ReturnsWithin());
  EXPECT_EQ(fresh->GetExpire(), kStart + 1500) << "counted from the end of the wait";
  EXPECT_EQ(reset->GetExpire(), kStart + 1500);
  EXPECT_EQ(stopped.Entries(), 0);
  EXPECT_EQ(blocking.Entries(), 0);
}

// The action restarts the timer while Stop() waits for the lock. Stop() has to clear the mark, or
// the timer's destructor would end the process.
TEST_F(ManagerTest, StopVsRestart) {
  const auto inAction = std::make_shared<Gate>();
  const auto goOn = std::make_shared<Gate>();
  auto timer = std::make_shared<TsTimer>(1, kOnce);
  timer->Init([=, self = timer.get()] {
    inAction->Open();
    goOn->Wait();
    self->Start();
  });
  timer->Start();
  SetClock(kStart + 1);
  ASSERT_TRUE(inAction->WaitFor());
  timer->SetState(true);  // as if Stop() came just before the pass
  BackgroundCall stop([&timer] { timer->Stop(); });
  EXPECT_TRUE(stop.StaysBlocked());
  goOn->Open();
  ASSERT_TRUE(stop.ReturnsWithin());
  EXPECT_EQ(timer.use_count(), 1);
  timer.reset();
}

// ---- adding timers ----

TEST_F(ManagerTest, Expiry) {
  const struct {
    Milliseconds timeout;
    Milliseconds expected;
  } rows[] = {{1, kStart + 1},
              {10, kStart + 10},
              {1ULL << 40, kStart + (1ULL << 40)},
              {kNever - kStart - 1, kNever - 1},
              {kNever - kStart, kNever},
              {kNever - kStart + 1, kNever},  // would wrap to 0
              {kNever - 1, kNever},
              {kNever, kNever}};
  for (const auto& row : rows) {
    for (const int64_t ticksWithin : {0, 1, 9999}) {
      SCOPED_TRACE(row.timeout);
      SetClock(kStart, ticksWithin);
      const TestTimer timer(row.timeout, kOnce);
      timer->Start();
      EXPECT_EQ(timer->GetExpire(), row.expected);
      EXPECT_EQ(timer.Entries(), 1);
    }
  }
}

TEST_F(ManagerTest, NeverExpires) {
  const TestTimer timer(kNever - kStart + 2, kRepeating, Noting("fired"));
  timer->Start();
  PassAt(Milliseconds{INT64_MAX / 10000});
  EXPECT_THAT(Fired(), IsEmpty());
  timer->SetExpire(kStart);
  Manager().ResetTimer(timer.Get());
  EXPECT_EQ(timer->GetExpire(), kNever);
  timer->SetExpire(kStart);  // the only timer, so the order cannot break
  PassAt(kStart + 1000);
  EXPECT_THAT(Fired(), ElementsAre("fired"));
  EXPECT_EQ(timer->GetExpire(), kNever);
}

// The mark decides what Start() and Stop() do, whether the timer is queued or not.
TEST_F(ManagerTest, SetState) {
  const TestTimer others[] = {{20, kOnce}, {5, kOnce}, {30, kOnce}};
  const TestTimer timer(10, kOnce, Noting("fired"));
  Manager().AddTimer(timer.Get());
  EXPECT_FALSE(timer.IsMarkedStarted());
  Manager().RemoveTimer(timer.Get());
  timer->SetState(true);
  timer->Start();
  EXPECT_EQ(timer.Entries(), 0);
  for (const bool fires : {true, false}) {
    for (int entries = 1; entries <= 3; ++entries) {
      timer->SetState(false);
      timer->Stop();
      timer->Start();
      EXPECT_EQ(timer.Entries(), entries);
      others[entries - 1]->Start();
    }
    if (!fires) timer->Stop();  // removes all entries
    PassAt(kStart + 10);
    EXPECT_EQ(Fired().size(), fires ? 3U : 0U);
    EXPECT_EQ(timer.Entries(), 0);
    SetClock(kStart);
  }
}

// ---- due timers ----

TEST_F(ManagerTest, OneClockRead) {
  std::vector<int> passes;
  const TestTimer slow(10, kRepeating, [&] {
    SetClock(kStart + 19);  // too late for this pass
    passes.push_back(Platform().passes);
  });
  const TestTimer second(11, kOnce, [&] { passes.push_back(Platform().passes); });
  slow->Start();
  second->Start();
  PassAt(kStart + 10);
  ASSERT_TRUE(Platform().AwaitPasses());
  Manager().RemoveTimer(nullptr);
  ASSERT_EQ(passes.size(), 2U);
  EXPECT_EQ(passes[1], passes[0] + 1);
  EXPECT_EQ(slow->GetExpire(), kStart + 20);
}

TEST_F(ManagerTest, ClockSteps) {
  const TestTimer once(kHour, kOnce, Noting("once"));
  const TestTimer repeating(20, kRepeating, Noting("repeating"));
  once->Start();
  repeating->Start();
  PassAt(kStart - kHour);
  PassAt(kStart - kHour + 20);
  EXPECT_THAT(Fired(), IsEmpty()) << "delayed by the step";
  PassAt(kStart + kHour);
  EXPECT_THAT(Fired(), ElementsAre("repeating", "once"));
  EXPECT_EQ(repeating->GetExpire(), kStart + kHour + 20);
}

// A one-shot timer is no longer marked started when its action runs.
TEST_F(ManagerTest, Restart) {
  const TestTimer timer(10, kOnce, [&] {
    Noting("fired")();
    timer->Start();
  });
  timer->Start();
  for (const Milliseconds now : {kStart + 10, kStart + 20, kStart + 30}) {
    PassAt(now);
    EXPECT_THAT(Fired(), ElementsAre("fired"));
    EXPECT_EQ(timer->GetExpire(), now + 10);
    EXPECT_EQ(timer.Entries(), 1);
  }
}

TEST_F(ManagerTest, Owner) {
  for (const bool loop : {kOnce, kRepeating}) {
    auto timer = std::make_shared<TsTimer>(10, loop);
    const std::weak_ptr<TsTimer> watch = timer;
    timer->Init([&] { Noting(watch.expired() ? "gone" : "alive")(); });
    timer->Start();
    timer.reset();
    PassAt(kStart + 9);
    EXPECT_FALSE(watch.expired());
    PassAt(kStart + 10);
    EXPECT_THAT(Fired(), ElementsAre("alive"));
    EXPECT_EQ(watch.expired(), !loop);
    if (loop) watch.lock()->Stop();
    EXPECT_TRUE(watch.expired());
    SetClock(kStart);
  }
}

// A repeating timer that stops itself continues to fire (by design).
TEST_F(ManagerTest, SelfStop) {
  const TestTimer timer(10, kRepeating, [&] {
    timer->Stop();
    Noting("fired")();
  });
  timer->Start();
  for (const Milliseconds now : {kStart + 10, kStart + 20, kStart + 30}) {
    PassAt(now);
    EXPECT_THAT(Fired(), ElementsAre("fired"));
    EXPECT_EQ(timer->GetExpire(), now + 10);
    EXPECT_FALSE(timer.IsMarkedStarted());
  }
  timer->Stop();  // not marked, so this does nothing
  EXPECT_EQ(timer.Entries(), 1);
  timer->Start();  // adds a second entry
  EXPECT_EQ(timer.Entries(), 2);
  SetClock(kStart + 35);
  Manager().ResetTimer(timer.Get());
  EXPECT_EQ(timer->GetExpire(), kStart + 45);
  timer->Stop();  // removes both entries
  EXPECT_EQ(timer.Entries(), 0);
  PassAt(kStart + kHour);
  EXPECT_THAT(Fired(), IsEmpty());
}

// A repeating timer is queued again even if its action has queued it (by design).
TEST_F(ManagerTest, SelfRestart) {
  const TestTimer timer(10, kRepeating, [&] {
    timer->Stop();
    timer->Start();
  });
  timer->Start();
  PassAt(kStart + 10);
  EXPECT_EQ(timer.Entries(), 2);
}

// The next expiry is set before the action, which may change it.
TEST_F(ManagerTest, SelfSetExpire) {
  const TestTimer timer(10, kRepeating, [&] { timer->SetExpire(timer->GetExpire() + 30); });
  timer->Start();
  PassAt(kStart + 10);
  EXPECT_EQ(timer->GetExpire(), kStart + 50);
}

// All due timers fire in one pass.
TEST_F(ManagerTest, AllDue) {
  std::set<int> passes;
  std::vector<Milliseconds> order;
  std::vector<std::unique_ptr<TestTimer>> timers;
  for (Milliseconds i = 0; i < 200; ++i) {
    const Milliseconds timeout = 1 + i * 77 % 200;
    timers.push_back(std::make_unique<TestTimer>(timeout, kOnce, [&, timeout] {
      passes.insert(Platform().passes);
      order.push_back(timeout);
    }));
    (*timers.back())->Start();
  }
  PassAt(kStart + 200);
  EXPECT_EQ(passes.size(), 1U);
  EXPECT_EQ(order.size(), 200U);
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

// Counted from the current time, not from the beginning of the pass.
TEST_F(ManagerTest, ClockInAction) {
  const TestTimer started(100, kOnce);
  const TestTimer reset(100, kOnce);
  const TestTimer timer(10, kOnce, [&] {
    SetClock(kStart + 15);
    started->Start();
    Manager().ResetTimer(reset.Get());
  });
  reset->Start();
  timer->Start();
  PassAt(kStart + 10);
  EXPECT_EQ(started->GetExpire(), kStart + 115);
  EXPECT_EQ(reset->GetExpire(), kStart + 115);
}

// A timer that is due as well has taken the place of its first entry.
TEST_F(ManagerTest, StopInAction) {
  const TestTimer twice(10, kRepeating, [&] {
    Noting("twice")();
    twice->Stop();
  });
  const TestTimer once(10, kOnce, Noting("once"));
  const TestTimer others[] = {{kHour, kOnce}, {kHour, kOnce}};
  twice->Start();
  once->Start();
  twice->SetState(false);
  twice->Start();
  for (const TestTimer& other : others) other->Start();
  others[1]->Stop();
  PassAt(kStart + 10);
  EXPECT_THAT(Fired(), UnorderedElementsAre("twice", "once"));
  EXPECT_EQ(twice.Entries(), 1) << "a timer removed for firing is queued again";
  EXPECT_EQ(others[0].Entries(), 1);
}

// Stop() of any timer restores the order, even of one that is not queued.
TEST_F(ManagerTest, StopSorts) {
  for (const bool queued : {true, false}) {
    SCOPED_TRACE(queued);
    const TestTimer early(10, kOnce, Noting("early"));
    const TestTimer late(20, kOnce, Noting("late"));
    const TestTimer other(kHour, kOnce);
    early->Start();
    late->Start();
    if (queued) other->Start();
    late->SetExpire(kStart + 5);
    other->SetState(true);
    other->Stop();
    PassAt(kStart + 5);
    EXPECT_THAT(Fired(), ElementsAre("late"));
    SetClock(kStart);
  }
}

// Both entries share one expiry, so a second start also changes the first entry.
TEST_F(ManagerTest, StopSortsTwice) {
  const TestTimer twice(10, kOnce, Noting("twice"));
  const TestTimer once(11, kOnce, Noting("once"));
  const TestTimer others[] = {{kHour, kOnce}, {kHour, kOnce}};
  twice->Start();
  once->Start();
  for (const TestTimer& other : others) other->Start();
  others[0]->Stop();
  SetClock(kStart + 5);
  twice->SetState(false);
  twice->Start();
  others[1]->Stop();
  PassAt(kStart + 11);
  EXPECT_THAT(Fired(), ElementsAre("once"));
}

TEST_F(ManagerTest, ResetTimer) {
  const TestTimer a(15, kOnce, Noting("a"));
  const TestTimer b(20, kOnce, Noting("b"));
  const TestTimer c(30, kOnce, Noting("c"));
  for (const TestTimer* timer : {&c, &b, &a}) (*timer)->Start();
  SetClock(kStart + 10);
  Manager().ResetTimer(a.Get());
  SetClock(kStart - 100);
  Manager().ResetTimer(c.Get());
  EXPECT_EQ(c->GetExpire(), kStart - 70);
  PassAt(kStart + 24);
  EXPECT_THAT(Fired(), ElementsAre("c", "b"));
  PassAt(kStart + 25);
  EXPECT_THAT(Fired(), ElementsAre("a"));
}

// ---- process exit ----

// Returns an object that calls `action` when its last copy is destroyed.
std::shared_ptr<void> AtEnd(std::function<void()> action) {
  return {nullptr, [action = std::move(action)](void*) { action(); }};
}

// Never destroyed: actions may still run during process exit.
Gate& LastingGate() {
  static auto* const gate = new Gate;
  return *gate;
}

std::shared_ptr<TsTimer> Started(
    Milliseconds timeout, bool repeating, std::function<void()> action = [] {}) {
  auto timer = std::make_shared<TsTimer>(timeout, repeating);
  timer->Init(std::move(action));
  timer->Start();
  return timer;
}

TEST_F(ManagerTest, EndWaits) {
  InNewProcess(
      [] {
        Started(10, kOnce, [] {
          LastingGate().Open();
          std::this_thread::sleep_for(std::chrono::milliseconds(100));
          Print("action done");
        });
        SetClock(kStart + 10);
        LastingGate().WaitFor();
      },
      HasSubstr("action done"));
}

// The thread is joined under the lock (by design). If the timer thread is waiting for the lock at
// that point, it must skip the pass it was about to begin. The exiting thread may already hold the
// lock: an allocation under the lock may call a handler of the host, which may call exit().
TEST_F(ManagerTest, EndLocked) {
  for (const bool byOwner : {false, true}) {
    SCOPED_TRACE(byOwner);
    InNewProcess([byOwner] {
      Started(kHour, kOnce);
      Platform().AwaitPasses(2);
      Platform().AtNextRead([byOwner] {  // under the lock
        std::this_thread::sleep_for(kSeveralPasses);
        if (byOwner) std::exit(0);
        std::thread([] { std::exit(0); }).detach();
        std::this_thread::sleep_for(kSeveralPasses);
      });
      Started(kHour, kOnce);
      std::this_thread::sleep_for(2 * kTestTimeout);
    });
  }
}

// Thread-local objects of the timer thread are destroyed while that thread is joined.
TEST_F(ManagerTest, EndOrder) {
  InNewProcess(
      [] {
        const std::weak_ptr<TsTimer> watch = Started(kHour, kOnce);
        Started(10, kOnce, [&watch] {
          tarsio_test::WhenThisThreadEnds([&watch] {
            while (!watch.expired()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
            std::this_thread::sleep_for(kSeveralPasses);
            const bool free = (Manager().*Reach(tarsio_test::ManagerMutex())).try_lock();
            if (!free) Print("locked");
          });
        });
        PassAt(kStart + 10);
        std::exit(0);  // keeps `watch`
      },
      HasSubstr("locked"));
}

TEST_F(ManagerTest, EndInAction) {
  EXPECT_DEATH(
      {
        StartWatchdog();
        std::set_terminate([] {
          try {
            std::rethrow_exception(std::current_exception());
          } catch (const std::system_error& e) {
            if (e.code() == std::errc::resource_deadlock_would_occur) Print("deadlock");
          }
          std::abort();
        });
        Started(10, kOnce, [] { std::exit(0); });
        SetClock(kStart + 10);
        std::this_thread::sleep_for(kTestTimeout);
      },
      "deadlock");
}

// As in a forked process, or on a system that has killed all other threads: the timer thread held
// the lock. Neither the manager's destructor nor later calls by the host's statics may wait for it.
TEST_F(ManagerTest, ThreadGone) {
  for (const bool forked : {false, true}) {
    SCOPED_TRACE(forked);
    InNewProcess([forked] {
      const auto timer = Started(10, kRepeating, [] {
        LastingGate().Open();
        std::this_thread::sleep_for(2 * kTestTimeout);  // stands for a killed thread
      });
      SetClock(kStart + 10);
      LastingGate().WaitFor();
      Platform().forks = forked ? 1 : 0;
      Platform().processIsEnding = !forked;
      timer->Stop();
      timer->Start();
      Started(kHour, kOnce);  // marked started when dropped
      TsTimer unowned(kHour, kOnce);
      EXPECT_THROW(unowned.Start(), std::bad_weak_ptr);
    });
  }
}

// Without a timer thread, a fork changes nothing.
TEST_F(ManagerTest, Fork) {
  InNewProcess([this] {
    Platform().forks = 1;
    const TestTimer timer(10, kOnce, Noting("fired"));
    timer->Start();
    PassAt(kStart + 10);
    EXPECT_THAT(Fired(), ElementsAre("fired"));
  });
}

// A handler that is registered before the manager exists runs after the manager's end.
TEST_F(ManagerTest, AfterEnd) {
  static std::shared_ptr<TsTimer> queued;  // queued before the end
  InNewProcess(
      [] {
        std::atexit([] {
          const int passes = Platform().passes;
          auto timer = Started(1, kRepeating, [] { Print("fired"); });
          SetClock(kStart + kHour);
          std::this_thread::sleep_for(kSeveralPasses);
          const bool idle = Platform().passes == passes &&
                            Manager().*Reach(tarsio_test::ManagerThread()) == nullptr;
          const bool released = queued.use_count() == 1;
          timer->Stop();
          timer.reset();
          queued->Start();
          queued->Stop();
          queued.reset();
          if (idle && released) Print("nothing left");
        });
        queued = Started(kHour, kRepeating, [] { Print("fired"); });
        Platform().AwaitPasses(2);
      },
      AllOf(HasSubstr("nothing left"), Not(HasSubstr("fired"))));
}

TEST_F(ManagerTest, DropLate) {
  EXPECT_DEATH(
      {
        StartWatchdog();
        std::atexit([] { Started(kHour, kRepeating); });  // marked but no longer queued
        StartTheThread();
        std::exit(0);
      },
      "no shared_ptr owns the timer");
}

// Releasing timers that the host has dropped must not end the process, even if that stops other
// timers while the queue is being emptied.
TEST_F(ManagerTest, EndFrees) {
  InNewProcess(
      [] {
        const auto twice = Started(kHour, kOnce);
        twice->SetState(false);
        twice->Start();
        std::mt19937_64 random(1);
        for (int i = 0; i < 50; ++i) {
          const auto inner = Started(kHour + random() % kHour, kRepeating);
          Started(kHour + random() % kHour, kRepeating, [inner] {});
          Started(kHour + random() % kHour, kRepeating,
                  [stops = AtEnd([inner] { inner->Stop(); })] {});
          Started(kHour + random() % kHour, kOnce, [inner = Started(kHour, kOnce)] {});
        }
        Started(10, kRepeating, [prints = AtEnd([] { Print("callable released"); })] {});
      },
      HasSubstr("callable released"));
}

// ---- against a model ----

// The expected state of the manager, as a reference implementation. The test calls it between
// passes, and actions call it during a pass, so never concurrently.
struct Model {
  struct Item {
    Milliseconds timeout = 0;
    bool loop = false;
    bool started = false;
    bool queued = false;
    Milliseconds expire = 0;
  };

  // Returns false if the start would add a second entry next to the one that is queued, or that
  // will be queued again when the action returns.
  bool Start(Item* item) {
    if (!item->started && (item->queued || firing == item)) return false;
    const bool arms = !std::exchange(item->started, true) && item->timeout != 0;
    if (arms) item->queued = true;
    if (arms) Reset(item);
    return true;
  }
  void Stop(Item* item) {
    if (std::exchange(item->started, false)) item->queued = false;
  }
  void Reset(Item* item) const {
    if (item->queued) item->expire = clock + item->timeout;
  }

  void BeginFiring(Item* item) {
    ++firings;
    if (!item->queued) errors.push_back("fired but not queued");
    if (item->expire > clock) errors.push_back("fired before its time");
    for (const Item& other : items) {
      if (other.queued && other.expire < item->expire) errors.push_back("fired out of order");
    }
    if (item->loop) Reset(item);
    if (item->loop) firing = item;
    item->started = item->started && item->loop;
    item->queued = false;
  }
  void EndFiring(Item* item) {
    item->queued = item->queued || item->loop;
    firing = nullptr;
  }

  std::vector<Item> items;
  Milliseconds clock = kStart;
  int firings = 0;
  std::vector<std::string> errors;
  Item* firing = nullptr;  // a repeating timer, while its action runs
};

TEST_F(ManagerTest, RandomModel) {
  constexpr int kPasses = 800;
  constexpr int kOperationsPerPass = 25;
  constexpr size_t kTimers = 40;
  std::mt19937_64 random(20240229);
  Model model;
  model.items.resize(kTimers);
  std::vector<std::unique_ptr<TestTimer>> timers;

  const auto operate = [&](size_t i) {
    const std::shared_ptr<TsTimer>& timer = timers[i]->Get();
    Model::Item* const item = &model.items[i];
    const uint64_t choice = random() % 8;
    if (choice < 3) {
      if (model.Start(item)) timer->Start();
    } else if (choice < 5) {
      timer->Stop();
      model.Stop(item);
    } else if (choice == 5) {
      Manager().ResetTimer(timer);
      model.Reset(item);
    } else if (choice == 6) {
      Manager().RemoveTimer(timer);
      item->queued = false;
    } else {
      item->started = random() % 2 == 0;
      timer->SetState(item->started);
    }
  };
  const auto act = [&](size_t i) {
    model.BeginFiring(&model.items[i]);
    EXPECT_EQ(timers[i]->Get()->GetExpire(), model.items[i].expire);
    const uint64_t choice = random() % 8;
    if (choice < 2) operate(i);
    if (choice == 2 || choice == 3) operate(random() % kTimers);
    model.EndFiring(&model.items[i]);
    if (choice == 4) throw std::runtime_error("text");
  };
  for (size_t i = 0; i < kTimers; ++i) {
    model.items[i].timeout = i == 0 ? 0 : 1 + random() % 60;
    model.items[i].loop = random() % 2 == 0;
    timers.push_back(std::make_unique<TestTimer>(model.items[i].timeout, model.items[i].loop,
                                                 [&act, i] { act(i); }));
    timers[i]->Get()->SetExpire(0);
  }
  StartTheThread();

  for (int pass = 0; pass < kPasses; ++pass) {
    SCOPED_TRACE("pass " + std::to_string(pass));
    for (int i = 0; i < kOperationsPerPass; ++i) operate(random() % kTimers);
    const uint64_t step = random() % 10;
    model.clock = step == 0   ? model.clock - random() % 200
                  : step == 1 ? model.clock + 300
                              : model.clock + random() % 20;
    ASSERT_NO_FATAL_FAILURE(PassAt(model.clock, static_cast<int64_t>(random() % 10000)));
    ASSERT_THAT(model.errors, IsEmpty());
    for (size_t i = 0; i < kTimers; ++i) {
      SCOPED_TRACE("timer " + std::to_string(i));
      const Model::Item& item = model.items[i];
      ASSERT_FALSE(item.queued && item.expire <= model.clock) << "due but not fired";
      ASSERT_EQ(timers[i]->Entries(), item.queued ? 1 : 0);
      ASSERT_EQ(timers[i]->Get()->GetExpire(), item.expire);
    }
  }
  EXPECT_GT(model.firings, 2000);
}

}  // namespace
