#include "common/blocking_queue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <deque>
#include <memory>
#include <random>
#include <stdexcept>
#include <thread>
#include <type_traits>

#include "support/background_call.h"
#include "support/gate.h"
#include "support/private_member.h"
#include "support/recording_logger.h"

namespace {

// An element that reports each operation on it: 'c' for copied, 'm' for moved, 'd' for destroyed.
class Hooked {
 public:
  using Hook = std::function<void(char)>;

  explicit Hooked(const Hook* target, int number = 0) : hook(target), value(number) {}
  Hooked(const Hooked& other) : hook(other.hook), value(other.value) { (*hook)('c'); }
  Hooked& operator=(const Hooked&) = delete;
  Hooked& operator=(Hooked&& other) {
    (*hook)('m');
    value = other.value;
    return *this;
  }
  ~Hooked() { (*hook)('d'); }

  int Value() const { return value; }

 private:
  const Hook* hook;
  int value;
};

}  // namespace

namespace tarsio_test {

EXPOSE_PRIVATE(QueueMutex, &tarsio::BlockingQueue<int>::mutex);
EXPOSE_PRIVATE(QueueItems, &tarsio::BlockingQueue<int>::items);
EXPOSE_PRIVATE(HookedMutex, &tarsio::BlockingQueue<Hooked>::mutex);
EXPOSE_PRIVATE(HookedItems, &tarsio::BlockingQueue<Hooked>::items);

}  // namespace tarsio_test

