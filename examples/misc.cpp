// The cipher policy for secure connections, and a clock for durations.

//! [includes]
#include "common/misc.h"

#include <chrono>
#include <iostream>
#include <thread>
//! [includes]

int main() {
  //! [ciphers]
  std::cout << tarsio::GetSupportedCiphersList() << '\n';
  //! [ciphers]

  //! [clock]
  const long long before = tarsio::GetTimeNowMsSinceEpoch();
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  const long long elapsed = tarsio::GetTimeNowMsSinceEpoch() - before;
  std::cout << std::boolalpha << "20 ms have passed: " << (elapsed >= 19) << '\n';
  //! [clock]
  return 0;
}
