// Uses the library for the first time on two threads, one of which is loading a plugin.
//
//     loader_lock_host PLUGIN MODE RUN
//
// Prints "MODE: leaving" and returns 0 from main() if both threads succeed.

#include <cstdio>
#include <memory>
#include <thread>

#include "meeting.h"
#include "support/shared_library.h"

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  tarsio_test::Meeting& meeting = tarsio_test::TheMeeting();
  meeting.mode = argv[2];
  meeting.pool = std::make_shared<tarsio::ThreadPool>("loader lock", 4, 0, 4);

  tarsio_test::Gate running;
  std::thread other([&] {
    running.Open();
    meeting.initialising.Wait();
    meeting.begun.Open();
    tarsio_test::Use("the thread");
    meeting.returned.Open();
  });
  running.Wait();  // no thread can start while a module is loading
  const tarsio_test::SharedLibrary plugin(argv[1]);
  if (!plugin.IsLoaded()) return 2;
  other.join();
  if (!meeting.used.Await(2)) return 1;
  std::printf("%s: leaving\n", argv[2]);
  std::fflush(stdout);
  return 0;
}
