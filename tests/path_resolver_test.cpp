#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
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

using Iterator = std::vector<Path>::iterator;
using ConstIterator = std::vector<Path>::const_iterator;

using Resolver = PathResolver&;
using ConstResolver = const PathResolver&;

static_assert(std::is_default_constructible<PathResolver>::value &&
                  std::is_copy_constructible<PathResolver>::value &&
                  std::is_same<decltype(std::declval<Resolver>() = std::declval<ConstResolver>()),
                               PathResolver&>::value,
              "a value");
static_assert(
    std::is_same<decltype(std::declval<ConstResolver>().Size()), uint64_t>::value &&
        std::is_same<decltype(std::declval<Resolver>()[uint64_t{0}]), Path&>::value &&
        std::is_same<decltype(std::declval<ConstResolver>()[uint64_t{0}]), const Path&>::value,
    "numbers are 64 bits wide, entries are not copied");
static_assert(
    std::is_same<decltype(std::declval<Resolver>().begin()), Iterator>::value &&
        std::is_same<decltype(std::declval<Resolver>().end()), Iterator>::value &&
        std::is_same<decltype(std::declval<ConstResolver>().begin()), ConstIterator>::value &&
        std::is_same<decltype(std::declval<ConstResolver>().end()), ConstIterator>::value,
    "the types of the list");
static_assert(
    std::is_same<decltype(std::declval<Resolver>().Append(std::declval<const Path&>())),
                 void>::value &&
        std::is_same<decltype(std::declval<Resolver>().Prepend(std::declval<const Path&>())),
                     void>::value &&
        std::is_same<decltype(std::declval<Resolver>().Erase(Iterator())), void>::value &&
        std::is_same<decltype(std::declval<Resolver>().Erase(ConstIterator())), void>::value,
    "no result");
static_assert(
    std::is_same<decltype(std::declval<ConstResolver>().Resolve(std::declval<const Path&>())),
                 Path>::value,
    "returns a new path");

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

TEST(PathResolver, Default) {
  const ScopedDirectory directory;
  const PathResolver resolver;
  ASSERT_EQ(resolver.Size(), 1u);
  ExpectSamePath(resolver[0], Path::Getcwd());
  EXPECT_TRUE(resolver[0].IsAbsolute());
  ExpectSamePath(resolver[0], directory.Text(""));
}

TEST(PathResolver, CwdIsFixed) {
  const ScopedDirectory outer;
  outer.Write("file.txt", "");
  const PathResolver before;
  const std::string text = Path::Getcwd().Str();
  {
    const ScopedDirectory inner;
    ASSERT_NE(Path::Getcwd().Str(), text);
    EXPECT_THAT(Entries(before), ElementsAre(text));
    EXPECT_THAT(Entries(PathResolver(before)), ElementsAre(text));
    EXPECT_THAT(Entries(PathResolver()), ElementsAre(Path::Getcwd().Str()));
    EXPECT_EQ(before.Resolve("file.txt").Str(), text + R"(\file.txt)");
    EXPECT_EQ(PathResolver().Resolve("file.txt").Str(), "file.txt");
  }
}

TEST(PathResolver, Append) {
  PathResolver resolver;
  const std::string current = Path::Getcwd().Str();
  resolver.Append("a");
  resolver.Prepend("b");
  resolver.Append("c");
  resolver.Prepend("d");
  EXPECT_THAT(Entries(resolver), ElementsAre("d", "b", current, "a", "c"));
  EXPECT_EQ(resolver.Size(), 5u);
}

TEST(PathResolver, Duplicates) {
  const PathResolver resolver = With({"a", "", "a", "", "a"});
  EXPECT_EQ(resolver.Size(), 5u);
  EXPECT_THAT(Entries(resolver), ElementsAre("a", "", "a", "", "a"));
}

TEST(PathResolver, Copies) {
  PathResolver resolver = With({});
  Path path(R"(C:\a)");
  resolver.Append(path);
  resolver.Prepend(path);
  path = L"changed";
  EXPECT_THAT(Entries(resolver), ElementsAre(R"(C:\a)", R"(C:\a)"));
  resolver[0] = Path("b");
  EXPECT_EQ(path.Str(), "changed");
}

TEST(PathResolver, Flags) {
  const std::vector<Path> paths = {R"(\\srv\share\a)", Posix("/usr/lib"), Posix("usr"),
                                   Parsed("/usr", kNoType), Path("C:/").ParentPath()};
  const PathResolver resolver = With(paths);
  ASSERT_EQ(resolver.Size(), paths.size());
  for (size_t i = 0; i < paths.size(); ++i) {
    SCOPED_TRACE(i);
    ExpectSamePath(resolver[i], paths[i]);
  }
}

