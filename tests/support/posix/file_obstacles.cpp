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

// Limits a resource, and ignores the signal of writes beyond a limit: they fail as on a full disk.
class Limit {
 public:
  Limit(__rlimit_resource which, rlim_t most)
      : resource(which), handler(std::signal(SIGXFSZ, SIG_IGN)) {
    Check(::getrlimit(resource, &before));
    const rlimit limit{most, before.rlim_max};
    Check(::setrlimit(resource, &limit));
  }
  Limit(const Limit&) = delete;
  Limit& operator=(const Limit&) = delete;
  ~Limit() {
    Check(::setrlimit(resource, &before));
    static_cast<void>(std::signal(SIGXFSZ, handler));
  }

 private:
  const __rlimit_resource resource;
  void (*const handler)(int);
  rlimit before{};
};

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

// `Object` ends the condition when it is destroyed.
template <typename Object, typename... Args>
Obstacle Make(const Args&... args) {
  return {std::make_unique<Object>(args...).release(),
          [](void* object) { std::default_delete<Object>()(static_cast<Object*>(object)); }};
}

}  // namespace

const bool kFileSizesCanBeLimited = true;

Obstacle NoFreeFileHandles() { return Make<Limit>(RLIMIT_NOFILE, rlim_t{0}); }
Obstacle FileSizeLimit(uint64_t bytes) { return Make<Limit>(RLIMIT_FSIZE, bytes); }

Obstacle ForbiddenFile(const std::string& name, bool writable) {
  return Make<Rights>(name, writable ? 0222U : 0U);
}

Obstacle ForbiddenDirectory(const std::string& name, bool readable) {
  return Make<Rights>(name, readable ? 0555U : 0U);
}

void CloseStandardOutput() { Check(::close(STDOUT_FILENO)); }

}  // namespace tarsio_test
