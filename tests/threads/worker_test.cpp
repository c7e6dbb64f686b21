// Uses a worker as its pool never does: starts it twice, stops it during a task, starts it again.

#include "worker.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/background_call.h"
#include "support/gate.h"
#include "support/private_member.h"

namespace tarsio_test {

EXPOSE_PRIVATE(StopWorker, &tarsio::Worker::Stop);
EXPOSE_PRIVATE(WorkerRuns, &tarsio::Worker::running);
EXPOSE_PRIVATE(WorkerName, &tarsio::Worker::name);
EXPOSE_PRIVATE(WorkersOfPool, &tarsio::ThreadPool::workers);
EXPOSE_PRIVATE(MutexOfWorkers, &tarsio::ThreadPool::workersMutex);

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
  // Starts the worker with a task that runs until the gate `end` opens.
  void StartWithATask() {
    const auto begun = std::make_shared<Gate>();
    pool->SubmitTask([begun, end = end] {
      begun->Open();
      end->Wait();
    });
    worker->Start();
    ASSERT_TRUE(begun->WaitFor());
  }

  // Stops the worker while it runs this task.
  void Stop() {
    BackgroundCall stop([stopped = worker.get()] { (stopped->*Reach(StopWorker()))(); });
    EXPECT_TRUE(stop.StaysBlocked());
    end->Open();
    ASSERT_TRUE(stop.ReturnsWithin());
  }

  const std::shared_ptr<Gate> end = std::make_shared<Gate>();
  const OpenOnExit atExit{end};
  // A pool that starts no workers by itself.
  const std::shared_ptr<ThreadPool> pool = std::make_shared<ThreadPool>("pool", 0U, 0U, 10U);
  std::shared_ptr<Worker> worker = std::make_shared<Worker>("worker", pool);
};

TEST_F(WorkerTest, OneThread) {
  StartWithATask();
  const long owners = worker.use_count();
  worker->Start();
  EXPECT_EQ(worker.use_count(), owners) << "each thread owns its worker";
}

// A worker that is stopped finishes its task. It can be started again.
TEST_F(WorkerTest, Stop) {
  ((*worker).*Reach(StopWorker()))();  // not started
  StartWithATask();
  Stop();
  EXPECT_EQ(worker.use_count(), 1);
  EXPECT_EQ(pool.use_count(), 1);
  StartWithATask();
  const std::weak_ptr<Worker> watch = worker;
  worker.reset();
  while (!watch.expired()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

// Another thread runs the task that is still pending.
TEST_F(WorkerTest, Successor) {
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

// The pool may be renamed while a successor is started, so its name must not be read then.
TEST_F(WorkerTest, SuccessorName) {
  const std::string oldName = "the old name, which does not fit the small-string buffer";
  const auto renamed = std::make_shared<ThreadPool>(oldName, 1U, 0U, 10U);
  const auto& workers = (*renamed).*Reach(tarsio_test::WorkersOfPool());
  Gate first;
  Gate second;
  renamed->SubmitTask([&] { first.Open(); });
  ASSERT_TRUE(first.WaitFor());
  const std::shared_ptr<Worker> retiring = workers.front();
  {
    // The worker is deactivated when Pop() fails; then it waits for this lock.
    const std::lock_guard<std::mutex> lock((*renamed).*Reach(tarsio_test::MutexOfWorkers()));
    while ((*retiring).*Reach(tarsio_test::WorkerRuns())) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    renamed->SubmitTask([&second, end = end] {
      second.Open();
      end->Wait();
    });
  }
  renamed->SetName("the new name, which does not fit the small-string buffer");
  ASSERT_TRUE(second.WaitFor());
  EXPECT_EQ(renamed->GetRunningThreadNumber(), 1U);
  const std::lock_guard<std::mutex> lock((*renamed).*Reach(tarsio_test::MutexOfWorkers()));
  ASSERT_EQ(workers.size(), 1U);
  EXPECT_NE(workers.front(), retiring);
  EXPECT_EQ((*workers.front()).*Reach(tarsio_test::WorkerName()), oldName);
}

}  // namespace