namespace {

using std::chrono::milliseconds;
using std::chrono::system_clock;
using tarsio::BlockingQueue;
using tarsio_test::BackgroundCall;
using tarsio_test::LogRecords;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

using Queue = BlockingQueue<int>;
using QueuePtr = std::shared_ptr<Queue>;
using Task = std::function<void()>;

static_assert(!std::is_copy_constructible_v<Queue> && !std::is_copy_assignable_v<Queue>);
static_assert(!std::is_default_constructible_v<Queue>, "no default capacity");
static_assert(std::has_virtual_destructor_v<Queue>, "hosts derive from it");
static_assert(std::is_same_v<decltype(&Queue::Push), bool (Queue::*)(const int&, int)> &&
              std::is_same_v<decltype(&Queue::Pop), bool (Queue::*)(int&, int)> &&
              std::is_same_v<decltype(&Queue::Close), void (Queue::*)()> &&
              std::is_same_v<decltype(&Queue::Size), uint64_t (Queue::*)()>);

// Members of the same names in a derived class do not override them: with other return types this
// would not compile.
struct NoOverrides : Queue {
  int Push(const int&, int);
  int Pop(int&, int);
  int Close();
  int Size();
};

// A queue that may outlive its test because a thread still waits in it.
QueuePtr MakeQueue(uint64_t capacity, const std::vector<int>& content = {}) {
  auto queue = std::make_shared<Queue>(capacity);
  for (const int item : content) EXPECT_TRUE(queue->Push(item, -1));
  return queue;
}

std::vector<int> PopAll(Queue& queue) {
  std::vector<int> items;
  for (int item = 0; queue.Pop(item, -1);) items.push_back(item);
  return items;
}

// Pushes or pops. A failed Pop() leaves its output unchanged.
bool Call(Queue& queue, bool push, int timeoutMs) {
  int item = 7;
  const bool done = push ? queue.Push(item, timeoutMs) : queue.Pop(item, timeoutMs);
  if (!done) {
    EXPECT_EQ(item, 7);
  }
  return done;
}

// ---- capacity and order ----

TEST(Queue, MaxCapacity) {
  for (const uint64_t capacity : {UINT64_MAX, uint64_t{1} << 32}) {
    Queue queue(capacity);
    for (int i = 0; i < 10000; ++i) ASSERT_TRUE(queue.Push(i, -1));
    EXPECT_EQ(queue.Size(), 10000U);
  }
}

TEST(Queue, RandomModel) {
  std::mt19937_64 random(41);
  for (uint64_t round = 0; round < 60; ++round) {
    SCOPED_TRACE(round);
    const uint64_t capacity = round / 3;
    Queue queue(capacity);
    std::deque<int> model;
    bool closed = false;
    const uint64_t pushShare = 30 + random() % 40;
    for (int step = 0; step < 1000; ++step) {
      const uint64_t dice = random() % 100;
      if (round % 3 == 0 && step % 100 == 99 && step > 600) {
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
  bool push;

  QueuePtr Make() const {
    auto queue = MakeQueue(capacity, content);
    if (closed) queue->Close();
    return queue;
  }
};

const HopelessCase kHopelessCases[] = {
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

// Only a refused Push() is logged.
TEST(Queue, Timeouts) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  size_t reports = 0;
  for (const HopelessCase& row : kHopelessCases) {
    const auto queue = row.Make();
    for (const int timeoutMs : {INT_MIN, -60000, -1, 1, 2, 20, 150}) {
      SCOPED_TRACE(row.name + (" " + std::to_string(timeoutMs)));
      const auto begin = system_clock::now();
      BackgroundCall call([=, push = row.push] {
        EXPECT_FALSE(Call(*queue, push, timeoutMs));
        EXPECT_GE(system_clock::now() - begin, milliseconds(timeoutMs));
      });
      ASSERT_TRUE(call.ReturnsWithin(milliseconds(30000)));
      if (row.push) ++reports;
      ASSERT_EQ(records->All().size(), reports);
      const tarsio_test::LogRecord record = records->All().back();
      EXPECT_EQ(record.level, tarsio::LOG_LEVEL_WARN);
      EXPECT_EQ(record.file, "include/common/blocking_queue.h");
      EXPECT_EQ(record.line, 86);
      EXPECT_EQ(record.function, "tarsio::BlockingQueue<int>::Push");
      EXPECT_THAT(record.text, EndsWith("][WARN][blocking_queue.h:86] queue full or timeout"));
    }
    EXPECT_EQ(queue->Size(), row.closed ? 0 : row.content.size());
  }
}

// The same on a closed queue and with capacity 0 (by design).
TEST(Queue, ZeroTimeout) {
  std::vector<BackgroundCall> calls;
  for (const HopelessCase& row : kHopelessCases) {
    const auto queue = row.Make();
    calls.emplace_back([queue, push = row.push] { Call(*queue, push, 0); });
  }
  for (size_t i = 0; i < calls.size(); ++i) {
    SCOPED_TRACE(kHopelessCases[i].name);
    EXPECT_TRUE(calls[i].StaysBlocked(milliseconds(60)));  // all wait concurrently
  }
}

TEST(Queue, AtOnce) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  for (const int timeoutMs : {INT_MIN, -1, 0, 1, 1000, INT_MAX}) {
    SCOPED_TRACE(timeoutMs);
    Queue queue(1);
    EXPECT_TRUE(queue.Push(5, timeoutMs));
    int item = 0;
    EXPECT_TRUE(queue.Pop(item, timeoutMs));
    EXPECT_EQ(item, 5);
    queue.Close();
  }
  EXPECT_THAT(records->All(), IsEmpty());
}

// The largest timeout must not overflow.
TEST(Queue, Wakes) {
  for (const bool push : {false, true}) {
    for (const int timeoutMs : {0, 3600 * 1000, INT_MAX}) {
      SCOPED_TRACE((push ? "Push " : "Pop ") + std::to_string(timeoutMs));
      const auto queue = push ? MakeQueue(1, {1}) : MakeQueue(1);
      BackgroundCall call([=] { EXPECT_TRUE(Call(*queue, push, timeoutMs)); });
      EXPECT_TRUE(call.StaysBlocked(milliseconds(100)));
      EXPECT_TRUE(Call(*queue, !push, -1));
      ASSERT_TRUE(call.ReturnsWithin());
      EXPECT_EQ(queue->Size(), push ? 1U : 0U);
    }
  }
}

// Waiting threads are woken but do not return early, and no wake-up moves a deadline (by design).
TEST(Queue, CloseWakesNone) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_WARN);
  std::vector<BackgroundCall> timed;
  std::vector<BackgroundCall> forever;
  const auto empty = MakeQueue(2);
  const auto full = MakeQueue(2, {1, 2});
  for (const bool push : {false, true}) {
    const auto queue = push ? full : empty;
    for (const milliseconds timeout : {milliseconds(500), milliseconds(900)}) {
      timed.emplace_back([=] {
        const auto begin = system_clock::now();
        EXPECT_FALSE(Call(*queue, push, static_cast<int>(timeout.count())));
        EXPECT_GE(system_clock::now() - begin, timeout);
      });
    }
    forever.emplace_back([=] { Call(*queue, push, 0); });
  }
  for (BackgroundCall& call : forever) EXPECT_TRUE(call.StaysBlocked(milliseconds(100)));
  bool returned = false;
  for (int i = 0; i < 2000 && !returned; ++i) {
    empty->Close();
    full->Close();
    EXPECT_EQ(full->Size(), 0U) << "the elements are destroyed immediately";
    returned = timed.back().ReturnsWithin(milliseconds(10));
  }
  EXPECT_TRUE(returned) << "every wake-up moved the deadline";
  for (BackgroundCall& call : timed) ASSERT_TRUE(call.ReturnsWithin());
  for (BackgroundCall& call : forever) EXPECT_TRUE(call.StaysBlocked());
  EXPECT_EQ(records->All().size(), 2U) << "one for each refused Push";
}

// The last check of the queue comes after the deadline.
TEST(Queue, LateElement) {
  const auto queue = MakeQueue(1);
  BackgroundCall pop([queue] { EXPECT_TRUE(Call(*queue, false, 1000)); });
  EXPECT_TRUE(pop.StaysBlocked(milliseconds(50)));
  std::unique_lock<std::mutex> lock((*queue).*Reach(tarsio_test::QueueMutex()));
  EXPECT_TRUE(pop.StaysBlocked(milliseconds(1300))) << "waits for the lock";
  ((*queue).*Reach(tarsio_test::QueueItems())).push_back(9);
  lock.unlock();
  EXPECT_TRUE(pop.ReturnsWithin());
}

TEST(Queue, TimeoutAfterLock) {
  for (const bool push : {false, true}) {
    SCOPED_TRACE(push ? "Push" : "Pop");
    const auto queue = push ? MakeQueue(1, {1}) : MakeQueue(1);
    const auto end = std::make_shared<system_clock::time_point>();
    std::unique_lock<std::mutex> lock((*queue).*Reach(tarsio_test::QueueMutex()));
    BackgroundCall call([=] {
      EXPECT_FALSE(Call(*queue, push, 300));
      *end = system_clock::now();
    });
    EXPECT_TRUE(call.StaysBlocked(milliseconds(500)));
    const auto released = system_clock::now();
    lock.unlock();
    ASSERT_TRUE(call.ReturnsWithin());
    EXPECT_GE(*end - released, milliseconds(300));
  }
}

// ---- elements ----

bool IsHeld(std::mutex& mutex) {
  bool held = false;
  std::thread([&] {
    held = !std::unique_lock<std::mutex>(mutex, std::try_to_lock).owns_lock();
  }).join();
  return held;
}

// Fixture: a queue whose elements record the operations on them, and whether they happen under the
// lock.
class QueueElement : public testing::Test {
 protected:
  std::string Take() { return std::exchange(operations, ""); }

