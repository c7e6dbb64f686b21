// What paths pass to the operating system, and how they use its results. The library's source is
// compiled into this program with a fake platform.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "common/path.h"
#include "platform/platform.h"
#include "support/private_member.h"

namespace tarsio_test {

EXPOSE_PRIVATE(MaxPath, &tarsio::Path::MAX_PATH_WINDOWS);
EXPOSE_PRIVATE(MaxPathLegacy, &tarsio::Path::MAX_PATH_WINDOWS_LEGACY);
EXPOSE_PRIVATE(SmbOffset, &tarsio::Path::WIN_SMB_PATH_OFFSET);

}  // namespace tarsio_test

namespace {

using tarsio::MakeDir;
using tarsio::MakeDirs;
using tarsio::Path;
using tarsio::platform::FileType;
using testing::_;
using testing::ElementsAre;
using testing::InSequence;
using testing::IsEmpty;
using testing::Return;
using testing::StrictMock;

// The documented size of the buffers.
constexpr size_t kCapacity = 32767;
constexpr auto kNoType = static_cast<Path::PathType>(7);

class Platform {
 public:
  MOCK_METHOD(std::wstring, FullPath, (const std::wstring& path, size_t capacity));
  MOCK_METHOD(std::wstring, CurrentDirectory, (size_t capacity));
  MOCK_METHOD(FileType, TypeOf, (const std::wstring& path));
  MOCK_METHOD(uint64_t, SizeOf, (const std::wstring& path));
  MOCK_METHOD(bool, CreateOneDirectory, (const std::wstring& path));
  MOCK_METHOD(bool, CreateDirectories, (const std::wstring& path));

  // The fake conversions record their arguments and map ASCII to itself.
  std::vector<std::string> widened;
  std::vector<std::wstring> narrowed;
};

Platform* current = nullptr;

std::wstring Wide(const std::string& ascii) { return {ascii.begin(), ascii.end()}; }

}  // namespace

namespace tarsio {
namespace platform {

std::wstring Widen(const std::string& utf8) {
  current->widened.push_back(utf8);
  return Wide(utf8);
}

std::string Narrow(const std::wstring& utf16) {
  current->narrowed.push_back(utf16);
  std::string text;
  for (const wchar_t unit : utf16) text += static_cast<char>(unit);
  return text;
}

std::wstring FullPath(const std::wstring& path, size_t capacity) {
  return current->FullPath(path, capacity);
}
std::wstring CurrentDirectory(size_t capacity) { return current->CurrentDirectory(capacity); }
FileType TypeOf(const std::wstring& path) { return current->TypeOf(path); }
uint64_t SizeOf(const std::wstring& path) { return current->SizeOf(path); }
bool CreateOneDirectory(const std::wstring& path) { return current->CreateOneDirectory(path); }
bool CreateDirectories(const std::wstring& path) { return current->CreateDirectories(path); }

}  // namespace platform
}  // namespace tarsio

namespace {

// Unexpected calls fail the test.
class PathOs : public testing::Test {
 protected:
  PathOs() { current = &platform; }
  ~PathOs() override { current = nullptr; }