TEST(PathResolver, OwnEntry) {
  PathResolver resolver = With({"a", "b"});
  for (int i = 0; i < 50; ++i) {  // the list reallocates as it grows
    resolver.Append(resolver[0]);
    resolver.Prepend(resolver[resolver.Size() - 2]);
  }
  ASSERT_EQ(resolver.Size(), 102u);
  std::vector<std::string> expected = {"a", "b"};
  for (int i = 0; i < 50; ++i) {
    expected.push_back(std::string(expected.front()));
    expected.insert(expected.begin(), std::string(expected[expected.size() - 2]));
  }
  EXPECT_EQ(Entries(resolver), expected);
}

TEST(PathResolver, Index) {
  PathResolver resolver = With({"a", "b", "c"});
  const PathResolver& constant = resolver;
  for (uint64_t i = 0; i < resolver.Size(); ++i) EXPECT_EQ(&resolver[i], &constant[i]);
  resolver[1] = Path(R"(C:\x)");
  resolver[2].Set("/y", Path::POSIX_PATH);
  EXPECT_THAT(Entries(constant), ElementsAre("a", R"(C:\x)", "/y"));
}

TEST(PathResolver, BeginEnd) {
  PathResolver resolver = With({"a", "b", "c"});
  const PathResolver& constant = resolver;
  EXPECT_EQ(&*resolver.begin(), &resolver[0]);
  EXPECT_EQ(&*constant.begin(), &resolver[0]);
  EXPECT_EQ(resolver.end() - resolver.begin(), 3);
  EXPECT_EQ(constant.end() - constant.begin(), 3);
  for (Path& entry : resolver) entry = entry / "x";
  EXPECT_THAT(Entries(constant), ElementsAre(R"(a\x)", R"(b\x)", R"(c\x)"));

  PathResolver empty = With({});
  EXPECT_EQ(empty.begin(), empty.end());
  EXPECT_EQ(std::as_const(empty).begin(), std::as_const(empty).end());
  EXPECT_EQ(empty.Size(), 0u);
}

TEST(PathResolver, Erase) {
  struct Row {
    std::ptrdiff_t position;
    std::vector<std::string> left;
  };
  const Row rows[] = {
      {0, {"b", "c", "b"}}, {1, {"a", "c", "b"}}, {2, {"a", "b", "b"}}, {3, {"a", "b", "c"}}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.position);
    PathResolver resolver = With({"a", "b", "c", "b"});
    resolver.Erase(resolver.begin() + row.position);
    EXPECT_EQ(Entries(resolver), row.left);
    PathResolver again = With({"a", "b", "c", "b"});
    again.Erase(std::as_const(again).begin() + row.position);
    EXPECT_EQ(Entries(again), row.left);
  }
}

TEST(PathResolver, EraseFirst) {
  PathResolver resolver;
  resolver.Append("a");
  resolver.Erase(resolver.begin());
  ASSERT_EQ(resolver.Size(), 1u);
  EXPECT_EQ(resolver[0].Str(), "a");
  resolver.Erase(std::find(resolver.begin(), resolver.end(), Path("a")));
  EXPECT_EQ(resolver.Size(), 0u);
  resolver.Prepend("b");
  EXPECT_THAT(Entries(resolver), ElementsAre("b"));
}

// ---- copies ----

TEST(PathResolver, Copy) {
  PathResolver original = With({"a", "b"});
  PathResolver copy(original);
  EXPECT_THAT(Entries(copy), ElementsAre("a", "b"));
  EXPECT_NE(&copy[0], &original[0]);
  original[0] = Path("x");
  original.Append("y");
  EXPECT_THAT(Entries(copy), ElementsAre("a", "b"));
  copy.Erase(copy.begin());
  EXPECT_THAT(Entries(original), ElementsAre("x", "b", "y"));
}

TEST(PathResolver, CopyLives) {
  auto original = std::make_unique<PathResolver>(With({"a", R"(C:\b)"}));
  const PathResolver copy(*original);
  PathResolver assigned;
  assigned = *original;
  original.reset();
  EXPECT_THAT(Entries(copy), ElementsAre("a", R"(C:\b)"));
  EXPECT_THAT(Entries(assigned), ElementsAre("a", R"(C:\b)"));
}

TEST(PathResolver, Assign) {
  PathResolver original = With({"a", "b"});
  PathResolver target = With({"1", "2", "3"});
  EXPECT_EQ(&(target = original), &target);
  EXPECT_THAT(Entries(target), ElementsAre("a", "b"));
  original[1] = Path("x");
  EXPECT_THAT(Entries(target), ElementsAre("a", "b"));
  target = With({});
  EXPECT_EQ(target.Size(), 0u);
  EXPECT_THAT(Entries(original), ElementsAre("a", "x"));
}

