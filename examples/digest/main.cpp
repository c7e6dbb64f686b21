// tarsio-digest: SHA-256 digests of many files, read on a pool of workers.

#include <algorithm>
#include <cstdio>
#include <exception>
#include <iostream>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "check.h"
#include "common/log.h"
#include "common/sys_info.h"
#include "common/timer.h"
#include "console.h"
#include "digester.h"
#include "lines.h"
#include "names.h"
#include "options.h"
#include "system.h"

namespace {

constexpr unsigned long long kProgressPeriodMs = 200;

// Yields the files to digest: the operands, then the names in the lists.
class NameSource {
 public:
  explicit NameSource(const Options& given) : options(given) {}

  bool Next(Item* item) {
    if (nextFile < options.files.size()) {
      item->name = options.files[nextFile++];
      item->isStandardInput = item->name == "-";
      return true;
    }
    for (; failure.empty() && nextList < options.filesFrom.size(); ++nextList) {
      const std::string& name = options.filesFrom[nextList];
      if (list == nullptr) list = std::make_unique<LineReader>(name);
      if (NextInList(&item->name)) return true;
      if (!list->Failure().empty()) failure = Quoted(name) + ": " + list->Failure();
      list.reset();
    }
    return false;
  }

  // Returns why a list could not be read, or an empty string.
  const std::string& Failure() const { return failure; }

 private:
  bool NextInList(std::string* name) {
    while (list->Next(options.null ? '\0' : '\n', name)) {
      // Lines may end with CR LF on Windows. File names cannot contain a CR there.
      if (kOnWindows && !options.null && !name->empty() && name->back() == '\r') name->pop_back();
      if (!name->empty()) return true;
    }
    return false;
  }

  const Options& options;
  size_t nextFile = 0;
  size_t nextList = 0;
  std::unique_ptr<LineReader> list;  // options.filesFrom[nextList], if open
  std::string failure;
};

// Returns true if every file was digested.
bool DigestAll(const Options& options, Digester& digester, Console& console) {
  bool allWell = true;
  NameSource names(options);
  digester.Run([&](Item* item) { return names.Next(item); },
               [&](const Item& item, const Outcome& outcome) {
                 if (outcome.failure.empty()) {
                   std::cout << FormatLine(outcome.digest, item.name) << '\n';
                   return;
                 }
                 allWell = false;
                 console.PrintMessage(Quoted(item.name) + ": " + outcome.failure);
               });
  if (names.Failure().empty()) return allWell;
  console.PrintMessage(names.Failure());
  return false;
}

bool CheckAll(const Options& options, Digester& digester, Console& console) {
  bool allWell = true;
  for (const std::string& list : options.files) {
    if (!CheckList(list, options, digester, console)) allWell = false;
  }
  return allWell;
}

// Limits the workers to the number of files, if it is known.
uint64_t WorkersFor(const Options& options) {
  const bool known = !options.check && options.filesFrom.empty();
  return known ? std::min<uint64_t>(options.jobs, options.files.size()) : options.jobs;
}

// Stops a timer at the end of the scope and waits for a running callback.
class StopOnExit {
 public:
  explicit StopOnExit(std::shared_ptr<component::Timer> stopped) : timer(std::move(stopped)) {}
  StopOnExit(const StopOnExit&) = delete;
  StopOnExit& operator=(const StopOnExit&) = delete;
  ~StopOnExit() { timer->Stop(); }

 private:
  const std::shared_ptr<component::Timer> timer;
};

bool FlushOutput(Console& console) {
  if (std::cout.flush()) return true;
  console.PrintMessage("standard output cannot be written");
  return false;
}

int Run(const Options& options, const std::shared_ptr<Console>& console) {
  Digester digester(WorkersFor(options), options.roots);
  const auto timer = std::make_shared<component::TsTimer>(kProgressPeriodMs, true);
  timer->Init([&digester, console] { console->ShowStatus(digester.Progress()); });
  const StopOnExit stop(timer);
  if (options.progress || Console::IsTerminal(stderr)) timer->Start();

  bool allWell = options.check ? CheckAll(options, digester, *console)
                               : DigestAll(options, digester, *console);
  allWell = FlushOutput(*console) && allWell;

  timer->Stop();
  if (options.progress) console->ShowStatus(digester.Progress());
  console->ShowStatus("");
  digester.LogSummary();
  // Does not wait for the idle workers. They own the pool and end with the process.
  return allWell ? 0 : 1;
}

bool PrintVersion() {
  auto system = std::make_shared<tarsio::ClientDeviceInfo>();
  if (!tarsio::SysInfo::GetClientOsInfo(system)) return false;
  std::cout << "tarsio-digest " TARSIO_DIGEST_VERSION " (" << (kOnWindows ? "Windows " : "Linux ")
            << system->osVersion << ' ' << system->osManufacturingModel << ")\n";
  return true;
}

// Sends the log to the console with --verbose, otherwise discards it. Standard output is for
// digests.
void SetUpLog(const Options& options, const std::shared_ptr<Console>& console) {
  std::unique_ptr<tarsio::Logger> logger;
  if (options.verbose) logger = std::make_unique<ConsoleLogger>(console);
  tarsio::Log::GetInstance().SetLogger(std::move(logger));
  tarsio::Log::GetInstance().SetLevel(tarsio::LOG_LEVEL_INFO);
}

}  // namespace

int Main(const std::vector<std::string>& arguments) {
  std::ios::sync_with_stdio(false);
  try {
    const auto console = std::make_shared<Console>();
    Options options;
    const std::string wrong = ParseOptions(arguments, &options);
    if (!wrong.empty()) {
      console->PrintMessage(wrong);
      console->PrintLine("Try 'tarsio-digest --help'.");
      return 2;
    }
    if (options.help || options.version) {
      if (options.help) std::cout << kUsage;
      const bool printed = options.help || PrintVersion();
      return FlushOutput(*console) && printed ? 0 : 1;
    }
    SetUpLog(options, console);
    if (Console::IsTerminal(stdout)) std::cout << std::unitbuf;
    return Run(options, console);
  } catch (const std::bad_alloc&) {
    std::cerr << "tarsio-digest: out of memory\n";
  } catch (const std::exception& error) {
    std::cerr << "tarsio-digest: " << error.what() << '\n';
  }
  return 1;
}
