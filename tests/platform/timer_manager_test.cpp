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
#include <numeric>
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
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
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

class FakePlatform {
 public:
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
    std::function<void()> interruption;
    {
      const std::lock_guard<std::mutex> lock(mutex);
      if (isApplicationThread) {
        interruption.swap(atNextRead);
      } else if (!isInAction) {
        passThreads.insert(std::this_thread::get_id());
        ++passes;
        passed.notify_all();
      }
      if (!interruption) return clock;
    }
    interruption();
    const std::lock_guard<std::mutex> lock(mutex);
    return clock;
  }

  bool AwaitPassAfter(int number) {
    std::unique_lock<std::mutex> lock(mutex);
    return passed.wait_for(lock, kTestTimeout, [&] { return passes > number; });
  }

  int Passes() {
    const std::lock_guard<std::mutex> lock(mutex);
    return passes;
  }
  size_t PassThreads() {
    const std::lock_guard<std::mutex> lock(mutex);
    return passThreads.size();
  }

  void NoteSleep(std::chrono::nanoseconds duration) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (!isApplicationThread) sleeps.insert(duration);
  }
  // Returns the sleep durations of threads other than the tests' own.
  std::set<std::chrono::nanoseconds> Sleeps() {
    const std::lock_guard<std::mutex> lock(mutex);
    return sleeps;
  }

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
  std::atomic<int> lockTries{0};  // by threads other than the tests' own

 private:
  std::mutex mutex;
  std::condition_variable passed;
  int64_t clock = 0;  // 100-ns ticks
  int passes = 0;
  std::set<std::thread::id> passThreads;
  std::set<std::chrono::nanoseconds> sleeps;
  std::function<void()> atNextRead;
};

}  // namespace

// The linker's --wrap option redirects calls of nanosleep here; __real_nanosleep is the original.
// The standard libraries of both systems sleep with it.
extern "C" int __real_nanosleep(const timespec* duration, timespec* left);
extern "C" int __wrap_nanosleep(const timespec* duration, timespec* left) {
  FakePlatform::Get().NoteSleep(std::chrono::seconds(duration->tv_sec) +
                                std::chrono::nanoseconds(duration->tv_nsec));
  return __real_nanosleep(duration, left);
}

// Wrapped like nanosleep.
extern "C" int __real_pthread_mutex_trylock(pthread_mutex_t* mutex);
extern "C" int __wrap_pthread_mutex_trylock(pthread_mutex_t* mutex) {
  if (!isApplicationThread) ++FakePlatform::Get().lockTries;
  return __real_pthread_mutex_trylock(mutex);
}

// Access to private members: the mark, the thread and the lock.
namespace tarsio_test {

EXPOSE_PRIVATE(TimerMark, &Timer::state);
EXPOSE_PRIVATE(ManagerThread, &TimerManager::thread);
EXPOSE_PRIVATE(ManagerRunning, &TimerManager::running);
EXPOSE_PRIVATE(ManagerMutex, &TimerManager::mutex);

}  // namespace tarsio_test

namespace tarsio::platform {

int64_t WallClockTicks() { return FakePlatform::Get().ReadClock(); }

// The first call waits until no thread holds the manager's lock. The real function may wait for a
// thread that is loading a module and then needs the lock.
void PinLibrary() {
  if (FakePlatform::Get().pins++ > 0) return;
  std::thread visitor;
  try {
    visitor = std::thread([] {
      TimerManager& manager = *TimerManager::GetInstance();
      const std::lock_guard<std::recursive_mutex> lock(manager.*Reach(tarsio_test::ManagerMutex()));
      if (manager.*Reach(tarsio_test::ManagerThread()) != nullptr) {
        FakePlatform::Get().threadBeforePin = true;
      }
    });
  } catch (const std::system_error&) {
    return;  // this test lets thread starts fail
  }
  visitor.join();
}

bool ProcessIsEnding() {
  ++FakePlatform::Get().endingAsked;
  return FakePlatform::Get().processIsEnding;
}

int ForkCount() { return FakePlatform::Get().forks; }

}  // namespace tarsio::platform

