#include "support/file_obstacles.h"

#include <sys/resource.h>

namespace tarsio_test {

struct NoFreeFileHandles::State {
  rlimit before{};
};

NoFreeFileHandles::NoFreeFileHandles() : state(std::make_unique<State>()) {
  ::getrlimit(RLIMIT_NOFILE, &state->before);
  const rlimit none{0, state->before.rlim_max};
  ::setrlimit(RLIMIT_NOFILE, &none);
}

NoFreeFileHandles::~NoFreeFileHandles() { ::setrlimit(RLIMIT_NOFILE, &state->before); }

// A device that is always full.
struct FileThatTakesNothing::State {};

FileThatTakesNothing::FileThatTakesNothing() = default;
FileThatTakesNothing::~FileThatTakesNothing() = default;
std::string FileThatTakesNothing::Text() const { return R"(C:\dev\full)"; }

}  // namespace tarsio_test
