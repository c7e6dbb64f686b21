#include "support/file_obstacles.h"

#include <io.h>
#include <windows.h>

#include <fstream>
#include <vector>

namespace tarsio_test {

struct NoFreeFileHandles::State {
  std::vector<int> copies;
};

// Takes every descriptor that the runtime has.
NoFreeFileHandles::NoFreeFileHandles() : state(std::make_unique<State>()) {
  for (int copy = ::_dup(1); copy >= 0; copy = ::_dup(1)) state->copies.push_back(copy);
}

NoFreeFileHandles::~NoFreeFileHandles() {
  for (const int copy : state->copies) ::_close(copy);
}

// A file in the current directory whose bytes are locked. Wine lets a write through all the same.
struct FileThatTakesNothing::State {
  HANDLE file = INVALID_HANDLE_VALUE;
};

FileThatTakesNothing::FileThatTakesNothing() : state(std::make_unique<State>()) {
  std::ofstream(Text()) << "locked";
  state->file =
      ::CreateFileA(Text().c_str(), GENERIC_READ | GENERIC_WRITE,
                    FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
  OVERLAPPED start{};
  ::LockFileEx(state->file, LOCKFILE_EXCLUSIVE_LOCK, 0, MAXDWORD, 0, &start);
}

FileThatTakesNothing::~FileThatTakesNothing() { ::CloseHandle(state->file); }

std::string FileThatTakesNothing::Text() const { return R"(.\locked.bin)"; }

}  // namespace tarsio_test
