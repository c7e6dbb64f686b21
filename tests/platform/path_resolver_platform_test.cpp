// The system calls of a resolver.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "common/path.h"
#include "support/fake_platform.h"

namespace {

using tarsio::Path;
using tarsio::PathResolver;
using tarsio::platform::FileType;
using testing::ElementsAre;
using testing::IsEmpty;

class ResolverOs : public testing::Test {
 protected:
  ResolverOs() { platform.currentDirectory = R"(C:\home\u)"; }

  tarsio_test::FakePlatform platform;
};

TEST_F(ResolverOs, OneGetcwd) {
  PathResolver resolver;
  platform.currentDirectory = R"(C:\elsewhere)";
  PathResolver copy(resolver);
  copy = resolver;
  copy.Append("a");
  EXPECT_EQ(copy.Resolve("b").Str(), "b");
  EXPECT_EQ(copy[0].Str(), R"(C:\home\u)");
  EXPECT_THAT(platform.Calls(),
              ElementsAre("CurrentDirectory 32767", R"(TypeOf C:\home\u\b)", R"(TypeOf a\b)"));
}

TEST_F(ResolverOs, GetcwdFails) {
  platform.currentDirectory.clear();
  const PathResolver resolver;
  ASSERT_EQ(resolver.Size(), 1u);
  EXPECT_TRUE(resolver[0].Empty());
  EXPECT_FALSE(resolver[0].IsAbsolute());
  platform.Calls();
  EXPECT_EQ(resolver.Resolve("a").Str(), "a");
  EXPECT_EQ(resolver.Resolve("C:/a").Str(), R"(C:\a)");
  EXPECT_THAT(platform.Calls(), ElementsAre("TypeOf a", "TypeOf "));
}

// The first entry with an object of that name, of any type.
TEST_F(ResolverOs, Order) {
  PathResolver resolver;
  resolver.Prepend("x");
  for (const char* directory : {R"(\\srv\share)", "rel", "rel", "never"}) {
    resolver.Append(directory);
  }
  for (const FileType type : {FileType::kDirectory, FileType::kOther}) {
    platform.objects[R"(rel\a\b)"] = type;
    platform.Calls();
    EXPECT_EQ(resolver.Resolve("a/b").Str(), R"(rel\a\b)");
    EXPECT_THAT(platform.Calls(), ElementsAre(R"(TypeOf x\a\b)", R"(TypeOf C:\home\u\a\b)",
                                              R"(TypeOf \\srv\share\a\b)", R"(TypeOf rel\a\b)"));
  }
}

// The value itself is not looked up.
TEST_F(ResolverOs, NotFound) {
  PathResolver resolver;
  platform.Calls();
  platform.objects["a"] = FileType::kOther;
  EXPECT_EQ(resolver.Resolve("a").Str(), "a");
  EXPECT_THAT(platform.Calls(), ElementsAre(R"(TypeOf C:\home\u\a)"));
  resolver.Erase(resolver.begin());
  EXPECT_EQ(resolver.Resolve("a").Str(), "a");
  EXPECT_THAT(platform.Calls(), IsEmpty());
}

// Joining such a value returns the directory unchanged (by design).
TEST_F(ResolverOs, Absolute) {
  Path posix;
  posix.Set("a", Path::POSIX_PATH);
  PathResolver resolver;
  resolver.Append("dir");
  resolver.Append("never");
  for (const Path& value : {Path(R"(C:\a)"), Path(R"(\\srv\share\a)"), posix}) {
    SCOPED_TRACE(value.Str());
    platform.objects = {{value.Str(), FileType::kOther}, {"dir", FileType::kDirectory}};
    platform.Calls();
    EXPECT_EQ(resolver.Resolve(value).Str(), "dir");
    EXPECT_THAT(platform.Calls(), ElementsAre(R"(TypeOf C:\home\u)", "TypeOf dir"));
  }
}

TEST_F(ResolverOs, LongPrefix) {
  const std::string name(300, 'x');
  platform.objects[R"(\\?\C:\home\u\)" + name] = FileType::kOther;
  EXPECT_EQ(PathResolver().Resolve(name).Str(), R"(\\?\C:\home\u\)" + name);
}

}  // namespace
