// Files on a system that fails: full disks, forbidden directories, names and paths that are too
// long, files that change while they are read.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "common/file_utils.h"
#include "common/path.h"
#include "support/file_obstacles.h"
#include "support/native_name.h"
#include "support/scoped_directory.h"

namespace {

using tarsio::FILE_OPT_EMPTY_OR_UNREADABLE;
using tarsio::FILE_OPT_NO_PARENT_DIR;
using tarsio::FILE_OPT_NOT_FILE;
using tarsio::FILE_OPT_SIZE_MISMATCH;
using tarsio::FILE_OPT_SUCCESS;
using tarsio::FILE_OPT_WRITE_OPEN_FAILED;
using tarsio::FileOptRet;
using tarsio::FileUtils;
using tarsio::MakeDir;
using tarsio::MakeDirs;
using tarsio::Path;
using tarsio_test::FileSizeLimit;
using tarsio_test::ForbiddenDirectory;
using tarsio_test::ForbiddenFile;
using tarsio_test::NativeName;
using tarsio_test::ScopedDirectory;

constexpr int kAppend = 0x08;
constexpr int kBinary = 0x20;
constexpr char kBefore[] = "as it was";

// Each test works in an empty directory of its own.
class FileFaults : public testing::Test {
 protected:
  bool IsEmptyDirectory() const { return std::filesystem::is_empty(directory.Native("")); }

