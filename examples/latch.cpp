// Waiting for threads: a count-down latch and a wake-up point.

//! [includes]
#include "common/latch.h"

#include <iostream>
#include <thread>
#include <vector>

#include "common/misc.h"
//! [includes]

int main() {
  //! [latch]
  tarsio::CountDownLatch done(3);
  std::vector<std::thread> threads;
  threads.reserve(3);
  for (int i = 0; i < 3; ++i) threads.emplace_back([&done] { done.CountDown(); });
  // A wait may end early, so check the count.
  while (done.GetCount() > 0) done.Wait(1000);  // milliseconds
  for (std::thread& thread : threads) thread.join();
  //! [latch]
  std::cout << "left: " << done.GetCount() << '\n';

  tarsio::CountDownLatch latch(1);
  //! [deadline]
  const long long deadline = tarsio::GetTimeNowMsSinceEpoch() + 50;
  for (long long left = 50; latch.GetCount() > 0 && left > 0;
       left = deadline - tarsio::GetTimeNowMsSinceEpoch()) {
    latch.Wait(static_cast<unsigned long long>(left));
  }
  const bool opened = latch.GetCount() == 0;
  //! [deadline]
  std::cout << "opened: " << std::boolalpha << opened << '\n';

  //! [point]
  tarsio::CountOutWake point;
  std::thread sleeper([&point] { point.Wait(0); });  // without limit
  while (point.GetCount() == 0) std::this_thread::yield();
  std::cout << "waiting: " << point.GetCount() << '\n';
  point.CountOut();
  sleeper.join();
  //! [point]
  std::cout << "waiting: " << point.GetCount() << '\n';

  //! [units]
  point.Wait(1000000);  // nanoseconds here: waits for one millisecond
  //! [units]
  return 0;
}
