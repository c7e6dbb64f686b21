#include "support/memory.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

namespace tarsio_bench {

namespace {

size_t StatusBytes(const std::string& field) {
  std::ifstream file("/proc/self/status");
  for (std::string word; file >> word;) {
    size_t kilobytes = 0;
    if (word == field && file >> kilobytes) return kilobytes << 10;
  }
  std::abort();
}

}  // namespace

size_t PeakMemoryGrowth(const std::function<void()>& call) {
  int ends[2];
  if (::pipe(ends) != 0) std::abort();
  const pid_t child = ::fork();
  if (child == 0) {
    std::ofstream("/proc/self/clear_refs") << 5;  // resets the peak
    const size_t before = StatusBytes("VmRSS:");
    call();
    const size_t growth = StatusBytes("VmHWM:") - before;
    ::_exit(::write(ends[1], &growth, sizeof growth) == sizeof growth ? 0 : 1);
  }
  ::close(ends[1]);
  size_t growth = 0;
  const bool received = ::read(ends[0], &growth, sizeof growth) == sizeof growth;
  ::close(ends[0]);
  ::waitpid(child, nullptr, 0);
  if (!received) std::abort();
  return growth;
}

}  // namespace tarsio_bench