namespace {

FakePlatform& Platform() { return FakePlatform::Get(); }

// Ends a child process that hangs.
void StartWatchdog() {
  std::thread([] {
    std::this_thread::sleep_for(kTestTimeout);
    std::fputs("the process hangs\n", stderr);
    std::_Exit(3);
  }).detach();
}

// A timer that is removed from the queue at the end of a test, however it is marked by then.
class TestTimer {
 public:
  TestTimer(
      Milliseconds timeoutMs, bool repeating, const std::function<void()>& action = [] {})
      : timer(std::make_shared<TsTimer>(timeoutMs, repeating)) {
    timer->Init([action] {
      isInAction = true;
      try {
        action();
      } catch (...) {
        isInAction = false;
        throw;
      }
      isInAction = false;
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
    // Tests that need a new manager run in a separate process.
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

  static void StartTheThread() {
    const TestTimer timer(kHour, kOnce);
    timer->Start();
  }

  void Note(const std::string& name) { notes.push_back(name); }
  std::function<void()> Noting(const std::string& name) {
    return [this, name] { Note(name); };
  }
  // Returns what fired since the last call. Used by actions and, between passes, by the test.
  std::vector<std::string> Fired() { return std::exchange(notes, {}); }

 private:
  std::vector<std::string> notes;
};

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

// Each test runs in separate processes. The bodies return whether all checks passed.
class ManagerProcess : public ManagerTest {};

#define EXPECT_IN_A_FRESH_PROCESS(body) \
  EXPECT_EXIT(                          \
      {                                 \
        StartWatchdog();                \
        std::exit((body)() ? 0 : 1);    \
      },                                \
      testing::ExitedWithCode(0), "")

bool NoThreadRuns() {
  std::this_thread::sleep_for(kSeveralPasses);
  return Platform().Passes() == 0 && Platform().pins == 0;
}

TEST_F(ManagerProcess, Lazy) {
  EXPECT_IN_A_FRESH_PROCESS([] {
    TimerManager* const manager = TimerManager::GetInstance();
    const bool running = manager->*Reach(tarsio_test::ManagerRunning());
    return !running && NoThreadRuns() && manager->GetCurrentMillisecs() == kStart && NoThreadRuns();
  });
}

// A manager would register with the platform for process exit.
TEST_F(ManagerProcess, NoOwner) {
  EXPECT_EXIT(
      {
        StartWatchdog();
        std::atexit([] { std::_Exit(Platform().endingAsked); });
        {
          TsTimer timer(10, kOnce);
          EXPECT_THROW(timer.Start(), std::bad_weak_ptr);
          timer.SetState(false);
        }
        std::exit(1);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(ManagerProcess, Empty) {
  EXPECT_IN_A_FRESH_PROCESS([] {
    TimerManager& manager = *TimerManager::GetInstance();
    const TestTimer zero(0, kRepeating);
    const TestTimer timer(10, kOnce);
    zero->Start();
    manager.AddTimer(nullptr);
    manager.AddTimer(zero.Get());
    manager.RemoveTimer(nullptr);
    manager.RemoveTimer(timer.Get());
    manager.ResetTimer(nullptr);
    manager.ResetTimer(timer.Get());
    return NoThreadRuns();
  });
}

TEST_F(ManagerProcess, OneThread) {
  EXPECT_IN_A_FRESH_PROCESS([] {
    if (!NoThreadRuns()) return false;
    {
      const TestTimer first(10, kOnce);
      first->Start();
      if (!Platform().AwaitPassAfter(0) || Platform().pins != 1) return false;
    }
    // The thread goes on with an empty queue, too.
    if (!Platform().AwaitPassAfter(Platform().Passes() + 3)) return false;
    for (int i = 0; i < 5; ++i) {
      const TestTimer again(10, kOnce);
      again->Start();
      TimerManager::GetInstance()->AddTimer(nullptr);
    }
    return Platform().AwaitPassAfter(Platform().Passes() + 3) && Platform().PassThreads() == 1;
  });
}

// The timer stays queued and marked; the next start of any timer starts the thread.
TEST_F(ManagerProcess, Failure) {
  EXPECT_IN_A_FRESH_PROCESS([] {
    Events fired;
    const TestTimer first(10, kOnce, [&fired] { fired.Add(); });
    const TestTimer second(10, kOnce, [&fired] { fired.Add(); });
    for (const TestTimer* timer : {&first, &second}) {
      const tarsio_test::RefuseThreadStarts refuse;
      try {
        (*timer)->Start();
        return false;
      } catch (const std::system_error& e) {
        if (e.code() != std::errc::resource_unavailable_try_again) return false;
      }
      (*timer)->Start();  // marked, so Start() does nothing
    }
    if (Platform().Passes() != 0) return false;
    const TestTimer third(kHour, kOnce);
    third->Start();
    if (!Platform().AwaitPassAfter(0) || fired.Count() != 0) return false;
    Platform().SetClock(static_cast<int64_t>(kStart + 10) * 10000);
    return fired.Await(2) && Platform().PassThreads() == 1;
  });
}

// Even a call that adds nothing, as long as the queue is not empty.
TEST_F(ManagerProcess, Retry) {
  for (const bool null : {true, false}) {
    SCOPED_TRACE(null);
    EXPECT_EXIT(
        {
          StartWatchdog();
          Events fired;
          const TestTimer queued(10, kOnce, [&fired] { fired.Add(); });
          const TestTimer zero(0, kOnce);
          try {
            const tarsio_test::RefuseThreadStarts refuse;
            queued->Start();
            std::exit(1);
          } catch (const std::system_error&) {
            if (Platform().Passes() != 0) std::exit(2);
          }
          TimerManager::GetInstance()->AddTimer(null ? nullptr : zero.Get());
          Platform().SetClock(static_cast<int64_t>(kStart + 10) * 10000);
          std::exit(fired.Await() && Platform().PassThreads() == 1 ? 0 : 3);
        },
        testing::ExitedWithCode(0), "");
  }
}

TEST_F(ManagerProcess, Threads) {
  EXPECT_IN_A_FRESH_PROCESS([] {
    std::vector<std::unique_ptr<TestTimer>> timers;
    for (int i = 0; i < 8; ++i) timers.push_back(std::make_unique<TestTimer>(kHour, kOnce));
    std::vector<std::thread> threads;
    for (const auto& timer : timers) {
      threads.emplace_back([&timer] {
        isApplicationThread = true;
        timer->Get()->Start();
      });
    }
    for (std::thread& thread : threads) thread.join();
    return Platform().AwaitPassAfter(5) && Platform().PassThreads() == 1;
  });
}

TEST_F(ManagerProcess, Pins) {
  EXPECT_IN_A_FRESH_PROCESS([] {
    StartTheThread();
    return Platform().AwaitPassAfter(2) && Platform().pins == 1 && !Platform().threadBeforePin;
  });
}

// At process exit the system may no longer be able to look up its function.
TEST_F(ManagerProcess, AtExit) {
  EXPECT_IN_A_FRESH_PROCESS([] {
    Platform().AtNextRead([] {
      if (Platform().endingAsked == 0) std::_Exit(2);
    });
    StartTheThread();
    return Platform().endingAsked > 0;
  });
}

TEST_F(ManagerTest, ClockJumps) {
  StartTheThread();
  for (const Milliseconds now : {kStart + 1000 * kHour, kStart - 1000 * kHour, kStart, 0ULL}) {
    const int last = SetClock(now);
    EXPECT_TRUE(Platform().AwaitPassAfter(last + 3));
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
    ASSERT_TRUE(Platform().AwaitPassAfter(Platform().Passes()));
    int passes = -1;
    Platform().AtNextRead([&passes] {  // under the lock
      const int before = Platform().Passes();
      std::this_thread::sleep_for(kSeveralPasses);
      passes = Platform().Passes() - before;
    });
    call();
    EXPECT_EQ(passes, 0);
    EXPECT_EQ(Platform().lockTries, 0);
  }
}

TEST_F(ManagerTest, Interval) {
  StartTheThread();
  for (Milliseconds ms = 0; ms < 3; ++ms) PassAt(kStart + ms);
  EXPECT_THAT(Platform().Sleeps(), ElementsAre(std::chrono::milliseconds(5)));
}

// The thread always sleeps five milliseconds, even if a timer is added that is due earlier.
TEST_F(ManagerTest, NoWakeUp) {
  StartTheThread();
  const auto begin = std::chrono::steady_clock::now();
  const int before = Platform().Passes();
  std::vector<std::unique_ptr<TestTimer>> timers;
  do {
    timers.push_back(std::make_unique<TestTimer>(1, kOnce));
    timers.back()->Get()->Start();
    std::this_thread::sleep_for(std::chrono::microseconds(300));
  } while (std::chrono::steady_clock::now() - begin < std::chrono::milliseconds(200));
  const int passes = Platform().Passes() - before;
  const auto lasted = std::chrono::steady_clock::now() - begin;
  EXPECT_LE(passes, lasted / std::chrono::milliseconds(5) + 2);
  EXPECT_GT(timers.size(), 2 * static_cast<size_t>(passes)) << "too few timers for this test";
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

TEST_F(ManagerTest, StartInPass) {
  for (const bool reset : {false, true}) {
    SCOPED_TRACE(reset ? "reset" : "start");
    Gate entered;
    const auto release = std::make_shared<Gate>();
    const TestTimer timer(1000, kOnce);
    const TestTimer blocking(10, kOnce, [&entered, release] {
      entered.Open();
      release->WaitFor();
    });
    const OpenOnExit guard({release});
    if (reset) timer->Start();
    blocking->Start();
    SetClock(kStart + 10);
    ASSERT_TRUE(entered.WaitFor());
    BackgroundCall call([reset, waiting = timer.Get()] {
      isApplicationThread = true;
      reset ? Manager().ResetTimer(waiting) : waiting->Start();
    });
    EXPECT_TRUE(call.StaysBlocked());
    SetClock(kStart + 500);
    release->Open();
    EXPECT_TRUE(call.ReturnsWithin());
    EXPECT_EQ(timer->GetExpire(), kStart + 1500);
    SetClock(kStart);
  }
}

TEST_F(ManagerTest, ExpiryMax) {
  for (const bool loop : {false, true}) {
    const TestTimer wrapsToTheNextMillisecond(kNever - kStart + 2, loop, Noting("wrapped"));
    const TestTimer largest(kNever, loop, Noting("largest"));
    wrapsToTheNextMillisecond->Start();
    largest->Start();
    PassAt(kStart + 1);
    PassAt(kStart + kHour);
    PassAt(static_cast<Milliseconds>(std::numeric_limits<int64_t>::max() / 10000));
    EXPECT_THAT(Fired(), IsEmpty());
    PassAt(kStart);
  }
}

TEST_F(ManagerTest, RepeatMax) {
  const Milliseconds timeout = kNever - kStart - 500;
  const TestTimer timer(timeout, kRepeating, Noting("fired"));
  timer->Start();
  timer->SetExpire(kStart + 1000);  // the only timer, so the order cannot break
  PassAt(kStart + 1000);
  EXPECT_THAT(Fired(), ElementsAre("fired"));
  EXPECT_EQ(timer->GetExpire(), kNever);
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
    early->Stop();
    PassAt(kStart);
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

TEST_F(ManagerTest, ResetMax) {
  const TestTimer timer(kNever, kOnce);
  timer->Start();
  timer->SetExpire(kStart + kHour);
  Manager().ResetTimer(timer.Get());
  EXPECT_EQ(timer->GetExpire(), kNever);
}

TEST_F(ManagerTest, ZeroTimeout) {
  StartTheThread();
  const TestTimer timer(0, kRepeating, Noting("zero"));
  timer->SetExpire(77);
  timer->Start();
  EXPECT_TRUE(timer.IsMarkedStarted());
  Manager().AddTimer(timer.Get());
  EXPECT_EQ(timer->GetExpire(), 77U);
  EXPECT_EQ(timer.Entries(), 0);
  PassAt(kStart + kHour);
  EXPECT_THAT(Fired(), IsEmpty());
  timer->Stop();
  EXPECT_FALSE(timer.IsMarkedStarted());
}

TEST_F(ManagerTest, NullTimers) {
  for (const bool queued : {false, true}) {
    const TestTimer timer(10, kOnce, Noting("fired"));
    if (queued) timer->Start();
    Manager().AddTimer(nullptr);
    Manager().RemoveTimer(nullptr);
    Manager().ResetTimer(nullptr);
    EXPECT_EQ(timer.Entries(), queued ? 1 : 0);
    StartTheThread();
    PassAt(kStart + 10);
    EXPECT_EQ(Fired().size(), queued ? 1U : 0U);
    SetClock(kStart);
  }
}

TEST_F(ManagerTest, SecondStart) {
  const TestTimer timer(10, kOnce, Noting("fired"));
  timer->Start();
  SetClock(kStart + 5);
  timer->Start();
  EXPECT_EQ(timer.Entries(), 1);
  EXPECT_EQ(timer->GetExpire(), kStart + 10);
  PassAt(kStart + 10);
  PassAt(kStart + 15);
  EXPECT_THAT(Fired(), ElementsAre("fired"));
}

// ---- due timers ----

TEST_F(ManagerTest, EqualIsDue) {
  const TestTimer timer(10, kOnce, Noting("fired"));
  timer->Start();
  PassAt(kStart + 9);
  EXPECT_THAT(Fired(), IsEmpty());
  PassAt(kStart + 9, 9999);
  EXPECT_THAT(Fired(), IsEmpty());
  PassAt(kStart + 10);
  EXPECT_THAT(Fired(), ElementsAre("fired"));
}

TEST_F(ManagerTest, DueOrder) {
  for (const bool longFirst : {false, true}) {
    std::vector<int> passes;
    const auto note = [&](const char* name) {
      Note(name);
      passes.push_back(Platform().Passes());
    };
    const TestTimer ten(10, kOnce, [&] { note("ten"); });
    const TestTimer twenty(20, kOnce, [&] { note("twenty"); });
    (longFirst ? twenty : ten)->Start();
    (longFirst ? ten : twenty)->Start();
    PassAt(kStart + 30);
    EXPECT_THAT(Fired(), ElementsAre("ten", "twenty"));
    ASSERT_EQ(passes.size(), 2U);
    EXPECT_EQ(passes[0], passes[1]);
    SetClock(kStart);
  }
}

TEST_F(ManagerTest, OnlyDueFire) {
  const TestTimer ten(10, kOnce, Noting("ten"));
  const TestTimer twenty(20, kOnce, Noting("twenty"));
  twenty->Start();
  ten->Start();
  PassAt(kStart + 19);
  EXPECT_THAT(Fired(), ElementsAre("ten"));
  PassAt(kStart + 20);
  EXPECT_THAT(Fired(), ElementsAre("twenty"));
}

TEST_F(ManagerTest, ExpiryOrder) {
  std::vector<Milliseconds> timeouts(200);
  std::iota(timeouts.begin(), timeouts.end(), 1);
  std::mt19937_64 random(1);
  for (int round = 0; round < 5; ++round) {
    std::shuffle(timeouts.begin(), timeouts.end(), random);
    std::vector<Milliseconds> order;
    std::set<int> passes;
    std::vector<std::unique_ptr<TestTimer>> timers;
    for (const Milliseconds timeout : timeouts) {
      timers.push_back(
          std::make_unique<TestTimer>(timeout, round % 2 == 0 ? kOnce : kRepeating, [&, timeout] {
            order.push_back(timeout);
            passes.insert(Platform().Passes());
          }));
      timers.back()->Get()->Start();
    }
    // Remove some from the middle of the heap.
    for (size_t i = 0; i < timers.size(); i += 7) timers[i]->Get()->Stop();
    PassAt(kStart + 150);
    std::vector<Milliseconds> expected;
    for (size_t i = 0; i < timers.size(); ++i) {
      if (i % 7 != 0 && timeouts[i] <= 150) expected.push_back(timeouts[i]);
    }
    std::sort(expected.begin(), expected.end());
    EXPECT_THAT(order, ElementsAreArray(expected));
    EXPECT_EQ(passes.size(), 1U);
    SetClock(kStart);
  }
}

TEST_F(ManagerTest, EqualExpiry) {
  const TestTimer a(10, kOnce, Noting("a"));
  const TestTimer b(10, kOnce, Noting("b"));
  const TestTimer c(10, kRepeating, Noting("c"));
  a->Start();
  b->Start();
  c->Start();
  PassAt(kStart + 10);
  EXPECT_THAT(Fired(), UnorderedElementsAre("a", "b", "c"));
}

TEST_F(ManagerTest, OneClockRead) {
  std::vector<int> passes;
  const TestTimer first(10, kOnce, [&] {
    SetClock(kStart + kHour);  // too late for this pass
    passes.push_back(Platform().Passes());
  });
  const TestTimer second(11, kOnce, [&] { passes.push_back(Platform().Passes()); });
  first->Start();
  second->Start();
  PassAt(kStart + 10);
  ASSERT_TRUE(Platform().AwaitPassAfter(Platform().Passes()));
  Manager().RemoveTimer(nullptr);
  ASSERT_EQ(passes.size(), 2U);
  EXPECT_EQ(passes[1], passes[0] + 1);
}

TEST_F(ManagerTest, ClockBack) {
  const TestTimer once(10, kOnce, Noting("once"));
  const TestTimer repeating(20, kRepeating, Noting("repeating"));
  once->Start();
  repeating->Start();
  PassAt(kStart - kHour);
  PassAt(kStart - kHour + 20);
  EXPECT_THAT(Fired(), IsEmpty());
  PassAt(kStart + 9);
  EXPECT_THAT(Fired(), IsEmpty());
  PassAt(kStart + 20);
  EXPECT_THAT(Fired(), ElementsAre("once", "repeating"));
}

TEST_F(ManagerTest, ClockForward) {
  const TestTimer once(kHour, kOnce, Noting("once"));
  const TestTimer repeating(kHour / 2, kRepeating, Noting("repeating"));
  once->Start();
  repeating->Start();
  PassAt(kStart + kHour);
  EXPECT_THAT(Fired(), ElementsAre("repeating", "once"));
  EXPECT_EQ(repeating->GetExpire(), kStart + kHour + kHour / 2);
}

// ---- repeating timers ----

TEST_F(ManagerTest, NoCatchingUp) {
  Milliseconds expireInAction = 0;
  TsTimer* self = nullptr;
  const TestTimer timer(10, kRepeating, [&] {
    expireInAction = self->GetExpire();
    Note("fired");
  });
  self = timer.Get().get();
  timer->Start();
  Milliseconds now = kStart;
  for (const Milliseconds late : {10ULL, 13ULL, 10ULL, 105ULL, 1000ULL, 11ULL}) {
    SCOPED_TRACE(late);
    PassAt(now + 9);
    EXPECT_THAT(Fired(), IsEmpty());
    now += late;
    PassAt(now);
    PassAt(now);  // several periods late, and it still fires once
    EXPECT_THAT(Fired(), ElementsAre("fired"));
    EXPECT_EQ(expireInAction, now + 10);  // set before the action
    EXPECT_EQ(timer->GetExpire(), now + 10);
    EXPECT_EQ(timer.Entries(), 1);
    EXPECT_TRUE(timer.IsMarkedStarted());
  }
}

TEST_F(ManagerTest, RepeatFromPass) {
  const TestTimer timer(1000, kRepeating, [this] {
    Note("fired");
    SetClock(kStart + 1300);  // a slow action
  });
  timer->Start();
  PassAt(kStart + 1000);
  EXPECT_THAT(Fired(), ElementsAre("fired"));
  EXPECT_EQ(timer->GetExpire(), kStart + 2000);
}

TEST_F(ManagerTest, RepeatQueue) {
  const TestTimer* self = nullptr;
  std::vector<long> references;
  const TestTimer timer(10, kRepeating, [&] {
    references.push_back(self->Entries());  // includes the reference of the pass
    Manager().ResetTimer(self->Get());      // not queued, so this does nothing
    SetClock(kStart + 15);
    Manager().ResetTimer(self->Get());
  });
  self = &timer;
  timer->Start();
  PassAt(kStart + 10);
  EXPECT_THAT(references, ElementsAre(1));
  EXPECT_EQ(timer->GetExpire(), kStart + 20);
  EXPECT_EQ(timer.Entries(), 1);
}

TEST_F(ManagerTest, SelfStop) {
  TsTimer* self = nullptr;
  const TestTimer timer(10, kRepeating, [&] {
    self->Stop();
    Note("fired");
  });
  self = timer.Get().get();
  timer->Start();
  PassAt(kStart + 10);
  EXPECT_EQ(timer.Entries(), 1);
  EXPECT_EQ(timer->GetExpire(), kStart + 20);
  EXPECT_FALSE(timer.IsMarkedStarted());
  for (int i = 2; i < 6; ++i) PassAt(kStart + static_cast<Milliseconds>(i) * 10);
  EXPECT_EQ(Fired().size(), 5U);

  timer->Stop();  // not marked, so this does nothing
  EXPECT_EQ(timer.Entries(), 1);
  timer->Start();  // adds a second entry
  EXPECT_EQ(timer.Entries(), 2);
  EXPECT_TRUE(timer.IsMarkedStarted());
  timer->Stop();  // removes both entries
  EXPECT_EQ(timer.Entries(), 0);
  PassAt(kStart + kHour);
  EXPECT_THAT(Fired(), IsEmpty());
}

TEST_F(ManagerTest, SelfRestart) {
  TsTimer* self = nullptr;
  bool restart = true;
  const TestTimer timer(10, kRepeating, [&] {
    Note("fired");
    if (!restart) return;
    restart = false;
    self->Stop();
    self->Start();
  });
  self = timer.Get().get();
  timer->Start();
  PassAt(kStart + 10);
  EXPECT_THAT(Fired(), ElementsAre("fired"));
  EXPECT_EQ(timer.Entries(), 2);
  EXPECT_TRUE(timer.IsMarkedStarted());
  // Both entries share one expiry, so the first firing delays the other entry.
  PassAt(kStart + 20);
  EXPECT_THAT(Fired(), ElementsAre("fired"));
  EXPECT_EQ(timer.Entries(), 2);
  timer->Stop();
  EXPECT_EQ(timer.Entries(), 0);
}

// ---- one-shot timers ----

TEST_F(ManagerTest, OneShotMark) {
  const TestTimer* self = nullptr;
  std::vector<bool> marked;
  const TestTimer timer(10, kOnce, [&] { marked.push_back(self->IsMarkedStarted()); });
  self = &timer;
  timer->Start();
  EXPECT_TRUE(timer.IsMarkedStarted());
  PassAt(kStart + 10);
  EXPECT_THAT(marked, ElementsAre(false));
  EXPECT_FALSE(timer.IsMarkedStarted());
  EXPECT_EQ(timer.Entries(), 0);
}

TEST_F(ManagerTest, Restart) {
  TsTimer* self = nullptr;
  const TestTimer timer(10, kOnce, [&] {
    Note("fired");
    self->Start();
  });
  self = timer.Get().get();
  timer->Start();
  for (Milliseconds now = kStart + 10; now < kStart + 60; now += 10) {
    PassAt(now - 1);
    EXPECT_THAT(Fired(), IsEmpty());
    PassAt(now);
    EXPECT_THAT(Fired(), ElementsAre("fired"));
    EXPECT_EQ(timer->GetExpire(), now + 10);
    EXPECT_EQ(timer.Entries(), 1);
    EXPECT_TRUE(timer.IsMarkedStarted());
  }
}

TEST_F(ManagerTest, QueuedTwice) {
  const TestTimer timer(10, kOnce, Noting("fired"));
  timer->Start();
  timer->SetState(false);
  timer->Start();
  EXPECT_EQ(timer.Entries(), 2);
  PassAt(kStart + 10);
  EXPECT_THAT(Fired(), ElementsAre("fired", "fired"));
  EXPECT_EQ(timer.Entries(), 0);
}

TEST_F(ManagerTest, StopBoth) {
  const TestTimer first(10, kOnce);
  const TestTimer twice(20, kOnce);
  const TestTimer later[] = {{30, kOnce}, {40, kOnce}};
  first->Start();
  twice->Start();
  for (const TestTimer& other : later) other->Start();
  twice->SetState(false);
  twice->Start();
  EXPECT_EQ(twice.Entries(), 2);
  twice->Stop();
  EXPECT_EQ(twice.Entries(), 0);
  EXPECT_EQ(first.Entries(), 1);
  for (const TestTimer& other : later) EXPECT_EQ(other.Entries(), 1);
}

// A timer that is due as well has taken the place of its first entry.
TEST_F(ManagerTest, StopInAction) {
  TsTimer* self = nullptr;
  const TestTimer twice(10, kRepeating, [&] {
    Note("twice");
    self->Stop();
  });
  self = twice.Get().get();
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

TEST_F(ManagerTest, Owner) {
  auto timer = std::make_shared<TsTimer>(10, kOnce);
  const std::weak_ptr<TsTimer> watch = timer;
  timer->Init([&] {
    isInAction = true;
    Note(watch.expired() ? "gone" : "alive");
    isInAction = false;
  });
  timer->Start();
  timer.reset();
  PassAt(kStart + 9);
  EXPECT_FALSE(watch.expired());
  PassAt(kStart + 10);
  EXPECT_THAT(Fired(), ElementsAre("alive"));
  EXPECT_TRUE(watch.expired());
}

// ---- actions that start and stop timers ----

TEST_F(ManagerTest, StopDue) {
  for (const bool loop : {false, true}) {
    const TestTimer second(20, loop, Noting("second"));
    const TestTimer third(30, loop, Noting("third"));
    const TestTimer first(10, kOnce, [&] {
      Note("first");
      second->Stop();
    });
    first->Start();
    second->Start();
    third->Start();
    PassAt(kStart + 30);
    EXPECT_THAT(Fired(), ElementsAre("first", "third"));
    EXPECT_EQ(second.Entries(), 0);
    EXPECT_FALSE(second.IsMarkedStarted());
    SetClock(kStart);
  }
}

TEST_F(ManagerTest, StopFired) {
  const TestTimer first(10, kRepeating, Noting("first"));
  const TestTimer second(20, kOnce, [&] {
    Note("second");
    first->Stop();
  });
  first->Start();
  second->Start();
  PassAt(kStart + 20);
  EXPECT_THAT(Fired(), ElementsAre("first", "second"));
  EXPECT_EQ(first.Entries(), 0);
}

TEST_F(ManagerTest, StartLate) {
  const TestTimer second(1, kOnce, Noting("second"));
  const TestTimer first(10, kOnce, [&] {
    Note("first");
    second->Start();
  });
  first->Start();
  PassAt(kStart + 10);
  PassAt(kStart + 10);
  EXPECT_THAT(Fired(), ElementsAre("first"));
  EXPECT_EQ(second->GetExpire(), kStart + 11);
  PassAt(kStart + 11);
  EXPECT_THAT(Fired(), ElementsAre("second"));
}

TEST_F(ManagerTest, Throws) {
  const TestTimer repeating(10, kRepeating, [this] {
    Note("repeating");
    throw std::runtime_error("text");
  });
  const TestTimer once(11, kOnce, [this] {
    Note("once");
    throw std::bad_function_call();
  });
  const TestTimer last(12, kOnce, Noting("last"));
  repeating->Start();
  once->Start();
  last->Start();
  PassAt(kStart + 12);
  EXPECT_THAT(Fired(), ElementsAre("repeating", "once", "last"));
  EXPECT_EQ(repeating->GetExpire(), kStart + 22);
  EXPECT_EQ(repeating.Entries(), 1);
  EXPECT_FALSE(once.IsMarkedStarted());
}

// ---- removing timers ----

TEST_F(ManagerTest, RemoveTimer) {
  const TestTimer kept(20, kOnce, Noting("kept"));
  const TestTimer removed(10, kOnce, Noting("removed"));
  const TestTimer alsoKept(30, kRepeating, Noting("also kept"));
  Manager().AddTimer(removed.Get());
  kept->Start();
  Manager().AddTimer(removed.Get());
  alsoKept->Start();
  Manager().AddTimer(removed.Get());
  EXPECT_EQ(removed.Entries(), 3);
  Manager().RemoveTimer(removed.Get());
  EXPECT_EQ(removed.Entries(), 0);
  EXPECT_EQ(kept.Entries(), 1);
  PassAt(kStart + 30);
  EXPECT_THAT(Fired(), ElementsAre("kept", "also kept"));
}

TEST_F(ManagerTest, Identity) {
  const TestTimer one(10, kOnce, Noting("one"));
  const TestTimer twin(10, kOnce, Noting("twin"));
  one->Start();
  twin->Start();
  twin->Stop();
  PassAt(kStart + 10);
  EXPECT_THAT(Fired(), ElementsAre("one"));
}

TEST_F(ManagerTest, StopStopped) {
  std::vector<std::unique_ptr<TestTimer>> timers;
  for (const int timeout : {50, 10, 40, 20, 30}) {
    timers.push_back(std::make_unique<TestTimer>(static_cast<Milliseconds>(timeout), kOnce,
                                                 Noting(std::to_string(timeout))));
    timers.back()->Get()->Start();
  }
  const TestTimer absent(5, kOnce, Noting("absent"));
  absent->SetState(true);
  absent->Stop();
  EXPECT_FALSE(absent.IsMarkedStarted());
  for (const auto& timer : timers) EXPECT_EQ(timer->Entries(), 1);
  PassAt(kStart + 50);
  EXPECT_THAT(Fired(), ElementsAre("10", "20", "30", "40", "50"));
}

// ---- resetting timers ----

TEST_F(ManagerTest, ResetFromNow) {
  const TestTimer a(10, kOnce, Noting("a"));
  const TestTimer b(20, kOnce, Noting("b"));
  const TestTimer c(30, kOnce, Noting("c"));
  c->Start();
  b->Start();
  a->Start();
  SetClock(kStart + 5);
  Manager().ResetTimer(b.Get());
  EXPECT_EQ(b->GetExpire(), kStart + 25);
  SetClock(kStart + 9);
  Manager().ResetTimer(a.Get());
  EXPECT_EQ(a->GetExpire(), kStart + 19);
  SetClock(kStart + 15);
  Manager().ResetTimer(a.Get());
  EXPECT_EQ(a->GetExpire(), kStart + 25);
  Manager().ResetTimer(c.Get());
  EXPECT_EQ(c->GetExpire(), kStart + 45);
  EXPECT_EQ(a.Entries() + b.Entries() + c.Entries(), 3);
  PassAt(kStart + 24);
  EXPECT_THAT(Fired(), IsEmpty());
  PassAt(kStart + 26);
  EXPECT_THAT(Fired(), UnorderedElementsAre("a", "b"));
  PassAt(kStart + 44);
  EXPECT_THAT(Fired(), IsEmpty());
  PassAt(kStart + 45);
  EXPECT_THAT(Fired(), ElementsAre("c"));
}

TEST_F(ManagerTest, ResetForward) {
  const TestTimer a(10, kOnce, Noting("a"));
  const TestTimer b(20, kOnce, Noting("b"));
  const TestTimer c(30, kOnce, Noting("c"));
  a->Start();
  b->Start();
  c->Start();
  SetClock(kStart - 100);
  Manager().ResetTimer(c.Get());
  EXPECT_EQ(c->GetExpire(), kStart - 70);
  PassAt(kStart + 20);
  EXPECT_THAT(Fired(), ElementsAre("c", "a", "b"));
}

TEST_F(ManagerTest, ResetStopped) {
  for (const bool emptyQueue : {true, false}) {
    const TestTimer queued(20, kOnce, Noting("queued"));
    if (!emptyQueue) queued->Start();
    const TestTimer timer(10, kOnce, Noting("timer"));
    timer->SetExpire(77);
    Manager().ResetTimer(timer.Get());
    EXPECT_EQ(timer->GetExpire(), 77U);
    EXPECT_EQ(timer.Entries(), 0);
    EXPECT_FALSE(timer.IsMarkedStarted());
    StartTheThread();
    PassAt(kStart + 30);
    EXPECT_EQ(Fired().size(), emptyQueue ? 0U : 1U);
    SetClock(kStart);
  }
}

// ---- process exit ----

// Prints a message when it is destroyed.
class Reporting {
 public:
  explicit Reporting(const char* lastWords) : text(lastWords) {}
  Reporting(const Reporting&) = delete;
  Reporting& operator=(const Reporting&) = delete;
  ~Reporting() { Print(text); }

  static void Print(const char* text) {
    std::fputs(text, stderr);
    std::fputs("\n", stderr);
    std::fflush(stderr);
  }

 private:
  const char* const text;
};

// Waits for a pass to begin at the given time, but not for its end.
void BeginPassAt(Milliseconds ms) {
  const int last = Platform().SetClock(static_cast<int64_t>(ms) * 10000);
  Platform().AwaitPassAfter(last);
}

// Never destroyed: actions may still run during process exit.
Gate& LastingGate() {
  static auto* const gate = new Gate;
  return *gate;
}

std::shared_ptr<TsTimer> Started(Milliseconds timeout, bool repeating,
                                 std::function<void()> action) {
  auto timer = std::make_shared<TsTimer>(timeout, repeating);
  timer->Init(std::move(action));
  timer->Start();
  return timer;
}

TEST_F(ManagerProcess, EndWaits) {
  EXPECT_EXIT(
      {
        StartWatchdog();
        const auto timer = Started(10, kOnce, [] {
          LastingGate().Open();
          std::this_thread::sleep_for(std::chrono::milliseconds(100));
          Reporting::Print("action done");
        });
        BeginPassAt(kStart + 10);
        LastingGate().WaitFor();
        std::exit(0);
      },
      testing::ExitedWithCode(0), "action done");
}

TEST_F(ManagerProcess, EndFrees) {
  EXPECT_EXIT(
      {
        StartWatchdog();
        auto timer = Started(10, kRepeating,
                             [reporting = std::make_shared<Reporting>("callable released")] {});
        timer.reset();
        std::exit(0);
      },
      testing::ExitedWithCode(0), "callable released");
}

// The thread is joined under the lock (by design). If the timer thread is waiting for the lock at
// that point, it must skip the pass it was about to begin. The exiting thread may already hold the
// lock: an allocation under the lock may call a handler of the host, which may call exit().
TEST_F(ManagerProcess, EndLocked) {
  for (const bool byOwner : {false, true}) {
    SCOPED_TRACE(byOwner);
    EXPECT_EXIT(
        {
          StartWatchdog();
          const auto timer = Started(kHour, kOnce, [] {});
          const auto other = std::make_shared<TsTimer>(kHour, kOnce);
          Platform().AwaitPassAfter(1);
          Platform().AtNextRead([byOwner] {  // under the lock
            std::this_thread::sleep_for(kSeveralPasses);
            if (byOwner) std::exit(0);
            std::thread([] { std::exit(0); }).detach();
            std::this_thread::sleep_for(kSeveralPasses);
          });
          other->Start();
          std::this_thread::sleep_for(2 * kTestTimeout);
        },
        testing::ExitedWithCode(0), "");
  }
}

// Thread-local objects of the timer thread are destroyed while that thread is joined.
TEST_F(ManagerProcess, EndOrder) {
  EXPECT_EXIT(
      {
        StartWatchdog();
        auto queued = Started(kHour, kOnce, [] {});
        const std::weak_ptr<TsTimer> watch = queued;
        queued.reset();
        const auto once = Started(10, kOnce, [&watch] {
          tarsio_test::WhenThisThreadEnds([&watch] {
            while (!watch.expired()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
            std::this_thread::sleep_for(kSeveralPasses);
            const bool free = (Manager().*Reach(tarsio_test::ManagerMutex())).try_lock();
            if (!free) Reporting::Print("locked");
          });
        });
        PassAt(kStart + 10);
        std::exit(0);
      },
      testing::ExitedWithCode(0), "locked");
}

TEST_F(ManagerProcess, EndInAction) {
  EXPECT_DEATH(
      {
        StartWatchdog();
        std::set_terminate([] {
          try {
            std::rethrow_exception(std::current_exception());
          } catch (const std::system_error& e) {
            if (e.code() == std::errc::resource_deadlock_would_occur) Reporting::Print("deadlock");
          }
          std::abort();
        });
        const auto timer = Started(10, kOnce, [] { std::exit(0); });
        BeginPassAt(kStart + 10);
        std::this_thread::sleep_for(kTestTimeout);
      },
      "deadlock");
}

// As in a forked process, or on a system that has killed all other threads: the timer thread held
// the lock. Neither the manager's destructor nor later calls by the host's statics may wait for it.
TEST_F(ManagerProcess, NoThread) {
  for (const bool forked : {false, true}) {
    SCOPED_TRACE(forked);
    EXPECT_EXIT(
        {
          StartWatchdog();
          const auto timer = Started(10, kRepeating, [] {
            LastingGate().Open();
            std::this_thread::sleep_for(2 * kTestTimeout);  // stands for a killed thread
          });
          BeginPassAt(kStart + 10);
          LastingGate().WaitFor();
          Platform().forks = forked ? 1 : 0;
          Platform().processIsEnding = !forked;
          timer->Stop();
          timer->Start();
          Started(kHour, kOnce, [] {});  // marked started when dropped
          TsTimer unowned(kHour, kOnce);
          EXPECT_THROW(unowned.Start(), std::bad_weak_ptr);
          if (!testing::Test::HasFailure()) std::exit(0);
        },
        testing::ExitedWithCode(0), "");
  }
}

// Without a timer thread, a fork changes nothing.
TEST_F(ManagerProcess, Fork) {
  EXPECT_IN_A_FRESH_PROCESS([] {
    Platform().forks = 1;
    Events fired;
    const TestTimer timer(10, kOnce, [&fired] { fired.Add(); });
    timer->Start();
    Platform().SetClock(static_cast<int64_t>(kStart + 10) * 10000);
    return fired.Await();
  });
}

// A handler that is registered before the manager exists runs after the manager's end.
TEST_F(ManagerProcess, AfterEnd) {
  static std::shared_ptr<TsTimer> queued;  // queued before the end
  EXPECT_EXIT(
      {
        StartWatchdog();
        std::atexit([] {
          const int passes = Platform().Passes();
          auto timer = std::make_shared<TsTimer>(1, kRepeating);
          timer->Init([] { Reporting::Print("fired"); });
          timer->Start();
          Platform().SetClock(static_cast<int64_t>(kStart + kHour) * 10000);
          std::this_thread::sleep_for(kSeveralPasses);
          const bool idle = Platform().Passes() == passes &&
                            Manager().*Reach(tarsio_test::ManagerThread()) == nullptr;
          const bool released = queued.use_count() == 1;
          timer->Stop();
          timer.reset();
          queued->Stop();
          queued.reset();
          if (idle && released) Reporting::Print("nothing left");
        });
        queued = Started(kHour, kRepeating, [] { Reporting::Print("fired"); });
        Platform().AwaitPassAfter(1);
        std::exit(0);
      },
      testing::ExitedWithCode(0),
      testing::AllOf(testing::HasSubstr("nothing left"),
                     testing::Not(testing::HasSubstr("fired"))));
}

TEST_F(ManagerProcess, DropLate) {
  EXPECT_DEATH(
      {
        StartWatchdog();
        std::atexit([] {
          auto timer = std::make_shared<TsTimer>(kHour, kRepeating);
          timer->Start();  // marked but no longer queued
          timer.reset();
        });
        StartTheThread();
        std::exit(0);
      },
      "no shared_ptr owns the timer");
}

// Releasing a timer that the host has dropped must not end the process.
TEST_F(ManagerProcess, EndTwice) {
  EXPECT_EXIT(
      {
        StartWatchdog();
        auto timer = Started(kHour, kOnce, [] {});
        timer->SetState(false);
        timer->Start();
        timer.reset();
        std::exit(0);
      },
      testing::ExitedWithCode(0), "");
}

TEST_F(ManagerProcess, EndHeld) {
  EXPECT_EXIT(
      {
        StartWatchdog();
        for (const Milliseconds timeout : {kHour, 3 * kHour}) {
          auto inner = Started(2 * kHour, kOnce, [] {});
          auto outer = Started(timeout, kOnce, [inner] { inner->Stop(); });
        }
        std::exit(0);
      },
      testing::ExitedWithCode(0), "");
}

// The manager's queue is used again while it is being emptied.
TEST_F(ManagerProcess, EndStops) {
  struct StopOnExit {
    explicit StopOnExit(std::shared_ptr<TsTimer> stopped) : timer(std::move(stopped)) {}
    StopOnExit(const StopOnExit&) = delete;
    StopOnExit& operator=(const StopOnExit&) = delete;
    ~StopOnExit() { timer->Stop(); }
    const std::shared_ptr<TsTimer> timer;
  };
  EXPECT_EXIT(
      {
        StartWatchdog();
        std::mt19937_64 random(1);
        for (int i = 0; i < 50; ++i) {
          auto inner = Started(kHour + random() % kHour, kRepeating, [] {});
          Started(kHour + random() % kHour, kRepeating,
                  [stop = std::make_shared<StopOnExit>(inner)] {});
        }
        std::exit(0);
      },
      testing::ExitedWithCode(0), "");
}

// ---- against a model ----

// The expected state of the manager, as a reference implementation. The test calls it between
// passes, and actions call it during a pass, so never concurrently.
class Model {
 public:
  struct Item {
    Milliseconds timeout = 0;
    bool loop = false;
    bool started = false;
    bool queued = false;
    Milliseconds expire = 0;
  };

  std::vector<Item> items;
  Milliseconds clock = kStart;
  size_t firings = 0;
  std::vector<std::string> errors;

  void Start(size_t i) {
    if (items[i].started) return;
    items[i].started = true;
    if (items[i].timeout == 0) return;
    items[i].expire = clock + items[i].timeout;
    items[i].queued = true;
  }
  void Stop(size_t i) {
    if (items[i].started) Remove(i);
    items[i].started = false;
  }
  void Remove(size_t i) { items[i].queued = false; }
  void Reset(size_t i) {
    if (items[i].queued) items[i].expire = clock + items[i].timeout;
  }

  // Whether a start would add a second entry next to the one that is queued, or that will be queued
  // again when the action returns.
  bool StartWouldQueueTwice(size_t i) const {
    return !items[i].started && (items[i].queued || firing == i);
  }

  void BeginFiring(size_t i) {
    ++firings;
    Item& item = items[i];
    if (!item.queued) errors.push_back("fired but not queued");
    if (item.expire > clock) errors.push_back("fired before its time");
    for (const Item& other : items) {
      if (other.queued && other.expire < item.expire) errors.push_back("fired out of order");
    }
    item.queued = false;
    if (item.loop) {
      item.expire = clock + item.timeout;
      firing = i;
    } else {
      item.started = false;
    }
  }
  void EndFiring(size_t i) {
    if (items[i].loop) items[i].queued = true;
    firing = kNone;
  }

 private:
  static constexpr size_t kNone = std::numeric_limits<size_t>::max();

  size_t firing = kNone;  // a repeating timer, while its action runs
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
    switch (random() % 8) {
      case 0:
      case 1:
      case 2:
        if (model.StartWouldQueueTwice(i)) return;
        timer->Start();
        model.Start(i);
        return;
      case 3:
      case 4:
        timer->Stop();
        model.Stop(i);
        return;
      case 5:
        Manager().ResetTimer(timer);
        model.Reset(i);
        return;
      case 6:
        Manager().RemoveTimer(timer);
        model.Remove(i);
        return;
      default: {
        const bool started = random() % 2 == 0;
        timer->SetState(started);
        model.items[i].started = started;
      }
    }
  };
  const auto act = [&](size_t i) {
    model.BeginFiring(i);
    if (timers[i]->Get()->GetExpire() != model.items[i].expire) {
      model.errors.push_back("expiry in the action");
    }
    const uint64_t choice = random() % 8;
    if (choice < 2) operate(i);
    if (choice == 2 || choice == 3) operate(random() % kTimers);
    model.EndFiring(i);
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
  EXPECT_GT(model.firings, 2000U);
}

}  // namespace
