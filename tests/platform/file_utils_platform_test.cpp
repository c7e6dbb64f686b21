// Whole files on a fake file system that changes at a given step. The library's sources are
// compiled into this program.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "common/file_utils.h"
#include "platform/platform.h"
#include "support/file_reading.h"

namespace {

using tarsio::FILE_OPT_EMPTY_OR_UNREADABLE;
using tarsio::FILE_OPT_NO_PARENT_DIR;
using tarsio::FILE_OPT_NOT_FILE;
using tarsio::FILE_OPT_SIZE_MISMATCH;
using tarsio::FILE_OPT_SUCCESS;
using tarsio::FILE_OPT_WRITE_OPEN_FAILED;
using tarsio::FileOptRet;
using tarsio::FileUtils;
using tarsio::platform::FileType;
using tarsio_test::Content;
using tarsio_test::Failure;
using tarsio_test::ReadFile;
using tarsio_test::Reading;

// One file in directories that all exist, or in directories that have to be created. Each query and
// each transfer of two bytes is a step, and an event may occur before any step.
struct FakeSystem {
  void Step() {
    if (steps++ == eventAt) event();
  }

  bool exists = true;
  bool directoriesExist = true;
  size_t directoriesToMake = SIZE_MAX;  // the creation after these fails
  bool opens = true;
  std::string content;
  size_t room = SIZE_MAX;              // free disk space in bytes
  tarsio::platform::WriteMode mode{};  // of the last open

  size_t eventAt = SIZE_MAX;
  std::function<void()> event;
  size_t steps = 0;

  std::vector<std::wstring> texts;  // all paths passed to the system
  std::vector<std::string> narrowTexts;
  int openFiles = 0;
  size_t position = 0;
};

FakeSystem* current = nullptr;

std::wstring Wide(const std::string& ascii) { return {ascii.begin(), ascii.end()}; }

constexpr wchar_t kFileName[] = L"file.bin";

bool IsFileName(const std::wstring& text) {
  const std::wstring name = kFileName;
  return text.size() >= name.size() &&
         text.compare(text.size() - name.size(), name.size(), name) == 0;
}

// Records the path, runs a pending event, and returns the type of the object.
FileType Ask(const std::wstring& text) {
  current->texts.push_back(text);
  current->Step();
  if (!IsFileName(text)) {
    return current->directoriesExist ? FileType::kDirectory : FileType::kNone;
  }
  return current->exists ? FileType::kOther : FileType::kNone;
}

uint64_t AskSize(const std::wstring& text) {
  return Ask(text) == FileType::kOther ? current->content.size() : 0;
}

bool Opens(const std::wstring& text) {
  if (Ask(text) == FileType::kNone || !current->opens) return false;
  ++current->openFiles;
  current->position = 0;
  return true;
}

}  // namespace

namespace tarsio::platform {

std::wstring Widen(const std::string& utf8) { return Wide(utf8); }
std::string Narrow(const std::wstring& utf16) {
  std::string text;
  for (const wchar_t unit : utf16) text += static_cast<char>(unit);
  return text;
}

std::wstring FullPath(const std::wstring& path, size_t /*capacity*/) { return path; }
std::wstring CurrentDirectory(size_t /*capacity*/) { return L"C:\\"; }

FileType TypeOf(const std::wstring& path) { return Ask(path); }
FileStatus Status(const std::wstring& path) {
  const FileType type = Ask(path);
  return {type, type == FileType::kOther ? AskSize(path) : 0};
}
uint64_t SizeOf(const std::wstring& path) { return AskSize(path); }

bool CreateOneDirectory(const std::wstring& /*path*/) { return false; }
bool CreateDirectories(const std::wstring& /*path*/) { return false; }
bool CreateDirectoryNarrow(const std::string& path) {
  current->narrowTexts.push_back(path);
  return current->narrowTexts.size() <= current->directoriesToMake;
}
bool RemoveDirectoryNarrow(const std::string& path) {
  current->narrowTexts.push_back(path);
  return true;
}
bool RemoveFileNarrow(const std::string& path) { return RemoveDirectoryNarrow(path); }

File File::OpenForReading(const std::wstring& path) { return File(Opens(path) ? 0 : -1); }

File File::OpenForWriting(const std::wstring& path, const WriteMode& mode) {
  const bool open = Opens(path);
  current->mode = mode;
  if (open && mode.truncate) current->content.clear();
  return File(open ? 0 : -1);
}

File::~File() {
  if (IsOpen()) --current->openFiles;
}

// An open file stays readable after its removal.
size_t File::Read(char* buffer, size_t size, size_t /*expected*/) {
  size_t done = 0;
  while (done < size) {
    current->Step();
    const size_t left =
        current->content.size() - std::min(current->position, current->content.size());
    const size_t count = std::min({left, size - done, size_t{2}});
    if (count == 0) break;
    current->content.copy(buffer + done, count, current->position);
    current->position += count;
    done += count;
  }
  return done;
}

void File::Write(const char* data, size_t size) {
  const size_t taken = std::min(size, current->room);
  current->content.append(data, taken);
  current->room -= taken;
}

}  // namespace tarsio::platform

