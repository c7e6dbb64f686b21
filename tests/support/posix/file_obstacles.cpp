#include "support/file_obstacles.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <utility>

namespace tarsio_test {

namespace {

void Check(int error) {
  if (error != 0) std::abort();
}

// Removes permissions from an object and, if necessary, the superuser's privileges from the
// process.
class Rights {
 public:
  Rights(std::string object, mode_t left) : name(std::move(object)), user(::geteuid()) {
    struct stat status {};
    Check(::stat(name.c_str(), &status));
    before = status.st_mode & 07777;
    Check(::chmod(name.c_str(), left));
    if (user == 0) Check(::seteuid(kNobody));
  }
  Rights(const Rights&) = delete;
  Rights& operator=(const Rights&) = delete;
  ~Rights() {
    Check(::seteuid(user));
    Check(::chmod(name.c_str(), before));
  }

 private:
  static constexpr uid_t kNobody = 65534;

  const std::string name;
  const uid_t user;
  mode_t before = 0;
};

}  // namespace

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

// With the signal ignored, a write beyond the limit fails as on a full disk.
struct FileSizeLimit::State {
  rlimit before{};
  void (*handler)(int) = nullptr;
};

FileSizeLimit::FileSizeLimit(uint64_t bytes) : state(std::make_unique<State>()) {
  state->handler = std::signal(SIGXFSZ, SIG_IGN);
  Check(::getrlimit(RLIMIT_FSIZE, &state->before));
  const rlimit limit{bytes, state->before.rlim_max};
  Check(::setrlimit(RLIMIT_FSIZE, &limit));
}

FileSizeLimit::~FileSizeLimit() {
  Check(::setrlimit(RLIMIT_FSIZE, &state->before));
  std::signal(SIGXFSZ, state->handler);
}

uint64_t FileSizeLimit::Bytes() const {
  rlimit limit{};
  Check(::getrlimit(RLIMIT_FSIZE, &limit));
  return limit.rlim_cur;
}

struct ForbiddenFile::State {
  Rights rights;
};

ForbiddenFile::ForbiddenFile(const std::string& name, bool writable)
    : state(new State{{name, static_cast<mode_t>(writable ? 0222 : 0)}}) {}
ForbiddenFile::~ForbiddenFile() = default;

struct ForbiddenDirectory::State {
  Rights rights;
};

ForbiddenDirectory::ForbiddenDirectory(const std::string& name, bool readable)
    : state(new State{{name, static_cast<mode_t>(readable ? 0555 : 0)}}) {}
ForbiddenDirectory::~ForbiddenDirectory() = default;

void CloseStandardInput() { Check(::close(STDIN_FILENO)); }
void CloseStandardOutput() { Check(::close(STDOUT_FILENO)); }

}  // namespace tarsio_test
