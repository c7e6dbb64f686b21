#include <array>
#include <ostream>
#include <thread>
#include <vector>

#include "common/blocking_queue.h"
#include "threads/explorer/explorer.h"

namespace {

using tarsio::BlockingQueue;
using tarsio_test::Check;
using tarsio_test::NowMs;
using tarsio_test::Require;
using tarsio_test::Scenario;
using tarsio_test::Shared;
using tarsio_test::SleepMs;

struct Row {
  const char* name;
  uint64_t capacity;
  int pushTimeout;
  int popTimeout;
  int elements;  // of each producer; each of the two consumers pops as many
  bool closes;   // at any moment, instead of a second producer
  int spurious;
  int bound;
  uint64_t atLeast;
};

std::ostream& operator<<(std::ostream& out, const Row& row) { return out << row.name; }

struct Element {
  size_t producer;
  int number;
};

// The threads and results of one schedule.
struct QueueRun {
  explicit QueueRun(const Row& testRow) : row(testRow), queue(row.capacity) {}

  void Produce(size_t producer) {
    for (int i = 0; i < row.elements; ++i) {
      const bool success = Call(row.pushTimeout, [&] {
        return queue.Push({producer, i}, row.pushTimeout);
      });
      if (success) pushed.push_back({producer, i});
    }
  }

  void Consume() {
    std::array<int, 2> last = {-1, -1};
    for (int i = 0; i < row.elements; ++i) {
      Element element{};
      if (!Call(row.popTimeout, [&] { return queue.Pop(element, row.popTimeout); })) continue;
      Require(element.number > last[element.producer], "out of order");
      last[element.producer] = element.number;
      popped.push_back(element);
    }
  }

  // No call succeeds once the queue is closed. One that fails has waited until its deadline.
  template <typename Function>
  bool Call(int timeoutMs, const Function& function) {
    const bool wasClosed = closed;
    const int64_t start = NowMs();
    ++(timeoutMs == 0 ? unlimitedCalls : otherCalls);
    const bool success = function();
    --(timeoutMs == 0 ? unlimitedCalls : otherCalls);
    Require(!success || !wasClosed, "a call succeeds on a closed queue");
    Require(success || timeoutMs != 0, "a call without deadline gives up");
    Require(success || timeoutMs < 0 || NowMs() >= start + timeoutMs, "a call gives up too early");
    return success;
  }

  void Finish() {
    for (Element element{}; queue.Pop(element, -1);) popped.push_back(element);
    for (const Element& element : pushed) {
      const auto same = [&](const Element& other) {
        return other.producer == element.producer && other.number == element.number;
      };
      const auto count = std::count_if(popped.begin(), popped.end(), same);
      Require(count == 1 || (count == 0 && closed), "an element is lost or doubled");
    }
    Require(popped.size() <= pushed.size(), "an element from nowhere");
    Require(queue.Size() == 0, "an element is left");
  }

  const Row row;
  BlockingQueue<Element> queue;
  std::vector<Element> pushed;
  std::vector<Element> popped;
  Shared<bool> closed;
  int unlimitedCalls = 0;
  int otherCalls = 0;
};

const QueueRun* running = nullptr;

class QueueSchedules : public testing::TestWithParam<Row> {};

TEST_P(QueueSchedules, All) {
  // Logs once outside a schedule: the log allocates when it is first used.
  EXPECT_FALSE(BlockingQueue<Element>(0).Push({}, -1));
  Scenario scenario;
  scenario.body = [row = GetParam()] {
    QueueRun run(row);
    running = &run;
    std::thread producer([&run] { run.Produce(1); });
    std::thread consumer([&run] { run.Consume(); });
    std::thread other([&run] { run.Consume(); });
    if (row.closes) {
      run.queue.Close();
      run.closed = true;
    } else {
      run.Produce(0);
    }
    producer.join();
    consumer.join();
    other.join();
    run.Finish();
  };
  scenario.bound = GetParam().bound;
  scenario.spurious = GetParam().spurious;
  // On a closed queue, and only there, calls without deadline never return.
  scenario.mayBlock = [] {
    return running->closed && running->unlimitedCalls > 0 && running->otherCalls == 0;
  };
  const auto result = Check(scenario, GetParam().atLeast);
  EXPECT_TRUE(GetParam().closes || result.blocked == 0);
}

INSTANTIATE_TEST_SUITE_P(Explorer, QueueSchedules,
                         testing::Values(Row{"One", 1, 0, 0, 1, false, 1, 4, 8000},
                                         Row{"OneTwice", 1, 0, 0, 2, false, 0, 2, 130000},
                                         Row{"TwoTwice", 2, 0, 0, 2, false, 1, 3, 250000},
                                         Row{"Deadlines", 1, 5, 5, 1, false, 1, 4, 76000},
                                         Row{"PushDeadlines", 1, 5, 10, 2, false, 0, 2, 460000},
                                         Row{"NoWait", 1, -1, -1, 2, false, 0, 5, 17000},
                                         Row{"NoWaitPop", 2, 5, -1, 1, false, 1, 6, 880},
                                         Row{"Close", 1, 0, 0, 1, true, 1, 4, 8600},
                                         Row{"CloseDeadlines", 1, 5, 5, 1, true, 0, 4, 90000},
                                         Row{"CloseNoWait", 2, -1, -1, 1, true, 0, 6, 1300}),
                         testing::PrintToStringParamName());

// Wake-ups do not move the deadline.
TEST(QueueDeadlines, WakeUps) {
  Scenario scenario;
  scenario.bound = 0;
  scenario.spurious = 1;
  scenario.body = [] {
    BlockingQueue<int> queue(1);
    const auto pop = [&queue] {
      int element = 0;
      const int64_t start = NowMs();
      static_cast<void>(queue.Pop(element, 5));
      Require(NowMs() <= start + 5, "a call gives up too late");
    };
    std::thread first(pop);
    std::thread second(pop);
    SleepMs(3);
    Require(queue.Push(1, -1), "a full queue");
    first.join();
    second.join();
  };
  Check(scenario, 30);
}

}  // namespace
