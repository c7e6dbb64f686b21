#include "common/latch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "support/background_call.h"
#include "support/gate.h"
#include "support/private_member.h"
#include "support/recording_logger.h"

namespace tarsio_test {

EXPOSE_PRIVATE(LatchCv, &tarsio::CountDownLatch::cv);
EXPOSE_PRIVATE(LatchMutex, &tarsio::CountDownLatch::mutex);
EXPOSE_PRIVATE(WakeMutex, &tarsio::CountOutWake::mutex);
EXPOSE_PRIVATE(WakeCv, &tarsio::CountOutWake::cv);

}  // namespace tarsio_test

namespace {

using std::chrono::duration_cast;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;
using std::chrono::system_clock;
using tarsio::CountDownLatch;
using tarsio::CountOutWake;
using tarsio_test::BackgroundCall;
using tarsio_test::kBlockedCheck;
using tarsio_test::kTestTimeout;
using tarsio_test::LogRecords;

using Timeout = unsigned long long;

// ---- declarations ----

static_assert(std::is_constructible<CountDownLatch, unsigned int>::value &&
                  !std::is_default_constructible<CountDownLatch>::value,
              "no default count");
static_assert(std::is_constructible<CountOutWake, unsigned int>::value &&
                  std::is_default_constructible<CountOutWake>::value,
              "has a default count");
static_assert(!std::is_copy_constructible<CountDownLatch>::value &&
                  !std::is_copy_assignable<CountDownLatch>::value &&
                  !std::is_copy_constructible<CountOutWake>::value &&
                  !std::is_copy_assignable<CountOutWake>::value,
              "not copyable");
static_assert(!std::is_polymorphic<CountDownLatch>::value &&
                  !std::is_polymorphic<CountOutWake>::value,
              "no virtual functions");
static_assert(
    std::is_same<decltype(&CountDownLatch::CountDown), void (CountDownLatch::*)()>::value &&
        std::is_same<decltype(&CountDownLatch::Wait), void (CountDownLatch::*)(Timeout)>::value &&
        std::is_same<decltype(&CountDownLatch::GetCount),
                     unsigned int (CountDownLatch::*)()>::value,
    "only the count is returned");
static_assert(
    std::is_same<decltype(&CountOutWake::CountOut), void (CountOutWake::*)()>::value &&
        std::is_same<decltype(&CountOutWake::CountAll), void (CountOutWake::*)()>::value &&
        std::is_same<decltype(&CountOutWake::Wait), void (CountOutWake::*)(Timeout)>::value &&
        std::is_same<decltype(&CountOutWake::GetCount), unsigned int (CountOutWake::*)()>::value,
    "only the count is returned");

// ---- helpers for both ----

constexpr unsigned int kLargest = std::numeric_limits<unsigned int>::max();
constexpr Timeout kNoLimit = 0;
constexpr Timeout kLargestTimeout = std::numeric_limits<int64_t>::max();
constexpr Timeout kFirstNegative = kLargestTimeout + 1;
// A wait that returns immediately takes less than this, at least once in several attempts.
constexpr milliseconds kAtOnce{500};
constexpr int kAttempts = 10;

// An hour, in the unit of each class.
Timeout AnHour(const CountDownLatch& /*latch*/) { return 3600ull * 1000; }
Timeout AnHour(const CountOutWake& /*wake*/) { return 3600ull * 1000 * 1000 * 1000; }

std::condition_variable& CvOf(CountDownLatch& latch) {
  return latch.*Reach(tarsio_test::LatchCv());
}
std::condition_variable& CvOf(CountOutWake& wake) { return wake.*Reach(tarsio_test::WakeCv()); }
std::mutex& MutexOf(CountDownLatch& latch) { return latch.*Reach(tarsio_test::LatchMutex()); }
std::mutex& MutexOf(CountOutWake& wake) { return wake.*Reach(tarsio_test::WakeMutex()); }

// Also frees waiters of a broken object whose count is already zero.
void FreeWaiters(CountDownLatch& latch) {
  while (latch.GetCount() != 0) latch.CountDown();
  CvOf(latch).notify_all();
}
void FreeWaiters(CountOutWake& wake) { wake.CountAll(); }

// Threads in Wait() of one object. The destructor frees the remaining ones.
template <typename Latch>
class Waiters {
 public:
  explicit Waiters(std::shared_ptr<Latch> object) : latch(std::move(object)) {}
  Waiters(const Waiters&) = delete;
  Waiters& operator=(const Waiters&) = delete;
  ~Waiters() {
    if (Returned() != calls.size()) FreeWaiters(*latch);
  }

