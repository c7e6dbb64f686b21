#include "common/file_utils.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

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
using tarsio_test::kBefore;
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
// ---- helpers ----

// Each test runs in a new, empty directory.
class FileUtilsTest : public testing::Test {
 protected:
  void CreateDirectories(const std::string& name) const {
    std::filesystem::create_directories(directory.Native(name));
  }

  // Returns the bytes of a text file with this content on this system.
  std::string TextForm(const std::string& content) const {
    std::ofstream("text form") << content;
    const std::string form = directory.Read("text form");
    std::filesystem::remove("text form");
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

std::string WithBackslashes(std::string text) {
  std::replace(text.begin(), text.end(), '/', '\\');
  return text;
}

void ExpectOutOfRange(const std::function<void()>& call) {
  try {
    call();
    ADD_FAILURE() << "no exception";
  } catch (const std::out_of_range& e) {
    EXPECT_STREQ(e.what(), "invalid string position");
  }
}

// ---- content ----

TEST_F(FileUtilsTest, BinaryContent) {
  std::vector<std::string> contents = {std::string("\r\n\n\r\0\x1A\n", 7), "\xEF\xBB\xBF"};
  for (const size_t size : {1U, 2U, 4095U, 4096U, 4097U, 65535U, 65536U, 65537U, 5000003U}) {
    contents.push_back(RandomBytes(size, size));
  }
  for (const std::string& content : contents) {
    SCOPED_TRACE(content.size());
    EXPECT_EQ(FileUtils::WriteFile(content, "./f", kBinary), FILE_OPT_SUCCESS);
    EXPECT_TRUE(directory.Read("f") == content);
    EXPECT_EQ(ReadFile("f"), Content(content));
  }
}

// Both "\" and "/" are separators; a leading one does not make a path absolute. Ill-formed UTF-8 is
// replaced.
TEST_F(FileUtilsTest, PathForms) {
  CreateDirectories("d/\xC3\xA9");
  const std::string full = directory.Text("f");
  const std::pair<std::string, std::string> givenAndStored[] = {
      {".\\f", "f"},
      {"/./f/", "f"},
      {"d\\\\//f/", "d/f"},
      {"missing/..\\d/../f", "f"},
      {full, "f"},
      {WithBackslashes(full), "f"},
      {"\\\\?\\" + WithBackslashes(full), "f"},
      {"\\\\?\\d/f", "d/f"},
      {std::string("./f\0ignored", 11), "f"},
      {"d/\xC3\xA9/\xE2\x82\xAC\xF0\x9F\x98\x80", "d/\xC3\xA9/\xE2\x82\xAC\xF0\x9F\x98\x80"},
      {"d/f\xFF\xED\xA0z", "d/f\xEF\xBF\xBD\xEF\xBF\xBDz"},
  };
  for (const auto& [given, stored] : givenAndStored) {
    SCOPED_TRACE(given);
    EXPECT_FALSE(FileUtils::CheckDirOrFileExists(given));
    EXPECT_EQ(FileUtils::WriteFile(given, given, kBinary), FILE_OPT_SUCCESS);
    EXPECT_EQ(directory.Read(stored), given);
    EXPECT_EQ(ReadFile(given), Content(given));
    EXPECT_TRUE(FileUtils::CheckDirOrFileExists(given));
    EXPECT_TRUE(std::filesystem::remove(directory.Native(stored)));
  }
  EXPECT_THAT(directory.Tree(), ElementsAre("d", "d/\xC3\xA9"));
}

TEST_F(FileUtilsTest, AfterNul) {
  const std::string path("a\0/b", 4);
  std::string content = kBefore;
  ExpectOutOfRange([&] { static_cast<void>(FileUtils::GetFileContent(path, content)); });
  EXPECT_EQ(content, kBefore);
  ExpectOutOfRange([&] { static_cast<void>(FileUtils::CheckDirOrFileExists(path)); });
  ExpectOutOfRange([&] { static_cast<void>(FileUtils::WriteFile("x", path, 0)); });
  ExpectOutOfRange([&] { static_cast<void>(FileUtils::MakeDir(path + '/')); });  // second prefix
  EXPECT_THAT(directory.Tree(), ElementsAre("a"));
}

// ---- reading ----
TEST_F(GetFileContent, NotAFile) {
  CreateDirectories("d");
  directory.Write("f", "");
  for (const std::string path : {"", "missing", "missing/f", "d", "d/", "..", "f/below", "C:"}) {
    EXPECT_EQ(ReadFile(path), Failure(FILE_OPT_NOT_FILE)) << path;
  }
  EXPECT_EQ(ReadFile(directory.Text("d")), Failure(FILE_OPT_NOT_FILE));
  EXPECT_EQ(ReadFile("f"), Failure(FILE_OPT_EMPTY_OR_UNREADABLE));
}

// For root, the file is still writable on Linux.
TEST_F(GetFileContent, ReadOnly) {
  using std::filesystem::perms;
  directory.Write("file", "content");
  std::filesystem::permissions(directory.Native("file"), perms::owner_read);
  EXPECT_EQ(ReadFile("file"), Content("content"));
  std::filesystem::permissions(directory.Native("file"), perms::owner_all);
}

TEST_F(GetFileContent, Aliasing) {
  directory.Write("f", "content");
  std::string text = "f";
  EXPECT_EQ(FileUtils::GetFileContent(text, text), FILE_OPT_SUCCESS);
  EXPECT_EQ(text, "content");
}

// ---- writing ----

TEST_F(WriteFile, ArgumentOrder) {
  EXPECT_EQ(FileUtils::WriteFile("./content", "./path", kBinary), FILE_OPT_SUCCESS);
  EXPECT_EQ(directory.Read("path"), "./content");
  EXPECT_THAT(directory.Tree(), ElementsAre("path"));
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

TEST_F(WriteFile, EmptyContent) {
  EXPECT_EQ(FileUtils::WriteFile("", "./new", kBinary), FILE_OPT_SUCCESS);
  directory.Write("old", "content");
  EXPECT_EQ(FileUtils::WriteFile("", "./old", kBinary | kAppend), FILE_OPT_SUCCESS);
  EXPECT_EQ(directory.Read("old"), "content");
  EXPECT_EQ(FileUtils::WriteFile("", "./old", kBinary), FILE_OPT_SUCCESS);
  EXPECT_EQ(directory.Read("old"), "");
  EXPECT_THAT(directory.Tree(), ElementsAre("new", "old"));
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

TEST_F(WriteFile, OtherModeBits) {
  directory.Write("f", "content");
  std::vector<int> modes = {
      -1, INT_MIN, INT_MAX, kBinary | 0x40, kAppend | 0x80, kTruncate | 0x100};
  for (int shift = 6; shift < 31; ++shift) modes.push_back(1 << shift);
  for (const int mode : modes) {
    EXPECT_EQ(FileUtils::WriteFile("x", "./f", mode), FILE_OPT_WRITE_OPEN_FAILED) << mode;
    EXPECT_EQ(FileUtils::WriteFile("x", "./new", mode), FILE_OPT_WRITE_OPEN_FAILED) << mode;
  }
  EXPECT_EQ(directory.Read("f"), "content");
  EXPECT_THAT(directory.Tree(), ElementsAre("f"));
}

TEST_F(WriteFile, Refused) {
  CreateDirectories("d/e");
  directory.Write("f", "content");
  const std::pair<FileOptRet, std::vector<std::string>> rows[] = {
      {FILE_OPT_IS_DIRECTORY, {"d", "d\\", "d/e", ".", "..", "C:\\"}},
      {FILE_OPT_NO_PARENT_DIR, {"missing/out", "d/missing/out", "f/out", directory.Text("f/out")}},
      // The parent of a single relative component is the empty path, which is not a directory.
      {FILE_OPT_NO_PARENT_DIR, {"out", "f", "out/", "\\out", "C:out", "\\\\?\\out"}},
      // The parent of the empty path is "..", which exists, so it is the open that fails.
      {FILE_OPT_WRITE_OPEN_FAILED, {"", "/", "\\\\?\\"}},
  };
  for (const auto& [result, paths] : rows) {
    for (const std::string& path : paths) {
      EXPECT_EQ(FileUtils::WriteFile("x", path, 0), result) << path;
      EXPECT_EQ(FileUtils::WriteFile("x", path, kAppend | kTruncate), result) << path;
    }
  }
  EXPECT_EQ(directory.Read("f"), "content");
  EXPECT_THAT(directory.Tree(), ElementsAre("d", "d/e", "f"));
}

TEST_F(FileUtilsTest, CannotOpen) {
  directory.Write("f", "content");
  Reading reading{};
  FileOptRet written[2];
  {
    const auto none = tarsio_test::NoFreeFileHandles();
    reading = ReadFile("f");
    written[0] = FileUtils::WriteFile("x", "./f", kAppend);
    written[1] = FileUtils::WriteFile("x", ".", 0);
  }
  EXPECT_EQ(reading, Failure(FILE_OPT_EMPTY_OR_UNREADABLE));
  EXPECT_THAT(written, ElementsAre(FILE_OPT_WRITE_OPEN_FAILED, FILE_OPT_IS_DIRECTORY));
  EXPECT_EQ(ReadFile("f"), Content("content"));
}

// There is no check for a regular file (by design).
TEST_F(FileUtilsTest, Device) {
  const bool windows = std::filesystem::path::preferred_separator == '\\';
  const char* const device = windows ? "./NUL" : "C:/dev/null";
  EXPECT_EQ(ReadFile(device), Failure(FILE_OPT_EMPTY_OR_UNREADABLE));
  EXPECT_EQ(FileUtils::WriteFile("x", device, kInput), FILE_OPT_SUCCESS);
  EXPECT_EQ(FileUtils::WriteFile("x", device, kInput | kAtEnd), FILE_OPT_WRITE_OPEN_FAILED);
  EXPECT_EQ(FileUtils::WriteFile("x", device, kAppend | kAtEnd), FILE_OPT_WRITE_OPEN_FAILED);
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

// The reference is the result of the runtime's narrow calls for the same bytes.
TEST_F(FileUtilsTest, Narrow) {
  EXPECT_TRUE(FileUtils::MakeDir("d\xC3\xA9/"));
  std::FILE* const file = std::fopen("d\xC3\xA9/f\xC3\xA9", "w");
  ASSERT_NE(file, nullptr);
  std::fclose(file);
  EXPECT_FALSE(FileUtils::RemoveDir("d\xC3\xA9"));
  EXPECT_TRUE(FileUtils::RemoveFile("d\xC3\xA9/f\xC3\xA9"));
  EXPECT_TRUE(FileUtils::RemoveDir("d\xC3\xA9"));
  EXPECT_THAT(directory.Tree(), ElementsAre());
}

// Also invalid UTF-8, with ".." before or after it.
TEST_F(FileUtilsTest, RawBytes) {
  EXPECT_TRUE(FileUtils::MakeDir("d\xFF/"));
  EXPECT_FALSE(FileUtils::CheckDirOrFileExists("d\xEF\xBF\xBD"));
  EXPECT_TRUE(FileUtils::RemoveDir("\xE9\\../.\\d\xFF"));
  EXPECT_THAT(directory.Tree(), ElementsAre());
}

TEST_F(MakeDir, Colon) {
  // On Windows the colon starts a stream name. Wine creates a directory.
  if (tarsio_test::RunsUnderWine()) GTEST_SKIP() << "Wine treats the colon as part of the name";
  EXPECT_FALSE(FileUtils::MakeDir("ab:/x/"));
  EXPECT_FALSE(FileUtils::MakeDir("\xC3\xA9:/x/"));
  EXPECT_FALSE(FileUtils::MakeDir("a/b:/"));
  EXPECT_THAT(directory.Tree(), ElementsAre("a"));
}

TEST_F(FileUtilsTest, NarrowNul) {
  CreateDirectories("d");
  directory.Write("f", "content");
  EXPECT_TRUE(FileUtils::CheckDirOrFileExists(std::string("f\0x", 3)));
  EXPECT_TRUE(FileUtils::RemoveFile(std::string("f\0x", 3)));
  EXPECT_TRUE(FileUtils::RemoveDir(std::string("d\0x", 3)));
  EXPECT_THAT(directory.Tree(), ElementsAre());
  EXPECT_TRUE(FileUtils::MakeDir(std::string("a\0b/", 4)));
  EXPECT_THAT(directory.Tree(), ElementsAre("a"));
  EXPECT_TRUE(FileUtils::MakeDir(std::string("a\0b/", 4)));  // existing directories are skipped
}

// ---- directories ----

TEST_F(MakeDir, Prefixes) {
  const struct {
    const char* text;
    bool result;
    std::vector<std::string> created;
  } rows[] = {
      {"a/b/c", true, {"a", "a/b"}},  // not the last component
      {"a\\b\\c\\", true, {"a", "a/b", "a/b/c"}},
      {"a//b/", true, {"a", "a/b"}},
      {"a", true, {}},
      {"a/../b/", true, {"a", "b"}},
      {"a b/.c/", true, {"a b", "a b/.c"}},
      {"", false, {}},
      // A single separator tests as missing and cannot be created.
      {"/x/", false, {}},
      {"\\\\?\\x\\", false, {}},
      // Neither can a drive that does not exist.
      {"1:/x/", false, {}},
      {"Q:x/", false, {}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    for (int call = 1; call <= 2; ++call) {  // existing directories are skipped
      EXPECT_EQ(FileUtils::MakeDir(row.text), row.result);
      EXPECT_EQ(directory.Tree(), row.created);
    }
    for (const std::string& name : row.created) std::filesystem::remove_all(name);
  }
}

TEST_F(MakeDir, SkipsDrive) {
  const std::string text = directory.Text("x/y");
  EXPECT_TRUE(FileUtils::MakeDir(text));
  EXPECT_THAT(directory.Tree(), ElementsAre("x"));
  EXPECT_TRUE(FileUtils::MakeDir(WithBackslashes(text + '/')));
  EXPECT_THAT(directory.Tree(), ElementsAre("x", "x/y"));
}

TEST_F(MakeDir, SkipsFile) {
  directory.Write("f", "content");
  EXPECT_TRUE(FileUtils::MakeDir("f/"));
  EXPECT_TRUE(FileUtils::MakeDir("f/x"));
  EXPECT_FALSE(FileUtils::MakeDir("f/x/"));  // but nothing can be created below it
  EXPECT_EQ(directory.Read("f"), "content");
  EXPECT_THAT(directory.Tree(), ElementsAre("f"));
  EXPECT_TRUE(FileUtils::MakeDir("f/../b/"));  // ".." is resolved without looking at "f"
  EXPECT_THAT(directory.Tree(), ElementsAre("b", "f"));
}

TEST_F(MakeDir, KeepsParents) {
  EXPECT_FALSE(FileUtils::MakeDir("a/b/" + std::string(300, 'n') + "/c/"));
  EXPECT_THAT(directory.Tree(), ElementsAre("a", "a/b"));
}

TEST_F(RemoveDir, EmptyOnly) {
  CreateDirectories("a/b");
  directory.Write("a/f", "content");
  for (const char* text : {"a", "a/f", "missing", "a/missing", "a/f/x", ""}) {
    EXPECT_FALSE(FileUtils::RemoveDir(text)) << text;
  }
  EXPECT_THAT(directory.Tree(), ElementsAre("a", "a/b", "a/f"));
  for (const std::string& text : {std::string("a\\b"), directory.Text("a/b"), std::string("a/b/."),
                                  std::string("missing/../a/b"), std::string("a\\f\\..\\b\\")}) {
    EXPECT_TRUE(FileUtils::RemoveDir(text)) << text;
    EXPECT_THAT(directory.Tree(), ElementsAre("a", "a/f"));
    CreateDirectories("a/b");
  }
}

TEST_F(RemoveFile, Directory) {
  CreateDirectories("d/e");
  directory.Write("d/f", "");
  for (const char* text : {"d", "d/e", ".", "missing", "d/missing", "d/f/x", ""}) {
    EXPECT_FALSE(FileUtils::RemoveFile(text)) << text;
  }
  EXPECT_THAT(directory.Tree(), ElementsAre("d", "d/e", "d/f"));
  const std::string full = directory.Text("d/f");
  for (const std::string& text :
       {std::string("d\\f"), full, std::string("d/f/."), std::string("missing\\.\\..\\d\\f"),
        directory.Text("missing/../d/f"), "\\\\?\\" + WithBackslashes(full)}) {
    EXPECT_TRUE(FileUtils::RemoveFile(text)) << text;
    EXPECT_THAT(directory.Tree(), ElementsAre("d", "d/e"));
    directory.Write("d/f", "content");
  }
}

// After the long prefix the name is literal and begins with a drive; a trailing separator means a
// directory.
TEST_F(RemoveFile, InvalidName) {
  CreateDirectories("d");
  directory.Write("f", "content");
  const std::string root = WithBackslashes("//?/" + directory.Text());
  for (const std::string& text :
       {root + "\\.\\f", root + "\\d\\..\\f", root + "/f", std::string("\\\\?\\f"),
        std::string("\\\\?\\"), std::string("\\\\?\\1/f"), std::string("\\\\?\\C:f"),
        std::string("f/"), std::string("f/./"), std::string("C:\\..\\")}) {
    EXPECT_FALSE(FileUtils::RemoveFile(text)) << text;
  }
  EXPECT_EQ(directory.Read("f"), "content");
}

TEST_F(CheckDirOrFileExists, Kind) {
  CreateDirectories("d");
  directory.Write("d/f", "");
  const std::string full = directory.Text("d/f");
  for (const std::string& text : {std::string("d/"), std::string("missing/../d/f"),
                                  std::string("d/f/.."), std::string("\\d\\f"), std::string(".."),
                                  std::string("C:"), std::string("C:\\"), full, "\\\\?\\" + full}) {
    EXPECT_TRUE(FileUtils::CheckDirOrFileExists(text)) << text;
  }
  for (const char* const text : {"", "/", "missing", "d/missing", "d/f/x", "1:", "\xC3\xA9:"}) {
    EXPECT_FALSE(FileUtils::CheckDirOrFileExists(text)) << text;
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
  EXPECT_THAT(directory.Tree(), ElementsAre("UNC", "UNC/x"));
  EXPECT_FALSE(FileUtils::MakeDir("UNC/x/"));
}

// ---- failures ----

TEST_F(FileUtilsTest, Silent) {
  CreateDirectories("d");
  directory.Write("empty", "");
  const auto records = tarsio_test::LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  for (const std::string& path :
       {std::string(), std::string("missing/x/"), std::string("d"), std::string("empty"),
        std::string("\\\\tarsio.invalid\\share\\x\\"), std::string("/x/"),
        "./" + std::string(1000, 'n'), std::string("\xFF/\xE2")}) {
    SCOPED_TRACE(path);
    EXPECT_NE(ReadFile(path).result, FILE_OPT_SUCCESS);
    EXPECT_NE(FileUtils::WriteFile("x", path, kAppend | kTruncate), FILE_OPT_SUCCESS);
    static_cast<void>(FileUtils::CheckDirOrFileExists(path));
    static_cast<void>(FileUtils::MakeDir(path + "/empty/x/"));
    EXPECT_FALSE(FileUtils::RemoveDir(path + "/missing"));
    EXPECT_FALSE(FileUtils::RemoveFile(path + "/missing"));
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
