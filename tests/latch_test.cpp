#include "common/latch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
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

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::steady_clock;
using std::chrono::system_clock;
using tarsio::CountDownLatch;
using tarsio::CountOutWake;
using tarsio_test::BackgroundCall;
using tarsio_test::kBlockedCheck;
using tarsio_test::kTestTimeout;

using Timeout = unsigned long long;

template <typename Latch>
constexpr bool IsPlainObject =
    std::is_constructible_v<Latch, unsigned int> && !std::is_copy_constructible_v<Latch> &&
    !std::is_copy_assignable_v<Latch> && !std::is_polymorphic_v<Latch>;
static_assert(IsPlainObject<CountDownLatch> && !std::is_default_constructible_v<CountDownLatch>);
static_assert(IsPlainObject<CountOutWake> && std::is_default_constructible_v<CountOutWake>);

constexpr unsigned int kLargest = std::numeric_limits<unsigned int>::max();
constexpr Timeout kNoLimit = 0;
constexpr Timeout kLargestTimeout = std::numeric_limits<int64_t>::max();
constexpr Timeout kFirstNegative = kLargestTimeout + 1;
// A wait that returns immediately takes less than this.
constexpr milliseconds kAtOnce{500};

// ---- helpers for both ----

milliseconds UnitOf(const CountDownLatch& /*latch*/) { return milliseconds(1); }
nanoseconds UnitOf(const CountOutWake& /*wake*/) { return nanoseconds(1); }
std::condition_variable& CvOf(CountDownLatch& latch) {
  return latch.*Reach(tarsio_test::LatchCv());
}
std::condition_variable& CvOf(CountOutWake& wake) { return wake.*Reach(tarsio_test::WakeCv()); }

template <typename Latch>
Timeout AnHour(const Latch& latch) {
  return static_cast<Timeout>(std::chrono::hours(1) / UnitOf(latch));
}

// Threads in Wait() of one object. The destructor frees the remaining ones, even of a broken
// object.
template <typename Latch>
class Waiters {
 public:
  Waiters(std::shared_ptr<Latch> object, const std::vector<Timeout>& timeouts)
      : latch(std::move(object)) {
    for (const Timeout timeout : timeouts) {
      calls.emplace_back([latch = latch, timeout] { latch->Wait(timeout); });
    }
  }
  Waiters(const Waiters&) = delete;
  Waiters& operator=(const Waiters&) = delete;
  ~Waiters() { WakeUntilReturned(); }

  int64_t Returned() {
    return std::count_if(calls.begin(), calls.end(),
                         [](BackgroundCall& call) { return call.ReturnsWithin(milliseconds(0)); });
  }

  bool AllReturn() {
    return std::all_of(calls.begin(), calls.end(),
                       [](BackgroundCall& call) { return call.ReturnsWithin(); });
  }

  // Watches the threads for a while and returns whether none has returned.
  bool AllStayBlocked() {
    std::this_thread::sleep_for(kBlockedCheck);
    return std::all_of(calls.begin(), calls.end(),
                       [](BackgroundCall& call) { return call.StaysBlocked(milliseconds(0)); });
  }

  // Notifies the condition variable from outside, like spurious wake-ups. Repeats it, in case a
  // thread was not waiting yet.
  bool WakeUntilReturned() {
    for (const auto start = steady_clock::now(); steady_clock::now() - start < kTestTimeout;) {
      CvOf(*latch).notify_all();
      if (Returned() == static_cast<int64_t>(calls.size())) return true;
      std::this_thread::sleep_for(milliseconds(1));
    }
    return false;
  }

 private:
  const std::shared_ptr<Latch> latch;
  std::vector<BackgroundCall> calls;
};

// Returns how long Wait() takes on the system clock; the maximum if it does not return.
template <typename Latch>
nanoseconds DurationOfWait(const std::shared_ptr<Latch>& latch, Timeout timeout) {
  const auto start = system_clock::now();
  Waiters waiter(latch, {timeout});
  return waiter.AllReturn() ? system_clock::now() - start : nanoseconds::max();
}

// One of several attempts must be short, on a busy machine too.
template <typename Latch>
bool ReturnsAtOnce(const std::shared_ptr<Latch>& latch, Timeout timeout) {
  nanoseconds shortest = nanoseconds::max();
  for (int i = 0; i < 10 && shortest > kAtOnce; ++i) {
    shortest = std::min(shortest, DurationOfWait(latch, timeout));
    if (shortest > kTestTimeout) break;  // another attempt would take as long
  }
  return shortest < kAtOnce;
}

