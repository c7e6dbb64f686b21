#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
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
#include "support/recording_logger.h"
#include "support/scoped_directory.h"

namespace {

using tarsio::MakeDirs;
using tarsio::Path;
using tarsio::PathResolver;
using tarsio_test::LogRecords;
using tarsio_test::ScopedDirectory;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr auto kNoType = static_cast<Path::PathType>(7);

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

Path Parsed(const std::string& text, Path::PathType type) {
  Path path;
  path.Set(text, type);
  return path;
}

Path Posix(const std::string& text) { return Parsed(text, Path::POSIX_PATH); }

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

// operator== compares the components only.
void ExpectSamePath(const Path& actual, const Path& expected) {
  EXPECT_EQ(actual, expected);
  EXPECT_EQ(actual.Str(), expected.Str());
  EXPECT_EQ(actual.IsAbsolute(), expected.IsAbsolute());
  EXPECT_EQ((actual / "x").Length(), (expected / "x").Length()) << "type";
  EXPECT_EQ((actual / Posix("x")).Length(), (expected / Posix("x")).Length()) << "type";
}

// A directory with two search directories:
//   first/    both.txt  only-first.txt  folder/
//   second/   both.txt  only-second.txt  folder/deep/file.txt
//   here.txt
class ResolveTest : public testing::Test {
 protected:
  ResolveTest() {
    static_cast<void>(MakeDirs("first/folder"));
    static_cast<void>(MakeDirs("second/folder/deep"));
    for (const char* name : {"first/both.txt", "first/only-first.txt", "second/both.txt",
                             "second/only-second.txt", "second/folder/deep/file.txt", "here.txt"}) {
      directory.Write(name, name);
    }
  }

