// What paths pass to the operating system, and how they use its results.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "common/path.h"
#include "support/fake_platform.h"
#include "support/paths.h"
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
using tarsio_test::kNoType;
using tarsio_test::Parsed;
using testing::ElementsAre;
using testing::IsEmpty;

class PathOs : public testing::Test {
 protected:
  tarsio_test::FakePlatform platform;
};

const std::string kName300(300, 'x');

// ---- queries ----

// The system gets the Windows form of a path, whatever its type.
TEST_F(PathOs, Arguments) {
  platform.fullPath = R"(C:\full)";
  platform.otherObjects = FileType::kOther;
  platform.sizeOf = 7;
  Path shareFlagged(R"(\\srv\share)");
  shareFlagged.Set("/usr/" + kName300, kNoType);
  for (const Path& path :
       {Path(), Path("a//b/"), Path(R"(c:/a/../b)"), Path(R"(\\srv/share/f)"), Path(R"(UNC\srv)"),
        Path(R"(C:\)" + kName300), Path(R"(\\srv\share\)" + kName300), shareFlagged,
        Parsed("/usr/lib", Path::POSIX_PATH), Parsed("/usr/lib", kNoType)}) {
    const std::string text = path.Str(Path::WINDOWS_PATH);
    SCOPED_TRACE(text);
    platform.Calls();
    EXPECT_TRUE(path.Exists());
    EXPECT_TRUE(path.IsFile());
    EXPECT_FALSE(path.IsDirectory());
    EXPECT_EQ(path.FileSize(), 7u);
    EXPECT_THAT(platform.Conversions(), ElementsAre(text, text, text, text));
    const std::string typeOf = "TypeOf " + text;
    EXPECT_THAT(platform.Calls(), ElementsAre(typeOf, typeOf, typeOf, "SizeOf " + text));

    EXPECT_EQ(path.Absolute().Str(), R"(C:\full)");
    EXPECT_TRUE(MakeDir(path));
    EXPECT_TRUE(MakeDirs(path));
    const std::string fullPath = "FullPath " + text + " 32767";
    EXPECT_THAT(platform.Calls(), ElementsAre(fullPath, fullPath, R"(CreateOneDirectory C:\full)",
                                              fullPath, R"(CreateDirectories C:\full)"));
    platform.Conversions();
  }
}

TEST_F(PathOs, ObjectKinds) {
  const struct {
    FileType type;
    bool exists;
    bool file;
    bool directory;
  } rows[] = {{FileType::kNone, false, false, false},
              {FileType::kDirectory, true, false, true},
              {FileType::kOther, true, true, false}};
  for (const auto& row : rows) {
    SCOPED_TRACE(static_cast<int>(row.type));
    platform.objects["a"] = row.type;
    EXPECT_EQ(Path("a").Exists(), row.exists);
    EXPECT_EQ(Path("a").IsFile(), row.file);
    EXPECT_EQ(Path("a").IsDirectory(), row.directory);
  }
  for (const uint64_t size : {0ull, 1ull, 0xFFFFFFFFull, 0x100000001ull, 0x7FFFFFFFFFFFFFFFull}) {
    platform.sizeOf = size;
    EXPECT_EQ(Path("a").FileSize(), size);
  }
}

// ---- creating directories ----

TEST_F(PathOs, MakeDir) {
  const struct {
    std::string full;     // returned by the system
    std::string created;  // passed to the system
  } rows[] = {
      {R"(C:\a\b)", R"(C:\a\b)"},
      {R"(C:\)", "C:"},
      {R"(c:\a/b\)", R"(c:\a\b)"},
      {R"(\\?\C:\a)", R"(C:\a)"},
      {R"(\\srv\share\a)", R"(\\srv\share\a)"},
      {R"(\\?\C:\a\)" + kName300, R"(\\?\C:\a\)" + kName300},
      {R"(\\srv\share\)" + kName300, R"(\\?\UNC\srv\share\)" + kName300},
      {"", ""},  // the empty name, which every system refuses
  };
  for (const auto& row : rows) {
    for (const bool creates : {true, false}) {
      platform.fullPath = row.full;
      platform.changes = creates;
      EXPECT_EQ(MakeDir("a/b"), creates);
      EXPECT_EQ(MakeDirs("a/b"), creates);
      EXPECT_THAT(platform.Calls(),
                  ElementsAre(R"(FullPath a\b 32767)", "CreateOneDirectory " + row.created,
                              R"(FullPath a\b 32767)", "CreateDirectories " + row.created));
    }
  }
}

// ---- members that do not call the system ----

TEST_F(PathOs, Constants) {
  EXPECT_EQ(*Reach(tarsio_test::MaxPath()), 32767u);
  EXPECT_EQ(*Reach(tarsio_test::MaxPathLegacy()), 260u);
  EXPECT_EQ(*Reach(tarsio_test::SmbOffset()), 2u);
}

TEST_F(PathOs, NarrowStrings) {
  Path path(R"(\\?\C:\a\)" + kName300);
  path = path / "b.c" / Parsed("/d", Path::POSIX_PATH);
  EXPECT_EQ(path.Str(), R"(\\?\C:\a\)" + kName300 + R"(\b.c)");
  EXPECT_EQ(path.Filename() + path.Extension(), "b.cc");
  EXPECT_EQ(path.ParentPath().ParentPath(), Path("C:/a"));
  EXPECT_THAT(platform.Conversions(), IsEmpty());
  EXPECT_THAT(platform.Calls(), IsEmpty());
}

}  // namespace
