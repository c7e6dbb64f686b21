#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "common/path.h"
#include "support/paths.h"
#include "support/recording_logger.h"
#include "support/scoped_directory.h"

namespace {

using tarsio::MakeDirs;
using tarsio::Path;
using tarsio::PathResolver;
using tarsio_test::ExpectSamePath;
using tarsio_test::kNoType;
using tarsio_test::LogRecords;
using tarsio_test::Parsed;
using tarsio_test::Posix;
using tarsio_test::ScopedDirectory;
using testing::ElementsAre;
using testing::IsEmpty;

// ---- declarations ----

using Resolver = PathResolver&;
using ConstResolver = const PathResolver&;

static_assert(
    std::is_same<decltype(&PathResolver::Size), uint64_t (PathResolver::*)() const>::value,
    "64 bits");
static_assert(std::is_same<decltype(std::declval<ConstResolver>()[uint64_t{}]), const Path&>::value,
              "not copied");
static_assert(
    std::is_same<decltype(std::declval<Resolver>().begin()), std::vector<Path>::iterator>::value &&
        std::is_same<decltype(std::declval<ConstResolver>().end()),
                     std::vector<Path>::const_iterator>::value,
    "the types of the list");

// ---- helpers ----

// Returns a resolver with exactly these entries.
PathResolver With(const std::vector<Path>& entries) {
  PathResolver resolver;
  resolver.Erase(resolver.begin());
  for (const Path& entry : entries) resolver.Append(entry);
  return resolver;
}

std::vector<std::string> Entries(const PathResolver& resolver) {
  std::vector<std::string> texts;
  for (const Path& entry : resolver) texts.push_back(entry.Str());
  return texts;
}

// ---- the list ----

TEST(PathResolver, CwdIsFixed) {
  const ScopedDirectory outer;
  outer.Write("file.txt", "");
  const PathResolver before;
  ASSERT_EQ(before.Size(), 1u);
  ExpectSamePath(before[0], outer.Text());
  {
    const ScopedDirectory inner;
    ExpectSamePath(PathResolver()[0], inner.Text());
    ExpectSamePath(before.Resolve("file.txt"), outer.Text("file.txt"));
    ExpectSamePath(PathResolver(before).Resolve("file.txt"), outer.Text("file.txt"));
    ExpectSamePath(PathResolver().Resolve("file.txt"), "file.txt");
  }
}

TEST(PathResolver, Append) {
  PathResolver resolver;
  const std::string current = Path::Getcwd().Str();
  Path path(R"(C:\a)");
  resolver.Append(path);
  resolver.Prepend(path);
  path = L"changed";
  resolver.Append("c");
  resolver.Prepend("");
  EXPECT_THAT(Entries(resolver), ElementsAre("", R"(C:\a)", current, R"(C:\a)", "c"));
  EXPECT_EQ(resolver.Size(), 5u);
}

TEST(PathResolver, Flags) {
  const std::vector<Path> paths = {R"(\\srv\share\a)", Posix("/usr/lib"), Parsed("/usr", kNoType),
                                   Path("C:/").ParentPath()};
  const PathResolver resolver = With(paths);
  for (size_t i = 0; i < paths.size(); ++i) ExpectSamePath(resolver[i], paths[i]);
}

TEST(PathResolver, OwnEntry) {
  PathResolver resolver = With({"a", "b"});
  std::vector<std::string> expected = {"a", "b"};
  for (int i = 0; i < 50; ++i) {  // the list reallocates as it grows
    resolver.Append(resolver[0]);
    resolver.Prepend(resolver[resolver.Size() - 2]);
    expected.push_back(std::string(expected.front()));
    expected.insert(expected.begin(), std::string(expected[expected.size() - 2]));
  }
  EXPECT_EQ(Entries(resolver), expected);
}

TEST(PathResolver, BeginEnd) {
  PathResolver resolver = With({"a", "b", "c"});
  const PathResolver& constant = resolver;
  EXPECT_EQ(&*constant.begin(), &constant[0]);
  EXPECT_EQ(constant.end() - constant.begin(), 3);
  EXPECT_EQ(&*resolver.begin(), &constant[0]);
  EXPECT_EQ(resolver.end() - resolver.begin(), 3);
  for (Path& entry : resolver) entry = entry / "x";
  resolver[1] = Path(R"(C:\x)");
  EXPECT_THAT(Entries(constant), ElementsAre(R"(a\x)", R"(C:\x)", R"(c\x)"));
  PathResolver empty = With({});
  EXPECT_EQ(empty.begin(), empty.end());
  EXPECT_EQ(empty.Size(), 0u);
}

TEST(PathResolver, Erase) {
  const std::vector<std::string> left[] = {
      {"b", "c", "b"}, {"a", "c", "b"}, {"a", "b", "b"}, {"a", "b", "c"}};
  for (std::ptrdiff_t position = 0; position < 4; ++position) {
    SCOPED_TRACE(position);
    PathResolver resolver = With({"a", "b", "c", "b"});
    PathResolver again = resolver;
    resolver.Erase(resolver.begin() + position);
    again.Erase(std::as_const(again).begin() + position);
    EXPECT_EQ(Entries(resolver), left[position]);
    EXPECT_EQ(Entries(again), left[position]);
  }
}

TEST(PathResolver, Copies) {
  auto original = std::make_unique<PathResolver>(With({"a", R"(C:\b)"}));
  const PathResolver copy(*original);
  PathResolver assigned = With({"1", "2", "3"});
  EXPECT_EQ(&(assigned = *original), &assigned);
  (*original)[0] = Path("x");
  original.reset();
  EXPECT_THAT(Entries(copy), ElementsAre("a", R"(C:\b)"));
  EXPECT_THAT(Entries(assigned), ElementsAre("a", R"(C:\b)"));
  const PathResolver& same = assigned;
  EXPECT_EQ(&(assigned = same), &assigned);
  EXPECT_THAT(Entries(assigned), ElementsAre("a", R"(C:\b)"));
}

// ---- the search ----

// The system's answers are varied in path_resolver_platform_test.
class ResolveTest : public testing::Test {
 protected:
  ResolveTest() {
    static_cast<void>(MakeDirs("first/folder"));
    static_cast<void>(MakeDirs("second/folder/deep"));
    for (const char* name : {"first/both.txt", "second/both.txt", "second/only-second.txt",
                             "second/folder/deep/file.txt", "here.txt"}) {
      directory.Write(name, name);
    }
  }