  const ScopedDirectory directory;
};

// ---- the list ----

TEST(PathResolver, CwdIsFixed) {
  const ScopedDirectory outer;
  outer.Write("file.txt", "");
  const PathResolver before;
  ASSERT_EQ(before.Size(), 1u);
  ExpectSamePath(before[0], outer.Text());
  {
    const ScopedDirectory inner;
    const std::string current = Path::Getcwd().Str();
    EXPECT_THAT(Entries(PathResolver()), ElementsAre(current));
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
      {"", "first", "second"},
  };
  const PathResolver resolver = With({"first", "second"});
  const PathResolver turned = With({"second", "first"});
  for (const Row& row : rows) {
    SCOPED_TRACE(row.value);
    ExpectSamePath(resolver.Resolve(row.value), row.found);
    ExpectSamePath(turned.Resolve(row.value), row.turned);
  }
}

TEST_F(ResolveTest, Dots) {
  const PathResolver resolver = With({"missing/../first", "here.txt/.."});
  ExpectSamePath(resolver.Resolve("only-first.txt"), R"(missing\..\first\only-first.txt)");
  ExpectSamePath(resolver.Resolve("missing/../here.txt"), R"(here.txt\..\missing\..\here.txt)");
}

TEST_F(ResolveTest, SearchOrder) {
  directory.Write("both.txt", "");
  PathResolver resolver;
  resolver.Append("first");
  ExpectSamePath(resolver.Resolve("both.txt"), directory.Text("both.txt"));
  resolver.Prepend("second");
  ExpectSamePath(resolver.Resolve("both.txt"), R"(second\both.txt)");
  ExpectSamePath(resolver.Resolve("here.txt"), directory.Text("here.txt"));
  ExpectSamePath(resolver.Resolve("only-first.txt"), R"(first\only-first.txt)");
}

TEST_F(ResolveTest, NotFound) {
  const PathResolver missing = With({"missing", directory.Text("missing"), "here.txt/x"});
  for (const Path& value : {Path("folder/../nowhere/./x"), Path("first/both.txt"), Path(""),
                            Path(directory.Text("here.txt")), Posix("nowhere/a\\b"),
                            Posix("/nowhere"), Parsed("nowhere", kNoType)}) {
    ExpectSamePath(missing.Resolve(value), value);
    ExpectSamePath(With({}).Resolve(value), value);
  }
  ExpectSamePath(With({"first", "second"}).Resolve("nowhere.txt"), "nowhere.txt");
}

// The join returns the directory unchanged, so the first existing directory is the result (by
// design).
TEST_F(ResolveTest, AbsoluteValue) {
  const Path values[] = {
      directory.Text("here.txt"),         // exists
      directory.Text("second/both.txt"),  // exists below an entry
      R"(\\srv\share\file.txt)",         Posix("/usr/lib"),
      Path("C:/").ParentPath(),  // absolute, without components
  };
  for (const Path& value : values) {
    SCOPED_TRACE(value.Str());
    ExpectSamePath(With({"first", "second"}).Resolve(value), "first");
    ExpectSamePath(With({"missing", "second", "first"}).Resolve(value), "second");
    ExpectSamePath(With({"missing", "here.txt", "first"}).Resolve(value), "here.txt");
    ExpectSamePath(PathResolver().Resolve(value), Path::Getcwd());
  }
}

// For the same reason (by design).
TEST_F(ResolveTest, OtherType) {
  for (const Path& value : {Posix("both.txt"), Posix(""), Parsed("both.txt", kNoType)}) {
    ExpectSamePath(With({"first", "second"}).Resolve(value), "first");
    ExpectSamePath(With({"missing", "second"}).Resolve(value), "second");
  }
  for (const Path& value : {Path("both.txt"), Path("nowhere.txt"), Path("")}) {
    ExpectSamePath(With({Posix("missing"), Posix("second")}).Resolve(value), Posix("second"));
  }
  const PathResolver mixed = With({Posix("missing"), "first", Posix("second")});
  ExpectSamePath(mixed.Resolve("both.txt"), R"(first\both.txt)");
  ExpectSamePath(mixed.Resolve("nowhere.txt"), Posix("second"));
  ExpectSamePath(With({Posix("first"), Posix("second")}).Resolve(Posix("only-second.txt")),
                 Posix("second/only-second.txt"));
}

TEST_F(ResolveTest, EmptyEntry) {
  const PathResolver resolver = With({Path(), "first"});
  ExpectSamePath(resolver.Resolve("here.txt"), "here.txt");
  ExpectSamePath(resolver.Resolve("only-first.txt"), R"(first\only-first.txt)");
  ExpectSamePath(resolver.Resolve(R"(C:\x)"), "first");  // an empty path does not exist
}

TEST_F(ResolveTest, IsNotCached) {
  const PathResolver resolver = With({"first", "second"});
  ExpectSamePath(resolver.Resolve("new.txt"), "new.txt");
  directory.Write("second/new.txt", "");
  ExpectSamePath(resolver.Resolve("new.txt"), R"(second\new.txt)");
  directory.Write("first/new.txt", "");
  ExpectSamePath(resolver.Resolve("new.txt"), R"(first\new.txt)");
}

TEST_F(ResolveTest, Const) {
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  const PathResolver resolver = With({"missing", "first"});
  Path found = resolver.Resolve(R"(C:\x)");
  found = L"changed";
  static_cast<void>(resolver.Resolve("nowhere.txt"));
  EXPECT_THAT(Entries(resolver), ElementsAre("missing", "first"));
  EXPECT_THAT(records->All(), IsEmpty());
}

TEST_F(ResolveTest, ManyThreads) {
  const PathResolver resolver = With({"missing", "first", "second"});
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 100; ++round) {
        if (resolver.Resolve("only-second.txt").Str() != R"(second\only-second.txt)") ++wrong;
        if (resolver.Resolve("nowhere.txt").Str() != "nowhere.txt") ++wrong;
        if (resolver.Resolve(R"(C:\x)").Str() != "first") ++wrong;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
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