  const ScopedDirectory directory;
};

// ---- a full disk ----

TEST_F(FileFaults, FileThatOutgrowsTheDiskIsWrittenAsFarAsItGoes) {
  constexpr size_t kRoom = 100000;
  const std::string content(kRoom + 12345, 'x');
  FileOptRet result = FILE_OPT_WRITE_OPEN_FAILED;
  FileOptRet appended = FILE_OPT_WRITE_OPEN_FAILED;
  uint64_t room = 0;
  {
    const FileSizeLimit limit(kRoom);
    room = limit.Bytes();
    result = FileUtils::WriteFile(content, "./f", kBinary);
    appended = FileUtils::WriteFile("more", "./f", kBinary | kAppend);
  }
  EXPECT_EQ(result, FILE_OPT_SUCCESS);  // errors while writing are not detected
  EXPECT_EQ(appended, FILE_OPT_SUCCESS);
  EXPECT_TRUE(directory.Read("f") == (content + "more").substr(0, room));
  EXPECT_EQ(FileUtils::WriteFile(content, "./f", kBinary), FILE_OPT_SUCCESS);
  EXPECT_TRUE(directory.Read("f") == content);
}

// ---- what is forbidden ----

TEST_F(FileFaults, FileWithoutPermissionIsUnreadableAndStaysAsItIs) {
  directory.Write("f", "stored");
  std::string content = kBefore;
  {
    const ForbiddenFile forbidden("f");
    EXPECT_EQ(FileUtils::GetFileContent("f", content), FILE_OPT_EMPTY_OR_UNREADABLE);
    for (const int mode : {0x00, 0x01, 0x04, 0x08, 0x10, 0x21}) {
      EXPECT_EQ(FileUtils::WriteFile("new", "./f", mode), FILE_OPT_WRITE_OPEN_FAILED);
    }
    EXPECT_TRUE(FileUtils::CheckDirOrFileExists("f"));
    EXPECT_TRUE(Path("f").IsFile());
    EXPECT_EQ(Path("f").FileSize(), 6U);
  }
  EXPECT_EQ(content, kBefore);
  EXPECT_EQ(FileUtils::GetFileContent("f", content), FILE_OPT_SUCCESS);
  EXPECT_EQ(content, "stored");
}

TEST_F(FileFaults, NothingIsMadeOrRemovedInADirectoryThatMayOnlyBeRead) {
  if (!tarsio_test::kDirectoriesCanBeForbidden) GTEST_SKIP() << "not enforced here";
  std::filesystem::create_directories("d/below");
  directory.Write("d/f", "stored");
  const ForbiddenDirectory forbidden("d", true);
  std::string content;
  EXPECT_EQ(FileUtils::GetFileContent("d/f", content), FILE_OPT_SUCCESS);
  EXPECT_EQ(content, "stored");
  EXPECT_EQ(FileUtils::WriteFile("x", "d/new", 0), FILE_OPT_WRITE_OPEN_FAILED);
  EXPECT_FALSE(MakeDir("d/new"));
  EXPECT_FALSE(MakeDirs("d/new/and/more"));
  EXPECT_FALSE(FileUtils::MakeDir("d/new/"));
  EXPECT_FALSE(FileUtils::RemoveFile("d/f"));
  EXPECT_FALSE(FileUtils::RemoveDir("d/below"));
}

TEST_F(FileFaults, NothingIsFoundInADirectoryWithoutPermission) {
  if (!tarsio_test::kDirectoriesCanBeForbidden) GTEST_SKIP() << "not enforced here";
  std::filesystem::create_directories("d/below");
  directory.Write("d/f", "stored");
  const ForbiddenDirectory forbidden("d", false);
  std::string content = kBefore;
  EXPECT_EQ(FileUtils::GetFileContent("d/f", content), FILE_OPT_NOT_FILE);
  EXPECT_EQ(content, kBefore);
  EXPECT_EQ(FileUtils::WriteFile("x", "d/f", 0), FILE_OPT_WRITE_OPEN_FAILED);
  EXPECT_EQ(FileUtils::WriteFile("x", "d/below/f", 0), FILE_OPT_NO_PARENT_DIR);
  EXPECT_FALSE(FileUtils::CheckDirOrFileExists("d/f"));
  EXPECT_FALSE(Path("d/f").Exists());
  EXPECT_FALSE(Path("d/below").IsDirectory());
  EXPECT_EQ(Path("d/f").FileSize(), 0U);
  EXPECT_TRUE(Path("d").IsDirectory());
  EXPECT_FALSE(MakeDir("d/new"));
  EXPECT_FALSE(MakeDirs("d/below/new"));
  EXPECT_FALSE(FileUtils::MakeDir("d/below/new/"));
  EXPECT_FALSE(FileUtils::RemoveFile("d/f"));
}

// ---- names ----

TEST_F(FileFaults, NameOf255BytesIsTheLongest) {
  for (const size_t length : {size_t{254}, size_t{255}, size_t{256}, size_t{1000}}) {
    SCOPED_TRACE(length);
    const bool fits = length <= 255;
    const std::string name = "./" + std::string(length, 'n');
    std::string content = kBefore;
    EXPECT_EQ(FileUtils::WriteFile("content", name, kBinary),
              fits ? FILE_OPT_SUCCESS : FILE_OPT_WRITE_OPEN_FAILED);
    EXPECT_EQ(FileUtils::GetFileContent(name, content),
              fits ? FILE_OPT_SUCCESS : FILE_OPT_NOT_FILE);
    EXPECT_EQ(content, fits ? "content" : kBefore);
    EXPECT_EQ(Path(name).FileSize(), fits ? 7U : 0U);
    EXPECT_EQ(FileUtils::RemoveFile(name), fits);
    EXPECT_EQ(MakeDir(name), fits);
    EXPECT_EQ(FileUtils::CheckDirOrFileExists(name), fits);
    EXPECT_EQ(FileUtils::RemoveDir(name), fits);
    EXPECT_EQ(FileUtils::MakeDir(name + "/"), fits);
    EXPECT_EQ(FileUtils::RemoveDir(name), fits);
    if (!fits) continue;  // Wine's recursive creation cuts what is too long, and succeeds
    EXPECT_TRUE(MakeDirs(name));
    EXPECT_TRUE(FileUtils::RemoveDir(name));
  }
  EXPECT_TRUE(IsEmptyDirectory());
}

// A name with each ASCII character works, or is refused and nothing is there.
TEST_F(FileFaults, EveryCharacterOfANameIsTakenOrRefused) {
  const std::string everywhere =
      " !#$%&'()+,-.0123456789;=@ABCDEFGHIJKLMNOPQRSTUVWXYZ[]^_`abcdefghijklmnopqrstuvwxyz{}~";
  for (char c = 1; c < 0x7F; ++c) {
    if (c == '/' || c == '\\') continue;
    SCOPED_TRACE(static_cast<int>(c));
    const std::string name = std::string("./na") + c + "me";
    std::string content = kBefore;
    const FileOptRet written = FileUtils::WriteFile("content", name, kBinary);
    if (everywhere.find(c) != std::string::npos) {
      EXPECT_EQ(written, FILE_OPT_SUCCESS);
    }
    const FileOptRet read = FileUtils::GetFileContent(name, content);
    if (written == FILE_OPT_SUCCESS) {
      EXPECT_EQ(read, FILE_OPT_SUCCESS);
      EXPECT_EQ(content, "content");
      EXPECT_TRUE(FileUtils::CheckDirOrFileExists(name));
      EXPECT_TRUE(FileUtils::RemoveFile(name));
    } else {
      EXPECT_EQ(written, FILE_OPT_WRITE_OPEN_FAILED);
      EXPECT_EQ(read, FILE_OPT_NOT_FILE);
      EXPECT_EQ(content, kBefore);
    }
    EXPECT_FALSE(FileUtils::CheckDirOrFileExists(name));
    if (MakeDir(name)) {
      EXPECT_TRUE(FileUtils::RemoveDir(name));
    }
    EXPECT_TRUE(IsEmptyDirectory());
  }
}

TEST_F(FileFaults, BadUtf8InANameStandsForReplacementCharacters) {
  const std::string bad = "\xEF\xBF\xBD";
  const struct {
    std::string given;
    std::string stored;
  } rows[] = {{"a\x80z", "a" + bad + "z"},
              {"a\xC0\x80z", "a" + bad + bad + "z"},
              {"a\xED\xA0\x80z", "a" + bad + bad + "z"},
              {"a\xF4\x90\x80\x80z", "a" + bad + bad + bad + "z"},
              {"a\xFF\xFEz", "a" + bad + bad + "z"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.stored);
    std::string content;
    EXPECT_EQ(FileUtils::WriteFile("content", "./" + row.given, kBinary), FILE_OPT_SUCCESS);
    EXPECT_EQ(directory.Read(row.stored), "content");
    EXPECT_EQ(FileUtils::GetFileContent(row.given, content), FILE_OPT_SUCCESS);
    EXPECT_EQ(content, "content");
    EXPECT_TRUE(std::filesystem::remove(directory.Native(row.stored)));
    EXPECT_FALSE(FileUtils::CheckDirOrFileExists(row.given));
    EXPECT_TRUE(MakeDir("./" + row.given));
    EXPECT_TRUE(std::filesystem::remove(directory.Native(row.stored)));
  }
  EXPECT_TRUE(IsEmptyDirectory());
}

// ---- long paths ----

// The directories below the current one by which a name in the last has a path of `length` bytes,
// without a prefix.
std::vector<Path> LevelsFor(size_t length, const std::string& root) {
  constexpr size_t kNames = 100;
  std::vector<Path> levels;
  std::string text = root;
  while (length - text.size() > kNames + 10) {
    text += '/' + std::string(kNames - 1, 'd');
    levels.emplace_back(text);
  }
  return levels;
}

// By the library's narrow calls, whose texts end at 259 characters on Windows, or else past it.
void ExpectRemoved(const Path& path, const std::string& form, bool (*remove)(const std::string&)) {
  const bool removed = remove(form);
  EXPECT_TRUE(removed || form.size() >= 260);
  EXPECT_TRUE(removed || std::filesystem::remove(NativeName(path))) << form;
  EXPECT_FALSE(path.Exists());
}

TEST_F(FileFaults, LongPathsAreCreatedWrittenReadMeasuredAndRemoved) {
  std::string root = directory.Text("");
  while (root.back() == '/') root.pop_back();
  for (const size_t length : {size_t{259}, size_t{260}, size_t{1000}, size_t{3900}}) {
    SCOPED_TRACE(length);
    const std::vector<Path> levels = LevelsFor(length, root);
    for (const Path& level : levels) ASSERT_TRUE(MakeDir(level)) << level;
    const Path last = levels.empty() ? Path(root) : levels.back();
    const size_t lastLength = root.size() + 100 * levels.size();
    const Path file = last / std::string(length - lastLength - 1, 'f');
    const std::string text = file.Str();
    const bool prefixed = length >= 260;
    ASSERT_EQ(text.size(), length + (prefixed ? 4 : 0));
    EXPECT_EQ(text.compare(0, 4, R"(\\?\)") == 0, prefixed);
    const std::string unprefixed = text.substr(prefixed ? 4 : 0);

    for (const std::string& form : {text, unprefixed}) {
      std::string content;
      EXPECT_EQ(FileUtils::WriteFile("content", form, kBinary), FILE_OPT_SUCCESS);
      EXPECT_EQ(FileUtils::GetFileContent(form, content), FILE_OPT_SUCCESS);
      EXPECT_EQ(content, "content");
      EXPECT_TRUE(FileUtils::CheckDirOrFileExists(form));
      EXPECT_EQ(Path(form).FileSize(), 7U);
      EXPECT_EQ(Path(form).Absolute().Str(), text);
      ExpectRemoved(file, form, &FileUtils::RemoveFile);
    }
    EXPECT_TRUE(MakeDir(file));
    EXPECT_TRUE(file.IsDirectory());
    ExpectRemoved(file, text, &FileUtils::RemoveDir);
    for (auto level = levels.rbegin(); level != levels.rend(); ++level) {
      ExpectRemoved(*level, level->Str(), &FileUtils::RemoveDir);
    }
    EXPECT_TRUE(IsEmptyDirectory());
  }
}

// ---- files that change meanwhile ----

TEST_F(FileFaults, FileThatComesGoesAndChangesIsReadAtASizeThatItHad) {
  constexpr int kRounds = 1500;
  constexpr int kSuccesses = 200;
  constexpr size_t kLargest = 60000;
  std::atomic<bool> stop{false};
  std::thread writer([&stop] {
    for (unsigned i = 0; !stop; ++i) {
      const size_t size = i % 3 == 0 ? kLargest : i % 3 == 1 ? 1000 : 1;
      FileUtils::WriteFile(std::string(size, 'x'), "./f", kBinary);
      if (i % 5 == 0) FileUtils::WriteFile(std::string(500, 'x'), "./f", kBinary | kAppend);
      if (i % 4 == 0) FileUtils::RemoveFile("f");
    }
  });
  const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  std::vector<int> results(7);
  int rounds = 0;
  while ((rounds < kRounds || results[FILE_OPT_SUCCESS] < kSuccesses) &&
         std::chrono::steady_clock::now() < giveUp) {
    ++rounds;
    std::string content = kBefore;
    const FileOptRet result = FileUtils::GetFileContent("./f", content);
    ++results[static_cast<size_t>(result)];
    if (result == FILE_OPT_SUCCESS) {
      EXPECT_GE(content.size(), 1U);
      EXPECT_LE(content.size(), kLargest + 500);
      EXPECT_EQ(content.find_first_not_of('x'), std::string::npos);
    } else {
      EXPECT_EQ(content, result == FILE_OPT_SIZE_MISMATCH ? "" : kBefore);
    }
  }
  stop = true;
  writer.join();
  EXPECT_GE(results[FILE_OPT_SUCCESS], kSuccesses);
  EXPECT_EQ(results[FILE_OPT_SUCCESS] + results[FILE_OPT_NOT_FILE] +
                results[FILE_OPT_EMPTY_OR_UNREADABLE] + results[FILE_OPT_SIZE_MISMATCH],
            rounds);
}

}  // namespace
