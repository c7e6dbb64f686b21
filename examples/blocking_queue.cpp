// A producer and a consumer with a small queue.

//! [includes]
#include "common/blocking_queue.h"

#include <cstddef>
#include <iostream>
#include <memory>
#include <thread>
#include <vector>
//! [includes]

namespace {

struct Job {
  void Run() const {}
};

}  // namespace

int main() {
  //! [timeouts]
  constexpr int kForever = 0;  // waits without limit
  constexpr int kDoNotWait = -1;
  tarsio::BlockingQueue<int> queue(2);
  //! [timeouts]

  //! [both sides]
  std::thread producer([&queue] {
    for (int i = 1; i <= 5; ++i) {
      if (!queue.Push(i, kForever)) return;  // waits while the queue is full
    }
  });
  int sum = 0;
  for (int taken = 0; taken < 5; ++taken) {
    int item = 0;
    if (queue.Pop(item, kForever)) sum += item;
  }
  producer.join();
  //! [both sides]
  std::cout << "sum: " << sum << '\n';

  //! [closing]
  std::cout << std::boolalpha << "first:  " << queue.Push(1, kDoNotWait) << '\n'
            << "second: " << queue.Push(2, kDoNotWait) << '\n'
            << "third:  " << queue.Push(3, kDoNotWait) << '\n';
  queue.Close();  // discards the elements; later pushes fail
  std::cout << "after closing: " << queue.Size() << ", " << queue.Push(4, kDoNotWait) << '\n';
  //! [closing]

  //! [consumers]
  tarsio::BlockingQueue<std::shared_ptr<Job>> jobs(64);
  std::vector<std::thread> consumers;
  consumers.reserve(4);
  for (int i = 0; i < 4; ++i) {
    consumers.emplace_back([&jobs] {
      std::shared_ptr<Job> job;
      while (jobs.Pop(job, kForever) && job != nullptr) job->Run();
    });
  }
  for (int i = 0; i < 100; ++i) {
    if (!jobs.Push(std::make_shared<Job>(), kForever)) return 1;
  }
  for (size_t i = 0; i < consumers.size(); ++i) {
    if (!jobs.Push(nullptr, kForever)) return 1;  // each consumer takes one and leaves
  }
  for (std::thread& consumer : consumers) consumer.join();
  //! [consumers]
  std::cout << "left:   " << jobs.Size() << '\n';
  return 0;
}