// Whether the count becomes `count`.
bool Reads(CountOutWake& wake, unsigned int count) {
  for (const auto start = steady_clock::now(); steady_clock::now() - start < kTestTimeout;) {
    if (wake.GetCount() == count) return true;
    std::this_thread::sleep_for(milliseconds(1));
  }
  return false;
}

// ---- both classes ----

// Passes a new object of each class, with the count 1.
template <typename Test>
void ForBoth(const Test& test) {
  {
    SCOPED_TRACE("CountDownLatch");
    test(std::make_shared<CountDownLatch>(1u));
  }
  SCOPED_TRACE("CountOutWake");
  test(std::make_shared<CountOutWake>(1u));
}

TEST(Latches, Initial) {
  for (const unsigned int count : {0u, 1u, 2u, 0x80000000u, kLargest}) {
    EXPECT_EQ(CountDownLatch(count).GetCount(), count);
    EXPECT_EQ(CountOutWake(count).GetCount(), count);
  }
  EXPECT_EQ(CountOutWake().GetCount(), 0u);
}

// lock_faults_test checks the exact deadlines.
TEST(Latches, Timeout) {
  ForBoth([](const auto& latch) {
    for (const int count : {1, 7, 49, 1500}) {
      SCOPED_TRACE(count);
      const milliseconds timeout(count);
      const auto duration = DurationOfWait(latch, static_cast<Timeout>(timeout / UnitOf(*latch)));
      ASSERT_GE(duration, timeout);
      ASSERT_LT(duration, kTestTimeout);
    }
    EXPECT_EQ(latch->GetCount(), 1u);
  });
}

TEST(Latches, Negative) {
  ForBoth([](const auto& latch) {
    for (const Timeout more : {0ull, 1ull, 1500ull, 1ull << 62, kLargestTimeout}) {
      ASSERT_TRUE(ReturnsAtOnce(latch, kFirstNegative + more));
    }
    EXPECT_EQ(latch->GetCount(), 1u);
  });
}

// These do not overflow or wrap to a short timeout in any unit. A spurious wake-up ends any wait:
// it does not check the count again (by design).
TEST(Latches, LongTimeouts) {
  ForBoth([](const auto& latch) {
    const auto clockEnd = system_clock::duration::max() - system_clock::now().time_since_epoch();
    const auto last = static_cast<Timeout>(clockEnd / UnitOf(*latch));
    std::vector<Timeout> timeouts = {
        kNoLimit,   last - AnHour(*latch), (1ull << 36) + 1, last + AnHour(*latch),
        1ull << 62, kLargestTimeout - 1,   kLargestTimeout};
    if (UnitOf(*latch) == milliseconds(1)) {
      for (const int bits : {31, 32, 33}) timeouts.push_back((1ull << bits) + 1);
      timeouts.push_back(9223372036855);      // more than 2^63 nanoseconds
      timeouts.push_back(18446744073710);     // in nanoseconds, would wrap to 0.4 ms
      timeouts.push_back(9223372036854776);   // more than 2^63 microseconds
      timeouts.push_back(18446744073709552);  // more than 2^64 microseconds
    }
    Waiters waiters(latch, timeouts);
    EXPECT_TRUE(waiters.AllStayBlocked());
    EXPECT_TRUE(waiters.WakeUntilReturned());
    EXPECT_EQ(latch->GetCount(), 1u);
  });
}

// ---- CountDownLatch ----

TEST(CountDownLatch, CountDown) {
  CountDownLatch latch(3);
  for (const unsigned int left : {2u, 1u, 0u, 0u}) {
    latch.CountDown();
    EXPECT_EQ(latch.GetCount(), left);
  }
  const auto largest = std::make_shared<CountDownLatch>(kLargest);
  largest->CountDown();
  EXPECT_EQ(largest->GetCount(), kLargest - 1);
  Waiters waiter(largest, {kNoLimit});
  EXPECT_TRUE(waiter.AllStayBlocked());
}

TEST(CountDownLatch, StaysOpen) {
  for (const unsigned int steps : {0u, 1u}) {
    const auto latch = std::make_shared<CountDownLatch>(steps);
    if (steps > 0) latch->CountDown();
    for (const Timeout timeout :
         {kNoLimit, Timeout{1500}, AnHour(*latch), kLargestTimeout, kFirstNegative}) {
      ASSERT_TRUE(ReturnsAtOnce(latch, timeout));
    }
    latch->CountDown();
    EXPECT_EQ(latch->GetCount(), 0u);
  }
}

