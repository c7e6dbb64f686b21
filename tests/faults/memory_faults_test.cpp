// Lets each allocation of each function fail in turn, alone and with all later ones: the caller
// gets std::bad_alloc, nothing leaks, and objects are in the documented state. The library is
// compiled into this program, since a DLL has its own allocator.

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <new>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "common/blocking_queue.h"
#include "common/charset_cvt.h"
#include "common/file_utils.h"
#include "common/log.h"
#include "common/misc.h"
#include "common/path.h"
#include "common/string_utils.h"
#include "common/sys_info.h"
#include "common/thread_pool.h"
#include "common/timer.h"
#include "common/ts_string.h"
#include "support/allocations.h"
#include "support/environment.h"
#include "support/events.h"
#include "support/gate.h"
#include "support/scoped_directory.h"

namespace {

using component::TsTimer;
using tarsio::BlockingQueue;
using tarsio::CharsetCvt;
using tarsio::FileUtils;
using tarsio::Log;
using tarsio::Logger;
using tarsio::Path;
using tarsio::PathResolver;
using tarsio::StringUtils;
using tarsio::ThreadPool;
using tarsio::TsString;
using tarsio::TsStringPair;
using tarsio_test::AllocationWatch;
using tarsio_test::Events;
using tarsio_test::Gate;
using tarsio_test::kTestTimeout;
using tarsio_test::LiveAllocations;
using tarsio_test::ScopedDirectory;
using tarsio_test::ScopedVariable;

// One attempt: the call, and the check after a failure. Both own the objects they use.
struct Attempt {
  std::function<void()> call;
  std::function<void()> checkFailure = [] {};
};

struct Row {
  const char* name;
  std::function<Attempt()> prepare;
};

enum class Outcome { kFailed, kCameThrough, kSwallowed };

// Makes the call with some of its allocations failing.
Outcome Try(const Attempt& attempt, size_t allowed, size_t refused) {
  bool threw = false;
  size_t allocations = 0;
  {
    const AllocationWatch watch(allowed, refused);
    try {
      attempt.call();
    } catch (const std::bad_alloc&) {
      threw = true;
    }
    allocations = watch.Count();
  }
  if (threw) return Outcome::kFailed;
  return allocations > allowed ? Outcome::kSwallowed : Outcome::kCameThrough;
}

// Fails the first allocation of the call, then the second and so on, until the call succeeds.
// Returns the number of failures.
size_t FailEachAllocation(const Row& row, size_t refused) {
  constexpr size_t kMost = 2000;
  for (size_t allowed = 0; allowed < kMost; ++allowed) {
    SCOPED_TRACE(std::string(row.name) + " after " + std::to_string(allowed) + " allocations");
    const size_t before = LiveAllocations();
    {
      const Attempt attempt = row.prepare();
      switch (Try(attempt, allowed, refused)) {
        case Outcome::kCameThrough:
          return allowed;
        case Outcome::kSwallowed:
          ADD_FAILURE() << "the failure was not reported to the caller";
          break;
        case Outcome::kFailed:
          attempt.checkFailure();
      }
    }
    EXPECT_EQ(LiveAllocations(), before) << "memory leak";
  }
  ADD_FAILURE() << row.name << " never succeeds";
  return kMost;
}

// A call without allocations cannot fail, but some row has to.
void FailEachAllocationOf(const std::vector<Row>& rows) {
  size_t failures = 0;
  for (const Row& row : rows) {
    row.prepare().call();  // one-time allocations happen here
    failures += FailEachAllocation(row, SIZE_MAX) + FailEachAllocation(row, 1);
  }
  EXPECT_GT(failures, 0U);
}

// A call without side effects.
Row Plain(const char* name, const std::function<void()>& call) {
  return {name, [call] { return Attempt{call}; }};
}

// A call on an object that a failure leaves unchanged.
template <typename T>
Row Keeps(const char* name, const T& object, const std::function<void(T&)>& call) {
  return {name, [=] {
            const auto state = std::make_shared<T>(object);
            return Attempt{[=] { call(*state); }, [=] { EXPECT_TRUE(*state == object); }};
          }};
}

// Returns a string that does not fit the small-string buffer.
std::string Long(const std::string& text) { return text + std::string(100, 'x'); }
std::wstring LongWide(const std::wstring& text) { return text + std::wstring(100, L'x'); }

// ---- strings ----

TEST(MemoryFaults, Strings) {
  const std::string text = Long("a,b,") + ',' + Long("c");
  const std::string delimiter = ",";
  FailEachAllocationOf({
      Plain("SplitString", [=] { StringUtils::SplitString(text, delimiter); }),
      Plain("SplitAllByString", [=] { StringUtils::SplitAllByString(text, delimiter); }),
      Plain("SplitFristByString", [=] { StringUtils::SplitFristByString(text, delimiter); }),
      Plain("SplitString by an empty delimiter", [=] { StringUtils::SplitString(text, ""); }),
      Plain("SplitAllByString by an empty delimiter",
            [=] { StringUtils::SplitAllByString(text, ""); }),
      Plain("ToUpper", [=] { StringUtils::ToUpper(text); }),
      Plain("ToLower", [=] { StringUtils::ToLower(text); }),
      Plain("SpaceToUnderscore", [=] { StringUtils::SpaceToUnderscore(text, delimiter, '_'); }),
      Plain("GetHashText", [=] { StringUtils::GetHashText(text.data(), text.size()); }),
      Plain("GetSupportedCiphersList", [] { tarsio::GetSupportedCiphersList(); }),
  });
}

TEST(MemoryFaults, Encodings) {
  const ScopedVariable user("LC_ALL", "C");  // a locale that always exists
  const std::string text = Long("a");
  const std::string broken = Long("a") + '\xFF';
  FailEachAllocationOf({
      Plain("MbToU8 of UTF-8", [=] { CharsetCvt::MbToU8(text); }),
      Plain("MbToU8 of the user's encoding",
            [=] {
              try {
                CharsetCvt::MbToU8(broken);
              } catch (const std::range_error&) {
                // FF is a character above FF in some encodings.
              }
            }),
      Plain("U8ToMb", [=] { CharsetCvt::U8ToMb(text); }),
      Plain("WToU8", [] { CharsetCvt::WToU8(LongWide(L"a")); }),
      Plain("U8ToW", [=] { CharsetCvt::U8ToW(text); }),
      Plain("U16ToU8", [] { CharsetCvt::U16ToU8(std::u16string(100, u'a')); }),
      Plain("U8ToU16", [=] { CharsetCvt::U8ToU16(text); }),
      Plain("U32ToU8", [] { CharsetCvt::U32ToU8(std::u32string(100, U'a')); }),
      Plain("U8ToU32", [=] { CharsetCvt::U8ToU32(text); }),
      Plain("GetEnv", [] { CharsetCvt::GetEnv(LongWide(L"PATH"), Long("default")); }),
  });
}

TEST(MemoryFaults, TsString) {
  const TsString object(Long("before").c_str());
  const auto check = [](const std::shared_ptr<TsString>& string) {
    EXPECT_STREQ(string->Cstr(), "");
    *string = "usable";
    EXPECT_STREQ(string->Cstr(), "usable");
  };
  TsStringPair pair;
  pair.first = Long("first").c_str();
  pair.second = Long("second").c_str();
  const std::string longer = Long(Long("longer"));
  FailEachAllocationOf({
      Plain("constructor", [=] { const TsString string(longer.c_str()); }),
      Plain("a copy", [=] { const TsString copy(object); }),
      Plain("a pair's copy", [=] { const TsStringPair copy(pair); }),
      Plain("a pair's assignment",
            [=] {
              TsStringPair target;
              target = pair;
            }),
      {"assigned C string",
       [=] {
         const auto string = std::make_shared<TsString>(object);
         return Attempt{[=] { *string = longer.c_str(); }, [=] { check(string); }};
       }},
      {"assigned TsString",
       [=] {
         const auto string = std::make_shared<TsString>("short");
         return Attempt{[=] { *string = object; }, [=] { check(string); }};
       }},
  });
}

// ---- log ----

void Format(Logger& logger, std::string& out, const char* format, ...) {
  va_list args;
  va_start(args, format);
  try {
    logger.VFormat(tarsio::LOG_LEVEL_ERROR, out, "/a/long/enough/path/to/allocate/file.cpp", 1, "f",
                   format, args);
  } catch (...) {
    va_end(args);
    throw;
  }
  va_end(args);
}

// Replaces standard output without allocating.
class SilentCout : public std::streambuf {
 public:
  SilentCout() : before(std::cout.rdbuf(this)) {}
  SilentCout(const SilentCout&) = delete;
  SilentCout& operator=(const SilentCout&) = delete;
  ~SilentCout() override { std::cout.rdbuf(before); }