  StrictMock<Platform> platform;
};

Path Parsed(const std::string& text, Path::PathType type) {
  Path path;
  path.Set(text, type);
  return path;
}

const std::string kName300(300, 'x');

// A path and the string that is passed to the system.
struct Row {
  Path path;
  std::string text;
};

std::vector<Row> Rows() {
  Path shareFlagged(R"(\\srv\share)");
  shareFlagged.Set("/usr/" + kName300, kNoType);
  const std::string longest = R"(C:\)" + std::string(256, 'x');  // 259 bytes
  const std::string longestShare = R"(\\s\)" + std::string(255, 'x');
  return {
      {"", ""},
      {"a", "a"},
      {"a//b/", R"(a\b)"},
      {".", "."},
      {R"(..\a. )", R"(..\a. )"},
      {"/a", "a"},
      {"C:", "C:"},
      {"C:a", "C:a"},
      {R"(C:\)", "C:"},
      {"c:/a/../b", R"(c:\a\..\b)"},
      {R"(\\?\C:\a)", R"(C:\a)"},
      {R"(\\srv/share/f)", R"(\\srv\share\f)"},
      {R"(\\?\UNC\srv\share)", R"(\\srv\share)"},
      {R"(UNC\srv\f)", R"(\\srv\f)"},
      {R"(\\srv)", "srv"},
      {Path(R"(C:\)").ParentPath(), ""},
      {Parsed("/usr/lib", Path::POSIX_PATH), R"(/usr\lib)"},
      {Parsed("/", Path::POSIX_PATH), "/"},
      {Parsed(R"(a\b/c)", Path::POSIX_PATH), R"(a\b\c)"},
      {Parsed("/usr/lib", kNoType), R"(usr\lib)"},
      {longest, longest},
      {longest + "x", R"(\\?\)" + longest + "x"},
      {R"(\\?\)" + longest, longest},
      {longestShare, longestShare},
      {longestShare + "x", R"(\\?\UNC\s\)" + std::string(256, 'x')},
      {R"(C:\a/)" + kName300, R"(\\?\C:\a\)" + kName300},
      {R"(C:\..\)" + kName300, R"(\\?\C:\..\)" + kName300},
      {R"(\\srv\share\)" + kName300, R"(\\?\UNC\srv\share\)" + kName300},
      {kName300 + "/a", kName300 + R"(\a)"},
      {Parsed("/" + kName300, Path::POSIX_PATH), "/" + kName300},
      {Parsed("/usr/" + kName300, kNoType), R"(\\?\usr\)" + kName300},
      {shareFlagged, R"(\\?\UNC\usr\)" + kName300},
  };
}

// ---- queries ----

TEST_F(PathOs, QueryArguments) {
  for (const Row& row : Rows()) {
    SCOPED_TRACE(row.text);
    EXPECT_CALL(platform, TypeOf(Wide(row.text))).Times(3).WillRepeatedly(Return(FileType{}));
    EXPECT_CALL(platform, SizeOf(Wide(row.text))).WillOnce(Return(0U));
    platform.widened.clear();
    static_cast<void>(row.path.Exists());
    static_cast<void>(row.path.IsFile());
    static_cast<void>(row.path.IsDirectory());
    static_cast<void>(row.path.FileSize());
    EXPECT_THAT(platform.widened, ElementsAre(row.text, row.text, row.text, row.text));
    testing::Mock::VerifyAndClearExpectations(&platform);
  }
}

TEST_F(PathOs, ObjectKinds) {
  struct TypeRow {
    FileType type;
    bool exists;
    bool file;
    bool directory;
  };
  const TypeRow rows[] = {{FileType::kNone, false, false, false},
                          {FileType::kDirectory, true, false, true},
                          {FileType::kOther, true, true, false}};
  const Path path("a");
  for (const TypeRow& row : rows) {
    SCOPED_TRACE(static_cast<int>(row.type));
    EXPECT_CALL(platform, TypeOf(std::wstring(L"a"))).Times(3).WillRepeatedly(Return(row.type));
    EXPECT_EQ(path.Exists(), row.exists);
    EXPECT_EQ(path.IsFile(), row.file);
    EXPECT_EQ(path.IsDirectory(), row.directory);
    testing::Mock::VerifyAndClearExpectations(&platform);
  }
}

// ---- size ----

TEST_F(PathOs, Size) {
  for (const uint64_t size : {0ull, 1ull, 0xFFFFFFFFull, 0x100000001ull, 0x7FFFFFFFFFFFFFFFull}) {
    EXPECT_CALL(platform, SizeOf(std::wstring(LR"(C:\f)"))).WillOnce(Return(size));
    EXPECT_EQ(Path(R"(C:\f)").FileSize(), size);
  }
}

// ---- full path and current directory ----

TEST_F(PathOs, AbsoluteCall) {
  for (const Row& row : Rows()) {
    SCOPED_TRACE(row.text);
    EXPECT_CALL(platform, FullPath(Wide(row.text), kCapacity)).WillOnce(Return(LR"(C:\full)"));
    EXPECT_EQ(row.path.Absolute().Str(), R"(C:\full)");
    testing::Mock::VerifyAndClearExpectations(&platform);
  }
}

bool IsShare(Path path) {
  path.Set("/", Path::POSIX_PATH);  // keeps the share flag
  return path.ParentPath().Str() == R"(\\)";
}

void ExpectDefault(const Path& path) {
  EXPECT_TRUE(path.Empty());
  EXPECT_FALSE(path.IsAbsolute());
  EXPECT_FALSE(IsShare(path));
  EXPECT_EQ((path / "x").Length(), 1u) << "Windows type";
}

TEST_F(PathOs, AbsoluteResult) {
  EXPECT_CALL(platform, FullPath(_, _)).WillOnce(Return(LR"(\\?\C:\a/b\)"));
  const Path drive = Parsed("/x", Path::POSIX_PATH).Absolute();
  EXPECT_EQ(drive.Str(), R"(C:\a\b)");
  EXPECT_TRUE(drive.IsAbsolute());
  EXPECT_EQ((drive / "x").Length(), 4u) << "Windows type";

  EXPECT_CALL(platform, FullPath(_, _)).WillOnce(Return(LR"(\\?\UNC\srv\share\f)"));
  const Path share = Path("x").Absolute();
  EXPECT_EQ(share.Str(), R"(\\srv\share\f)");
  EXPECT_TRUE(IsShare(share));

  EXPECT_CALL(platform, FullPath(_, _)).WillOnce(Return(Wide(R"(C:\)" + kName300)));
  EXPECT_EQ(Path("x").Absolute().Str(), R"(\\?\C:\)" + kName300);
}

TEST_F(PathOs, AbsoluteFails) {
  for (const Row& row : Rows()) {
    EXPECT_CALL(platform, FullPath(_, _)).WillOnce(Return(L""));
    ExpectDefault(row.path.Absolute());
  }
}

TEST_F(PathOs, Getcwd) {
  EXPECT_CALL(platform, CurrentDirectory(kCapacity)).WillOnce(Return(LR"(C:\home\u)"));
  const Path drive = Path::Getcwd();
  EXPECT_EQ(drive.Str(), R"(C:\home\u)");
  EXPECT_TRUE(drive.IsAbsolute());

  EXPECT_CALL(platform, CurrentDirectory(kCapacity)).WillOnce(Return(LR"(\\srv\share\u)"));
  EXPECT_TRUE(IsShare(Path::Getcwd()));
}

TEST_F(PathOs, GetcwdFails) {
  EXPECT_CALL(platform, CurrentDirectory(_)).WillOnce(Return(L""));
  ExpectDefault(Path::Getcwd());
}

// ---- creating directories ----

// The two functions differ in one call only.
struct Maker {
  const char* name;
  bool (*make)(const Path& path);
  void (*expect)(Platform& platform, const std::string& text, bool result);
};

const Maker kMakers[] = {
    {"MakeDir", MakeDir,
     [](Platform& platform, const std::string& text, bool result) {
       EXPECT_CALL(platform, CreateOneDirectory(Wide(text))).WillOnce(Return(result));
     }},
    {"MakeDirs", MakeDirs,
     [](Platform& platform, const std::string& text, bool result) {
       EXPECT_CALL(platform, CreateDirectories(Wide(text))).WillOnce(Return(result));
     }},
};

TEST_F(PathOs, MakeDirCall) {
  struct FullRow {
    std::string full;     // returned by the system
    std::string created;  // passed to the system
  };
  const FullRow rows[] = {
      {R"(C:\a\b)", R"(C:\a\b)"},
      {R"(C:\)", "C:"},
      {R"(c:\a/b\)", R"(c:\a\b)"},
      {R"(\\?\C:\a)", R"(C:\a)"},
      {R"(\\srv\share\a)", R"(\\srv\share\a)"},
      {R"(C:\)" + std::string(256, 'x'), R"(C:\)" + std::string(256, 'x')},
      {R"(C:\)" + std::string(257, 'x'), R"(\\?\C:\)" + std::string(257, 'x')},
      {R"(C:\a\)" + kName300, R"(\\?\C:\a\)" + kName300},
      {R"(\\?\C:\a\)" + kName300, R"(\\?\C:\a\)" + kName300},
      {R"(\\srv\share\)" + kName300, R"(\\?\UNC\srv\share\)" + kName300},
  };
  for (const Maker& maker : kMakers) {
    for (const FullRow& row : rows) {
      for (const bool result : {true, false}) {
        SCOPED_TRACE(maker.name + (" " + row.full));
        const InSequence order;
        EXPECT_CALL(platform, FullPath(std::wstring(LR"(a\b)"), kCapacity))
            .WillOnce(Return(Wide(row.full)));
        maker.expect(platform, row.created, result);
        EXPECT_EQ(maker.make("a/b"), result);
        testing::Mock::VerifyAndClearExpectations(&platform);
      }
    }
  }
}

TEST_F(PathOs, MakeDirFullPath) {
  for (const Maker& maker : kMakers) {
    for (const Row& row : Rows()) {
      SCOPED_TRACE(maker.name + (" " + row.text));
      EXPECT_CALL(platform, FullPath(Wide(row.text), kCapacity)).WillOnce(Return(LR"(C:\full)"));
      maker.expect(platform, R"(C:\full)", true);
      EXPECT_TRUE(maker.make(row.path));
      testing::Mock::VerifyAndClearExpectations(&platform);
    }
  }
}

// The empty name, which every system refuses.
TEST_F(PathOs, MakeDirNoPath) {
  for (const Maker& maker : kMakers) {
    EXPECT_CALL(platform, FullPath(_, _)).WillOnce(Return(L""));
    maker.expect(platform, "", false);
    EXPECT_FALSE(maker.make("a"));
  }
}

// ---- constants ----

TEST_F(PathOs, Constants) {
  EXPECT_EQ(*Reach(tarsio_test::MaxPath()), 32767u);
  EXPECT_EQ(*Reach(tarsio_test::MaxPathLegacy()), 260u);
  EXPECT_EQ(*Reach(tarsio_test::SmbOffset()), 2u);
}

// Each call queries the system; results are not cached.
TEST_F(PathOs, NotCached) {
  const Path path("x");
  EXPECT_CALL(platform, FullPath(_, _)).WillOnce(Return(LR"(C:\a)")).WillOnce(Return(LR"(C:\b)"));
  EXPECT_EQ(path.Absolute().Str(), R"(C:\a)");
  EXPECT_EQ(path.Absolute().Str(), R"(C:\b)");
  EXPECT_CALL(platform, CurrentDirectory(_)).WillOnce(Return(L"C:\\a")).WillOnce(Return(L"C:\\b"));
  EXPECT_EQ(Path::Getcwd().Str(), R"(C:\a)");
  EXPECT_EQ(Path::Getcwd().Str(), R"(C:\b)");
}

// ---- members that do not call the system ----

TEST_F(PathOs, WideStrings) {
  const std::wstring text(L"a/b\0c", 5);
  EXPECT_EQ(Path(text).Str(), R"(a\b)");
  EXPECT_EQ(Path(L"a/b\0c").Str(), R"(a\b)");
  EXPECT_THAT(platform.narrowed, ElementsAre(text, L"a/b"));
  EXPECT_EQ(Path("a/b").Wstr(), LR"(a\b)");
  EXPECT_EQ(Path("a/b").Wstr(Path::POSIX_PATH), L"a/b");
  EXPECT_THAT(platform.widened, ElementsAre(R"(a\b)", "a/b"));
}

TEST_F(PathOs, NarrowStrings) {
  Path path(R"(\\?\C:\a\)" + kName300);
  path = path / "b.c" / Parsed("/d", Path::POSIX_PATH);
  EXPECT_EQ(path.Str(), R"(\\?\C:\a\)" + kName300 + R"(\b.c)");
  EXPECT_EQ(path.Filename() + path.Extension(), "b.cc");
  EXPECT_EQ(path.ParentPath().ParentPath(), Path("C:/a"));
  EXPECT_THAT(platform.widened, IsEmpty());
  EXPECT_THAT(platform.narrowed, IsEmpty());
}

}  // namespace