  void Add(Timeout timeout) {
    calls.emplace_back([latch = latch, timeout] { latch->Wait(timeout); });
  }

  size_t Returned() {
    const auto returned = [](BackgroundCall& call) { return call.ReturnsWithin(milliseconds(0)); };
    return static_cast<size_t>(std::count_if(calls.begin(), calls.end(), returned));
  }

  // Returns whether all threads return in time.
  bool AllReturn() {
    const auto returns = [](BackgroundCall& call) { return call.ReturnsWithin(); };
    return std::all_of(calls.begin(), calls.end(), returns);
  }

  // Watches the threads for a while and returns whether none has returned.
  bool AllStayBlocked() {
    milliseconds watch = kBlockedCheck;
    for (BackgroundCall& call : calls) {
      if (!call.StaysBlocked(std::exchange(watch, milliseconds(0)))) return false;
    }
    return Returned() == 0;
  }

 private:
  const std::shared_ptr<Latch> latch;
  std::vector<BackgroundCall> calls;
};

// Returns how long Wait() takes on the system clock; more than kTestTimeout if it does not return.
template <typename Latch>
nanoseconds DurationOfWait(const std::shared_ptr<Latch>& latch, Timeout timeout) {
  const auto duration = std::make_shared<nanoseconds>();
  BackgroundCall call([latch, timeout, duration] {
    const auto start = system_clock::now();
    latch->Wait(timeout);
    *duration = system_clock::now() - start;
  });
  if (call.ReturnsWithin()) return *duration;
  FreeWaiters(*latch);
  return nanoseconds::max();
}

template <typename Latch>
nanoseconds ShortestWait(const std::shared_ptr<Latch>& latch, Timeout timeout) {
  nanoseconds shortest = nanoseconds::max();
  for (int i = 0; i < kAttempts && shortest >= kAtOnce; ++i) {
    const nanoseconds duration = DurationOfWait(latch, timeout);
    if (duration > kTestTimeout) return duration;  // another attempt would take as long
    shortest = std::min(shortest, duration);
  }
  return shortest;
}

struct TimeoutRow {
  std::string name;
  Timeout timeout;
};

const TimeoutRow kNegativeTimeouts[] = {
    {"2^63", kFirstNegative},
    {"2^63 + 1", kFirstNegative + 1},
    {"2^63 + 1500", kFirstNegative + 1500},
    {"2^63 + 2^62", kFirstNegative + (1ull << 62)},
    {"minus an hour in nanoseconds", 0 - 3600ull * 1000 * 1000 * 1000},
    {"2^64 - 1", std::numeric_limits<Timeout>::max()},
};

template <typename Latch>
void ExpectNegativeTimeoutsReturnAtOnce() {
  for (const TimeoutRow& row : kNegativeTimeouts) {
    SCOPED_TRACE(row.name);
    const auto latch = std::make_shared<Latch>(1u);
    ASSERT_LT(ShortestWait(latch, row.timeout), kAtOnce);
    EXPECT_EQ(latch->GetCount(), 1u);
  }
}

// All rows wait concurrently, each on a separate object.
template <typename Latch>
void ExpectTimeoutsWaitUntilFreed(const std::vector<TimeoutRow>& rows) {
  std::vector<std::shared_ptr<Latch>> latches;
  std::vector<std::unique_ptr<Waiters<Latch>>> waiters;
  for (const TimeoutRow& row : rows) {
    latches.push_back(std::make_shared<Latch>(1u));
    waiters.push_back(std::make_unique<Waiters<Latch>>(latches.back()));
    waiters.back()->Add(row.timeout);
  }
  std::this_thread::sleep_for(kBlockedCheck);
  for (size_t i = 0; i < rows.size(); ++i) {
    SCOPED_TRACE(rows[i].name);
    EXPECT_EQ(waiters[i]->Returned(), 0u);
    FreeWaiters(*latches[i]);
    ASSERT_TRUE(waiters[i]->AllReturn());
  }
}

// Notifies the condition variable from outside, like a spurious wake-up.
template <typename Latch>
void ExpectAnyWakeUpEndsTheWait() {
  for (const Timeout timeout : {kNoLimit, AnHour(Latch(1u)), kLargestTimeout}) {
    SCOPED_TRACE(timeout);
    const auto latch = std::make_shared<Latch>(1u);
    Waiters<Latch> waiters(latch);
    waiters.Add(timeout);
    ASSERT_TRUE(waiters.AllStayBlocked());
    const auto start = std::chrono::steady_clock::now();
    while (waiters.Returned() == 0 && std::chrono::steady_clock::now() - start < kTestTimeout) {
      CvOf(*latch).notify_all();  // repeat, in case the thread was not waiting yet
      std::this_thread::sleep_for(milliseconds(1));
    }
    ASSERT_EQ(waiters.Returned(), 1u);
    ASSERT_EQ(latch->GetCount(), 1u);
  }
}

// Expects `call` to block while the test holds the object's mutex.
template <typename Latch>
void ExpectWaitsForTheMutex(const std::shared_ptr<Latch>& latch, std::function<void()> call) {
  std::unique_lock<std::mutex> lock(MutexOf(*latch));
  BackgroundCall background(std::move(call));
  EXPECT_TRUE(background.StaysBlocked());
  lock.unlock();
  EXPECT_TRUE(background.ReturnsWithin());
}

// Waits until the count is `count`.
bool Reads(CountOutWake& wake, unsigned int count) {
  const auto start = std::chrono::steady_clock::now();
  while (wake.GetCount() != count) {
    if (std::chrono::steady_clock::now() - start > kTestTimeout) return false;
    std::this_thread::sleep_for(milliseconds(1));
  }
  return true;
}

// Runs `body` on `count` threads and waits for all of them.
template <typename Body>
void OnThreads(unsigned int count, Body body) {
  std::vector<std::thread> threads;
  for (unsigned int i = 0; i < count; ++i) threads.emplace_back(body, i);
  for (std::thread& thread : threads) thread.join();
}

// ---- CountDownLatch ----

TEST(CountDownLatch, Initial) {
  for (const unsigned int count : {0u, 1u, 2u, 0x80000000u, kLargest}) {
    CountDownLatch latch(count);
    EXPECT_EQ(latch.GetCount(), count);
  }
}

TEST(CountDownLatch, CountDown) {
  CountDownLatch latch(3);
  for (const unsigned int left : {2u, 1u, 0u, 0u, 0u}) {
    latch.CountDown();
    EXPECT_EQ(latch.GetCount(), left);
  }
  CountDownLatch largest(kLargest);
  largest.CountDown();
  EXPECT_EQ(largest.GetCount(), kLargest - 1);
}

TEST(CountDownLatch, ZeroIsOpen) {
  const auto latch = std::make_shared<CountDownLatch>(0u);
  for (const Timeout timeout : {kNoLimit, Timeout{1}, Timeout{1500}, AnHour(*latch),
                                kLargestTimeout, kFirstNegative, ~Timeout{0}}) {
    SCOPED_TRACE(timeout);
    ASSERT_LT(ShortestWait(latch, timeout), kAtOnce);
  }
  latch->CountDown();
  EXPECT_EQ(latch->GetCount(), 0u);
}

TEST(CountDownLatch, WakesAll) {
  const auto latch = std::make_shared<CountDownLatch>(2u);
  Waiters<CountDownLatch> waiters(latch);
  for (const Timeout timeout : {kNoLimit, kNoLimit, AnHour(*latch), kLargestTimeout}) {
    waiters.Add(timeout);
  }
  ASSERT_TRUE(waiters.AllStayBlocked());
  latch->CountDown();
  EXPECT_EQ(latch->GetCount(), 1u);
  ASSERT_TRUE(waiters.AllStayBlocked());
  latch->CountDown();
  EXPECT_EQ(latch->GetCount(), 0u);
  EXPECT_TRUE(waiters.AllReturn());
  latch->CountDown();
  EXPECT_EQ(latch->GetCount(), 0u);
}

TEST(CountDownLatch, StaysOpen) {
  const auto latch = std::make_shared<CountDownLatch>(1u);
  latch->CountDown();
  for (int i = 0; i < 3; ++i) {
    ASSERT_LT(ShortestWait(latch, kNoLimit), kAtOnce);
    ASSERT_LT(ShortestWait(latch, AnHour(*latch)), kAtOnce);
    latch->CountDown();
    EXPECT_EQ(latch->GetCount(), 0u);
  }
}

TEST(CountDownLatch, NoLimit) {
  const auto latch = std::make_shared<CountDownLatch>(1u);
  Waiters<CountDownLatch> waiters(latch);
  waiters.Add(0);
  ASSERT_TRUE(waiters.AllStayBlocked());
  latch->CountDown();
  EXPECT_TRUE(waiters.AllReturn());
}

// If the unit were seconds, the wait would exceed the test's limit; with microseconds it would be
// too short.
TEST(CountDownLatch, Unit) {
  const auto latch = std::make_shared<CountDownLatch>(2u);
  const nanoseconds duration = DurationOfWait(latch, 1500);
  EXPECT_GE(duration, milliseconds(1500));
  EXPECT_LT(duration, kTestTimeout);
  EXPECT_EQ(latch->GetCount(), 2u);
}

TEST(CountDownLatch, Timeout) {
  const auto latch = std::make_shared<CountDownLatch>(1u);
  for (const Timeout timeout : {1ull, 2ull, 3ull, 7ull, 20ull, 49ull, 150ull}) {
    SCOPED_TRACE(timeout);
    const nanoseconds duration = DurationOfWait(latch, timeout);
    ASSERT_GE(duration, milliseconds(timeout));
    ASSERT_LT(duration, kTestTimeout);
  }
  EXPECT_EQ(latch->GetCount(), 1u);
}

TEST(CountDownLatch, WaitAgain) {
  const auto latch = std::make_shared<CountDownLatch>(1u);
  EXPECT_GE(DurationOfWait(latch, 20), milliseconds(20));
  EXPECT_GE(DurationOfWait(latch, 20), milliseconds(20));
  Waiters<CountDownLatch> waiters(latch);
  waiters.Add(kNoLimit);
  ASSERT_TRUE(waiters.AllStayBlocked());
  latch->CountDown();
  EXPECT_TRUE(waiters.AllReturn());
}

TEST(CountDownLatch, From2To63) { ExpectNegativeTimeoutsReturnAtOnce<CountDownLatch>(); }

TEST(CountDownLatch, Overflow) {
  const auto now = duration_cast<milliseconds>(system_clock::now().time_since_epoch());
  const auto last = static_cast<Timeout>(
      duration_cast<milliseconds>(system_clock::duration::max() - now).count());
  ExpectTimeoutsWaitUntilFreed<CountDownLatch>({
      {"2^31", 1ull << 31},
      {"2^32 - 1", (1ull << 32) - 1},
      {"2^32", 1ull << 32},
      {"2^32 + 1", (1ull << 32) + 1},
      {"2^33 + 1", (1ull << 33) + 1},
      {"an hour before the clock's end", last - AnHour(CountDownLatch(0))},
      {"an hour after the clock's end", last + AnHour(CountDownLatch(0))},
      {"2^63 nanoseconds, cut", 9223372036854ull},
      {"2^63 nanoseconds and more", 9223372036855ull},
      {"2^64 nanoseconds and some, which would wrap to 0.4 ms", 18446744073710ull},
      {"2^63 microseconds and more", 9223372036854776ull},
      {"2^64 microseconds and more", 18446744073709552ull},
      {"2^62", 1ull << 62},
      {"2^63 - 2", kLargestTimeout - 1},
      {"2^63 - 1", kLargestTimeout},
  });
}

// Wait() does not check the count again (by design).
TEST(CountDownLatch, Spurious) { ExpectAnyWakeUpEndsTheWait<CountDownLatch>(); }

TEST(CountDownLatch, Locks) {
  const auto latch = std::make_shared<CountDownLatch>(3u);
  ExpectWaitsForTheMutex(latch, [latch] { EXPECT_EQ(latch->GetCount(), 3u); });
  ExpectWaitsForTheMutex(latch, [latch] { latch->CountDown(); });
  ExpectWaitsForTheMutex(latch, [latch] { latch->Wait(1); });
  ExpectWaitsForTheMutex(latch, [latch] { latch->Wait(kFirstNegative); });
  EXPECT_EQ(latch->GetCount(), 2u);
  FreeWaiters(*latch);
  ExpectWaitsForTheMutex(latch, [latch] { latch->CountDown(); });
  ExpectWaitsForTheMutex(latch, [latch] { latch->Wait(kNoLimit); });
}

TEST(CountDownLatch, Threads) {
  constexpr unsigned int kThreads = 8;
  constexpr unsigned int kSteps = 5000;
  for (const unsigned int spare : {7u, 1u, 0u}) {
    CountDownLatch latch(kThreads * kSteps + spare);
    OnThreads(kThreads, [&](unsigned int /*index*/) {
      for (unsigned int i = 0; i < kSteps; ++i) latch.CountDown();
    });
    EXPECT_EQ(latch.GetCount(), spare);
  }
}

TEST(CountDownLatch, NoWrap) {
  constexpr unsigned int kThreads = 8;
  CountDownLatch latch(1000);
  std::atomic<unsigned int> highest{0};
  OnThreads(kThreads, [&](unsigned int /*index*/) {
    unsigned int before = 1000;
    for (int i = 0; i < 2000; ++i) {
      latch.CountDown();
      const unsigned int count = latch.GetCount();
      if (count > before) highest = count;
      before = count;
    }
  });
  EXPECT_EQ(highest, 0u) << "the count increased";
  EXPECT_EQ(latch.GetCount(), 0u);
}

TEST(CountDownLatch, NoLostWake) {
  constexpr unsigned int kSteps = 4;
  for (int round = 0; round < 50; ++round) {
    const auto latch = std::make_shared<CountDownLatch>(kSteps);
    Waiters<CountDownLatch> waiters(latch);
    for (const Timeout timeout : {kNoLimit, kLargestTimeout, kNoLimit}) waiters.Add(timeout);
    OnThreads(kSteps, [&](unsigned int /*index*/) { latch->CountDown(); });
    ASSERT_TRUE(waiters.AllReturn());
    ASSERT_EQ(latch->GetCount(), 0u);
  }
}

// ---- CountOutWake ----

TEST(CountOutWake, Initial) {
  EXPECT_EQ(CountOutWake().GetCount(), 0u);
  for (const unsigned int count : {0u, 1u, 5u, 0x80000000u, kLargest}) {
    EXPECT_EQ(CountOutWake(count).GetCount(), count);
  }
}

TEST(CountOutWake, Waiters) {
  const auto wake = std::make_shared<CountOutWake>();
  Waiters<CountOutWake> waiters(wake);
  waiters.Add(0);
  ASSERT_TRUE(Reads(*wake, 1));
  ASSERT_TRUE(waiters.AllStayBlocked());
  EXPECT_EQ(wake->GetCount(), 1u);
  wake->CountOut();
  EXPECT_TRUE(waiters.AllReturn());
  EXPECT_EQ(wake->GetCount(), 0u);
}

TEST(CountOutWake, WakesOne) {
  constexpr unsigned int kWaiters = 4;
  const auto wake = std::make_shared<CountOutWake>();
  Waiters<CountOutWake> waiters(wake);
  for (unsigned int i = 0; i < kWaiters; ++i) waiters.Add(i % 2 == 0 ? kNoLimit : AnHour(*wake));
  ASSERT_TRUE(Reads(*wake, kWaiters));
  for (unsigned int left = kWaiters - 1;; --left) {
    wake->CountOut();
    ASSERT_TRUE(Reads(*wake, left));
    if (left == 0) break;
    std::this_thread::sleep_for(kBlockedCheck / 3);
    ASSERT_EQ(wake->GetCount(), left) << "more than one thread was woken";
    ASSERT_LE(waiters.Returned(), kWaiters - left);
  }
  EXPECT_TRUE(waiters.AllReturn());
}

TEST(CountOutWake, WakesAll) {
  const auto wake = std::make_shared<CountOutWake>(5u);
  Waiters<CountOutWake> waiters(wake);
  waiters.Add(kNoLimit);
  waiters.Add(kLargestTimeout);
  ASSERT_TRUE(Reads(*wake, 7));
  ASSERT_TRUE(waiters.AllStayBlocked());
  wake->CountAll();
  EXPECT_TRUE(waiters.AllReturn());
  EXPECT_EQ(wake->GetCount(), 5u);
}

TEST(CountOutWake, LostWake) {
  const auto wake = std::make_shared<CountOutWake>(3u);
  for (int i = 0; i < 3; ++i) {
    wake->CountOut();
    wake->CountAll();
    EXPECT_EQ(wake->GetCount(), 3u) << "wake-ups do not change the count";
  }
  EXPECT_GE(DurationOfWait(wake, 100'000'000), milliseconds(100));
  wake->CountOut();
  Waiters<CountOutWake> waiters(wake);
  waiters.Add(kNoLimit);
  ASSERT_TRUE(Reads(*wake, 4));
  ASSERT_TRUE(waiters.AllStayBlocked());
  wake->CountOut();
  EXPECT_TRUE(waiters.AllReturn());
  EXPECT_EQ(wake->GetCount(), 3u);
}

TEST(CountOutWake, IsReusable) {
  const auto wake = std::make_shared<CountOutWake>(2u);
  for (int round = 0; round < 50; ++round) {
    Waiters<CountOutWake> waiters(wake);
    waiters.Add(kNoLimit);
    waiters.Add(kLargestTimeout);
    ASSERT_TRUE(Reads(*wake, 4));
    if (round % 2 == 0) {
      wake->CountOut();
      wake->CountOut();
    } else {
      wake->CountAll();
    }
    ASSERT_TRUE(waiters.AllReturn());
    ASSERT_EQ(wake->GetCount(), 2u);
  }
}

// Unlike CountDownLatch (by design). As microseconds, 100 million would exceed the test's limit.
TEST(CountOutWake, Unit) {
  const auto wake = std::make_shared<CountOutWake>(1u);
  const nanoseconds duration = DurationOfWait(wake, 100'000'000);
  EXPECT_GE(duration, milliseconds(100));
  EXPECT_LT(duration, kTestTimeout);
  EXPECT_EQ(wake->GetCount(), 1u);
}

TEST(CountOutWake, OneSecond) {
  const auto wake = std::make_shared<CountOutWake>();
  const nanoseconds duration = DurationOfWait(wake, 1'000'000'000);
  EXPECT_GE(duration, seconds(1));
  EXPECT_LT(duration, kTestTimeout);
}

TEST(CountOutWake, Short) {
  const auto wake = std::make_shared<CountOutWake>();
  for (const Timeout timeout : {1ull, 999ull, 1000ull, 1500ull}) {
    SCOPED_TRACE(timeout);
    ASSERT_LT(ShortestWait(wake, timeout), kAtOnce);
  }
  EXPECT_EQ(wake->GetCount(), 0u);
}

TEST(CountOutWake, Timeout) {
  const auto wake = std::make_shared<CountOutWake>();
  for (const Timeout timeout : {1ull, 1000ull, 400'000ull, 999'999ull, 1'000'001ull, 1'999'999ull,
                                20'000'001ull, 49'999'999ull, 150'000'000ull}) {
    SCOPED_TRACE(timeout);
    const nanoseconds duration = DurationOfWait(wake, timeout);
    ASSERT_GE(duration, nanoseconds(timeout));
    ASSERT_LT(duration, kTestTimeout);
  }
}

TEST(CountOutWake, OneTimesOut) {
  const auto wake = std::make_shared<CountOutWake>(10u);
  Waiters<CountOutWake> others(wake);
  others.Add(kNoLimit);
  others.Add(AnHour(*wake));
  ASSERT_TRUE(Reads(*wake, 12));
  EXPECT_GE(DurationOfWait(wake, 50'000'000), milliseconds(50));
  EXPECT_EQ(wake->GetCount(), 12u);
  EXPECT_EQ(others.Returned(), 0u);
  wake->CountAll();
  EXPECT_TRUE(others.AllReturn());
  EXPECT_EQ(wake->GetCount(), 10u);
}

TEST(CountOutWake, From2To63) { ExpectNegativeTimeoutsReturnAtOnce<CountOutWake>(); }

TEST(CountOutWake, Overflow) {
  const auto now = duration_cast<nanoseconds>(system_clock::now().time_since_epoch());
  const Timeout last = kLargestTimeout - static_cast<Timeout>(now.count());
  ExpectTimeoutsWaitUntilFreed<CountOutWake>({
      {"2^36", 1ull << 36},
      {"2^36 + 1, whose lower half is 1", (1ull << 36) + 1},
      {"2^32 milliseconds", (1ull << 32) * 1'000'000},
      {"2^32 seconds", (1ull << 32) * 1'000'000'000},
      {"2^62", 1ull << 62},
      {"an hour before the clock's end", last - AnHour(CountOutWake())},
      {"an hour after the clock's end", last + AnHour(CountOutWake())},
      {"2^63 - 2", kLargestTimeout - 1},
      {"2^63 - 1", kLargestTimeout},
  });
}

TEST(CountOutWake, Spurious) { ExpectAnyWakeUpEndsTheWait<CountOutWake>(); }

TEST(CountOutWake, CountWraps) {
  const auto wake = std::make_shared<CountOutWake>(kLargest);
  Waiters<CountOutWake> waiters(wake);
  waiters.Add(kNoLimit);
  ASSERT_TRUE(Reads(*wake, 0));
  waiters.Add(kNoLimit);
  ASSERT_TRUE(Reads(*wake, 1));
  wake->CountOut();
  ASSERT_TRUE(Reads(*wake, 0));
  wake->CountOut();
  EXPECT_TRUE(waiters.AllReturn());
  EXPECT_EQ(wake->GetCount(), kLargest);
}

TEST(CountOutWake, Locks) {
  const auto wake = std::make_shared<CountOutWake>(3u);
  ExpectWaitsForTheMutex(wake, [wake] { EXPECT_EQ(wake->GetCount(), 3u); });
  ExpectWaitsForTheMutex(wake, [wake] { wake->CountOut(); });
  ExpectWaitsForTheMutex(wake, [wake] { wake->CountAll(); });
  ExpectWaitsForTheMutex(wake, [wake] { wake->Wait(1); });
  ExpectWaitsForTheMutex(wake, [wake] { wake->Wait(kFirstNegative); });
  EXPECT_EQ(wake->GetCount(), 3u);
}

TEST(CountOutWake, Threads) {
  constexpr unsigned int kThreads = 6;
  constexpr unsigned int kInitial = 100;
  CountOutWake wake(kInitial);
  std::atomic<unsigned int> outside{0};
  OnThreads(kThreads, [&](unsigned int index) {
    std::mt19937_64 random(index);
    for (int i = 0; i < 500; ++i) {
      switch (random() % 8) {
        case 0:
          wake.CountOut();
          break;
        case 1:
          wake.CountAll();
          break;
        case 2:
          wake.Wait(kFirstNegative + random() % 1000);
          break;
        default:
          wake.Wait(1 + random() % 100'000);
      }
      // The calling thread is not inside Wait().
      const unsigned int count = wake.GetCount();
      if (count < kInitial || count >= kInitial + kThreads) outside = count;
    }
  });
  EXPECT_EQ(outside, 0u);
  EXPECT_EQ(wake.GetCount(), kInitial);
}

TEST(CountOutWake, NoLimit) {
  constexpr size_t kWaiters = 8;
  constexpr int kRounds = 100;
  const auto wake = std::make_shared<CountOutWake>();
  const auto wakeUps = std::make_shared<std::atomic<unsigned int>>(0);
  std::vector<BackgroundCall> calls;
  for (size_t i = 0; i < kWaiters; ++i) {
    calls.emplace_back([wake, wakeUps] {
      for (int round = 0; round < kRounds; ++round) {
        wake->Wait(kNoLimit);
        ++*wakeUps;
      }
    });
  }
  const auto start = std::chrono::steady_clock::now();
  const auto running = [&calls] {
    return std::any_of(calls.begin(), calls.end(),
                       [](BackgroundCall& call) { return !call.ReturnsWithin(milliseconds(0)); });
  };
  while (running() && std::chrono::steady_clock::now() - start < kTestTimeout) wake->CountOut();
  EXPECT_FALSE(running());
  EXPECT_EQ(*wakeUps, kWaiters * kRounds);
  EXPECT_EQ(wake->GetCount(), 0u);
}

// ---- both classes ----

TEST(Latches, LogNothing) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  CountDownLatch latch(1);
  latch.Wait(1);
  latch.Wait(kFirstNegative);
  latch.CountDown();
  latch.CountDown();
  latch.Wait(kNoLimit);
  CountOutWake wake(kLargest);
  wake.Wait(1);
  wake.Wait(kFirstNegative);
  wake.CountOut();
  wake.CountAll();
  EXPECT_THAT(records->All(), testing::IsEmpty());
}

}  // namespace
