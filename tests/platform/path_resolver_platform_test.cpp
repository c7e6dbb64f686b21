// The system calls of a resolver. The library's sources are compiled into this program with a fake
// platform.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "common/path.h"
#include "platform/platform.h"

namespace {

using tarsio::Path;
using tarsio::PathResolver;
using tarsio::platform::FileType;
using testing::ElementsAre;
using testing::IsEmpty;

struct Platform {
  std::wstring currentDirectory;
  std::map<std::wstring, FileType> objects;  // no other object exists
  std::vector<std::wstring> asked;
  int currentDirectoryAsked = 0;
};

Platform* current = nullptr;

}  // namespace

namespace tarsio {
namespace platform {

std::wstring CurrentDirectory(size_t /*capacity*/) {
  ++current->currentDirectoryAsked;
  return current->currentDirectory;
}

FileType TypeOf(const std::wstring& path) {
  current->asked.push_back(path);
  const auto found = current->objects.find(path);
  return found != current->objects.end() ? found->second : FileType::kNone;
}

// ASCII is sufficient here.
std::wstring Widen(const std::string& utf8) { return {utf8.begin(), utf8.end()}; }
std::string Narrow(const std::wstring& utf16) {
  std::string text;
  for (const wchar_t unit : utf16) text += static_cast<char>(unit);
  return text;
}

// Not used by a resolver.
std::wstring FullPath(const std::wstring& /*path*/, size_t /*capacity*/) { std::abort(); }
uint64_t SizeOf(const std::wstring& /*path*/) { std::abort(); }
bool CreateOneDirectory(const std::wstring& /*path*/) { std::abort(); }
bool CreateDirectories(const std::wstring& /*path*/) { std::abort(); }

}  // namespace platform
}  // namespace tarsio

namespace {

class ResolverOs : public testing::Test {
 protected:
  ResolverOs() {
    platform.currentDirectory = LR"(C:\home\u)";
    current = &platform;
  }
  ~ResolverOs() override { current = nullptr; }

  Platform platform;
};

TEST_F(ResolverOs, OneGetcwd) {
  PathResolver resolver;
  platform.currentDirectory = LR"(C:\elsewhere)";
  PathResolver copy(resolver);
  copy = resolver;
  copy.Append("a");
  static_cast<void>(copy.Resolve("b"));
  EXPECT_EQ(copy[0].Str(), R"(C:\home\u)");
  EXPECT_EQ(platform.currentDirectoryAsked, 1);
}

TEST_F(ResolverOs, GetcwdFails) {
  platform.currentDirectory.clear();
  const PathResolver resolver;
  ASSERT_EQ(resolver.Size(), 1u);
  EXPECT_TRUE(resolver[0].Empty());
  EXPECT_FALSE(resolver[0].IsAbsolute());
  EXPECT_EQ(resolver.Resolve("a").Str(), "a");
  EXPECT_EQ(resolver.Resolve("C:/a").Str(), R"(C:\a)");
  EXPECT_THAT(platform.asked, ElementsAre(L"a", L""));
}

TEST_F(ResolverOs, StopsAtFirst) {
  PathResolver resolver;
  resolver.Append(R"(\\srv\share)");
  resolver.Append("rel");
  resolver.Append("rel");
  resolver.Append("never");
  platform.objects[LR"(rel\a\b)"] = FileType::kDirectory;
  EXPECT_EQ(resolver.Resolve("a/b").Str(), R"(rel\a\b)");
  EXPECT_THAT(platform.asked,
              ElementsAre(LR"(C:\home\u\a\b)", LR"(\\srv\share\a\b)", LR"(rel\a\b)"));
}

TEST_F(ResolverOs, NotFound) {
  PathResolver resolver;
  resolver.Prepend("x");
  platform.objects[L"a"] = FileType::kOther;
  EXPECT_EQ(resolver.Resolve("a").Str(), "a");
  EXPECT_THAT(platform.asked, ElementsAre(LR"(x\a)", LR"(C:\home\u\a)"));
}

TEST_F(ResolverOs, AnyObject) {
  for (const FileType type : {FileType::kDirectory, FileType::kOther}) {
    platform.objects[LR"(C:\home\u\a)"] = type;
    EXPECT_EQ(PathResolver().Resolve("a").Str(), R"(C:\home\u\a)");
  }
}

// Joining such a value returns the directory unchanged (by design).
TEST_F(ResolverOs, Absolute) {
  Path posix;
  posix.Set("a", Path::POSIX_PATH);
  for (const Path& value : {Path(R"(C:\a)"), Path(R"(\\srv\share\a)"), posix}) {
    SCOPED_TRACE(value.Str());
    platform.asked.clear();
    platform.objects = {{value.Wstr(), FileType::kOther}, {L"dir", FileType::kDirectory}};
    PathResolver resolver;
    resolver.Append("dir");
    resolver.Append("never");
    EXPECT_EQ(resolver.Resolve(value).Str(), "dir");
    EXPECT_THAT(platform.asked, ElementsAre(LR"(C:\home\u)", L"dir"));
  }
}

TEST_F(ResolverOs, LongPrefix) {
  const std::string name(300, 'x');
  const std::wstring full = LR"(\\?\C:\home\u\)" + std::wstring(300, L'x');
  platform.objects[full] = FileType::kOther;
  EXPECT_EQ(PathResolver().Resolve(name).Wstr(), full);
}

TEST_F(ResolverOs, NoEntries) {
  PathResolver resolver;
  resolver.Erase(resolver.begin());
  EXPECT_EQ(resolver.Resolve("a").Str(), "a");
  EXPECT_THAT(platform.asked, IsEmpty());
}

}  // namespace