  size_t lines = 0;

 protected:
  std::streamsize xsputn(const char* /*text*/, std::streamsize size) override {
    ++lines;
    return size;
  }
  int_type overflow(int_type character) override { return traits_type::not_eof(character); }

 private:
  std::streambuf* const before;
};

TEST(MemoryFaults, LogLines) {
  const std::string message = Long(Long("message"));
  const auto out = std::make_shared<SilentCout>();
  static size_t given = 0;
  const auto logLine = [message] {
    Log::GetInstance().DoLog(tarsio::LOG_LEVEL_ERROR, "/a/b.cpp", 1, "f", "%s", message.c_str());
  };
  FailEachAllocationOf({
      Keeps<std::string>("VFormat", Long("unchanged"),
                         [=](std::string& line) {
                           Logger logger;
                           Format(logger, line, "%s", message.c_str());
                         }),
      Plain("DoOutput", [=] { Logger().DoOutput(message.c_str()); }),
      {"DoLog",
       [=] {
         const size_t before = out->lines;
         return Attempt{logLine, [=] {
                          EXPECT_EQ(out->lines, before);  // nothing of the failed line
                          logLine();
                          EXPECT_EQ(out->lines, before + 1);
                        }};
       }},
      {"TsLog",
       [=] {
         const size_t before = given;
         return Attempt{[=] {
                          tarsio::TsLog(
                              tarsio::LOG_LEVEL_ERROR, [](const char*) { ++given; },
                              [] { return tarsio::LOG_LEVEL_ERROR; }, "/a/b.cpp", 1, "f", "%s",
                              message.c_str());
                        },
                        [=] { EXPECT_EQ(given, before); }};
       }},
  });
}

// ---- paths ----

// After a failure the path may have any value, but is still usable.
Attempt OnPath(const std::function<void(Path&)>& call) {
  const auto path = std::make_shared<Path>("C:\\" + Long("before"));
  return {[=] { call(*path); },
          [=] {
            path->Str();
            path->Set("C:\\a");
            EXPECT_EQ(path->Str(), "C:\\a");
          }};
}

TEST(MemoryFaults, Paths) {
  const std::string name = Long("name");
  const std::string text = "C:\\" + name + '/' + name + ".txt";
  const Path path(text);
  const Path relative(name);
  using P = Path&;
  FailEachAllocationOf({
      Plain("from a string", [=] { const Path parsed(text); }),
      Plain("characters", [=] { const Path parsed(text.c_str()); }),
      Plain("from a wide string", [] { const Path parsed(LongWide(L"C:\\")); }),
      Plain("a share", [=] { const Path parsed("\\\\" + name + '\\' + name); }),
      Plain("a copy", [=] { const Path copy(path); }),
      {"Set", [=] { return OnPath([=](P p) { p.Set(text); }); }},
      {"Set by the POSIX rules",
       [=] { return OnPath([=](P p) { p.Set(text, Path::POSIX_PATH); }); }},
      {"Set of a wide string", [] { return OnPath([](P p) { p.Set(LongWide(L"C:\\a\\")); }); }},
      {"assigned path", [=] { return OnPath([=](P p) { p = relative / relative; }); }},
      {"assigned string", [] { return OnPath([](P p) { p = LongWide(L"C:\\"); }); }},
      Keeps<Path>("Str", path, [](P p) { p.Str(); }),
      Keeps<Path>("Str in the long form", path / relative / relative, [](P p) { p.Str(); }),
      Keeps<Path>("Wstr", path, [](P p) { p.Wstr(); }),
      Keeps<Path>("join", path, [=](P p) { p / relative; }),
      Keeps<Path>("ParentPath", path, [](P p) { p.ParentPath(); }),
      Keeps<Path>("ParentPath of an empty path", Path(), [](P p) { p.ParentPath(); }),
      Keeps<Path>("Filename", path, [](P p) { p.Filename(); }),
      Keeps<Path>("Extension", path, [](P p) { p.Extension(); }),
      Keeps<Path>("Absolute", relative, [](P p) { p.Absolute(); }),
      Plain("Getcwd", [] { Path::Getcwd(); }),
  });
}

TEST(MemoryFaults, PathQueries) {
  const ScopedDirectory directory;
  const std::string name = Long("file");
  directory.Write(name, "content");
  const Path path(directory.Text(name));
  const Path missing(directory.Text(Long("missing")));
  using P = Path&;
  FailEachAllocationOf({
      Keeps<Path>("Exists", path, [](P p) { static_cast<void>(p.Exists()); }),
      Keeps<Path>("IsFile", path, [](P p) { static_cast<void>(p.IsFile()); }),
      Keeps<Path>("IsDirectory", path, [](P p) { static_cast<void>(p.IsDirectory()); }),
      Keeps<Path>("FileSize", path, [](P p) { static_cast<void>(p.FileSize()); }),
      Keeps<Path>("Exists of a missing file", missing, [](P p) { static_cast<void>(p.Exists()); }),
      {"MakeDir",
       [=] {
         static_cast<void>(FileUtils::RemoveDir(missing.Str()));
         return Attempt{[=] { static_cast<void>(tarsio::MakeDir(missing)); },
                        [=] { EXPECT_FALSE(missing.Exists()); }};
       }},
      {"MakeDirs",
       [=] {
         static_cast<void>(FileUtils::RemoveDir((missing / "below").Str()));
         static_cast<void>(FileUtils::RemoveDir(missing.Str()));
         return Attempt{[=] { static_cast<void>(tarsio::MakeDirs(missing / "below")); },
                        [=] { EXPECT_FALSE((missing / "below").Exists()); }};
       }},
  });
}

TEST(MemoryFaults, Resolver) {
  const Path path("C:\\" + Long("path"));
  const auto prepare = [=](const std::function<void(PathResolver&)>& call) {
    const auto resolver = std::make_shared<PathResolver>();
    resolver->Append(path);
    return Attempt{[=] { call(*resolver); },
                   [=] {
                     ASSERT_EQ(resolver->Size(), 2U);
                     EXPECT_TRUE((*resolver)[0] == Path::Getcwd());
                     EXPECT_TRUE((*resolver)[1] == path);
                   }};
  };
  FailEachAllocationOf({
      Plain("constructor", [] { const PathResolver resolver; }),
      {"Append", [=] { return prepare([=](PathResolver& r) { r.Append(path); }); }},
      {"Prepend", [=] { return prepare([=](PathResolver& r) { r.Prepend(path); }); }},
      {"Resolve",
       [=] { return prepare([=](PathResolver& r) { static_cast<void>(r.Resolve("missing")); }); }},
      {"a copy", [=] { return prepare([](PathResolver& r) { const PathResolver copy(r); }); }},
  });
}

// ---- files ----

// Returns the lowest free descriptor. A leaked file makes it grow.
int NextDescriptor() {
  std::FILE* const file = std::fopen("descriptor", "w");
  const int descriptor = fileno(file);
  std::fclose(file);
  return descriptor;
}

TEST(MemoryFaults, Files) {
  const ScopedDirectory directory;
  const int descriptor = NextDescriptor();
  const std::string old = Long("old");
  const std::string name = Long("file");
  const std::string text = directory.Text(name);
  const auto checkFile = [&directory, name, old, descriptor] {
    EXPECT_EQ(directory.Read(name), old);
    EXPECT_EQ(NextDescriptor(), descriptor) << "a file was left open";
  };
  const auto write = [&](const char* title, int mode) {
    return Row{title, [=, &directory] {
                 directory.Write(name, old);
                 return Attempt{
                     [=] { static_cast<void>(FileUtils::WriteFile(Long("new"), text, mode)); },
                     checkFile};
               }};
  };
  FailEachAllocationOf({
      {"GetFileContent",
       [=, &directory] {
         directory.Write(name, old);
         const auto content = std::make_shared<std::string>("unchanged");
         return Attempt{[=] { static_cast<void>(FileUtils::GetFileContent(text, *content)); },
                        [=] {
                          EXPECT_EQ(*content, "unchanged");
                          checkFile();
                        }};
       }},
      write("WriteFile", 0x20),
      write("WriteFile in place", 0x21),
      write("WriteFile at the end", 0x28),
      Plain("CheckDirOrFileExists",
            [=] { static_cast<void>(FileUtils::CheckDirOrFileExists(text)); }),
      {"MakeDir",
       [&directory] {
         const std::string below = directory.Text("a/" + Long("b") + "/");
         const auto remove = [&directory] {
           std::filesystem::remove_all(directory.Native("a"));
           EXPECT_FALSE(std::filesystem::exists(directory.Native("a")));
         };
         remove();
         return Attempt{[=] { static_cast<void>(FileUtils::MakeDir(below)); }, remove};
       }},
      Plain("RemoveDir", [=] { static_cast<void>(FileUtils::RemoveDir(Long(".\\missing"))); }),
      Plain("RemoveFile", [=] { static_cast<void>(FileUtils::RemoveFile(Long(".\\missing"))); }),
  });
}

// ---- queue ----

TEST(MemoryFaults, Queue) {
  using Queue = BlockingQueue<std::string>;
  const std::string item = Long("item");
  FailEachAllocationOf({
      Plain("constructor", [] { const auto queue = std::make_unique<Queue>(1U); }),
      {"Push",
       [=] {
         const auto queue = std::make_shared<Queue>(2U);
         static_cast<void>(queue->Push(Long("first"), -1));
         return Attempt{[=] { static_cast<void>(queue->Push(item, -1)); },
                        [=] {
                          EXPECT_EQ(queue->Size(), 1U);
                          EXPECT_TRUE(queue->Push(Long("second"), -1));
                          std::string popped;
                          EXPECT_TRUE(queue->Pop(popped, -1));
                          EXPECT_EQ(popped, Long("first"));
                          EXPECT_TRUE(queue->Pop(popped, -1));
                          EXPECT_EQ(popped, Long("second"));
                          EXPECT_FALSE(queue->Pop(popped, -1));
                        }};
       }},
  });
}

// The report of a refused push allocates.
TEST(MemoryFaults, RefusedPush) {
  const SilentCout out;
  Log::GetInstance().SetLevel(tarsio::LOG_LEVEL_WARN);
  using Queue = BlockingQueue<std::string>;
  FailEachAllocationOf({{"Push on a full queue", [] {
                           const auto queue = std::make_shared<Queue>(1U);
                           static_cast<void>(queue->Push(Long("first"), -1));
                           return Attempt{
                               [=] { static_cast<void>(queue->Push(Long("second"), -1)); },
                               [=] {
                                 std::string popped;
                                 EXPECT_EQ(queue->Size(), 1U);
                                 EXPECT_TRUE(queue->Pop(popped, -1));
                                 EXPECT_EQ(popped, Long("first"));
                               }};
                         }}});
}

// Neither Close() nor the destruction of a pool allocates.
TEST(MemoryFaults, Close) {
  BlockingQueue<std::string> queue(2U);
  static_cast<void>(queue.Push(Long("first"), -1));
  static_cast<void>(queue.Push(Long("second"), -1));
  auto pool = std::make_shared<ThreadPool>(Long("pool"), 0U, 0U, 10U);
  const auto owned = std::make_shared<int>(0);
  pool->SubmitTask([owned] {});
  size_t allocations = 0;
  {
    const AllocationWatch watch(0);
    queue.Close();
    pool.reset();
    allocations = watch.Count();
  }
  EXPECT_EQ(allocations, 0U);
  EXPECT_EQ(queue.Size(), 0U);
  EXPECT_EQ(owned.use_count(), 1);
  EXPECT_FALSE(queue.Push("third", -1)) << "the queue is closed";
}

// ---- threads ----

// A worker's thread frees its last objects shortly after it has left the pool.
bool AllocationsFallTo(size_t number) {
  for (const auto end = std::chrono::steady_clock::now() + kTestTimeout;
       std::chrono::steady_clock::now() < end;) {
    if (LiveAllocations() == number) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return false;
}

TEST(MemoryFaults, NewPool) {
  FailEachAllocationOf({{"a pool", [] {
                           // Destroyed when allocations succeed again.
                           const auto pool = std::make_shared<std::shared_ptr<ThreadPool>>();
                           return Attempt{[pool] {
                             *pool = std::make_shared<ThreadPool>(Long("pool"), 2U, 0U, 10U);
                           }};
                         }}});
}

// A queued task stays queued, no worker is listed, and the next submission works.
TEST(MemoryFaults, SubmitTask) {
  const auto runs = std::make_shared<Events>();
  std::make_shared<ThreadPool>("first", 1U, 0U, 10U)->SubmitTask([runs] { runs->Add(); });
  ASSERT_TRUE(runs->Await(1));
  int expected = 1;
  for (const size_t refused : {SIZE_MAX, size_t{1}}) {
    for (size_t allowed = 0;; ++allowed) {
      SCOPED_TRACE(allowed);
      ASSERT_LT(allowed, 100U);
      const auto pool = std::make_shared<ThreadPool>(Long("pool"), 2U, 0U, 10U);
      std::function<void()> task = [runs, text = Long("owned by the task")] { runs->Add(); };
      const Attempt attempt{[&] { pool->SubmitTask(task); }};
      const Outcome outcome = Try(attempt, allowed, refused);
      ++expected;
      if (outcome == Outcome::kCameThrough) break;
      ASSERT_EQ(outcome, Outcome::kFailed);
      EXPECT_EQ(pool->GetRunningThreadNumber(), 0U);
      if (pool->GetPendingTaskNumber() == 0) --expected;
      EXPECT_LE(pool->GetPendingTaskNumber(), 1U);
      pool->SubmitTask(task);
      ++expected;
      ASSERT_TRUE(runs->Await(expected));
      EXPECT_EQ(pool->GetPendingTaskNumber(), 0U);
    }
    ASSERT_TRUE(runs->Await(expected));
  }
  EXPECT_EQ(runs->Count(), expected);
}

// A worker that cannot report an exception goes on.
TEST(MemoryFaults, TaskReport) {
  struct Shared {
    Gate begin;
    Gate end;
    std::optional<AllocationWatch> watch;
    size_t allocations = 0;
    std::thread::id thrower;
    std::thread::id next;
  };
  const auto shared = std::make_shared<Shared>();
  const auto pool = std::make_shared<ThreadPool>("pool", 1U, 0U, 10U);
  pool->SubmitTask([shared] {
    shared->begin.Wait();
    shared->thrower = std::this_thread::get_id();
    shared->watch.emplace(0);
    throw std::bad_alloc();
  });
  pool->SubmitTask([shared] {
    shared->allocations = shared->watch->Count();
    shared->watch.reset();
    shared->next = std::this_thread::get_id();
    shared->end.Open();
  });
  shared->begin.Open();
  ASSERT_TRUE(shared->end.WaitFor());
  EXPECT_GT(shared->allocations, 0U) << "the report allocates";
  EXPECT_EQ(shared->next, shared->thrower);
}

TEST(MemoryFaults, SubmitLeaks) {
  const auto submitWith = [](size_t allowed, size_t refused) {
    const auto pool = std::make_shared<ThreadPool>(Long("pool"), 2U, 0U, 10U);
    std::function<void()> task = [text = Long("owned by the task")] {};
    return Try({[&] { pool->SubmitTask(task); }}, allowed, refused);
  };
  ASSERT_EQ(submitWith(SIZE_MAX, SIZE_MAX), Outcome::kCameThrough);
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));  // until the worker has retired
  const size_t before = LiveAllocations();
  for (const size_t refused : {SIZE_MAX, size_t{1}}) {
    size_t allowed = 0;
    while (submitWith(allowed, refused) == Outcome::kFailed) {
      EXPECT_EQ(LiveAllocations(), before) << "memory leak after allocation " << allowed;
      ++allowed;
    }
    EXPECT_GT(allowed, 0U);
    EXPECT_TRUE(AllocationsFallTo(before)) << "submitted tasks are released eventually";
  }
}