  const ScopedDirectory directory;
};

TEST_F(ResolveTest, FirstMatchWins) {
  struct Row {
    const char* value;
    const char* found;  // with "first" before "second"
    const char* turned;
  };
  const Row rows[] = {
      {"both.txt", R"(first\both.txt)", R"(second\both.txt)"},
      {"only-second.txt", R"(second\only-second.txt)", R"(second\only-second.txt)"},
      {"folder", R"(first\folder)", R"(second\folder)"},
      {R"(folder\deep/file.txt)", R"(second\folder\deep\file.txt)",
       R"(second\folder\deep\file.txt)"},
      {"../here.txt", R"(first\..\here.txt)", R"(second\..\here.txt)"},
      {"missing/../../here.txt", R"(first\missing\..\..\here.txt)",
       R"(second\missing\..\..\here.txt)"},
      {"", "first", "second"},
      {"nowhere.txt", "nowhere.txt", "nowhere.txt"},
  };
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  const PathResolver resolver = With({"here.txt/x", "first", "second"});
  const PathResolver turned = With({"second", "first"});
  for (const Row& row : rows) {
    SCOPED_TRACE(row.value);
    ExpectSamePath(resolver.Resolve(row.value), row.found);
    ExpectSamePath(turned.Resolve(row.value), row.turned);
  }
  EXPECT_THAT(Entries(turned), ElementsAre("second", "first"));
  EXPECT_THAT(records->All(), IsEmpty());
}

TEST_F(ResolveTest, ManyThreads) {
  const PathResolver resolver = With({"missing", "first", "second"});
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 100; ++round) {
        EXPECT_EQ(resolver.Resolve("only-second.txt").Str(), R"(second\only-second.txt)");
        EXPECT_EQ(resolver.Resolve("nowhere.txt").Str(), "nowhere.txt");
        EXPECT_EQ(resolver.Resolve(R"(C:\x)").Str(), "first");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

// ---- printing ----

// Records the output and the flushes.
class FlushRecorder : public std::stringbuf {
 protected:
  int sync() override {
    sputn("<flush>", 7);
    return 0;
  }
};

std::string Printed(const PathResolver& resolver) {
  FlushRecorder buffer;
  std::ostream out(&buffer);
  EXPECT_EQ(&(out << resolver), &out);
  return buffer.str();
}

TEST(ResolverString, Lines) {
  EXPECT_EQ(Printed(With({})), "resolver[\n<flush>]");
  EXPECT_EQ(Printed(With({R"(C:\work)"})),
            "resolver[\n<flush>"
            "  \"C:\\work\"\n<flush>"
            "]");
}

TEST(ResolverString, Windows) {
  EXPECT_EQ(Printed(With({Posix("/usr/lib"), Path(), R"(\\srv/share)", "say \"hi\", x"})),
            "resolver[\n<flush>"
            "  \"/usr\\lib\",\n<flush>"
            "  \"\",\n<flush>"
            "  \"\\\\srv\\share\",\n<flush>"
            "  \"say \"hi\", x\"\n<flush>"
            "]");
}

}  // namespace
