// The search of a resolver, and its system calls.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/path.h"
#include "support/fake_platform.h"
#include "support/paths.h"

namespace {

using tarsio::Path;
using tarsio::PathResolver;
using tarsio::platform::FileType;
using tarsio_test::ExpectSamePath;
using tarsio_test::kNoType;
using tarsio_test::Parsed;
using tarsio_test::Posix;
using testing::ElementsAre;
using testing::IsEmpty;

class ResolverOs : public testing::Test {
 protected:
  ResolverOs() { platform.currentDirectory = R"(C:\home\u)"; }

  tarsio_test::FakePlatform platform;
};

// Returns a resolver of the current directory and these entries.
PathResolver With(const std::vector<Path>& entries) {
  PathResolver resolver;
  for (const Path& entry : entries) resolver.Append(entry);
  return resolver;
}

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
  ExpectSamePath(resolver[0], Path());
  platform.Calls();
  EXPECT_EQ(resolver.Resolve("a").Str(), "a");
  EXPECT_EQ(resolver.Resolve("C:/a").Str(), R"(C:\a)");
  EXPECT_THAT(platform.Calls(), ElementsAre("TypeOf a", "TypeOf "));
}

// The first entry with an object of that name, of any type. Nothing is cached.
TEST_F(ResolverOs, Order) {
  PathResolver resolver = With({R"(\\srv\share)", "rel", "rel", "never"});
  resolver.Prepend("x");
  for (const FileType type : {FileType::kDirectory, FileType::kOther}) {
    platform.objects[R"(rel\a\b)"] = type;
    platform.Calls();
    EXPECT_EQ(resolver.Resolve("a/b").Str(), R"(rel\a\b)");
    EXPECT_THAT(platform.Calls(), ElementsAre(R"(TypeOf x\a\b)", R"(TypeOf C:\home\u\a\b)",
                                              R"(TypeOf \\srv\share\a\b)", R"(TypeOf rel\a\b)"));
  }
  platform.objects[R"(C:\home\u\a\b)"] = FileType::kOther;
  EXPECT_EQ(resolver.Resolve("a/b").Str(), R"(C:\home\u\a\b)");
}

// The value itself is not looked up.
TEST_F(ResolverOs, NotFound) {
  platform.objects["a"] = FileType::kOther;
  PathResolver resolver;
  EXPECT_EQ(resolver.Resolve("a").Str(), "a");
  EXPECT_THAT(platform.Calls(), ElementsAre("CurrentDirectory 32767", R"(TypeOf C:\home\u\a)"));
  const PathResolver missing = With({"missing"});
  resolver.Erase(resolver.begin());
  platform.Calls();
  for (const Path& value : {Path("a/.././x"), Path(), Path("C:/a"), Path(R"(\\srv\share)"),
                            Posix("a/b\\c"), Posix("/a"), Parsed("a", kNoType)}) {
    ExpectSamePath(resolver.Resolve(value), value);
    EXPECT_THAT(platform.Calls(), IsEmpty());
    ExpectSamePath(missing.Resolve(value), value);
    platform.Calls();
  }
}

// Joining such a value returns the directory unchanged (by design).
TEST_F(ResolverOs, Absolute) {
  const PathResolver resolver = With({"dir", "never"});
  for (const Path& value : {Path(R"(C:\a)"), Path(R"(\\srv\share\a)"), Path("C:/").ParentPath(),
                            Posix("/a"), Posix("a"), Posix(""), Parsed("a", kNoType)}) {
    SCOPED_TRACE(value.Str());
    platform.objects = {{value.Str(), FileType::kOther}, {"dir", FileType::kDirectory}};
    platform.Calls();
    ExpectSamePath(resolver.Resolve(value), "dir");
    EXPECT_THAT(platform.Calls(), ElementsAre(R"(TypeOf C:\home\u)", "TypeOf dir"));
  }
}

// For the same reason (by design).
TEST_F(ResolverOs, OtherType) {
  const PathResolver mixed = With({Posix("missing"), "first", Posix("second")});
  platform.objects = {{R"(first\a)", FileType::kOther},
                      {R"(second\b)", FileType::kOther},
                      {"second", FileType::kDirectory}};
  ExpectSamePath(mixed.Resolve("a"), R"(first\a)");
  ExpectSamePath(mixed.Resolve("b"), Posix("second"));
  ExpectSamePath(With({Posix("first"), Posix("second")}).Resolve(Posix("b")), Posix("second/b"));
}

TEST_F(ResolverOs, LongPrefix) {
  const std::string name(300, 'x');
  platform.objects[R"(\\?\C:\home\u\)" + name] = FileType::kOther;
  EXPECT_EQ(PathResolver().Resolve(name).Str(), R"(\\?\C:\home\u\)" + name);
}

}  // namespace
