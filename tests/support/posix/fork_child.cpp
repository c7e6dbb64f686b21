// A process that forks while a timer's action runs. The child has no timer thread; it calls exit(),
// and a static then stops and starts a timer.
//
//     fork_child MODE RUN     with MODE: fork_during_action or fork_in_action
//
// Prints "MODE: leaving" and returns 0 from main() if the child's exit code was 0.

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "common/timer.h"
#include "support/gate.h"

namespace {

using component::TsTimer;
using tarsio_test::Gate;

constexpr unsigned kPatienceSeconds = 30;

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
  const bool inAction = argv[1] == std::string("fork_in_action");
  static const UseAtEnd user;
  Gate fired;
  Gate forked;
  bool exited = false;
  user.timer->Init([&] {
    if (inAction && !fired.IsOpen()) exited = ChildExits();
    fired.Open();
    forked.Wait();
  });
  user.timer->Start();
  fired.Wait();
  if (!inAction) exited = ChildExits();
  forked.Open();
  user.timer->Stop();
  std::printf("%s: %s\n", argv[1], exited ? "leaving" : "the child does not exit");
  std::fflush(stdout);
  return exited ? 0 : 1;
}
