// A host in a hostile environment that only this system has: see tests/hostile/scenario.h.

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "common/file_utils.h"
#include "common/log.h"
#include "common/path.h"
#include "common/thread_pool.h"
#include "hostile/everyday_use.h"
#include "hostile/scenario.h"
#include "support/gate.h"
#include "support/scoped_directory.h"

namespace {

using tarsio::FileUtils;
using tarsio::ThreadPool;
using tarsio_test::Expect;
using tarsio_test::Gate;
using tarsio_test::ScopedDirectory;

void Check(bool done, const char* what) {
  if (done) return;
  std::perror(what);
  std::_Exit(3);
}

void LogLines(int lines) {
  for (int i = 0; i < lines; ++i) TARSIO_LOG(tarsio::LOG_LEVEL_ERROR, "line %d", i);
}

void MakeStandardOutput(int descriptor) {
  Check(::dup2(descriptor, STDOUT_FILENO) == STDOUT_FILENO, "dup2");
  ::close(descriptor);
}

// The writing end of a pipe whose reader has left.
int LeftPipe() {
  std::array<int, 2> ends{};
  Check(::pipe(ends.data()) == 0, "pipe");
  ::close(ends[0]);
  return ends[1];
}

bool IsPending(int signal) {
  sigset_t pending;
  ::sigpending(&pending);
  return ::sigismember(&pending, signal) == 1;
}

bool IsBlocked(int signal) {
  sigset_t mask;
  ::pthread_sigmask(SIG_BLOCK, nullptr, &mask);
  return ::sigismember(&mask, signal) == 1;
}

void ExpectUntouched(int signal) {
  Expect(!IsBlocked(signal) && !IsPending(signal), "the signal state is unchanged");
}

void Sleep(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

bool Write(const std::string& content, const std::string& name, int mode = 0) {
  return FileUtils::WriteFile(content, name, mode) == 0;
}

// ---- closed standard descriptors ----

// While WriteFile() waits for the reader of a FIFO, the closed descriptor must stay free, and what
// other threads write to it must not end up in the FIFO.
void WriteWithClosedDescriptors() {
  const ScopedDirectory directory;
  Check(::mkfifo("pipe", 0600) == 0, "mkfifo");
  const std::string content(300000, 'c');  // more than the capacity of a pipe
  for (const int closed : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    const int reader = ::open("pipe", O_RDONLY | O_NONBLOCK);
    const int before = ::fcntl(closed, F_DUPFD, STDERR_FILENO + 1);
    ::close(closed);
    std::thread writer([&] { Write(content, "./pipe"); });
    std::string received;
    std::array<char, 1000> bytes{};
    bool isFree = true;
    while (received.size() < content.size()) {
      const ssize_t count = ::read(reader, bytes.data(), bytes.size());
      if (count > 0 && received.empty()) {
        isFree = ::fcntl(closed, F_GETFD) == -1;
        // Otherwise a write might block until this thread reads.
        if (isFree) LogLines(3);
        if (isFree) std::cerr << "a line of the host's\n";
      }
      if (count > 0) received.append(bytes.data(), static_cast<size_t>(count));
      if (count <= 0) Sleep(1);
    }
    writer.join();
    ::dup2(before, closed);
    for (const int opened : {reader, before}) ::close(opened);
    std::cout.clear();
    std::cerr.clear();
    Expect(received == content, "the file has no other output");
    Expect(isFree, "the standard descriptor stays free");
  }
}

// Runs without the three descriptors. Another thread logs while files are written and read.
void StartWithoutDescriptors() {
  for (const int closed : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    Expect(::fcntl(closed, F_GETFD) == -1, "closed at start");
  }
  const ScopedDirectory directory;
  Expect(Write("c", "./f") && directory.Read("f") == "c", "written while all three are free");
  // Takes descriptor 0, so that the next one would be standard output.
  ::open("/dev/null", O_RDONLY);
  std::atomic<bool> done{false};
  std::thread other([&done] {
    while (!done) {
      LogLines(1);
      std::cout.clear();  // as a host might, to get the next line
    }
  });
  for (int i = 1; i < 2000; ++i) {
    const std::string content(static_cast<size_t>(i), 'c');
    std::string read;
    Expect(Write(content, "./f"), "written");
    Expect(FileUtils::GetFileContent("./f", read) == 0 && read == content, "read");
    Expect(directory.Read("f") == content, "the file has the written content");
  }
  done = true;
  other.join();
}

// Only the standard descriptors are free, which files must not use.
void OpenWithOnlyTheStandardDescriptorsFree() {
  const ScopedDirectory directory;
  directory.Write("f", "content");
  for (const int closed : {STDIN_FILENO, STDOUT_FILENO}) ::close(closed);
  const rlimit three{3, 3};
  Check(::setrlimit(RLIMIT_NOFILE, &three) == 0, "setrlimit");
  std::string content = "as before";
  Expect(FileUtils::GetFileContent("f", content) == 2 && content == "as before", "not read");
  Expect(FileUtils::WriteFile("new", "./f", 0x21) == 4, "not written");
  Expect(FileUtils::CheckDirOrFileExists("f") && tarsio::Path("f").FileSize() == 7, "still there");
}

// ---- signals ----

// After the reader has left, the remaining lines are lost; a file that later gets the same
// descriptor receives none.
void LogAfterTheReaderLeft(int writingEnd) {
  std::signal(SIGPIPE, SIG_DFL);
  MakeStandardOutput(writingEnd);
  LogLines(100);
  ExpectUntouched(SIGPIPE);
  const ScopedDirectory directory;
  MakeStandardOutput(::open("later", O_WRONLY | O_CREAT, 0600));
  LogLines(1);
  Expect(directory.Read("later").empty(), "later lines are dropped");
}

void LogToALeftPipe() { LogAfterTheReaderLeft(LeftPipe()); }

void LogToALeftSocket() {
  std::array<int, 2> ends{};
  Check(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) == 0, "socketpair");
  ::close(ends[0]);
  LogAfterTheReaderLeft(ends[1]);
}

void LimitFileSize(rlim_t bytes) {
  std::signal(SIGXFSZ, SIG_DFL);
  rlimit limit{};
  Check(::getrlimit(RLIMIT_FSIZE, &limit) == 0, "getrlimit");
  limit.rlim_cur = bytes;
  Check(::setrlimit(RLIMIT_FSIZE, &limit) == 0, "setrlimit");
}

void LogToAFileAtItsLimit() {
  const ScopedDirectory directory;
  MakeStandardOutput(::open("f", O_WRONLY | O_CREAT, 0600));
  LogLines(1);  // the library has opened standard output before the limit is set
  LimitFileSize(100);
  LogLines(100);
  Expect(directory.Read("f").size() == 100, "as much as fits");
  ExpectUntouched(SIGXFSZ);
}

void WriteBeyondTheLimit() {
  const ScopedDirectory directory;
  LimitFileSize(1000);
  const std::string content(5000, 'c');
  for (const int mode : {0x00, 0x21, 0x24, 0x28, 0x30}) {
    Expect(Write(content, "./f", mode), "write errors are not reported");
    Expect(directory.Read("f") == content.substr(0, 1000), "as much as fits");
  }
  ExpectUntouched(SIGXFSZ);
}

// The reader reads one byte and leaves.
void WriteToALeftFifo() {
  const ScopedDirectory directory;
  std::signal(SIGPIPE, SIG_DFL);
  Check(::mkfifo("pipe", 0600) == 0, "mkfifo");
  for (int i = 0; i < 20; ++i) {
    const int reader = ::open("pipe", O_RDONLY | O_NONBLOCK);
    std::thread other([reader] {
      char byte = 0;
      while (::read(reader, &byte, 1) != 1) Sleep(1);
      ::close(reader);
    });
    Expect(Write(std::string(1000000, 'c'), "./pipe"), "written");
    other.join();
  }
  ExpectUntouched(SIGPIPE);
  Expect(FileUtils::WriteFile("content", "./pipe", 0) == 4, "no reader, so the open fails");
}

// Signals that the host blocks stay pending for the host, whether raised earlier or by the library.
void LeaveTheHostsSignals() {
  MakeStandardOutput(LeftPipe());
  sigset_t set;
  ::sigemptyset(&set);
  ::sigaddset(&set, SIGPIPE);
  ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
  const timespec now{};
  LogLines(1);
  Expect(IsPending(SIGPIPE), "the signal of the line stays pending");
  LogLines(1);
  Expect(IsPending(SIGPIPE) && IsBlocked(SIGPIPE), "the earlier signal stays pending");
  Expect(::sigtimedwait(&set, nullptr, &now) == SIGPIPE, "the host receives it");
  Expect(!IsPending(SIGPIPE), "only once");
}

// ---- forks ----

constexpr unsigned kPatienceSeconds = 30;

// Returns how long a child takes that calls exit(0). Kills it if it hangs.
std::chrono::milliseconds ChildExits() {
  const auto begin = std::chrono::steady_clock::now();
  const pid_t child = ::fork();
  if (child == 0) {
    ::alarm(kPatienceSeconds);
    std::exit(0);  // NOLINT(concurrency-mt-unsafe): under test
  }
  int status = 0;
  Check(child > 0 && ::waitpid(child, &status, 0) == child, "fork");
  Expect(WIFEXITED(status) && WEXITSTATUS(status) == 0, "the child exits");
  const auto took = std::chrono::steady_clock::now() - begin;
  return std::chrono::duration_cast<std::chrono::milliseconds>(took);
}

// The child destroys the pool, a static, while a thread that only exists in the parent may have
// held one of its locks.
void ForkWhileAPoolWorks() {
  static const auto busy = std::make_shared<ThreadPool>("busy", 2, 0, 8);
  static const auto idle = std::make_shared<ThreadPool>("idle", 2, 0, 8);
  std::atomic<bool> done{false};
  std::thread submitting([&done] {
    while (!done) busy->SubmitTask([] {});
  });
  std::thread asking([&done] {
    while (!done) idle->GetPendingTaskNumber();
  });
  for (int i = 0; i < 50 && tarsio_test::failures == 0; ++i) ChildExits();
  done = true;
  submitting.join();
  asking.join();
  busy->Shutdown(ThreadPool::SHUTDOWN_NOW);
}

// A sink that passes each line to a callback, and owns an object.
class CallingSink : public tarsio::Logger {
 public:
  explicit CallingSink(std::function<void()> line, std::shared_ptr<void> object = nullptr)
      : onLine(std::move(line)), owned(std::move(object)) {}
  void DoOutput(const char* /*line*/) override { onLine(); }

