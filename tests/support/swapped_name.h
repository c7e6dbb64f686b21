// A name that stands for something else each time that it is looked at.

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

// As long as the object lives, its thread makes a name in the current directory a file, a
// directory, a FIFO, a symbolic link and nothing, in turn. What a system does not have is left out.
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
      // In one step, where the system can.
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
    if (kind == 5) std::filesystem::create_symlink(name, next, error);  // to itself
    // Kind 6 is nothing at all.
  }

  const std::string name;
  const std::string next;
  std::atomic<bool> end{false};
  std::thread thread;
};

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_SWAPPED_NAME_H_
