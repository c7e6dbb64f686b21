// Shared by the programs of this folder: each runs the scenario that its argument names and exits
// with status 0 on success.

#ifndef TARSIO_COMMON_TESTS_HOSTILE_SCENARIO_H_
#define TARSIO_COMMON_TESTS_HOSTILE_SCENARIO_H_

#include <atomic>
#include <cstdio>
#include <exception>
#include <string>

namespace tarsio_test {

struct Scenario {
  const char* name;
  void (*run)();
};

inline std::atomic<int> failures{0};

// Prints `what` to standard error if the check fails; the scenario goes on.
inline void Expect(bool holds, const std::string& what) {
  if (holds) return;
  if (++failures <= 20) std::fprintf(stderr, "failed: %s\n", what.c_str());
}

template <size_t N>
int RunScenario(const Scenario (&scenarios)[N], int argc, char** argv) {
  for (const Scenario& scenario : scenarios) {
    if (argc != 2 || argv[1] != std::string(scenario.name)) continue;
    try {
      scenario.run();
    } catch (const std::exception& e) {
      Expect(false, std::string("no exception: ") + e.what());
    }
    return failures == 0 ? 0 : 1;
  }
  std::fprintf(stderr, "no such scenario\n");
  return 2;
}

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_HOSTILE_SCENARIO_H_