 private:
  const std::function<void()> onLine;
  const std::shared_ptr<void> owned;
};

// The end of the log waits a quarter of a second for lines in progress, but not for this line,
// which never ends in the child. Takes the fastest child, since the machine may be busy.
void ForkWhileALineIsInTheHostsSink() {
  const auto begun = std::make_shared<Gate>();
  const auto ended = std::make_shared<Gate>();
  tarsio::Log::GetInstance().SetLogger(std::make_unique<CallingSink>([=] {
    begun->Open();
    ended->Wait();
  }));
  std::thread other([] { LogLines(1); });
  begun->Wait();
  auto fastest = std::chrono::milliseconds::max();
  for (int i = 0; i < 10; ++i) fastest = std::min(fastest, ChildExits());
  Expect(fastest < std::chrono::milliseconds(240), "the child does not wait for the line");
  ended->Open();
  other.join();
}

// Like a daemon that installs its sink after the parent has exited.
void LogInAForkedChild() {
  std::array<int, 2> ends{};
  Check(::pipe(ends.data()) == 0, "pipe");
  const pid_t child = ::fork();
  Check(child >= 0, "fork");
  if (child == 0) {
    std::shared_ptr<void> writes(nullptr,
                                 [=](void*) { static_cast<void>(!::write(ends[1], "x", 1)); });
    tarsio::Log::GetInstance().SetLogger(
        std::make_unique<CallingSink>([] { Sleep(5); }, std::move(writes)));
    std::thread([] {
      for (;;) LogLines(1);
    }).detach();
    Sleep(20);
    std::exit(0);  // NOLINT(concurrency-mt-unsafe): under test
  }
  ::close(ends[1]);
  char byte = '\0';
  Expect(::read(ends[0], &byte, 1) == 1, "the child's sink is destroyed");
  Check(::waitpid(child, nullptr, 0) == child, "waitpid");
}

// ---- full and read-only file systems; the current directory is on one ----

void UseAFullFileSystem() {
  const std::string content(1000000, 'c');
  std::string read;
  Expect(Write(content, "./f"), "write errors are not reported");
  Expect(FileUtils::GetFileContent("f", read) == 0, "the file is readable");
  Expect(!read.empty() && read == content.substr(0, read.size()), "as much as fits");
  Expect(Write("more", "./f", 0x28), "appending");
  Expect(Write(content, "./g"), "another file");
  Expect(FileUtils::GetFileContent("g", read) == 2, "the other file is empty");
  int made = 0;
  while (made < 100 && FileUtils::MakeDir("d" + std::to_string(made) + "/")) ++made;
  Expect(made < 100, "creating directories fails at last");
  Expect(!MakeDirs(tarsio::Path("a\\b")) && !MakeDir(tarsio::Path("a")),
         "other calls fail as well");
  Expect(FileUtils::WriteFile("x", "./h", 0) == 4, "creating a file fails");
  LogLines(1);
  Expect(FileUtils::RemoveFile("f") && FileUtils::RemoveFile("g"), "removed");
  Expect(Write("content", "./f"), "writing works again");
  Expect(FileUtils::GetFileContent("f", read) == 0 && read == "content", "the file is complete");
}

// Runs after the full file system: uses its file f and its directory d0.
void UseAReadOnlyFileSystem() {
  for (int mode = 0; mode < 64; ++mode) {
    Expect(FileUtils::WriteFile("new", "./f", mode) == 4, "existing file");
    Expect(FileUtils::WriteFile("new", "./new", mode) == 4, "new file");
    Expect(FileUtils::WriteFile("new", "./d0", mode) == 6, "directory");
    Expect(FileUtils::WriteFile("new", "./missing/new", mode) == 5, "missing parent");
  }
  Expect(!FileUtils::MakeDir("a/") && !MakeDir(tarsio::Path("a")), "creating a directory fails");
  Expect(!MakeDirs(tarsio::Path("a\\b")), "creating several fails");
  Expect(FileUtils::MakeDir("d0/"), "an existing directory is skipped");
  Expect(!FileUtils::RemoveFile("f") && !FileUtils::RemoveDir("d0"), "removing fails");
  std::string read;
  Expect(FileUtils::GetFileContent("f", read) == 0 && read == "content", "reading works");
  Expect(FileUtils::CheckDirOrFileExists("f") && !FileUtils::CheckDirOrFileExists("a"),
         "queries work");
}

constexpr tarsio_test::Scenario kScenarios[] = {
    {"closed_descriptors", WriteWithClosedDescriptors},
    {"closed_at_start", StartWithoutDescriptors},
    {"only_standard_descriptors", OpenWithOnlyTheStandardDescriptorsFree},
    {"log_to_left_pipe", LogToALeftPipe},
    {"log_to_left_socket", LogToALeftSocket},
    {"log_to_full_file", LogToAFileAtItsLimit},
    {"write_beyond_limit", WriteBeyondTheLimit},
    {"write_to_left_fifo", WriteToALeftFifo},
    {"hosts_signals", LeaveTheHostsSignals},
    {"fork_with_pool", ForkWhileAPoolWorks},
    {"fork_with_line", ForkWhileALineIsInTheHostsSink},
    {"log_in_child", LogInAForkedChild},
    {"full_file_system", UseAFullFileSystem},
    {"read_only_file_system", UseAReadOnlyFileSystem},
};

}  // namespace

int main(int argc, char** argv) { return tarsio_test::RunScenario(kScenarios, argc, argv); }
