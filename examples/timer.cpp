// A one-shot timer stops a repeating timer.

//! [includes]
#include "common/timer.h"

#include <iostream>
#include <memory>

#include "common/latch.h"

using component::TsTimer;
//! [includes]

namespace {

//! [session]
class Session : public std::enable_shared_from_this<Session> {
 public:
  explicit Session(tarsio::CountDownLatch& ticks) : ticksLeft(ticks) {}
  ~Session() { timer->Stop(); }

  void Begin() {
    const std::weak_ptr<Session> self = shared_from_this();
    timer->Init([self] {
      const std::shared_ptr<Session> session = self.lock();
      if (session == nullptr) return;
      session->ticksLeft.CountDown();
      session->timer->Start();
    });
    timer->Start();
  }

 private:
  tarsio::CountDownLatch& ticksLeft;
  const std::shared_ptr<TsTimer> timer = std::make_shared<TsTimer>(10, false);
};
//! [session]

}  // namespace

int main() {
  //! [repeating]
  tarsio::CountDownLatch threeTicks(3);
  const auto ticker = std::make_shared<TsTimer>(20, true);
  ticker->Init([&threeTicks] { threeTicks.CountDown(); });
  ticker->Start();
  while (threeTicks.GetCount() > 0) threeTicks.Wait(1000);
  std::cout << "three ticks\n";
  //! [repeating]

  //! [one-shot]
  // Actions may start and stop timers.
  tarsio::CountDownLatch stopped(1);
  const auto stopper = std::make_shared<TsTimer>(10, false);
  stopper->Init([&ticker, &stopped] {
    ticker->Stop();
    stopped.CountDown();
  });
  stopper->Start();
  while (stopped.GetCount() > 0) stopped.Wait(1000);
  std::cout << "stopped\n";
  //! [one-shot]

  tarsio::CountDownLatch twoTicks(2);
  {
    const auto session = std::make_shared<Session>(twoTicks);
    session->Begin();
    while (twoTicks.GetCount() > 0) twoTicks.Wait(1000);
  }
  std::cout << "two ticks\n";
  return 0;
}
