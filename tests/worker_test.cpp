// A worker by itself, in ways in which its pool does not use it: started twice, stopped in the
// midst of a task, started once more. The pool's source keeps the class to itself, so it is a part
// of this one.

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <thread>

#include "support/background_call.h"
#include "support/gate.h"
#include "support/private_member.h"
#include "thread_pool.cpp"

namespace tarsio_test {

struct StopWorker {
  using Type = void (tarsio::Worker::*)();
  friend Type Reach(StopWorker);
};
template struct ExposePrivate<StopWorker, &tarsio::Worker::Stop>;

}  // namespace tarsio_test

namespace {

using tarsio::ThreadPool;
using tarsio::Worker;
using tarsio_test::BackgroundCall;
using tarsio_test::Gate;
using tarsio_test::OpenOnExit;
using tarsio_test::StopWorker;

class WorkerTest : public testing::Test {
 protected:
  // Starts the worker, which takes a task that runs until the gate `end` opens.
  void StartWithATask() {
    const auto begun = std::make_shared<Gate>();
    pool->SubmitTask([begun, end = end] {
      begun->Open();
      end->Wait();
    });
    worker->Start();
    ASSERT_TRUE(begun->WaitFor());
  }

  // Stops the worker that has this task.
  void Stop() {
    BackgroundCall stop([stopped = worker.get()] { (stopped->*Reach(StopWorker()))(); });
    EXPECT_TRUE(stop.StaysBlocked());
    end->Open();
    ASSERT_TRUE(stop.ReturnsWithin());
  }

  const std::shared_ptr<Gate> end = std::make_shared<Gate>();
  const OpenOnExit atExit{end};
  // A pool that starts no workers of its own.
  const std::shared_ptr<ThreadPool> pool = std::make_shared<ThreadPool>("pool", 0U, 0U, 10U);
  std::shared_ptr<Worker> worker = std::make_shared<Worker>("worker", pool);
};

TEST_F(WorkerTest, HasOneThreadHoweverOftenItIsStarted) {
  StartWithATask();
  const long owners = worker.use_count();
  worker->Start();
  EXPECT_EQ(worker.use_count(), owners) << "each thread owns its worker";
}

TEST_F(WorkerTest, IsStoppedWhenItsTaskAndItsThreadHaveEnded) {
  StartWithATask();
  Stop();
  EXPECT_EQ(worker.use_count(), 1);
  EXPECT_EQ(pool.use_count(), 1);
}

TEST_F(WorkerTest, ThatIsStoppedLeavesTheNextTaskToAnother) {
  Gate ran;
  std::thread::id first;
  std::thread::id next;
  pool->SubmitTask([&first] { first = std::this_thread::get_id(); });
  StartWithATask();
  pool->SubmitTask([&] {
    next = std::this_thread::get_id();
    ran.Open();
  });
  Stop();
  ASSERT_TRUE(ran.WaitFor());
  EXPECT_NE(next, first);
}

TEST_F(WorkerTest, ThatWasStoppedCanBeStartedAgainAndRetiresByItself) {
  StartWithATask();
  Stop();
  StartWithATask();
  const std::weak_ptr<Worker> watch = worker;
  worker.reset();
  while (!watch.expired()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

TEST_F(WorkerTest, ThatHasNotBeenStartedHasNothingToStop) {
  ((*worker).*Reach(StopWorker()))();
  EXPECT_EQ(worker.use_count(), 1);
}

}  // namespace
