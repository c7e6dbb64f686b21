// A process that forks while a timer's action runs, or during the first Start(). The child has no
// timer thread; it calls exit(), and a static then stops and starts a timer.
//
//     fork_child MODE RUN     with MODE: fork_during_action, fork_in_action or fork_in_first_start
//
// Prints "MODE: leaving" and returns 0 from main() if the child's exit code was 0.

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>

#include "common/timer.h"
#include "support/allocations.h"
#include "support/gate.h"

namespace {

using component::TsTimer;
using tarsio_test::Gate;

constexpr unsigned kPatienceSeconds = 30;

// NOLINTBEGIN(*-non-const-global-variables)
// Not destroyed: in the child that would wait for the parent's threads.
Gate& fired = *new Gate;
Gate& forked = *new Gate;
// NOLINTEND(*-non-const-global-variables)

void Pause() {
  fired.Open();
  forked.Wait();
}

// Uses its timer again in its destructor.
struct UseAtEnd {
  UseAtEnd() = default;
  UseAtEnd(const UseAtEnd&) = delete;
  UseAtEnd& operator=(const UseAtEnd&) = delete;
  ~UseAtEnd() {
    timer->Stop();
    timer->Start();
    timer->Stop();
  }

  const std::shared_ptr<TsTimer> timer = std::make_shared<TsTimer>(1, true);
};

// Returns whether a child that calls exit(0) exits with 0. Kills it if it hangs.
bool ChildExits() {
  const pid_t child = ::fork();
  if (child == 0) {
    ::alarm(kPatienceSeconds);
    std::exit(0);  // NOLINT(concurrency-mt-unsafe): under test
  }
  int status = 0;
  if (child < 0 || ::waitpid(child, &status, 0) != child) return false;
  if (WIFSIGNALED(status)) std::printf("the child was killed by signal %d\n", WTERMSIG(status));
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const std::string mode = argv[1];
  static const UseAtEnd user;
  bool exited = false;
  user.timer->Init([&] {
    if (mode == "fork_in_action" && !fired.IsOpen()) exited = ChildExits();
    Pause();
  });
  std::thread starting([&] {
    // The library allocates while it creates the timers' manager.
    if (mode == "fork_in_first_start") tarsio_test::AtNextAllocation(Pause);
    user.timer->Start();
  });
  fired.Wait();
  if (mode != "fork_in_action") exited = ChildExits();
  forked.Open();
  starting.join();
  user.timer->Stop();
  std::printf("%s: %s\n", argv[1], exited ? "leaving" : "the child does not exit");
  std::fflush(stdout);
  return exited ? 0 : 1;
}