TEST(CountDownLatch, WakesAll) {
  const auto latch = std::make_shared<CountDownLatch>(2u);
  Waiters waiters(latch, {kNoLimit, kNoLimit, AnHour(*latch), kLargestTimeout});
  ASSERT_TRUE(waiters.AllStayBlocked());
  latch->CountDown();
  EXPECT_EQ(latch->GetCount(), 1u);
  ASSERT_TRUE(waiters.AllStayBlocked());
  latch->CountDown();
  EXPECT_TRUE(waiters.AllReturn());
}

// ---- CountOutWake ----

TEST(CountOutWake, WakesOne) {
  const auto wake = std::make_shared<CountOutWake>();
  Waiters waiters(wake, {kNoLimit, AnHour(*wake), kNoLimit, AnHour(*wake)});
  ASSERT_TRUE(Reads(*wake, 4));
  ASSERT_TRUE(waiters.AllStayBlocked());
  for (unsigned int left = 3; left > 0; --left) {
    wake->CountOut();
    ASSERT_TRUE(Reads(*wake, left));
    std::this_thread::sleep_for(kBlockedCheck / 3);
    ASSERT_EQ(wake->GetCount(), left) << "more than one thread was woken";
    ASSERT_LE(waiters.Returned(), 4 - left);
  }
  wake->CountOut();
  EXPECT_TRUE(waiters.AllReturn());
  EXPECT_EQ(wake->GetCount(), 0u);
}

TEST(CountOutWake, WakesAll) {
  const auto wake = std::make_shared<CountOutWake>(5u);
  Waiters waiters(wake, {kNoLimit, AnHour(*wake), kLargestTimeout});
  ASSERT_TRUE(Reads(*wake, 8));
  wake->Wait(50'000'000);
  EXPECT_EQ(wake->GetCount(), 8u) << "only one wait has timed out";
  ASSERT_TRUE(waiters.AllStayBlocked());
  wake->CountAll();
  EXPECT_TRUE(waiters.AllReturn());
  EXPECT_EQ(wake->GetCount(), 5u);
}

TEST(CountOutWake, LostWake) {
  const auto wake = std::make_shared<CountOutWake>(kLargest);
  wake->CountOut();
  wake->CountAll();
  EXPECT_EQ(wake->GetCount(), kLargest) << "wake-ups do not change the count";
  for (const bool all : {false, true}) {
    Waiters waiter(wake, {kNoLimit});
    ASSERT_TRUE(Reads(*wake, 0)) << "the count wraps";
    EXPECT_TRUE(waiter.AllStayBlocked());
    all ? wake->CountAll() : wake->CountOut();
    ASSERT_TRUE(Reads(*wake, kLargest));
  }
}

// Unlike CountDownLatch (by design), even a timeout of 1500 is short.
TEST(CountOutWake, Nanoseconds) {
  const auto wake = std::make_shared<CountOutWake>();
  for (const Timeout timeout : {1ull, 999ull, 1000ull, 1500ull}) {
    ASSERT_TRUE(ReturnsAtOnce(wake, timeout));
  }
}

// Each call takes the lock, and none logs.
TEST(Latches, Locks) {
  const auto records = tarsio_test::LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  const auto latch = std::make_shared<CountDownLatch>(1u);
  const auto wake = std::make_shared<CountOutWake>(3u);
  const std::function<void()> calls[] = {
      [latch] { EXPECT_EQ(latch->GetCount(), 1u); },
      [latch] { latch->Wait(1); },
      [latch] { latch->Wait(kFirstNegative); },
      [latch] { latch->CountDown(); },
      [latch] { latch->CountDown(); },     // at zero
      [latch] { latch->Wait(kNoLimit); },  // open
      [wake] { EXPECT_EQ(wake->GetCount(), 3u); },
      [wake] { wake->Wait(1); },
      [wake] { wake->Wait(kFirstNegative); },
      [wake] { wake->CountOut(); },
      [wake] { wake->CountAll(); },
  };
  for (const auto& call : calls) {
    SCOPED_TRACE(&call - calls);
    std::unique_lock<std::mutex> latchLock(latch.get()->*Reach(tarsio_test::LatchMutex()));
    std::unique_lock<std::mutex> wakeLock(wake.get()->*Reach(tarsio_test::WakeMutex()));
    BackgroundCall background(call);
    EXPECT_TRUE(background.StaysBlocked(milliseconds(100)));
    latchLock.unlock();
    wakeLock.unlock();
    EXPECT_TRUE(background.ReturnsWithin());
  }
  EXPECT_THAT(records->All(), testing::IsEmpty());
}

}  // namespace