// ---- timers ----

TEST(MemoryFaults, NewTimer) {
  FailEachAllocationOf({
      Plain("a timer", [] { const auto timer = std::make_shared<TsTimer>(1U, false); }),
      Plain("Init",
            [] {
              const auto timer = std::make_shared<TsTimer>(1U, false);
              timer->Init([text = Long("owned")] {});
            }),
  });
}

// Starts without a timer thread. A timer that could not be queued is not marked started and can be
// started again; a queued one stays queued.
TEST(MemoryFaults, TimerStart) {
  for (const size_t refused : {SIZE_MAX, size_t{1}}) {
    for (size_t allowed = 0;; ++allowed) {
      SCOPED_TRACE(allowed);
      ASSERT_LT(allowed, 100U);
      const auto fired = std::make_shared<Events>();
      const auto timer = std::make_shared<TsTimer>(1U, false);
      timer->Init([fired] { fired->Add(); });
      const Outcome outcome = Try({[&] { timer->Start(); }}, allowed, refused);
      if (outcome == Outcome::kCameThrough) {
        EXPECT_TRUE(fired->Await(1));
        break;
      }
      ASSERT_EQ(outcome, Outcome::kFailed);
      if (timer.use_count() > 1) timer->Stop();
      timer->Start();
      EXPECT_TRUE(fired->Await(1));
      timer->Stop();
    }
  }
}

// ---- system information ----

TEST(MemoryFaults, SysInfo) {
  FailEachAllocationOf({Plain("a record", [] {
    auto info = std::make_shared<tarsio::ClientDeviceInfo>();
    static_cast<void>(tarsio::SysInfo::GetClientOsInfo(info));
  })});
}

}  // namespace