namespace {

class FileUtilsOs : public testing::Test {
 protected:
  FileUtilsOs() { current = &system; }
  ~FileUtilsOs() override {
    EXPECT_EQ(system.openFiles, 0) << "not closed";
    current = nullptr;
  }

  FakeSystem system;
};

// Reads the file repeatedly. In each round `event` happens one step later, until it no longer
// happens.
std::vector<Reading> ReadWithEventAtEachStep(const std::string& stored,
                                             void (*event)(FakeSystem&)) {
  std::vector<Reading> readings;
  FakeSystem* const outer = current;
  bool happened = true;
  for (size_t step = 0; happened; ++step) {
    FakeSystem system;
    current = &system;
    happened = false;
    system.content = stored;
    system.eventAt = step;
    system.event = [&] {
      happened = true;
      event(system);
    };
    readings.push_back(ReadFile("C:\\file.bin"));
    EXPECT_EQ(system.openFiles, 0) << "not closed, step " << step;
  }
  current = outer;
  return readings;
}

size_t CountOf(const std::vector<Reading>& readings, FileOptRet result) {
  return static_cast<size_t>(std::count_if(readings.begin(), readings.end(),
                                           [=](const Reading& r) { return r.result == result; }));
}

// Checks the output against the documented one for each result.
void ExpectOutputs(const std::vector<Reading>& readings, const std::vector<std::string>& whole) {
  for (const Reading& reading : readings) {
    if (reading.result == FILE_OPT_SUCCESS) {
      EXPECT_THAT(whole, testing::Contains(reading.content));
    } else {
      EXPECT_EQ(reading, Failure(reading.result));
    }
  }
}

TEST_F(FileUtilsOs, FileGrows) {
  const auto readings =
      ReadWithEventAtEachStep("0123456789", [](FakeSystem& fake) { fake.content += "more"; });
  ExpectOutputs(readings, {"0123456789", "0123456789more"});
  EXPECT_GT(CountOf(readings, FILE_OPT_SIZE_MISMATCH), 3U);
  EXPECT_EQ(CountOf(readings, FILE_OPT_SIZE_MISMATCH) + CountOf(readings, FILE_OPT_SUCCESS),
            readings.size());
  EXPECT_EQ(readings.front().content, "0123456789more");
}

TEST_F(FileUtilsOs, FileShrinks) {
  const auto readings =
      ReadWithEventAtEachStep("0123456789", [](FakeSystem& fake) { fake.content.resize(5); });
  ExpectOutputs(readings, {"0123456789", "01234"});
  EXPECT_GT(CountOf(readings, FILE_OPT_SIZE_MISMATCH), 1U);
  EXPECT_EQ(CountOf(readings, FILE_OPT_SIZE_MISMATCH) + CountOf(readings, FILE_OPT_SUCCESS),
            readings.size());
}

TEST_F(FileUtilsOs, FileIsEmptied) {
  const auto readings =
      ReadWithEventAtEachStep("0123456789", [](FakeSystem& fake) { fake.content.clear(); });
  ExpectOutputs(readings, {"0123456789"});
  EXPECT_GT(CountOf(readings, FILE_OPT_EMPTY_OR_UNREADABLE), 0U);
  EXPECT_GT(CountOf(readings, FILE_OPT_SIZE_MISMATCH), 1U);
  EXPECT_EQ(CountOf(readings, FILE_OPT_NOT_FILE), 0U);
}

TEST_F(FileUtilsOs, FileVanishes) {
  const auto readings =
      ReadWithEventAtEachStep("0123456789", [](FakeSystem& fake) { fake.exists = false; });
  ExpectOutputs(readings, {"0123456789"});
  EXPECT_EQ(readings.front().result, FILE_OPT_NOT_FILE);
  EXPECT_GT(CountOf(readings, FILE_OPT_EMPTY_OR_UNREADABLE),
            0U);  // emptied between the size query and the open
  EXPECT_EQ(CountOf(readings, FILE_OPT_SIZE_MISMATCH), 0U);
}

TEST_F(FileUtilsOs, NoPermission) {
  system.content = "stored";
  system.opens = false;
  EXPECT_EQ(ReadFile("C:\\file.bin"), Failure(FILE_OPT_EMPTY_OR_UNREADABLE));
  EXPECT_EQ(FileUtils::WriteFile("new", "C:\\file.bin", 0), FILE_OPT_WRITE_OPEN_FAILED);
  EXPECT_EQ(system.content, "stored");
}

TEST_F(FileUtilsOs, Parent) {
  EXPECT_EQ(FileUtils::WriteFile("new", "C:\\file.bin\\file.bin", 0), FILE_OPT_NO_PARENT_DIR);
}

// Write errors are not reported; the call returns however little the disk accepts.
TEST_F(FileUtilsOs, FullDisk) {
  for (const size_t room : {size_t{0}, size_t{1}, size_t{7}, size_t{10}, size_t{100}}) {
    SCOPED_TRACE(room);
    system.content = "stored";
    system.room = room;
    EXPECT_EQ(FileUtils::WriteFile("0123456789", "C:\\file.bin", 0), FILE_OPT_SUCCESS);
    EXPECT_EQ(system.content, std::string("0123456789").substr(0, room));
    EXPECT_EQ(system.openFiles, 0);
  }
}

// ---- directories ----

TEST_F(FileUtilsOs, Prefixes) {
  system.directoriesExist = false;
  EXPECT_TRUE(FileUtils::MakeDir(R"(C:/a\\b//c\d)"));
  EXPECT_THAT(system.texts, testing::ElementsAre(L"C:", LR"(C:\a)", LR"(C:\a)", LR"(C:\a\b)",
                                                 LR"(C:\a\b)", LR"(C:\a\b\c)"));
  EXPECT_THAT(system.narrowTexts,
              testing::ElementsAre("C:/", R"(C:/a\)", R"(C:/a\\)", R"(C:/a\\b/)", R"(C:/a\\b//)",
                                   R"(C:/a\\b//c\)"));
}

TEST_F(FileUtilsOs, ExistingDirs) {
  EXPECT_TRUE(FileUtils::MakeDir("a/b/file.bin/c"));
  EXPECT_THAT(system.texts, testing::ElementsAre(L"a", LR"(a\b)", LR"(a\b\file.bin)"));
  EXPECT_THAT(system.narrowTexts, testing::IsEmpty());
}

TEST_F(FileUtilsOs, MakeDirFails) {
  system.directoriesExist = false;
  system.directoriesToMake = 1;
  EXPECT_FALSE(FileUtils::MakeDir("a/b/c/d/"));
  EXPECT_THAT(system.texts, testing::ElementsAre(L"a", LR"(a\b)"));
  EXPECT_THAT(system.narrowTexts, testing::ElementsAre("a/", "a/b/"));
}

// On some systems the modes have the same effect.
TEST_F(FileUtilsOs, TextModes) {
  int opened = 0;
  for (int mode = 0; mode < 0x40; ++mode) {
    SCOPED_TRACE(mode);
    if (FileUtils::WriteFile("x", "C:\\file.bin", mode) != FILE_OPT_SUCCESS) continue;
    ++opened;
    EXPECT_EQ(system.mode.text, mode < 0x20);
  }
  EXPECT_EQ(opened, 48);
}

// ---- long paths ----

// Returns a path of the file whose printed form has `length` bytes.
std::string PathOfLength(size_t length, const std::string& root) {
  const std::string name = "\\file.bin";
  std::string text = root;
  while (text.size() + name.size() < length) {
    const size_t left = length - name.size() - text.size();
    const size_t component = left <= 61 ? left - 1 : std::min<size_t>(left - 3, 60);
    text += '\\' + std::string(component, 'd');
  }
  return text + name;
}

// Some systems ignore a missing prefix, so it has to be checked here.
TEST_F(FileUtilsOs, LongPrefix) {
  const struct {
    const char* root;
    const char* printedPrefix;
  } rows[] = {{"C:", "\\\\?\\"}, {"\\\\server\\share", "\\\\?\\UNC\\"}};
  for (const auto& row : rows) {
    for (const size_t length : {size_t{100}, size_t{259}, size_t{260}, size_t{261}, size_t{1000},
                                size_t{3900}, size_t{32000}}) {
      SCOPED_TRACE(std::string(row.root) + ' ' + std::to_string(length));
      const std::string text = PathOfLength(length, row.root);
      ASSERT_EQ(text.size(), length);
      const bool share = text[0] == '\\';
      const std::wstring printed =
          length < 260 ? Wide(text) : Wide(row.printedPrefix + text.substr(share ? 2 : 0));
      system.texts.clear();
      EXPECT_EQ(FileUtils::WriteFile("x", text, 0), FILE_OPT_SUCCESS);
      EXPECT_EQ(ReadFile(text), Content("x"));
      EXPECT_TRUE(FileUtils::CheckDirOrFileExists(text));
      for (const std::wstring& handed : system.texts) {
        const bool prefixed = handed.compare(0, 4, LR"(\\?\)") == 0;
        EXPECT_EQ(prefixed, handed.size() >= 260);
        EXPECT_TRUE(handed == printed || !IsFileName(handed));
      }
      EXPECT_THAT(system.texts, testing::Contains(printed));
    }
  }
}

// The narrow calls get the caller's bytes, with or without a prefix.
TEST_F(FileUtilsOs, NarrowNames) {
  for (const std::string& text : {PathOfLength(3900, "C:"), PathOfLength(300, R"(\\?\C:)"),
                                  std::string("C:/a//b \xFF.bin"), std::string()}) {
    system.narrowTexts.clear();
    EXPECT_TRUE(FileUtils::RemoveDir(text));
    EXPECT_TRUE(FileUtils::RemoveFile(text));
    EXPECT_THAT(system.narrowTexts, testing::ElementsAre(text, text));
  }
}

}  // namespace