  std::string operations;
  char thrower = '\0';  // this operation throws
  const Hooked::Hook hook = [this](char operation) {
    operations += operation;
    if (!IsHeld(queue.*Reach(tarsio_test::HookedMutex()))) operations += " unlocked ";
    if (operation == thrower) throw std::runtime_error("operation");
  };
  const Hooked::Hook silent = [](char /*operation*/) {};
  BlockingQueue<Hooked> queue{3};
};

TEST_F(QueueElement, Operations) {
  const auto item = std::make_unique<Hooked>(&hook, 5);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(queue.Push(*item, 0));
  EXPECT_EQ(Take(), "ccc");
  EXPECT_FALSE(queue.Push(*item, -1));
  EXPECT_FALSE(queue.Push(*item, 1));
  EXPECT_EQ(Take(), "") << "a refused element is not copied";
  EXPECT_TRUE(queue.Pop(*item, 0));
  EXPECT_EQ(item->Value(), 5);
  EXPECT_EQ(Take(), "md");
  queue.Close();
  EXPECT_EQ(Take(), "dd");
  EXPECT_EQ(queue.Size(), 0U);
  EXPECT_FALSE(queue.Pop(*item, 1));
  EXPECT_EQ(Take(), "");
}

TEST_F(QueueElement, IntoFront) {
  EXPECT_TRUE(queue.Push(Hooked(&hook), 0));
  Take();
  EXPECT_TRUE(queue.Pop((queue.*Reach(tarsio_test::HookedItems())).front(), 0));
  EXPECT_EQ(Take(), "d") << "not assigned to itself";
}

TEST_F(QueueElement, ThrowingCopy) {
  BlockingQueue<Hooked> large(1000);
  for (int i = 0; i < 500; ++i) {  // at every position in the blocks of the list
    thrower = 'c';
    EXPECT_THROW(static_cast<void>(large.Push(Hooked(&hook, -1), 0)), std::runtime_error);
    ASSERT_EQ(large.Size(), static_cast<uint64_t>(i));
    ASSERT_TRUE(large.Push(Hooked(&silent, i), 0));
  }
  Hooked item(&silent, -1);
  for (int i = 0; i < 500; ++i) {
    ASSERT_TRUE(large.Pop(item, -1));
    ASSERT_EQ(item.Value(), i);
  }
}

TEST_F(QueueElement, ThrowingMove) {
  Hooked item(&hook, -1);
  EXPECT_TRUE(queue.Push(Hooked(&silent, 5), 0));
  thrower = 'm';
  EXPECT_THROW(static_cast<void>(queue.Pop(item, 0)), std::runtime_error);
  thrower = '\0';
  EXPECT_EQ(queue.Size(), 1U);
  EXPECT_TRUE(queue.Pop(item, -1));
  EXPECT_EQ(item.Value(), 5);
}

TEST(Queue, Destructor) {
  const auto token = std::make_shared<int>(0);
  {
    BlockingQueue<Task> queue(4);
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(queue.Push([token] { FAIL(); }, 0));
    EXPECT_EQ(token.use_count(), 4);
  }
  EXPECT_EQ(token.use_count(), 1);
}

// ---- reports ----

struct NamedElement {};

template <typename T>
std::string NameIn(const T& item) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_WARN);
  static_cast<void>(BlockingQueue<T>(0).Push(item, -1));
  const std::string name = records->All().size() == 1 ? records->All()[0].function : "";
  EXPECT_THAT(name,
              testing::AllOf(testing::StartsWith("tarsio::BlockingQueue<"), EndsWith(">::Push"),
                             Not(HasSubstr("T =")), Not(HasSubstr(";"))));
  return name;
}

