#include "common/file_utils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <type_traits>
#include <vector>

#include "common/path.h"
#include "support/file_obstacles.h"
#include "support/file_reading.h"
#include "support/recording_logger.h"
#include "support/scoped_directory.h"
#include "support/wine.h"

namespace {

using tarsio::FILE_OPT_EMPTY_OR_UNREADABLE;
using tarsio::FILE_OPT_IS_DIRECTORY;
using tarsio::FILE_OPT_NO_PARENT_DIR;
using tarsio::FILE_OPT_NOT_FILE;
using tarsio::FILE_OPT_SIZE_MISMATCH;
using tarsio::FILE_OPT_SUCCESS;
using tarsio::FILE_OPT_WRITE_OPEN_FAILED;
using tarsio::FileOptRet;
using tarsio::FileUtils;
using tarsio_test::Content;
using tarsio_test::Failure;
using tarsio_test::FileThatTakesNothing;
using tarsio_test::kBefore;
using tarsio_test::NoFreeFileHandles;
using tarsio_test::ReadFile;
using tarsio_test::Reading;
using tarsio_test::ScopedDirectory;
using testing::ElementsAre;

constexpr int kInput = 0x01;
constexpr int kOutput = 0x02;
constexpr int kAtEnd = 0x04;
constexpr int kAppend = 0x08;
constexpr int kTruncate = 0x10;
constexpr int kBinary = 0x20;

// ---- declarations ----

static_assert(std::is_same<std::underlying_type<FileOptRet>::type, int32_t>::value, "");
static_assert(FILE_OPT_SUCCESS == 0 && FILE_OPT_NOT_FILE == 1 &&
                  FILE_OPT_EMPTY_OR_UNREADABLE == 2 && FILE_OPT_SIZE_MISMATCH == 3 &&
                  FILE_OPT_WRITE_OPEN_FAILED == 4 && FILE_OPT_NO_PARENT_DIR == 5 &&
                  FILE_OPT_IS_DIRECTORY == 6,
              "");
static_assert(std::is_same<decltype(&FileUtils::GetFileContent),
                           FileOptRet (*)(std::string, std::string&)>::value,
              "");
static_assert(std::is_same<decltype(&FileUtils::WriteFile),
                           FileOptRet (*)(std::string, std::string, int)>::value,
              "");
static_assert(std::is_same<decltype(&FileUtils::MakeDir), bool (*)(const std::string&)>::value, "");
static_assert(std::is_same<decltype(&FileUtils::RemoveDir), bool (*)(const std::string&)>::value,
              "");
static_assert(std::is_same<decltype(&FileUtils::RemoveFile), bool (*)(const std::string&)>::value,
              "");
static_assert(
    std::is_same<decltype(&FileUtils::CheckDirOrFileExists), bool (*)(std::string)>::value, "");

// ---- helpers ----

// Each test runs in a new, empty directory.
class FileUtilsTest : public testing::Test {
 protected:
  // Returns everything below the directory in order: "a", "a/b".
  std::vector<std::string> Tree() const {
    std::vector<std::string> names;
    const std::filesystem::path root = directory.Native("");
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
      names.push_back(entry.path().lexically_relative(root).generic_u8string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  bool IsDirectory(const std::string& name) const {
    return std::filesystem::is_directory(directory.Native(name));
  }
  void CreateDirectories(const std::string& name) const {
    std::filesystem::create_directories(directory.Native(name));
  }

  // Returns the bytes of a text file with this content on this system.
  std::string TextForm(const std::string& content) const {
    const std::filesystem::path name = directory.Native("text form");
    std::ofstream(name) << content;
    const std::string form = directory.Read("text form");
    std::filesystem::remove(name);
    return form;
  }

  const ScopedDirectory directory;
};

class GetFileContent : public FileUtilsTest {};
class WriteFile : public FileUtilsTest {};
class MakeDir : public FileUtilsTest {};
class RemoveDir : public FileUtilsTest {};
class RemoveFile : public FileUtilsTest {};
class CheckDirOrFileExists : public FileUtilsTest {};

std::string RandomBytes(size_t size, uint64_t seed) {
  std::mt19937_64 random(seed);
  std::string bytes(size, '\0');
  for (char& c : bytes) c = static_cast<char>(random() & 0xFF);
  return bytes;
}

constexpr size_t kSizes[] = {1, 2, 4095, 4096, 4097, 65535, 65536, 65537, (5 << 20) + 3};

// ---- reading ----

TEST_F(GetFileContent, Bytes) {
  const std::string contents[] = {
      "text",         "a\r\nb\nc\rd",         std::string("\0a\0", 3), "\x1A after the end",
      "\xEF\xBB\xBF", RandomBytes(100000, 1),
  };
  for (const std::string& stored : contents) {
    directory.Write("f", stored);
    EXPECT_EQ(ReadFile("f"), Content(stored));
  }
}

TEST_F(GetFileContent, AnySize) {
  for (const size_t size : kSizes) {
    SCOPED_TRACE(size);
    const std::string stored = RandomBytes(size, size);
    directory.Write("f", stored);
    EXPECT_EQ(ReadFile("f"), Content(stored));
  }
}

TEST_F(GetFileContent, NotAFile) {
  CreateDirectories("d");
  directory.Write("f", "content");
  for (const std::string& path :
       {std::string(), std::string("missing"), std::string("missing/f"), std::string("d"),
        std::string("d/"), std::string("."), std::string(".."), std::string("f/below"),
        std::string("C:"), directory.Text("d"), directory.Text("missing")}) {
    SCOPED_TRACE(path);
    EXPECT_EQ(ReadFile(path), Failure(FILE_OPT_NOT_FILE));
  }
}

// For root, the file is still writable on Linux.
TEST_F(GetFileContent, ReadOnly) {
  using std::filesystem::perms;
  directory.Write("file", "content");
  std::filesystem::permissions(directory.Native("file"), perms::owner_read);
  EXPECT_EQ(ReadFile("file"), Content("content"));
  std::filesystem::permissions(directory.Native("file"), perms::owner_all);
}

TEST_F(GetFileContent, Empty) {
  directory.Write("f", "");
  EXPECT_EQ(ReadFile("f"), Failure(FILE_OPT_EMPTY_OR_UNREADABLE));
}

// There is no check for a regular file (by design).
TEST_F(GetFileContent, Device) {
  int devices = 0;
  for (const char* const text : {"NUL", "C:/dev/null"}) {  // each exists on one system
    if (!FileUtils::CheckDirOrFileExists(text)) continue;
    ++devices;
    EXPECT_EQ(ReadFile(text), Failure(FILE_OPT_EMPTY_OR_UNREADABLE));
  }
  EXPECT_EQ(devices, 1);
}

TEST_F(GetFileContent, NotOpened) {
  directory.Write("f", "content");
  Reading reading;
  Reading ofMissing;
  {
    const NoFreeFileHandles none;
    reading = ReadFile("f");
    ofMissing = ReadFile("missing");
  }
  EXPECT_EQ(reading, Failure(FILE_OPT_EMPTY_OR_UNREADABLE));
  EXPECT_EQ(ofMissing, Failure(FILE_OPT_NOT_FILE));  // queried earlier
  EXPECT_EQ(ReadFile("f"), Content("content"));
}

// Reads until a mismatch is reported, while `change` modifies the file repeatedly.
void ExpectMismatchWhile(const std::function<void()>& change, size_t smallest, size_t largest) {
  std::atomic<bool> stop{false};
  std::thread writer([&stop, &change] {
    while (!stop) change();
  });
  const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  Reading reading = ReadFile("f");
  while (reading.result == FILE_OPT_SUCCESS && std::chrono::steady_clock::now() < giveUp) {
    EXPECT_GE(reading.content.size(), smallest);
    EXPECT_LE(reading.content.size(), largest);
    reading = ReadFile("f");
  }
  stop = true;
  writer.join();
  EXPECT_EQ(reading, Failure(FILE_OPT_SIZE_MISMATCH));
}

TEST_F(GetFileContent, Grows) {
  constexpr size_t kSize = 4 << 20;
  directory.Write("f", std::string(kSize, 'x'));
  std::ofstream file(directory.Native("f"), std::ios::binary | std::ios::app);
  ExpectMismatchWhile([&file] { file << 'y' << std::flush; }, kSize, SIZE_MAX);
}

TEST_F(GetFileContent, Shrinks) {
  constexpr size_t kSize = 16 << 20;
  directory.Write("f", std::string(kSize, 'x'));
  size_t size = kSize;
  const std::filesystem::path file = directory.Native("f");
  ExpectMismatchWhile(
      [&file, &size] {
        std::error_code ignored;
        if (size > 1) std::filesystem::resize_file(file, --size, ignored);
      },
      1, kSize);
}

TEST_F(GetFileContent, Aliasing) {
  directory.Write("f", "content");
  std::string text = "f";
  EXPECT_EQ(FileUtils::GetFileContent(text, text), FILE_OPT_SUCCESS);
  EXPECT_EQ(text, "content");
}

// Both "\" and "/" are separators; a leading one does not make a path absolute.
TEST_F(GetFileContent, PathForms) {
  CreateDirectories("d/e");
  directory.Write("d/f", "content");
  std::string backslashes = directory.Text("d/f");
  std::replace(backslashes.begin(), backslashes.end(), '/', '\\');
  for (const std::string& path :
       {std::string("d/f"), std::string("d\\f"), std::string(".\\d/f"), std::string("d\\\\//f"),
        std::string("d/f/"), std::string("d\\e\\..\\f"), std::string("missing/../d/f"),
        std::string("d\\f\\..\\f"), std::string("/d/f"), std::string("\\d\\f"),
        directory.Text("d/f"), backslashes, "\\\\?\\" + backslashes, "\\\\?\\" + std::string("d/f"),
        std::string("d/f\0ignored", 11)}) {
    SCOPED_TRACE(path);
    EXPECT_EQ(ReadFile(path), Content("content"));
  }
}

TEST_F(GetFileContent, AfterNul) {
  std::string content = kBefore;
  try {
    static_cast<void>(FileUtils::GetFileContent(std::string("d\0/f", 4), content));
    ADD_FAILURE() << "no exception";
  } catch (const std::out_of_range& e) {
    EXPECT_STREQ(e.what(), "invalid string position");
  }
  EXPECT_EQ(content, kBefore);
}

// ---- writing ----

TEST_F(WriteFile, ArgumentOrder) {
  EXPECT_EQ(FileUtils::WriteFile("./content", "./path", kBinary), FILE_OPT_SUCCESS);
  EXPECT_EQ(directory.Read("path"), "./content");
  EXPECT_THAT(Tree(), ElementsAre("path"));
}

TEST_F(WriteFile, BinaryMode) {
  for (const size_t size : kSizes) {
    SCOPED_TRACE(size);
    const std::string content = RandomBytes(size, size + 1);
    EXPECT_EQ(FileUtils::WriteFile(content, "./f", kBinary), FILE_OPT_SUCCESS);
    EXPECT_TRUE(directory.Read("f") == content);
  }
  const std::string content("\r\n\n\r\0\x1A\n", 7);
  EXPECT_EQ(FileUtils::WriteFile(content, "./f", kBinary), FILE_OPT_SUCCESS);
  EXPECT_EQ(directory.Read("f"), content);
}

TEST_F(WriteFile, TextMode) {
  const std::string contents[] = {
      "",         "no newline",       "one\n", "\n",   "\n\n\n",
      "a\nb",     "a\r\nb\r\n",       "\r",    "\n\r", std::string("a\0\nb\0", 5),
      "a\x1A\nb", "\xC3\xA9\n\xFF\n",
  };
  for (const std::string& content : contents) {
    SCOPED_TRACE(testing::PrintToString(content));
    EXPECT_EQ(FileUtils::WriteFile(content, "./f", 0), FILE_OPT_SUCCESS);
    EXPECT_EQ(directory.Read("f"), TextForm(content));
  }

  std::mt19937_64 random(3);
  std::string content(3000000, ' ');
  for (char& c : content) c = "\n\rab"[random() % 4];
  EXPECT_EQ(FileUtils::WriteFile(content, "./f", 0), FILE_OPT_SUCCESS);
  EXPECT_TRUE(directory.Read("f") == TextForm(content));
}

TEST_F(WriteFile, RoundTrip) {
  const std::string content = RandomBytes(200000, 4);
  EXPECT_EQ(FileUtils::WriteFile(content, "./f", kBinary), FILE_OPT_SUCCESS);
  EXPECT_EQ(ReadFile("./f"), Content(content));
}

TEST_F(WriteFile, EmptyContent) {
  EXPECT_EQ(FileUtils::WriteFile("", "./new", kBinary), FILE_OPT_SUCCESS);
  directory.Write("old", "content");
  EXPECT_EQ(FileUtils::WriteFile("", "./old", kBinary | kAppend), FILE_OPT_SUCCESS);
  EXPECT_EQ(directory.Read("old"), "content");
  EXPECT_EQ(FileUtils::WriteFile("", "./old", kBinary), FILE_OPT_SUCCESS);
  EXPECT_EQ(directory.Read("old"), "");
  EXPECT_THAT(Tree(), ElementsAre("new", "old"));
}

// The output bit (0x02) is always set; the binary bit (0x20) only affects line ends. The other four
// bits decide whether a missing file is created, and where an existing file is written.
enum class Missing { kCreated, kRefused };
enum class Existing { kTruncated, kInPlace, kExtended, kRefused };

const struct ModeRow {
  int bits;
  Missing missing;
  Existing existing;
} kModeRows[] = {
    {0, Missing::kCreated, Existing::kTruncated},
    {kTruncate, Missing::kCreated, Existing::kTruncated},
    {kAppend, Missing::kCreated, Existing::kExtended},
    {kAppend | kTruncate, Missing::kRefused, Existing::kRefused},
    {kAtEnd, Missing::kCreated, Existing::kExtended},  // the file is kept (by design)
    {kAtEnd | kTruncate, Missing::kCreated, Existing::kTruncated},
    {kAtEnd | kAppend, Missing::kCreated, Existing::kExtended},
    {kAtEnd | kAppend | kTruncate, Missing::kRefused, Existing::kRefused},
    {kInput, Missing::kRefused, Existing::kInPlace},
    {kInput | kTruncate, Missing::kCreated, Existing::kTruncated},
    {kInput | kAppend, Missing::kCreated, Existing::kExtended},
    {kInput | kAppend | kTruncate, Missing::kRefused, Existing::kRefused},
    {kInput | kAtEnd, Missing::kRefused, Existing::kExtended},
    {kInput | kAtEnd | kTruncate, Missing::kCreated, Existing::kTruncated},
    {kInput | kAtEnd | kAppend, Missing::kCreated, Existing::kExtended},
    {kInput | kAtEnd | kAppend | kTruncate, Missing::kRefused, Existing::kRefused},
};

TEST_F(WriteFile, ModeBits) {
  const std::string old = "0123456789\r\n0123456789";
  const std::string content("a\nb\0c", 5);
  int modes = 0;
  for (const ModeRow& row : kModeRows) {
    for (const int more : {0, kOutput, kBinary, kOutput | kBinary}) {
      const int mode = row.bits | more;
      SCOPED_TRACE(mode);
      const std::string written = (mode & kBinary) != 0 ? content : TextForm(content);

      const std::string missing = "missing" + std::to_string(mode);
      const bool created = row.missing == Missing::kCreated;
      EXPECT_EQ(FileUtils::WriteFile(content, "./" + missing, mode),
                created ? FILE_OPT_SUCCESS : FILE_OPT_WRITE_OPEN_FAILED);
      EXPECT_EQ(std::filesystem::exists(directory.Native(missing)), created);
      EXPECT_EQ(directory.Read(missing), created ? written : "");

      std::string expected = old;
      if (row.existing == Existing::kTruncated) expected = written;
      if (row.existing == Existing::kInPlace) expected.replace(0, written.size(), written);
      if (row.existing == Existing::kExtended) expected += written;
      directory.Write("existing", old);
      EXPECT_EQ(FileUtils::WriteFile(content, "./existing", mode),
                row.existing == Existing::kRefused ? FILE_OPT_WRITE_OPEN_FAILED : FILE_OPT_SUCCESS);
      EXPECT_EQ(directory.Read("existing"), expected);
      ++modes;
    }
  }
  EXPECT_EQ(modes, 64);
}

TEST_F(WriteFile, UpdateExtends) {
  directory.Write("f", "0123");
  EXPECT_EQ(FileUtils::WriteFile("abcdef", "./f", kInput | kBinary), FILE_OPT_SUCCESS);
  EXPECT_EQ(directory.Read("f"), "abcdef");
}

TEST_F(WriteFile, OtherModeBits) {
  directory.Write("f", "content");
  std::vector<int> modes = {
      -1, INT_MIN, INT_MAX, kBinary | 0x40, kAppend | 0x80, kTruncate | 0x100};
  for (int shift = 6; shift < 31; ++shift) modes.push_back(1 << shift);
  for (const int mode : modes) {
    SCOPED_TRACE(mode);
    EXPECT_EQ(FileUtils::WriteFile("x", "./f", mode), FILE_OPT_WRITE_OPEN_FAILED);
    EXPECT_EQ(FileUtils::WriteFile("x", "./missing", mode), FILE_OPT_WRITE_OPEN_FAILED);
  }
  EXPECT_EQ(directory.Read("f"), "content");
  EXPECT_THAT(Tree(), ElementsAre("f"));
}

TEST_F(WriteFile, Directory) {
  CreateDirectories("d/e");
  for (const std::string& path :
       {std::string("d"), std::string("./d"), std::string("d\\"), std::string("d/e"),
        std::string("."), std::string(".."), std::string("C:\\"), directory.Text("d")}) {
    SCOPED_TRACE(path);
    EXPECT_EQ(FileUtils::WriteFile("x", path, 0), FILE_OPT_IS_DIRECTORY);
    // Checked before the mode and, for a single component, before the parent.
    EXPECT_EQ(FileUtils::WriteFile("x", path, kAppend | kTruncate), FILE_OPT_IS_DIRECTORY);
  }
  EXPECT_THAT(Tree(), ElementsAre("d", "d/e"));
}

TEST_F(WriteFile, ParentIsAFile) {
  CreateDirectories("d");
  directory.Write("f", "content");
  for (const std::string& path :
       {std::string("missing/out.txt"), std::string("d/missing/out.txt"), std::string("f/out.txt"),
        directory.Text("missing/out.txt"), directory.Text("f/out.txt")}) {
    SCOPED_TRACE(path);
    EXPECT_EQ(FileUtils::WriteFile("x", path, 0), FILE_OPT_NO_PARENT_DIR);
    EXPECT_EQ(FileUtils::WriteFile("x", path, kAppend | kTruncate), FILE_OPT_NO_PARENT_DIR);
  }
  EXPECT_EQ(directory.Read("f"), "content");
  EXPECT_THAT(Tree(), ElementsAre("d", "f"));
}

// The parent of a single relative component is the empty path, which is not a directory.
TEST_F(WriteFile, BareName) {
  directory.Write("old.txt", "content");
  for (const char* path :
       {"out.txt", "old.txt", "out.txt/", "/out.txt", "\\out.txt", "C:out.txt", "\\\\?\\out.txt"}) {
    SCOPED_TRACE(path);
    EXPECT_EQ(FileUtils::WriteFile("x", path, 0), FILE_OPT_NO_PARENT_DIR);
  }
  EXPECT_EQ(directory.Read("old.txt"), "content");
  EXPECT_THAT(Tree(), ElementsAre("old.txt"));
}

TEST_F(WriteFile, PathForms) {
  CreateDirectories("d/e");
  std::string backslashes = directory.Text("out.txt");
  std::replace(backslashes.begin(), backslashes.end(), '/', '\\');
  for (const std::string& path :
       {std::string(".\\out.txt"), std::string("./out.txt"), std::string("/./out.txt"),
        std::string("d\\..\\out.txt"), std::string("d/e/..\\../out.txt"),
        std::string("d//..\\\\out.txt"), std::string("missing/../out.txt"),
        std::string("./out.txt/"), directory.Text("out.txt"), backslashes, "\\\\?\\" + backslashes,
        std::string("./out.txt\0ignored", 17)}) {
    SCOPED_TRACE(path);
    EXPECT_EQ(FileUtils::WriteFile(path, path, kBinary), FILE_OPT_SUCCESS);
    EXPECT_EQ(directory.Read("out.txt"), path);
    std::filesystem::remove(directory.Native("out.txt"));
  }
  EXPECT_THAT(Tree(), ElementsAre("d", "d/e"));
}

// The parent of the empty path is "..", which exists, so it is the open that fails.
TEST_F(WriteFile, EmptyPath) {
  for (const char* path : {"", "/", "\\\\?\\"}) {
    SCOPED_TRACE(path);
    EXPECT_EQ(FileUtils::WriteFile("x", path, 0), FILE_OPT_WRITE_OPEN_FAILED);
  }
  EXPECT_THAT(Tree(), ElementsAre());
}

TEST_F(WriteFile, InvalidName) {
  EXPECT_EQ(FileUtils::WriteFile("x", "./" + std::string(300, 'n'), 0), FILE_OPT_WRITE_OPEN_FAILED);
  EXPECT_THAT(Tree(), ElementsAre());
}

TEST_F(WriteFile, CannotOpen) {
  directory.Write("f", "content");
  FileOptRet result = FILE_OPT_SUCCESS;
  FileOptRet ofDirectory = FILE_OPT_SUCCESS;
  FileOptRet ofBareName = FILE_OPT_SUCCESS;
  {
    const NoFreeFileHandles none;
    result = FileUtils::WriteFile("x", "./f", kAppend);
    ofDirectory = FileUtils::WriteFile("x", ".", 0);
    ofBareName = FileUtils::WriteFile("x", "f", 0);
  }
  EXPECT_EQ(result, FILE_OPT_WRITE_OPEN_FAILED);
  EXPECT_EQ(ofDirectory, FILE_OPT_IS_DIRECTORY);
  EXPECT_EQ(ofBareName, FILE_OPT_NO_PARENT_DIR);
  EXPECT_EQ(directory.Read("f"), "content");
}

TEST_F(WriteFile, Device) {
  int devices = 0;
  for (const char* const text : {"./NUL", "C:/dev/null"}) {  // each exists on one system
    if (!FileUtils::CheckDirOrFileExists(text)) continue;
    ++devices;
    EXPECT_EQ(FileUtils::WriteFile("x", text, kInput), FILE_OPT_SUCCESS);
    EXPECT_EQ(FileUtils::WriteFile("x", text, kInput | kAtEnd), FILE_OPT_WRITE_OPEN_FAILED);
    EXPECT_EQ(FileUtils::WriteFile("x", text, kAppend | kAtEnd), FILE_OPT_WRITE_OPEN_FAILED);
  }
  EXPECT_EQ(devices, 1);
}

TEST_F(WriteFile, LostErrors) {
  const FileThatTakesNothing file;
  EXPECT_EQ(FileUtils::WriteFile(std::string(100000, 'x'), file.Text(), kInput | kBinary),
            FILE_OPT_SUCCESS);
}

TEST_F(FileUtilsTest, Sharing) {
  directory.Write("f", "content");
  std::ifstream reader(directory.Native("f"), std::ios::binary);
  std::ofstream writer(directory.Native("f"), std::ios::binary | std::ios::app);
  ASSERT_TRUE(reader.is_open() && writer.is_open());
  EXPECT_EQ(FileUtils::WriteFile(" and more", "./f", kAppend | kBinary), FILE_OPT_SUCCESS);
  EXPECT_EQ(ReadFile("./f"), Content("content and more"));
}

// ---- names that are not ASCII ----

TEST_F(FileUtilsTest, Utf8Names) {
  const struct {
    const char* name;
    const char* given;
    const char* stored;
  } rows[] = {
      {"two bytes", "d\xC3\xA9/f\xC3\xA9.txt", "d\xC3\xA9/f\xC3\xA9.txt"},
      {"three bytes", "d\xC3\xA9/\xE2\x82\xAC\xE4\xB8\xAD", "d\xC3\xA9/\xE2\x82\xAC\xE4\xB8\xAD"},
      {"four bytes", "d\xC3\xA9/\xF0\x9F\x98\x80", "d\xC3\xA9/\xF0\x9F\x98\x80"},
      {"invalid", "d\xC3\xA9/f\xFF", "d\xC3\xA9/f\xEF\xBF\xBD"},
  };
  CreateDirectories("d\xC3\xA9");
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_FALSE(FileUtils::CheckDirOrFileExists(row.given));
    EXPECT_EQ(FileUtils::WriteFile("content", row.given, kBinary), FILE_OPT_SUCCESS);
    EXPECT_EQ(directory.Read(row.stored), "content");
    EXPECT_TRUE(FileUtils::CheckDirOrFileExists(row.given));
    EXPECT_EQ(ReadFile(row.given), Content("content"));
  }
}

// The reference is the result of the runtime's narrow calls for the same bytes.
TEST_F(FileUtilsTest, Narrow) {
  EXPECT_TRUE(FileUtils::MakeDir("d\xC3\xA9/"));
  std::FILE* const file = std::fopen("d\xC3\xA9/f\xC3\xA9", "w");
  ASSERT_NE(file, nullptr);
  std::fclose(file);
  EXPECT_FALSE(FileUtils::RemoveDir("d\xC3\xA9"));
  EXPECT_TRUE(FileUtils::RemoveFile("d\xC3\xA9/f\xC3\xA9"));
  EXPECT_TRUE(FileUtils::RemoveDir("d\xC3\xA9"));
  EXPECT_THAT(Tree(), ElementsAre());
}

// Also invalid UTF-8, with ".." before or after it.
TEST_F(FileUtilsTest, RawBytes) {
  EXPECT_TRUE(FileUtils::MakeDir("d\xFF/"));
  EXPECT_FALSE(FileUtils::CheckDirOrFileExists("d\xEF\xBF\xBD"));
  EXPECT_TRUE(FileUtils::RemoveDir("\xE9\\../.\\d\xFF"));
  EXPECT_THAT(Tree(), ElementsAre());
}

TEST_F(MakeDir, Colon) {
  // On Windows the colon starts a stream name. Wine creates a directory.
  if (tarsio_test::RunsUnderWine()) GTEST_SKIP() << "Wine treats the colon as part of the name";
  for (const char* text : {"ab:/x/", "\xC3\xA9:/x/"}) {
    SCOPED_TRACE(text);
    EXPECT_FALSE(FileUtils::MakeDir(text));
  }
  EXPECT_FALSE(FileUtils::MakeDir("a/b:/"));
  EXPECT_THAT(Tree(), ElementsAre("a"));
}

TEST_F(FileUtilsTest, NarrowNul) {
  CreateDirectories("d");
  directory.Write("f", "content");
  EXPECT_TRUE(FileUtils::CheckDirOrFileExists(std::string("f\0x", 3)));
  EXPECT_TRUE(FileUtils::RemoveFile(std::string("f\0x", 3)));
  EXPECT_TRUE(FileUtils::RemoveDir(std::string("d\0x", 3)));
  EXPECT_THAT(Tree(), ElementsAre());
  EXPECT_TRUE(FileUtils::MakeDir(std::string("a\0b/", 4)));
  EXPECT_THAT(Tree(), ElementsAre("a"));
  EXPECT_TRUE(FileUtils::MakeDir(std::string("a\0b/", 4)));  // existing directories are skipped
}

TEST_F(FileUtilsTest, AfterNul) {
  const std::function<void()> calls[] = {
      [] { static_cast<void>(FileUtils::CheckDirOrFileExists(std::string("a\0/b", 4))); },
      [] { static_cast<void>(FileUtils::WriteFile("x", std::string("a\0/b", 4), 0)); },
      [] { static_cast<void>(FileUtils::MakeDir(std::string("a\0/b/", 5))); },  // the second prefix
  };
  for (const std::function<void()>& call : calls) {
    try {
      call();
      ADD_FAILURE() << "no exception";
    } catch (const std::out_of_range& e) {
      EXPECT_STREQ(e.what(), "invalid string position");
    }
  }
  EXPECT_THAT(Tree(), ElementsAre("a"));
}

// ---- long paths ----

TEST_F(FileUtilsTest, LongPaths) {
  std::string path = directory.Text();
  while (path.size() < 500) {
    path += '/' + std::string(60, 'd');
    ASSERT_TRUE(tarsio::MakeDir(tarsio::Path(path)));
  }
  EXPECT_TRUE(FileUtils::CheckDirOrFileExists(path));
  EXPECT_EQ(FileUtils::WriteFile("x", path, 0), FILE_OPT_IS_DIRECTORY);
  EXPECT_EQ(FileUtils::WriteFile("content", path + "/f", kBinary), FILE_OPT_SUCCESS);
  EXPECT_TRUE(FileUtils::CheckDirOrFileExists(path + "/f"));
  EXPECT_EQ(ReadFile(path + "/f"), Content("content"));
}

// ---- directories ----

TEST_F(MakeDir, Prefixes) {
  const struct {
    const char* text;
    bool result;
    std::vector<std::string> created;
  } rows[] = {
      {"a/b/c", true, {"a", "a/b"}},  // not the last component
      {"a/b/c/", true, {"a", "a/b", "a/b/c"}},
      {"a\\b\\c", true, {"a", "a/b"}},
      {"a\\b\\c\\", true, {"a", "a/b", "a/b/c"}},
      {"a/b\\c/", true, {"a", "a/b", "a/b/c"}},
      {"a//b/", true, {"a", "a/b"}},
      {"a", true, {}},
      {"a/", true, {"a"}},
      {"./a/", true, {"a"}},
      {"a/../b/", true, {"a", "b"}},
      {"a b/.c/d.e/", true, {"a b", "a b/.c", "a b/.c/d.e"}},
      {"", false, {}},
      // A single separator tests as missing and cannot be created.
      {"/x/", false, {}},
      {"\\x\\", false, {}},
      {"/", false, {}},
      {"//x/", false, {}},
      {"\\\\?\\x\\", false, {}},
      // Neither can a drive that does not exist.
      {"1:/x/", false, {}},
      {"Q:x/", false, {}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(FileUtils::MakeDir(row.text), row.result);
    EXPECT_EQ(Tree(), row.created);
    EXPECT_EQ(FileUtils::MakeDir(row.text), row.result);  // existing directories are skipped
    EXPECT_EQ(Tree(), row.created);
    for (const auto& entry : std::filesystem::directory_iterator(directory.Native(""))) {
      std::filesystem::remove_all(entry.path());
    }
  }
}

TEST_F(MakeDir, SkipsDrive) {
  std::string text = directory.Text("x/y");
  EXPECT_TRUE(FileUtils::MakeDir(text));
  EXPECT_THAT(Tree(), ElementsAre("x"));
  text += '/';
  std::replace(text.begin(), text.end(), '/', '\\');
  EXPECT_TRUE(FileUtils::MakeDir(text));
  EXPECT_THAT(Tree(), ElementsAre("x", "x/y"));
}

TEST_F(MakeDir, SkipsFile) {
  directory.Write("f", "content");
  EXPECT_TRUE(FileUtils::MakeDir("f/"));
  EXPECT_TRUE(FileUtils::MakeDir("f/x"));
  EXPECT_FALSE(FileUtils::MakeDir("f/x/"));  // but nothing can be created below it
  EXPECT_EQ(directory.Read("f"), "content");
  EXPECT_THAT(Tree(), ElementsAre("f"));
  EXPECT_TRUE(FileUtils::MakeDir("f/../b/"));  // ".." is resolved without looking at "f"
  EXPECT_THAT(Tree(), ElementsAre("b", "f"));
}

TEST_F(MakeDir, KeepsParents) {
  EXPECT_FALSE(FileUtils::MakeDir("a/b/" + std::string(300, 'n') + "/c/"));
  EXPECT_THAT(Tree(), ElementsAre("a", "a/b"));
}

TEST_F(RemoveDir, EmptyOnly) {
  CreateDirectories("a/b");
  CreateDirectories("c");
  directory.Write("c/f", "content");
  directory.Write("f", "content");
  for (const char* text : {"a", "c", "f", "c/f", "missing", "a/missing", "f/x", ""}) {
    SCOPED_TRACE(text);
    EXPECT_FALSE(FileUtils::RemoveDir(text));
  }
  EXPECT_THAT(Tree(), ElementsAre("a", "a/b", "c", "c/f", "f"));
  EXPECT_TRUE(FileUtils::RemoveDir("a\\b"));
  EXPECT_THAT(Tree(), ElementsAre("a", "c", "c/f", "f"));
  EXPECT_TRUE(FileUtils::RemoveDir(directory.Text("a")));
  EXPECT_FALSE(FileUtils::RemoveDir("a"));
  EXPECT_THAT(Tree(), ElementsAre("c", "c/f", "f"));
  for (const char* text : {"e/.", "missing/../e", "f\\..\\e\\"}) {
    SCOPED_TRACE(text);
    CreateDirectories("e");
    EXPECT_TRUE(FileUtils::RemoveDir(text));
    EXPECT_FALSE(IsDirectory("e"));
  }
}

TEST_F(RemoveFile, Directory) {
  CreateDirectories("empty");
  CreateDirectories("d");
  directory.Write("d/f", "content");
  directory.Write("f", "");
  for (const char* text : {"empty", "d", ".", "missing", "d/missing", "f/x", ""}) {
    SCOPED_TRACE(text);
    EXPECT_FALSE(FileUtils::RemoveFile(text));
  }
  EXPECT_THAT(Tree(), ElementsAre("d", "d/f", "empty", "f"));
  EXPECT_TRUE(FileUtils::RemoveFile("f"));
  EXPECT_FALSE(FileUtils::RemoveFile("f"));
  EXPECT_TRUE(FileUtils::RemoveFile("d\\f"));
  EXPECT_THAT(Tree(), ElementsAre("d", "empty"));
  directory.Write("f", "content");
  EXPECT_TRUE(FileUtils::RemoveFile(directory.Text("f")));
  EXPECT_THAT(Tree(), ElementsAre("d", "empty"));
  std::string backslashes = directory.Text("f");
  std::replace(backslashes.begin(), backslashes.end(), '/', '\\');
  for (const std::string& text :
       {std::string("f/."), std::string("missing/../f"), std::string("missing\\.\\x\\..\\..\\f"),
        directory.Text("missing/../f"), "\\\\?\\" + backslashes}) {
    SCOPED_TRACE(text);
    directory.Write("f", "content");
    EXPECT_TRUE(FileUtils::RemoveFile(text));
    EXPECT_THAT(Tree(), ElementsAre("d", "empty"));
  }
}

// After the long prefix the name is literal and begins with a drive; a trailing separator means a
// directory.
TEST_F(RemoveFile, InvalidName) {
  CreateDirectories("d");
  directory.Write("f", "content");
  std::string root = "\\\\?\\" + directory.Text();
  std::replace(root.begin(), root.end(), '/', '\\');
  for (const std::string& text :
       {root + "\\.\\f", root + "\\d\\..\\f", root + "/f", "\\\\?\\" + directory.Text("f"),
        std::string("\\\\?\\f"), std::string("\\\\?\\"), std::string("f/"), std::string("f/./")}) {
    SCOPED_TRACE(text);
    EXPECT_FALSE(FileUtils::RemoveFile(text));
  }
  EXPECT_EQ(directory.Read("f"), "content");
}

TEST_F(CheckDirOrFileExists, Kind) {
  CreateDirectories("d/e");
  directory.Write("d/f", "");
  const struct {
    std::string text;
    bool exists;
  } rows[] = {
      {"d", true},
      {"d/", true},
      {"d/e", true},
      {"d\\f", true},
      {"missing/../d/f", true},
      {"d/f/..", true},
      {"/d/f", true},  // relative: a leading separator does not make it absolute
      {".", true},
      {"..", true},
      {"C:", true},
      {"C:\\", true},
      {directory.Text("d/f"), true},
      {"\\\\?\\" + directory.Text("d"), true},
      {"", false},
      {"/", false},
      {"missing", false},
      {"d/missing", false},
      {"d/f/x", false},
      {directory.Text("missing"), false},
      {"1:", false},
      {"\xC3\xA9:", false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(FileUtils::CheckDirOrFileExists(row.text), row.exists);
  }
}

// The printed form "UNC\f" parses as the share \\f.
TEST_F(CheckDirOrFileExists, Unc) {
  CreateDirectories("UNC");
  CreateDirectories("unc2");
  directory.Write("UNC/f", "content");
  directory.Write("unc2/f", "content");
  EXPECT_FALSE(FileUtils::CheckDirOrFileExists("UNC/f"));
  EXPECT_TRUE(FileUtils::CheckDirOrFileExists("UNC"));
  EXPECT_TRUE(FileUtils::CheckDirOrFileExists("./UNC/f"));
  EXPECT_TRUE(FileUtils::CheckDirOrFileExists("unc2/f"));
  EXPECT_TRUE(FileUtils::CheckDirOrFileExists(directory.Text("UNC/f")));

  EXPECT_EQ(ReadFile("UNC/f"), Content("content"));
  EXPECT_EQ(FileUtils::WriteFile("new", "UNC/g", kBinary), FILE_OPT_SUCCESS);
  EXPECT_EQ(directory.Read("UNC/g"), "new");
  // With a backslash the path itself is a share, for every function.
  EXPECT_EQ(ReadFile("UNC\\f"), Failure(FILE_OPT_NOT_FILE));
  EXPECT_FALSE(FileUtils::CheckDirOrFileExists("UNC\\f"));
}

// As a result, a directory below it is created once and is not recognized afterwards.
TEST_F(MakeDir, Unc) {
  EXPECT_TRUE(FileUtils::MakeDir("UNC/x/"));
  EXPECT_TRUE(IsDirectory("UNC/x"));
  EXPECT_FALSE(FileUtils::MakeDir("UNC/x/"));
}

// ---- failures ----

TEST_F(FileUtilsTest, Silent) {
  CreateDirectories("d");
  directory.Write("empty", "");
  const auto records = tarsio_test::LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  for (const std::string& path :
       {std::string(), std::string("missing/x/"), std::string("d"), std::string("empty"),
        std::string("1:/x/"), std::string("\\\\tarsio.invalid\\share\\x\\"), std::string("/x/"),
        "./" + std::string(1000, 'n'), std::string("\xFF/\xE2")}) {
    SCOPED_TRACE(path);
    EXPECT_NO_THROW({
      EXPECT_NE(ReadFile(path).result, FILE_OPT_SUCCESS);
      EXPECT_NE(FileUtils::WriteFile("x", path, kAppend | kTruncate), FILE_OPT_SUCCESS);
      static_cast<void>(FileUtils::CheckDirOrFileExists(path));
      static_cast<void>(FileUtils::MakeDir(path + "/empty/x/"));
      EXPECT_FALSE(FileUtils::RemoveDir(path + "/missing"));
      EXPECT_FALSE(FileUtils::RemoveFile(path + "/missing"));
    });
  }
  EXPECT_THAT(records->All(), testing::IsEmpty());
}

// ---- threads ----

TEST_F(FileUtilsTest, AnyThread) {
  std::vector<std::thread> threads;
  std::vector<int> wrong(4, 0);
  for (size_t thread = 0; thread < wrong.size(); ++thread) {
    threads.emplace_back([&wrong, thread] {
      const std::string name = "d" + std::to_string(thread);
      for (int i = 0; i < 20; ++i) {
        const std::string written(static_cast<size_t>(i + 1) * 1000, static_cast<char>('a' + i));
        const bool right =
            FileUtils::MakeDir(name + "/") &&
            FileUtils::WriteFile(written, name + "/f", kBinary) == FILE_OPT_SUCCESS &&
            ReadFile(name + "/f") == Content(written) && FileUtils::RemoveFile(name + "/f") &&
            FileUtils::RemoveDir(name);
        if (!right) ++wrong[thread];
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(wrong, testing::Each(0));
}

}  // namespace
