// Files under difficult conditions: full disks, missing permissions, names and paths that are too
// long. file_utils_platform_test changes files while they are read.

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "common/file_utils.h"
#include "common/path.h"
#include "support/file_obstacles.h"
#include "support/file_reading.h"
#include "support/native_name.h"
#include "support/scoped_directory.h"

namespace {

using tarsio::FILE_OPT_EMPTY_OR_UNREADABLE;
using tarsio::FILE_OPT_NO_PARENT_DIR;
using tarsio::FILE_OPT_NOT_FILE;
using tarsio::FILE_OPT_SUCCESS;
using tarsio::FILE_OPT_WRITE_OPEN_FAILED;
using tarsio::FileOptRet;
using tarsio::FileUtils;
using tarsio::MakeDir;
using tarsio::MakeDirs;
using tarsio::Path;
using tarsio_test::Content;
using tarsio_test::Failure;
using tarsio_test::NativeName;
using tarsio_test::ReadFile;
using tarsio_test::ScopedDirectory;

constexpr int kAppend = 0x08;
constexpr int kBinary = 0x20;

// Each test runs in a new, empty directory.
class FileFaults : public testing::Test {
 protected:
  const ScopedDirectory directory;
};

// ---- a full disk ----

TEST_F(FileFaults, DiskFull) {
  constexpr size_t kRoom = 100000;
  const std::string content(kRoom + 12345, 'x');
  FileOptRet result = FILE_OPT_WRITE_OPEN_FAILED;
  FileOptRet appended = FILE_OPT_WRITE_OPEN_FAILED;
  {
    const auto limit = tarsio_test::FileSizeLimit(kRoom);
    result = FileUtils::WriteFile(content, "./f", kBinary);
    appended = FileUtils::WriteFile("more", "./f", kBinary | kAppend);
  }
  EXPECT_EQ(result, FILE_OPT_SUCCESS);  // write errors are not detected
  EXPECT_EQ(appended, FILE_OPT_SUCCESS);
  const size_t stored = tarsio_test::kFileSizesCanBeLimited ? kRoom : content.size() + 4;
  EXPECT_TRUE(directory.Read("f") == (content + "more").substr(0, stored));
  EXPECT_EQ(FileUtils::WriteFile(content, "./f", kBinary), FILE_OPT_SUCCESS);
  EXPECT_TRUE(directory.Read("f") == content);
}

// ---- permissions ----

// The input bit requires read permission, as for a stream.
TEST_F(FileFaults, NoPermission) {
  directory.Write("f", "stored");
  for (const bool writable : {false, true}) {
    SCOPED_TRACE(writable);
    const auto forbidden = tarsio_test::ForbiddenFile("f", writable);
    EXPECT_EQ(ReadFile("f"), Failure(FILE_OPT_EMPTY_OR_UNREADABLE));
    EXPECT_TRUE(FileUtils::CheckDirOrFileExists("f"));
    EXPECT_TRUE(Path("f").IsFile());
    EXPECT_EQ(Path("f").FileSize(), 6U);
    for (const int mode : {0x01, 0x05, 0x09, 0x11, 0x21, 0x00, 0x04, 0x10}) {
      if (writable && mode % 2 == 0) continue;
      EXPECT_EQ(FileUtils::WriteFile("new", "./f", mode), FILE_OPT_WRITE_OPEN_FAILED) << mode;
    }
    EXPECT_EQ(FileUtils::WriteFile(" more", "./f", kAppend | kBinary),
              writable ? FILE_OPT_SUCCESS : FILE_OPT_WRITE_OPEN_FAILED);
  }
  EXPECT_EQ(ReadFile("f"), Content("stored more"));
}

// Whether the process may create files in the directory; some users, such as root, always may.
bool MayCreateIn(const std::string& name) {
  const std::filesystem::path probe = std::filesystem::path(name) / "probe";
  const bool created = std::ofstream(probe).is_open();
  if (created) std::filesystem::remove(probe);
  return created;
}

// If the system does not enforce the permissions, every call succeeds.
TEST_F(FileFaults, ForbiddenDir) {
  for (const bool readable : {true, false}) {
    SCOPED_TRACE(readable);
    const std::string d = readable ? "readable" : "closed";
    std::filesystem::create_directories(d + "/below");
    directory.Write(d + "/f", "stored");
    bool allowed = false;
    {
      const auto forbidden = tarsio_test::ForbiddenDirectory(d, readable);
      allowed = MayCreateIn(d);
      const bool seen = readable || allowed;
      EXPECT_EQ(ReadFile(d + "/f"), seen ? Content("stored") : Failure(FILE_OPT_NOT_FILE));
      EXPECT_EQ(FileUtils::CheckDirOrFileExists(d + "/f"), seen);
      EXPECT_EQ(Path(d + "/f").Exists(), seen);
      EXPECT_EQ(Path(d + "/f").IsFile(), seen);
      EXPECT_EQ(Path(d + "/f").FileSize(), seen ? 6U : 0U);
      EXPECT_EQ(Path(d + "/below").IsDirectory(), seen);
      EXPECT_TRUE(Path(d).IsDirectory());
      EXPECT_EQ(FileUtils::WriteFile("x", d + "/new.txt", kBinary),
                allowed ? FILE_OPT_SUCCESS : FILE_OPT_WRITE_OPEN_FAILED);
      if (!seen) {
        EXPECT_EQ(FileUtils::WriteFile("x", d + "/below/f", kBinary), FILE_OPT_NO_PARENT_DIR);
        EXPECT_FALSE(MakeDirs(d + "/below/new"));
        EXPECT_FALSE(FileUtils::RemoveFile(d + "/below/f"));
      }
      EXPECT_EQ(MakeDir(d + "/new"), allowed);
      EXPECT_EQ(MakeDirs(d + "/newer/and/more"), allowed);
      EXPECT_EQ(FileUtils::MakeDir(d + "/newest/"), allowed);
      EXPECT_EQ(FileUtils::RemoveFile(d + "/f"), allowed);
      EXPECT_EQ(FileUtils::RemoveDir(d + "/below"), allowed);
    }
    for (const char* made : {"/new.txt", "/new", "/newer/and/more", "/newest"}) {
      EXPECT_EQ(std::filesystem::exists(directory.Native(d + made)), allowed) << made;
    }
    for (const char* removed : {"/f", "/below"}) {
      EXPECT_EQ(std::filesystem::exists(directory.Native(d + removed)), !allowed) << removed;
    }
  }
}

// ---- names ----

TEST_F(FileFaults, LongestName) {
  for (const size_t length : {size_t{254}, size_t{255}, size_t{256}, size_t{1000}}) {
    SCOPED_TRACE(length);
    const bool fits = length <= 255;
    const std::string name = "./" + std::string(length, 'n');
    EXPECT_EQ(FileUtils::WriteFile("content", name, kBinary),
              fits ? FILE_OPT_SUCCESS : FILE_OPT_WRITE_OPEN_FAILED);
    EXPECT_EQ(ReadFile(name), fits ? Content("content") : Failure(FILE_OPT_NOT_FILE));
    EXPECT_EQ(Path(name).FileSize(), fits ? 7U : 0U);
    EXPECT_EQ(FileUtils::RemoveFile(name), fits);
    EXPECT_EQ(MakeDir(name), fits);
    EXPECT_EQ(FileUtils::CheckDirOrFileExists(name), fits);
    EXPECT_EQ(FileUtils::RemoveDir(name), fits);
    EXPECT_EQ(FileUtils::MakeDir(name + "/"), fits);
    EXPECT_EQ(FileUtils::RemoveDir(name), fits);
    if (!fits) continue;  // Wine truncates a name that is too long and succeeds
    EXPECT_TRUE(MakeDirs(name));
    EXPECT_TRUE(FileUtils::RemoveDir(name));
  }
  EXPECT_TRUE(directory.Tree().empty());
}

// For each ASCII character: a name with it works, or is refused and creates nothing.
TEST_F(FileFaults, Characters) {
  const std::string everywhere =
      " !#$%&'()+,-.0123456789;=@ABCDEFGHIJKLMNOPQRSTUVWXYZ[]^_`abcdefghijklmnopqrstuvwxyz{}~";
  for (char c = 1; c < 0x7F; ++c) {
    if (c == '/' || c == '\\') continue;
    SCOPED_TRACE(static_cast<int>(c));
    const std::string name = std::string("./na") + c + "me";
    const FileOptRet written = FileUtils::WriteFile("content", name, kBinary);
    if (everywhere.find(c) != std::string::npos) {
      EXPECT_EQ(written, FILE_OPT_SUCCESS);
    }
    if (written == FILE_OPT_SUCCESS) {
      EXPECT_EQ(ReadFile(name), Content("content"));
      EXPECT_TRUE(FileUtils::CheckDirOrFileExists(name));
      EXPECT_TRUE(FileUtils::RemoveFile(name));
    } else {
      EXPECT_EQ(written, FILE_OPT_WRITE_OPEN_FAILED);
      EXPECT_EQ(ReadFile(name), Failure(FILE_OPT_NOT_FILE));
    }
    EXPECT_FALSE(FileUtils::CheckDirOrFileExists(name));
    if (MakeDir(name)) {
      EXPECT_TRUE(FileUtils::RemoveDir(name));
    }
    EXPECT_TRUE(directory.Tree().empty());
  }
}

// ---- long paths ----

// Tries the library's narrow calls, which are limited to 259 characters on Windows, and otherwise
// removes the object without them.
void ExpectRemoved(const Path& path, const std::string& form, bool (*remove)(const std::string&)) {
  const bool removed = remove(form);
  EXPECT_TRUE(removed || form.size() >= 260);
  EXPECT_TRUE(removed || std::filesystem::remove(NativeName(path))) << form;
  EXPECT_FALSE(path.Exists());
}

TEST_F(FileFaults, LongPaths) {
  const std::string root = directory.Text();
  for (const size_t length : {size_t{259}, size_t{260}, size_t{1000}, size_t{3900}}) {
    SCOPED_TRACE(length);
    std::vector<Path> levels = {Path(root)};
    size_t left = length - root.size();
    for (; left > 110; left -= 100) levels.push_back(levels.back() / std::string(99, 'd'));
    const Path file = levels.back() / std::string(left - 1, 'f');
    levels.erase(levels.begin());
    for (const Path& level : levels) ASSERT_TRUE(MakeDir(level)) << level;
    const std::string text = file.Str();
    const bool prefixed = length >= 260;
    ASSERT_EQ(text.size(), length + (prefixed ? 4 : 0));
    EXPECT_EQ(text.compare(0, 4, R"(\\?\)") == 0, prefixed);
    const std::string unprefixed = text.substr(prefixed ? 4 : 0);

    for (const std::string& form : {text, unprefixed}) {
      EXPECT_EQ(FileUtils::WriteFile("content", form, kBinary), FILE_OPT_SUCCESS);
      EXPECT_EQ(ReadFile(form), Content("content"));
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
    EXPECT_TRUE(directory.Tree().empty());
  }
}

}  // namespace
