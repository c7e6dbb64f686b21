// A repeating timer that a one-shot timer stops.

#include "common/timer.h"

#include <iostream>
#include <memory>

#include "common/latch.h"

using component::TsTimer;

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
  // Callbacks may start and stop timers.
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
  return 0;
}
