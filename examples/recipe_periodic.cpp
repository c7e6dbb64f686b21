// A periodic task that stops itself.

//! [includes]
#include <iostream>
#include <memory>

#include "common/latch.h"
#include "common/timer.h"

using component::TsTimer;
//! [includes]

namespace {

//! [poller]
// A repeating timer cannot stop itself in its own action. Use a one-shot timer instead that starts
// itself again until it is done.
class Poller : public std::enable_shared_from_this<Poller> {
 public:
  void Start() {
    // A weak pointer, so that the timer does not keep its owner alive.
    timer->Init([weak = weak_from_this()] {
      const std::shared_ptr<Poller> self = weak.lock();
      if (self != nullptr && !self->Poll()) self->timer->Start();
    });
    timer->Start();
  }

  int WaitForPolls() {
    while (done.GetCount() > 0) done.Wait(1000);
    return polls;
  }

 private:
  bool Poll() {
    if (++polls < 3) return false;
    done.CountDown();
    return true;
  }

  const std::shared_ptr<TsTimer> timer = std::make_shared<TsTimer>(10, false);
  tarsio::CountDownLatch done{1};
  int polls = 0;
};
//! [poller]

}  // namespace

int main() {
  const auto poller = std::make_shared<Poller>();
  poller->Start();
  std::cout << "polls: " << poller->WaitForPolls() << '\n';
  return 0;
}
