// The order of fields and of virtual functions. Compiled hosts depend on it.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <vector>

#include "common/blocking_queue.h"
#include "common/latch.h"
#include "common/log.h"
#include "common/path.h"
#include "common/thread_pool.h"
#include "common/timer.h"
#include "common/ts_string.h"
#include "support/virtual_slot.h"

namespace layout {

using component::Timer;
using component::TsTimer;
using tarsio::BlockingQueue;
using tarsio::CountDownLatch;
using tarsio::CountOutWake;
using tarsio::Logger;
using tarsio::Path;
using tarsio::ThreadPool;
using tarsio::TsString;
using tarsio::TsStringPair;

using Places = std::vector<const void*>;

// An explicit instantiation may name private members.
template <typename Object, auto... fields>
struct ExposeFields {
  friend Places PlacesOf(const Object& object) { return {&(object.*fields)...}; }
};

Places PlacesOf(const BlockingQueue<int>& queue);
template struct ExposeFields<BlockingQueue<int>, &BlockingQueue<int>::mutex,
                             &BlockingQueue<int>::capacity, &BlockingQueue<int>::items,
                             &BlockingQueue<int>::notFull, &BlockingQueue<int>::notEmpty,
                             &BlockingQueue<int>::closed>;

Places PlacesOf(const CountDownLatch& latch);
template struct ExposeFields<CountDownLatch, &CountDownLatch::cv, &CountDownLatch::mutex,
                             &CountDownLatch::count>;

Places PlacesOf(const CountOutWake& wake);
template struct ExposeFields<CountOutWake, &CountOutWake::mutex, &CountOutWake::cv,
                             &CountOutWake::count>;

Places PlacesOf(const Path& path);
template struct ExposeFields<Path, &Path::type, &Path::tokens, &Path::absolute, &Path::smb>;

Places PlacesOf(const ThreadPool& pool);
template struct ExposeFields<ThreadPool, &ThreadPool::name, &ThreadPool::maxThreadNumber,
                             &ThreadPool::runningThreadNumber, &ThreadPool::reservedNumber,
                             &ThreadPool::queueCapacity, &ThreadPool::workersMutex,
                             &ThreadPool::workersChanged, &ThreadPool::queue, &ThreadPool::workers,
                             &ThreadPool::waitMutex, &ThreadPool::taskTaken>;

Places PlacesOf(const TsTimer& timer);
template struct ExposeFields<TsTimer, &Timer::timeout, &Timer::loop, &Timer::expire, &Timer::state,
                             &TsTimer::callback>;

Places PlacesOf(const TsString& string);
template struct ExposeFields<TsString, &TsString::data, &TsString::inlineBuffer,
                             &TsString::capacity>;

Places PlacesOf(const TsStringPair& pair);
template struct ExposeFields<TsStringPair, &TsStringPair::first, &TsStringPair::second>;

void ExpectAscending(const Places& places) {
  EXPECT_TRUE(std::is_sorted(places.begin(), places.end(), std::less_equal<>()));
}

TEST(Layout, Fields) {
  ExpectAscending(PlacesOf(BlockingQueue<int>(1)));
  ExpectAscending(PlacesOf(CountDownLatch(1)));
  ExpectAscending(PlacesOf(CountOutWake()));  // unlike in CountDownLatch, the mutex comes first
  ExpectAscending(PlacesOf(Path()));
  ExpectAscending(PlacesOf(TsTimer(10, false)));
  ExpectAscending(PlacesOf(TsString()));
  ExpectAscending(PlacesOf(TsStringPair()));
}

TEST(Layout, ThreadPool) {
  const auto pool = std::make_shared<ThreadPool>("n", 2, 3, 4);
  const Places places = PlacesOf(*pool);
  ExpectAscending(places);
  const auto number = [&](size_t i) { return *static_cast<const uint64_t*>(places[i]); };
  EXPECT_EQ(number(1), 2U);
  EXPECT_EQ(number(3), 3U) << "stored but not used";
  EXPECT_EQ(number(4), 4U);
}

TEST(Layout, EmptyString) {
  const TsString string;
  EXPECT_EQ(string.Cstr(), PlacesOf(string)[1]) << "the inline buffer holds it";
}

// A virtual destructor takes the slots 0 and 1.
TEST(Layout, VirtualFunctions) {
  EXPECT_EQ(tarsio_test::VirtualSlot(&Logger::VFormat), 2);
  EXPECT_EQ(tarsio_test::VirtualSlot(&Logger::DoOutput), 3);
  EXPECT_EQ(tarsio_test::VirtualSlot(&Timer::OnTimeout), 2);
}

}  // namespace layout