TEST(Queue, OtherTypes) {
  EXPECT_EQ(NameIn<double>(1), "tarsio::BlockingQueue<double>::Push");
  EXPECT_EQ(NameIn<Task>([] {}),
            "tarsio::BlockingQueue<class std::function<void __cdecl(void)> >::Push");
  EXPECT_THAT(NameIn<NamedElement>({}), HasSubstr("NamedElement"));
  EXPECT_THAT(NameIn<std::string>(""), HasSubstr("string"));
  EXPECT_THAT(NameIn<std::shared_ptr<NamedElement>>(nullptr), HasSubstr("NamedElement"));
  EXPECT_THAT(NameIn<std::function<int(char)>>([](char) { return 0; }), HasSubstr("int"));
  EXPECT_THAT(NameIn<int(*)[3]>(nullptr), HasSubstr("[3]"));
}

// The report is made under the lock, which is released if the sink throws.
TEST(Queue, ThrowingSink) {
  static Queue queue(1);
  static std::mutex& mutex = queue.*Reach(tarsio_test::QueueMutex());
  struct Sink : tarsio::Logger {
    void DoOutput(const char* /*line*/) override {
      EXPECT_TRUE(IsHeld(mutex));
      throw std::runtime_error("sink");
    }
  };
  EXPECT_TRUE(queue.Push(4, -1));
  tarsio::Log::GetInstance().SetLogger(std::make_unique<Sink>());
  tarsio::Log::GetInstance().SetLevel(tarsio::LOG_LEVEL_WARN);
  EXPECT_THROW(static_cast<void>(queue.Push(1, -1)), std::runtime_error);
  EXPECT_THROW(static_cast<void>(queue.Push(1, 1)), std::runtime_error);
  tarsio::Log::GetInstance().SetLogger(nullptr);
  EXPECT_FALSE(IsHeld(mutex));
  EXPECT_THAT(PopAll(queue), ElementsAre(4));
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

}  // namespace
