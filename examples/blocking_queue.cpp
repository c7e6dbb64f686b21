// A producer and a consumer over a small queue.

#include "common/blocking_queue.h"

#include <iostream>
#include <thread>

int main() {
  //! [timeouts]
  constexpr int kForEver = 0;  // waits without limit
  constexpr int kDoNotWait = -1;
  tarsio::BlockingQueue<int> queue(2);
  //! [timeouts]

  //! [both sides]
  std::thread producer([&queue] {
    for (int i = 1; i <= 5; ++i) {
      if (!queue.Push(i, kForEver)) return;  // waits while two are queued
    }
  });
  int sum = 0;
  for (int taken = 0; taken < 5; ++taken) {
    int item = 0;
    if (queue.Pop(item, kForEver)) sum += item;
  }
  producer.join();
  //! [both sides]
  std::cout << "sum: " << sum << '\n';

  //! [closing]
  std::cout << std::boolalpha << "first:  " << queue.Push(1, kDoNotWait) << '\n'
            << "second: " << queue.Push(2, kDoNotWait) << '\n'
            << "third:  " << queue.Push(3, kDoNotWait) << '\n';
  queue.Close();  // discards what is left; nothing enters any more
  std::cout << "after closing: " << queue.Size() << ", " << queue.Push(4, kDoNotWait) << '\n';
  //! [closing]
  return 0;
}
