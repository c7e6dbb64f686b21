// A name whose object is replaced all the time.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_SWAPPED_NAME_H_
#define TARSIO_COMMON_TESTS_SUPPORT_SWAPPED_NAME_H_

#include <atomic>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include "support/fifo.h"

namespace tarsio_test {

// In its scope, a thread turns a name in the current directory into a file, a directory, a FIFO,
// a symbolic link or nothing, in turn. Skips what the system does not support.
class SwappedName {
 public:
  explicit SwappedName(std::string swapped)
      : name(std::move(swapped)), next(name + ".next"), thread([this] { Run(); }) {}
  SwappedName(const SwappedName&) = delete;
  SwappedName& operator=(const SwappedName&) = delete;
  ~SwappedName() {
    end = true;
    thread.join();
  }

 private:
  void Run() {
    for (int kind = 0; !end; ++kind) {
      Make(kind % 7);
      // Atomically, where the system can.
      std::error_code error;
      std::filesystem::rename(next, name, error);
      if (!error) continue;
      std::filesystem::remove_all(name, error);
      std::filesystem::rename(next, name, error);
    }
  }

  void Make(int kind) const {
    std::error_code error;
    std::filesystem::remove_all(next, error);
    if (kind == 0) std::ofstream(next) << "a file";
    if (kind == 1) MakeFifo(next);
    if (kind == 2) std::filesystem::create_directory(next, error);
    if (kind == 3) std::filesystem::create_symlink(".", next, error);
    if (kind == 4) std::filesystem::create_symlink(name + ".target", next, error);
    if (kind == 5) std::filesystem::create_symlink(name, next, error);  // links to itself
    // Kind 6: nothing.
  }

  const std::string name;
  const std::string next;
  std::atomic<bool> end{false};
  std::thread thread;
};

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_SWAPPED_NAME_H_