TEST(PathResolver, SelfAssign) {
  PathResolver resolver = With({"a", "b", R"(C:\c)"});
  const PathResolver& same = resolver;
  EXPECT_EQ(&(resolver = same), &resolver);
  EXPECT_THAT(Entries(resolver), ElementsAre("a", "b", R"(C:\c)"));
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
      {"only-first.txt", R"(first\only-first.txt)", R"(first\only-first.txt)"},
      {"only-second.txt", R"(second\only-second.txt)", R"(second\only-second.txt)"},
      {"folder", R"(first\folder)", R"(second\folder)"},
      {"folder/deep", R"(second\folder\deep)", R"(second\folder\deep)"},
      {R"(folder\deep/file.txt)", R"(second\folder\deep\file.txt)",
       R"(second\folder\deep\file.txt)"},
      {R"(\only-second.txt)", R"(second\only-second.txt)", R"(second\only-second.txt)"},
      {".", R"(first\.)", R"(second\.)"},
      {"../here.txt", R"(first\..\here.txt)", R"(second\..\here.txt)"},
      {"../second/both.txt", R"(first\..\second\both.txt)", R"(second\..\second\both.txt)"},
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

TEST_F(ResolveTest, Absolute) {
  const PathResolver resolver =
      With({directory.Text("missing"), directory.Text("first"), directory.Text("second")});
  ExpectSamePath(resolver.Resolve("both.txt"), directory.Text("first/both.txt"));
  ExpectSamePath(resolver.Resolve("only-second.txt"), directory.Text("second/only-second.txt"));
}

TEST_F(ResolveTest, Dots) {
  const PathResolver resolver = With({"missing/../first", "here.txt/.."});
  ExpectSamePath(resolver.Resolve("only-first.txt"), R"(missing\..\first\only-first.txt)");
  ExpectSamePath(resolver.Resolve("missing/../here.txt"), R"(here.txt\..\missing\..\here.txt)");
}

TEST_F(ResolveTest, CwdFirst) {
  ExpectSamePath(PathResolver().Resolve("here.txt"), directory.Text("here.txt"));
  ExpectSamePath(PathResolver().Resolve("first/both.txt"), directory.Text("first/both.txt"));
}

TEST_F(ResolveTest, SearchOrder) {
  directory.Write("both.txt", "");
  PathResolver appended;
  appended.Append("first");
  ExpectSamePath(appended.Resolve("both.txt"), directory.Text("both.txt"));
  ExpectSamePath(appended.Resolve("only-first.txt"), R"(first\only-first.txt)");

  PathResolver prepended;
  prepended.Prepend("first");
  ExpectSamePath(prepended.Resolve("both.txt"), R"(first\both.txt)");
  ExpectSamePath(prepended.Resolve("here.txt"), directory.Text("here.txt"));
  prepended.Prepend("second");
  ExpectSamePath(prepended.Resolve("both.txt"), R"(second\both.txt)");
  prepended.Erase(prepended.begin());
  ExpectSamePath(prepended.Resolve("both.txt"), R"(first\both.txt)");
}

TEST_F(ResolveTest, NotFound) {
  const std::vector<Path> values = {
      "nowhere.txt",
      "folder/../nowhere/./x",
      "here.txt/x",
      "first/both.txt",  // not below an entry
      Posix("nowhere/a\\b"),
      Parsed("nowhere", kNoType),
      R"(C:\no\such\directory)",
      directory.Text("here.txt"),
      R"(\\srv\share\x)",
      Posix("/nowhere"),
      "",
  };
  const PathResolver missing = With({"missing", directory.Text("missing"), "here.txt/x"});
  const PathResolver empty = With({});
  for (const Path& value : values) {
    SCOPED_TRACE(value.Str());
    ExpectSamePath(missing.Resolve(value), value);
    ExpectSamePath(empty.Resolve(value), value);
  }
  const Path relative = With({"first", "second"}).Resolve("nowhere.txt");
  ExpectSamePath(relative, "nowhere.txt");
  EXPECT_FALSE(relative.IsAbsolute());
}

// The join returns the directory unchanged, so the first existing directory is the result (by
// design).
TEST_F(ResolveTest, AbsoluteValue) {
  const Path values[] = {
      directory.Text("here.txt"),         // exists
      directory.Text("second/both.txt"),  // exists below an entry
      R"(C:\no\such\file.txt)",
      R"(\\srv\share\file.txt)",
      R"(\\?\C:\no\such\file.txt)",
      R"(UNC\srv\share)",
      Posix("/usr/lib"),
      Posix("/"),
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
  for (const Path& value : {Posix("both.txt"), Posix("nowhere.txt"), Posix(""),
                            Parsed("both.txt", kNoType), Parsed("/both.txt", kNoType)}) {
    SCOPED_TRACE(value.Str());
    ExpectSamePath(With({"first", "second"}).Resolve(value), "first");
    ExpectSamePath(With({"missing", "second"}).Resolve(value), "second");
  }
  for (const Path& value : {Path("both.txt"), Path("nowhere.txt"), Path(""), Path("C:/x")}) {
    SCOPED_TRACE(value.Str());
    ExpectSamePath(With({Posix("first"), Posix("second")}).Resolve(value), Posix("first"));
    ExpectSamePath(With({Posix("missing"), Posix("second")}).Resolve(value), Posix("second"));
  }
}

TEST_F(ResolveTest, MixedTypes) {
  const PathResolver resolver = With({Posix("missing"), "first", Posix("second")});
  ExpectSamePath(resolver.Resolve("both.txt"), R"(first\both.txt)");
  ExpectSamePath(resolver.Resolve("nowhere.txt"), Posix("second"));
  ExpectSamePath(resolver.Resolve(Posix("only-second.txt")), "first");
  ExpectSamePath(With({Posix("first"), Posix("second")}).Resolve(Posix("only-second.txt")),
                 Posix("second/only-second.txt"));
}

TEST_F(ResolveTest, EmptyEntry) {
  const PathResolver resolver = With({Path(), "first"});
  ExpectSamePath(resolver.Resolve("here.txt"), "here.txt");
  ExpectSamePath(resolver.Resolve("only-first.txt"), R"(first\only-first.txt)");
  ExpectSamePath(resolver.Resolve(R"(C:\x)"), "first");  // an empty path does not exist
}

TEST_F(ResolveTest, Duplicates) {
  const PathResolver resolver = With({"first", "first", "second", "first"});
  ExpectSamePath(resolver.Resolve("both.txt"), R"(first\both.txt)");
  ExpectSamePath(resolver.Resolve("only-second.txt"), R"(second\only-second.txt)");
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
  const PathResolver resolver = With({"missing", "first", "second"});
  const Path value("only-second.txt");
  Path found = resolver.Resolve(value);
  found = L"changed";
  Path directoryFound = resolver.Resolve(R"(C:\x)");
  directoryFound = L"changed";
  static_cast<void>(resolver.Resolve("nowhere.txt"));
  EXPECT_THAT(Entries(resolver), ElementsAre("missing", "first", "second"));
  EXPECT_EQ(value.Str(), "only-second.txt");
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
  EXPECT_EQ(Printed(With({R"(C:\work)", "a/b", R"(C:\work)"})),
            "resolver[\n<flush>"
            "  \"C:\\work\",\n<flush>"
            "  \"a\\b\",\n<flush>"
            "  \"C:\\work\"\n<flush>"
            "]");
}

TEST(ResolverString, Windows) {
  const std::string name300(300, 'x');
  const PathResolver resolver =
      With({Posix("/usr/lib"), Path(), R"(\\srv\share\f)", R"(C:\)" + name300, "say \"hi\", x",
            "\xC3\xA4/\xE2\x82\xAC", Path("C:/").ParentPath()});
  EXPECT_EQ(Printed(resolver),
            "resolver[\n<flush>"
            "  \"/usr\\lib\",\n<flush>"
            "  \"\",\n<flush>"
            "  \"\\\\srv\\share\\f\",\n<flush>"
            "  \"\\\\?\\C:\\" +
                name300 +
                "\",\n<flush>"
                "  \"say \"hi\", x\",\n<flush>"
                "  \"\xC3\xA4\\\xE2\x82\xAC\",\n<flush>"
                "  \"\"\n<flush>"
                "]");
}

TEST(ResolverString, CwdFirst) {
  std::ostringstream out;
  out << "<" << PathResolver() << ">";
  EXPECT_EQ(out.str(), "<resolver[\n  \"" + Path::Getcwd().Str() + "\"\n]>");
}

TEST(ResolverString, Order) {
  PathResolver resolver = With({"b"});
  resolver.Prepend("a");
  resolver.Append("c");
  std::ostringstream out;
  out << resolver;
  EXPECT_EQ(out.str(), "resolver[\n  \"a\",\n  \"b\",\n  \"c\"\n]");
  resolver.Erase(resolver.end() - 1);
  out.str("");
  out << resolver;
  EXPECT_EQ(out.str(), "resolver[\n  \"a\",\n  \"b\"\n]");
}

}  // namespace
