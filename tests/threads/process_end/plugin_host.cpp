// Loads the library at run time as part of a plugin, starts its threads, unloads the plugin, waits
// for a while and exits.
//
//     plugin_host PLUGIN WHAT RUN     with WHAT: timer, task or timer_and_task
//
// Prints "WHAT: leaving" and returns 0 from main() if the threads kept running.

#include <cstdio>
#include <memory>
#include <string>
#include <thread>

#include "plugin.h"
#include "support/events.h"
#include "support/gate.h"
#include "support/shared_library.h"

namespace {

using tarsio_test::Events;
using tarsio_test::Gate;

// Never destroyed: in use until the process has ended.
struct Host {
  std::shared_ptr<component::TsTimer> timer;
  std::shared_ptr<tarsio::ThreadPool> pool;
  Events fired;
  Gate taskStarted;
  Gate unloaded;
  Gate taskDone;
};

int Fail(const char* what) {
  std::printf("%s\n", what);
  return 1;
}

int Run(const std::string& file, const std::string& what) {
  tarsio_test::SharedLibrary plugin(file);
  if (!plugin.IsLoaded()) return Fail("the plugin cannot be loaded");
  const auto newTimer = plugin.Function<tarsio_test::NewTimer>("NewTimer");
  const auto newPool = plugin.Function<tarsio_test::NewPool>("NewPool");
  const auto startTimer = plugin.Function<tarsio_test::StartTimer>("StartTimer");
  const auto submitTask = plugin.Function<tarsio_test::SubmitTask>("SubmitTask");
  if (!newTimer || !newPool || !startTimer || !submitTask)
    return Fail("the plugin lacks an export");

  const bool withTimer = what != "task";
  const bool withTask = what != "timer";
  Host& host = *new Host;
  if (withTimer) {
    host.timer.reset(newTimer(1, true));
    startTimer(host.timer.get(), [&host] { host.fired.Add(); });
    if (!host.fired.Await(2)) return Fail("the timer has not fired");
  }
  if (withTask) {
    host.pool.reset(newPool());
    submitTask(host.pool.get(), [&host] {
      host.taskStarted.Open();
      host.unloaded.Wait();
      host.taskDone.Open();
    });
    submitTask(host.pool.get(), [] {});  // starts a second worker, which is soon idle
    if (!host.taskStarted.WaitFor()) return Fail("the task has not started");
  }

  plugin.Unload();
  if (plugin.IsLoaded()) return Fail("the plugin is still loaded");

  host.unloaded.Open();
  if (withTask && !host.taskDone.WaitFor()) return Fail("the task has not finished");
  if (withTimer && !host.fired.Await(host.fired.Count() + 3))
    return Fail("the timer no longer fires");
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  std::printf("%s: leaving\n", what.c_str());
  std::fflush(stdout);
  return 0;
}

}  // namespace

int main(int argc, char** argv) { return argc == 4 ? Run(argv[1], argv[2]) : 2; }
