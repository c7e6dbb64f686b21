// Waits for a group of tasks and uses their results, without the extra second of Shutdown().

//! [includes]
#include <cstddef>
#include <iostream>
#include <memory>
#include <vector>

#include "common/latch.h"
#include "common/thread_pool.h"
//! [includes]

namespace {

int Square(int number) { return number * number; }

}  // namespace

int main() {
  const auto pool = std::make_shared<tarsio::ThreadPool>("squares", 4, 0, 64);
  //! [group]
  struct Group {
    tarsio::CountDownLatch left{10};
    std::vector<int> results = std::vector<int>(10);
  };
  const auto group = std::make_shared<Group>();  // the tasks may outlive this function
  for (size_t i = 0; i < group->results.size(); ++i) {
    pool->SubmitTask([group, i] {
      group->results[i] = Square(static_cast<int>(i));
      group->left.CountDown();  // last: the waiting thread sees everything written before
    });
  }
  while (group->left.GetCount() > 0) group->left.Wait(1000);
  //! [group]
  int sum = 0;
  for (const int result : group->results) sum += result;
  std::cout << "sum of squares: " << sum << '\n';
  return 0;
}
