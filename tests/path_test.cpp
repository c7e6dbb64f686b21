#include "common/path.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clocale>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <iterator>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "reference/path.h"
#include "reference/utf.h"
#include "support/all_texts.h"
#include "support/native_name.h"
#include "support/paths.h"
#include "support/recording_logger.h"
#include "support/scoped_directory.h"
#include "support/thread_locale.h"
#include "support/wine.h"

namespace {

using tarsio::MakeDir;
using tarsio::MakeDirs;
using tarsio::Path;
using tarsio_test::ForEachText;
using tarsio_test::kNoType;
using tarsio_test::LogRecords;
using tarsio_test::NativeName;
using tarsio_test::Parsed;
using tarsio_test::Posix;
using tarsio_test::RunsUnderWine;
using tarsio_test::ScopedDirectory;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr auto kNegativeType = static_cast<Path::PathType>(-1);

const std::string kLongPrefix = R"(\\?\)";
const std::string kLongSharePrefix = R"(\\?\UNC\)";

static_assert(Path::WINDOWS_PATH == 0 && Path::POSIX_PATH == 1,
              "the values belong to the interface");
static_assert(std::is_same<std::underlying_type<Path::PathType>::type, int32_t>::value, "32 bits");
static_assert(std::is_convertible<Path::PathType, int>::value, "unscoped");
static_assert(std::is_same<decltype(Path().Length()), uint64_t>::value, "64 bits");
static_assert(std::is_same<decltype(Path().FileSize()), uint64_t>::value, "64 bits");
static_assert(std::is_nothrow_move_constructible<Path>::value &&
                  std::is_nothrow_move_assignable<Path>::value,
              "containers move paths instead of copying them");

// Parsed as `type`, with the flag of the share that the object held before.
Path ShareFlagged(const std::string& text, Path::PathType type) {
  Path path(R"(\\srv\share)");
  path.Set(text, type);
  return path;
}

// ---- observable state ----

// The share flag is visible through the parent: the POSIX parse keeps the flag and makes the path
// absolute, and the parent is of Windows type and prints the flag.
bool IsShare(Path path) {
  path.Set("/", Path::POSIX_PATH);
  return path.ParentPath().Str() == R"(\\)";
}

// Only paths of the same type can be joined.
bool HasType(const Path& path, Path::PathType type) {
  return (path / Parsed("x", type)).Length() == path.Length() + 1;
}

// All that a path holds: "[C:][a] absolute Windows".
std::string State(const Path& path) {
  std::string components;
  Path left = path;
  for (; left.Length() > 0; left = left.ParentPath()) {
    components.insert(0, '[' + left.Filename() + ']');
  }
  EXPECT_EQ(path.Empty(), components.empty());
  std::string state = components + (path.IsAbsolute() ? " absolute" : " relative");
  if (IsShare(path)) state += " share";
  if (HasType(path, Path::WINDOWS_PATH)) state += " Windows";
  if (HasType(path, Path::POSIX_PATH)) state += " POSIX";
  if (HasType(path, kNoType)) state += " 7";
  if (HasType(path, kNegativeType)) state += " -1";
  return state;
}

void ExpectDefault(const Path& path) { EXPECT_EQ(State(path), " relative Windows"); }

// Of each type, with and without flags and components.
std::vector<Path> AllKinds() {
  return {Path(),
          R"(\\srv\share\f)",
          R"(C:\a)",
          "a",
          Posix("/usr/lib"),
          Parsed("usr", kNoType),
          ShareFlagged("/usr/lib", kNoType)};
}

std::string Repeat(const std::string& text, size_t count) {
  std::string repeated;
  for (size_t i = 0; i < count; ++i) repeated += text;
  return repeated;
}

// Makes a std::string from a literal, including its NULs.
template <size_t N>
std::string Bytes(const char (&literal)[N]) {
  return std::string(literal, N - 1);
}

// ---- construction ----

TEST(Path, Default) {
  const char* const narrow = nullptr;
  const wchar_t* const wide = nullptr;
  Path assigned(R"(C:\a)");
  assigned = wide;
  for (const Path& path : {Path(), Path(narrow), Path(wide), assigned}) {
    ExpectDefault(path);
    EXPECT_EQ(path.Str() + path.Str(Path::POSIX_PATH), "");
    EXPECT_EQ(path.Wstr(), L"");
  }
}

// Strings convert implicitly, and pointers end at a NUL.
TEST(Path, Strings) {
  const Path constructed[] = {"C:\\a/b\0/c", std::string(R"(C:\a/b)"), L"C:\\a/b\0/c",
                              std::wstring(LR"(C:\a/b)")};
  for (const Path& path : constructed) EXPECT_EQ(State(path), "[C:][a][b] absolute Windows");

  Path path = Posix("/usr");
  EXPECT_EQ(&(path = L"\\\\srv\\share\\f\0/c"), &path);
  EXPECT_EQ(State(path), "[srv][share][f] absolute share Windows");
  EXPECT_EQ(&(path = R"(C:\a)"), &path);
  EXPECT_EQ(State(path), "[C:][a] absolute Windows");
  EXPECT_EQ(&(path = std::wstring(LR"(D:\b)")), &path);
  EXPECT_EQ(path.Str(), R"(D:\b)");
  EXPECT_EQ(&(path = std::string(R"(E:\c)")), &path);
  EXPECT_EQ(path.Str(), R"(E:\c)");
}

// Only the components are moved.
TEST(Path, CopiesAndMoves) {
  for (Path original : AllKinds()) {
    const std::string state = State(original);
    const std::string withoutComponents = state.substr(state.find(' '));
    Path assigned("z");
    EXPECT_EQ(&(assigned = original), &assigned);
    for (Path copy : {original, assigned}) {
      EXPECT_EQ(State(copy), state);
      copy = R"(Z:\changed)";
      EXPECT_EQ(State(original), state);
    }
    Path constructed(std::move(original));
    EXPECT_EQ(State(constructed), state);
    EXPECT_EQ(State(original), withoutComponents);  // NOLINT(bugprone-use-after-move): under test
    EXPECT_EQ(&(assigned = std::move(constructed)), &assigned);
    EXPECT_EQ(State(assigned), state);
    EXPECT_EQ(State(constructed), withoutComponents);  // NOLINT(bugprone-use-after-move): likewise
  }
}

// ---- parsing: Path.RandomStrings checks all rules; these are examples ----

struct ParseRow {
  std::string text;
  std::string state;
};

TEST(Path, WindowsParsing) {
  const ParseRow rows[] = {
      {R"(.\..\ a . \b. //c/)", "[.][..][ a . ][b. ][c] relative"},  // nothing is normalized
      // a drive
      {R"(c:\A\b)", "[c:][A][b] absolute"},
      {"C:/D:/", "[C:][D:] absolute"},
      // not the root of a drive
      {"C:", "[C:] relative"},
      {R"(C:name\x)", "[C:name][x] relative"},
      {"/usr/lib", "[usr][lib] relative"},
      // a share
      {R"(\\srv/share\f)", "[srv][share][f] absolute share"},
      {R"(\\srv\\)", "[srv] absolute share"},
      {R"(\\\)", " absolute share"},
      // a server without a share, and other separators
      {R"(\\srv)", "[srv] relative"},
      {"//srv/share", "[srv][share] relative"},
      {R"(\/srv\share)", "[srv][share] relative"},
      // the long-path prefix
      {R"(\\?\C:/x\y)", "[C:][x][y] absolute"},
      {R"(\\?\UNC\srv\share\f)", "[srv][share][f] absolute share"},
      {R"(\\?\\\?\C:\x)", "[?][C:][x] absolute share"},  // is removed once
      {R"(\\?/C:/x)", "[?][C:][x] absolute share"},      // has only backslashes
      // components end at the first NUL
      {Bytes("x/abc\0def"), "[x][abc] relative"},
      {Bytes("x/\0yz//"), "[x][] relative"},
      {Bytes("\0abc"), "[] relative"},
  };
  for (const ParseRow& row : rows) {
    SCOPED_TRACE(row.text);
    const std::string state = row.state + " Windows";
    const std::wstring wide = reference::Widen(row.text);
    EXPECT_EQ(State(row.text), state);
    EXPECT_EQ(State(wide), state);
    for (Path path : AllKinds()) {
      path.Set(row.text);
      EXPECT_EQ(State(path), state);
      path = ShareFlagged("/z", Path::POSIX_PATH);
      path.Set(wide);
      EXPECT_EQ(State(path), state);
    }
  }
}

// Any type but Windows parses as POSIX (by design).
TEST(Path, UnknownType) {
  const ParseRow rows[] = {
      {"/usr/lib", "[usr][lib] absolute"},      {"///", " absolute"},
      {R"(a//b\\c/)", R"([a][b\\c] relative)"}, {R"(\\?\C:\x)", R"([\\?\C:\x] relative)"},
      {R"(UNC\srv)", R"([UNC\srv] relative)"},  {"C:/./..", "[C:][.][..] relative"},
      {Bytes("a\0b\0c"), "[a] relative"},
  };
  const std::pair<Path::PathType, std::string> types[] = {
      {Path::POSIX_PATH, " POSIX"}, {kNoType, " 7"}, {kNegativeType, " -1"}};
  for (const ParseRow& row : rows) {
    for (const auto& [type, suffix] : types) {
      EXPECT_EQ(State(Parsed(row.text, type)), row.state + suffix) << row.text;
      Path wide;
      wide.Set(reference::Widen(row.text), type);
      EXPECT_EQ(State(wide), row.state + suffix) << row.text;
    }
  }
}

// Only Windows parsing writes the flag (by design).
TEST(Path, PosixShare) {
  for (const Path::PathType type : {Path::POSIX_PATH, kNoType, kNegativeType}) {
    const Path absolute = ShareFlagged("/usr/lib/x", type);
    EXPECT_TRUE(IsShare(absolute));
    EXPECT_EQ(absolute.ParentPath().Str(), R"(\\usr\lib)");
    EXPECT_EQ(absolute.Str(), type == Path::POSIX_PATH ? R"(/usr\lib\x)" : R"(\\usr\lib\x)");
    EXPECT_TRUE(IsShare(ShareFlagged("usr", type)));
    EXPECT_EQ(ShareFlagged("usr", type).Str(), "usr");
  }
}

// "\\?\UNC\srv\share" without the prefix has this form (by design).
TEST(Path, RelativeUnc) {
  EXPECT_EQ(State(R"(UNC\srv\share)"), "[srv][share] absolute share Windows");
  EXPECT_EQ(Path(R"(UNC\srv\share)").Str(), R"(\\srv\share)");
  EXPECT_EQ(State(R"(UNC\)"), " absolute share Windows");
  for (const char* const text : {"UNC/srv", R"(unc\srv)", R"(UNCX\srv)", R"(\UNC\srv)", "UNC"}) {
    EXPECT_FALSE(Path(text).IsAbsolute()) << text;
  }
  // A relative "UNC/x" prints as such a string.
  EXPECT_TRUE(Path(Path("UNC/x").Str()).IsAbsolute());
}

TEST(Path, DriveLetters) {
  const std::string before = std::setlocale(LC_CTYPE, nullptr);
  tarsio_test::FindTestLocales();
  int known = 0;
  for (const char* const locale :
       {"C", "C.UTF-8", "en_US.ISO-8859-1", "ru_RU.CP1251", ".1252", ".1251"}) {
    if (std::setlocale(LC_CTYPE, locale) == nullptr) continue;
    ++known;
    for (int byte = 1; byte < 256; ++byte) {
      const std::string text = std::string(1, static_cast<char>(byte)) + R"(:\x)";
      const bool letter = (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z');
      EXPECT_EQ(Path(text).IsAbsolute(), letter) << locale << " " << byte;
      EXPECT_EQ(Path(kLongPrefix + text).IsAbsolute(), letter) << locale << " " << byte;
    }
  }
  EXPECT_GE(known, 3);
  std::setlocale(LC_CTYPE, before.c_str());
}

// ---- tokenizing ----

class Tokenizer : public Path {
 public:
  using Path::Tokenize;
};

template <typename T, typename = void>
struct CanTokenize : std::false_type {};
template <typename T>
struct CanTokenize<T, std::void_t<decltype(&T::Tokenize)>> : std::true_type {};

template <typename T, typename = void>
struct HasLimit : std::false_type {};
template <typename T>
struct HasLimit<T, std::void_t<decltype(&T::MAX_PATH_WINDOWS)>> : std::true_type {};

static_assert(CanTokenize<Tokenizer>::value && !CanTokenize<Path>::value, "protected");
static_assert(!HasLimit<Tokenizer>::value, "private");

TEST(PathTokenize, NoEmpty) {
  struct Row {
    std::string text;
    std::string delimiters;
    std::vector<std::string> components;
  };
  const Row rows[] = {
      {R"(/\/)", R"(/\)", {}},
      {R"(a\\b/c/)", R"(/\)", {"a", "b", "c"}},
      {"a/b", "", {"a/b"}},
      {"a b,c; d", ",; ", {"a", "b", "c", "d"}},
      {". ../\xFF", "/", {". ..", "\xFF"}},
      {Bytes("\0\0"), Bytes("\0"), {}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE("\"" + row.text + "\" by \"" + row.delimiters + "\"");
    EXPECT_EQ(Tokenizer::Tokenize(row.text, row.delimiters), row.components);
  }
}

void ExpectOutOfRange(const std::function<void()>& parse) {
  try {
    parse();
    ADD_FAILURE() << "no exception";
  } catch (const std::out_of_range& error) {
    EXPECT_STREQ(error.what(), "invalid string position");
  }
}

// No component may start after a NUL.
TEST(PathTokenize, AfterNul) {
  for (const std::string& text : {Bytes("a\0/b"), Bytes("x/a\0b/c/d"), Bytes("x/\0/b")}) {
    SCOPED_TRACE(testing::PrintToString(text));
    const std::wstring wide(text.begin(), text.end());
    Path path("of/before");
    ExpectOutOfRange([&] { Tokenizer::Tokenize(text, "/"); });
    ExpectOutOfRange([&] { const Path built(text); });
    ExpectOutOfRange([&] { const Path built(wide); });
    ExpectOutOfRange([&] { path.Set(text, kNoType); });
    EXPECT_EQ(State(path), "[of][before] relative 7");
    ExpectOutOfRange([&] { path = wide; });
    EXPECT_TRUE(path.Empty());
    path = R"(C:\a)";  // the path is still usable
    EXPECT_EQ(path.Str(), R"(C:\a)");
  }
  ExpectOutOfRange([] { Tokenizer::Tokenize(Bytes("a\0b"), Bytes("\0")); });
  // The prefix and the drive are removed before the rest is split.
  ExpectOutOfRange([] { const Path built(Bytes("\\\\?\\C:\\a\0/b")); });
}

// ---- printing ----

// The prefix follows the type of the last parse, the separator follows the argument (by design).
TEST(Path, PrefixAndSeparator) {
  struct Row {
    Path path;
    std::string backslashes;
    std::string slashes;
  };
  const Row rows[] = {
      {R"(C:\a\b)", R"(C:\a\b)", "C:/a/b"},
      {R"(\\srv\share\f)", R"(\\srv\share\f)", R"(\\srv/share/f)"},
      {Posix("/usr/lib"), R"(/usr\lib)", "/usr/lib"},
      {Posix("/"), "/", "/"},
      {Parsed("/usr/lib", kNoType), R"(usr\lib)", "usr/lib"},
      {ShareFlagged("/usr/lib", kNoType), R"(\\usr\lib)", R"(\\usr/lib)"},
      {Path(Bytes("x/\0yz")) / "y", R"(x\\y)", "x//y"},  // an empty component
  };
  for (const Row& row : rows) {
    std::ostringstream out;
    out << row.path << ';';
    EXPECT_EQ(out.str(), row.backslashes + ';');
    EXPECT_EQ(row.path.Str(), row.backslashes);
    EXPECT_EQ(row.path.Str(kNegativeType), row.backslashes);
    EXPECT_EQ(row.path.Str(Path::POSIX_PATH), row.slashes);
    EXPECT_EQ(row.path.Wstr(), reference::Widen(row.backslashes));
    EXPECT_EQ(row.path.Wstr(Path::POSIX_PATH), reference::Widen(row.slashes));
  }
}

// From 260 bytes on; bytes count, not characters.
TEST(Path, LongPrefix) {
  const std::string drive = R"(C:\)" + Repeat("\xC3\xA9", 128);
  EXPECT_EQ(Path(drive).Str(), drive);
  EXPECT_EQ(Path(drive + "x").Str(), kLongPrefix + drive + "x");
  EXPECT_EQ(Path(kLongPrefix + drive).Str(), drive);
  const std::string share = R"(s\)" + std::string(255, 'x');
  EXPECT_EQ(Path(R"(\\)" + share).Str(), R"(\\)" + share);
  EXPECT_EQ(Path(R"(\\)" + share + "x").Str(), kLongSharePrefix + share + "x");
  const std::string name(70000, 'x');
  EXPECT_EQ((Path(R"(\\s\)") / name).Str(), kLongSharePrefix + R"(s\)" + name);
}

TEST(Path, NoLongPrefix) {
  const std::string name(300, 'x');
  EXPECT_EQ(Path(name).Str(), name);
  EXPECT_EQ(Path(R"(\\)" + name).Str(), name);
  EXPECT_EQ(ShareFlagged("/" + name, Path::POSIX_PATH).Str(), "/" + name);
  // but with other types
  EXPECT_EQ(Parsed("/" + name, kNoType).Str(), kLongPrefix + name);
  EXPECT_EQ(ShareFlagged("/" + name, kNoType).Str(), kLongSharePrefix + name);
}

// ---- joining and splitting: see Path.RandomStrings, too ----

TEST(Path, Join) {
  EXPECT_EQ(State(Path(R"(C:\a)") / R"(C:b\..)"), "[C:][a][C:b][..] absolute Windows");
  EXPECT_EQ(State(Path(R"(\\srv\share)") / "/f"), "[srv][share][f] absolute share Windows");
  EXPECT_EQ(State(Parsed("/a", kNoType) / Parsed("b", kNoType)), "[a][b] absolute 7");
  // The share flag of the right path is ignored.
  EXPECT_EQ(State(Posix("/a") / ShareFlagged("b/c", Path::POSIX_PATH)), "[a][b][c] absolute POSIX");
  const Path self("a/b");
  EXPECT_EQ((self / self / L"c" / std::string("d")).Str(), R"(a\b\a\b\c\d)");
}

// Neither throws nor logs (by design).
TEST(Path, JoinOfAbsolute) {
  const Path windows[] = {"a", Path(), R"(C:\a)", R"(\\srv\share)"};
  const Path absoluteOrOther[] = {R"(C:\b)",
                                  R"(\\srv\share\b)",
                                  R"(UNC\srv)",
                                  Path(R"(C:\)").ParentPath(),  // absolute without components
                                  Posix("b"),
                                  Posix(""),
                                  Parsed("b", kNoType)};
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  for (const Path& left : windows) {
    for (const Path& right : absoluteOrOther) EXPECT_EQ(State(left / right), State(left));
  }
  EXPECT_EQ(State(Posix("/a") / "b"), "[a] absolute POSIX");
  EXPECT_EQ(State(Posix("/a") / Posix("/b")), "[a] absolute POSIX");
  EXPECT_EQ(State(Parsed("a", kNoType) / Parsed("b", kNegativeType)), "[a] relative 7");
  EXPECT_THAT(records->All(), IsEmpty());
}

// The type is not copied (by design).
TEST(Path, ParentIsWindows) {
  const std::pair<Path, std::string> rows[] = {
      {R"(C:\a\b)", "[C:][a] absolute"},
      {Path(R"(C:\)").ParentPath(), " absolute"},
      {R"(\\srv\share)", "[srv] absolute share"},
      {"", "[..] relative"},
      {"..", " relative"},
      {Posix("/usr/lib"), "[usr] absolute"},
      {Posix(""), "[..] relative"},
      {Parsed("usr/lib", kNoType), "[usr] relative"},
  };
  for (const auto& [path, parent] : rows) {
    EXPECT_EQ(State(path.ParentPath()), parent + " Windows") << path;
  }
}

TEST(Path, Extension) {
  const std::pair<Path, std::string> rows[] = {{R"(C:\a\b.txt)", "txt"},
                                               {"a.tar.gz", "gz"},
                                               {".bashrc", "bashrc"},
                                               {"name.", ""},
                                               {"name", ""},
                                               {Posix(R"(/a.b\c)"), R"(b\c)"}};
  for (const auto& [path, extension] : rows) EXPECT_EQ(path.Extension(), extension) << path;
}

// Type and flags are not compared (by design).
TEST(Path, Equality) {
  const std::pair<Path, Path> equal[] = {
      {Posix("/a"), Parsed("a", kNoType)}, {R"(C:\)", "C:"}, {R"(\\srv\share)", "srv/share"}};
  for (const auto& [left, right] : equal) {
    EXPECT_TRUE(left == right && right == left) << left;
    EXPECT_FALSE(left != right) << left;
  }
  const std::pair<Path, Path> unequal[] = {{"a", "A"},
                                           {"a", ""},
                                           {"a/b", "a/c"},
                                           {"\xC3\xA9", "e\xCC\x81"},
                                           {Posix(R"(a\b)"), R"(a\b)"},
                                           {Bytes("\0"), ""}};
  for (const auto& [left, right] : unequal) {
    EXPECT_FALSE(left == right || right == left) << left;
    EXPECT_TRUE(left != right) << left;
  }
}

// ---- UTF-8 and UTF-16: Path.AllConversions checks all rules; these are examples ----

TEST(Path, Utf8) {
  EXPECT_EQ(Path("\xEF\xBB\xBFx").Wstr(), L"\xFEFFx") << "a byte order mark is kept";
  EXPECT_EQ(Path("e\xCC\x81").Wstr(), L"e\x301") << "nothing is composed";
  EXPECT_EQ(Path("\xED\xA0\x80").Wstr(), L"\xFFFD\xFFFD");
  EXPECT_EQ(Path("a\xFF\xED\xA0").Str(), "a\xFF\xED\xA0") << "components keep their bytes";
  EXPECT_EQ(Path(L"z\xD83D").Str(), "z\xEF\xBF\xBD");
}

TEST(Path, WideUnits) {
  if constexpr (sizeof(wchar_t) > 2) {
    const auto wide = [](uint32_t character) {
      return std::wstring(1, static_cast<wchar_t>(character));
    };
    EXPECT_EQ(Path(wide(0x10000)).Str(), "\xF0\x90\x80\x80");
    EXPECT_EQ(Path(wide(0x10FFFF)).Str(), "\xF4\x8F\xBF\xBF");
    EXPECT_EQ(Path(wide(0xD83D) + wide(0x1F600)).Str(), "\xEF\xBF\xBD\xF0\x9F\x98\x80");
    EXPECT_EQ(Path(wide(0x110000)).Str(), "\xEF\xBF\xBD");
    EXPECT_EQ(Path(wide(0xFFFFFFFF)).Str(), "\xEF\xBF\xBD");
    // Wstr() always returns 16-bit units.
    EXPECT_EQ(Path(wide(0x1F600)).Wstr(), L"\xD83D\xDE00");
  }
}

// All sequences of the first and last bytes and units of each range.
TEST(Path, AllConversions) {
  const std::string bytes =
      "\x7F\x80\x8F\x90\x9F\xA0\xBF\xC0\xC1\xC2\xDF\xE0\xE1\xEC\xED\xEE\xEF\xF0\xF1\xF3\xF4\xF5"
      "\xFF";
  // Wine drops the rest after an incomplete sequence at the end.
  const std::string end = RunsUnderWine() ? "aaa" : "";
  ForEachText(bytes, 4, [&](const std::string& text) {
    ASSERT_EQ(Posix(text + end).Wstr(), reference::Widen(text + end))
        << testing::PrintToString(text);
  });
  const std::wstring units = L"a\x7F\x80\x7FF\x800\xD7FF\xD800\xDBFF\xDC00\xDFFF\xE000\xFFFF";
  ForEachText(units, 4, [](const std::wstring& text) {
    Path path;
    path.Set(text, Path::POSIX_PATH);
    ASSERT_EQ(path.Str(), reference::Narrow(text));
  });
}

// ---- random strings against a reference implementation ----

class RandomTexts {
 public:
  std::string Text() {
    static const std::vector<std::string> starts = {
        R"(\\?\)", R"(\\?\UNC\)", R"(\\)", R"(UNC\)", R"(C:\)", "C:/", "c:",  R"(\)", "/",  "//",
        "unc\\",   "z:\\",        "1:\\",  "\\\\?",   "UNC/",   "@:/", "[:/", "`:/",  "{:/"};
    static const std::vector<std::string> pieces = {
        "/", "\\",  "/",        "\\", ".",    "..",   "a",     "b.c",      "C:", " ",
        "?", "UNC", "\xC3\xA9", ":",  "\\\\", "\xFF", "\\?\\", "name.txt", "..."};
    std::string text;
    while (Below(2) == 0) text += starts[Below(starts.size())];
    for (uint64_t left = Below(8); left > 0; --left) text += pieces[Below(pieces.size())];
    // Lengths around the one where the long prefix begins.
    if (Below(8) == 0) {
      const size_t length = 250 + Below(20);
      const std::string filler = Below(2) == 0 ? "x" : "x\\y/";
      while (text.size() < length) text += filler;
    }
    if (Below(32) == 0) text.insert(Below(text.size() + 1), 1, '\0');
    return text;
  }

  Path::PathType Type() {
    const uint64_t choice = Below(8);
    if (choice < 4) return Path::WINDOWS_PATH;
    return choice < 6 ? Path::POSIX_PATH
                      : static_cast<Path::PathType>(static_cast<int32_t>(random()));
  }

 private:
  uint64_t Below(uint64_t limit) { return random() % limit; }

  std::mt19937_64 random{3141592653};
};

void ExpectSame(const Path& path, const reference::Path& model, Path::PathType style) {
  EXPECT_EQ(path.Str(style), model.Str(style));
  EXPECT_EQ(path.Length(), model.components.size());
  EXPECT_EQ(path.IsAbsolute(), model.absolute);
}

// All strings are parsed into the same path, so that state left by the previous parse would show.
// The path is then printed, joined with an earlier one and split.
TEST(Path, RandomStrings) {
  RandomTexts random;
  Path path;
  reference::Path model;
  Path earlier;
  reference::Path earlierModel;
  int refused = 0;
  for (int i = 0; i < 200000; ++i) {
    const std::string text = random.Text();
    const Path::PathType type = random.Type();
    const Path::PathType style = random.Type();
    try {
      model.Set(text, type);
    } catch (const std::out_of_range&) {
      ++refused;
      ExpectOutOfRange([&] { path.Set(text, type); });
      path = Path();
      model = reference::Path();
      continue;
    }
    path.Set(text, type);
    ExpectSame(path, model, Path::WINDOWS_PATH);
    ExpectSame(path, model, style);
    ExpectSame(path.ParentPath(), model.Parent(), style);
    ExpectSame(path / earlier, model.Joined(earlierModel), style);
    EXPECT_EQ(path == earlier, model.components == earlierModel.components);
    EXPECT_EQ(path.Filename(), model.Filename());
    EXPECT_EQ(path.Extension(), model.Extension());
    ASSERT_FALSE(HasFailure()) << testing::PrintToString(text) << " as type " << type;
    if (i % 3 == 0) {
      earlier = path;
      earlierModel = model;
    }
  }
  EXPECT_GT(refused, 1000);
}

// ---- absolute paths and the current directory ----

TEST(Path, Getcwd) {
  const ScopedDirectory directory;
  const std::string euro = "e\xE2\x82\xAC";
  const Path current = Path::Getcwd();
  EXPECT_EQ(State(current), State(directory.Text()));
  std::filesystem::create_directory(std::filesystem::u8path(euro));
  std::filesystem::current_path(std::filesystem::u8path(euro));
  EXPECT_EQ(Path::Getcwd(), current / euro);
  std::filesystem::current_path(directory.Native(""));
}

// On systems that can remove the current directory, its path is then unknown.
TEST(Path, GetcwdFails) {
  const ScopedDirectory directory;
  std::filesystem::create_directory("gone");
  std::filesystem::current_path("gone");
  std::error_code inUse;
  std::filesystem::remove(directory.Native("gone"), inUse);
  std::error_code unknown;
  const std::filesystem::path native = std::filesystem::current_path(unknown);
  if (unknown) {
    ExpectDefault(Path::Getcwd());
    ExpectDefault(Path("x").Absolute());
    EXPECT_FALSE(MakeDir("x") || MakeDirs("x/y"));
  } else {
    EXPECT_EQ(Path::Getcwd(), Path(native.u8string()));
  }
  std::filesystem::current_path(directory.Native(""));
}

// A relative path would otherwise be resolved against the wrong directory.
TEST(Path, GetcwdBackslash) {
  // Windows has no directories with such names.
  if (std::filesystem::path::preferred_separator == '\\') GTEST_SKIP() << "none on this system";
  const ScopedDirectory directory;
  for (const std::string name : {"a\\b", "a\xFF", "a:b"}) {
    SCOPED_TRACE(testing::PrintToString(name));
    std::filesystem::create_directories("a/b");
    std::filesystem::create_directories(name + "/d");
    for (const std::string& below : {name, name + "/d"}) {
      std::filesystem::current_path(directory.Native("") / below);
      ExpectDefault(Path::Getcwd());
      for (const char* const text : {"x", "..", "C:", "C:x", R"(\\?\x)"}) {
        ExpectDefault(Path(text).Absolute());
      }
      EXPECT_EQ(Path(R"(C:\x)").Absolute().Str(), R"(C:\x)");
      EXPECT_FALSE(MakeDir("x") || MakeDirs("y/z"));
    }
    EXPECT_TRUE(Path("../d").IsDirectory());  // does not need the directory's name
    std::filesystem::current_path(directory.Native(""));
    EXPECT_EQ(std::distance(std::filesystem::recursive_directory_iterator("."), {}), 4);
    std::filesystem::remove_all(name);
  }
}

// In an expected string "=" stands for the current directory.
struct AbsoluteRow {
  Path path;
  std::string full;
};

void ExpectFullPaths(const std::vector<AbsoluteRow>& rows) {
  const ScopedDirectory directory;
  const std::string current = Path::Getcwd().Str();
  for (const AbsoluteRow& row : rows) {
    SCOPED_TRACE("\"" + row.path.Str() + "\"");
    const std::string expected = row.full[0] == '=' ? current + row.full.substr(1) : row.full;
    const Path full = row.path.Absolute();
    EXPECT_EQ(full.Str(), expected);
    EXPECT_TRUE(full.IsAbsolute());
    EXPECT_TRUE(HasType(full, Path::WINDOWS_PATH));
  }
}

// PathAbsolute.AllDots checks all rules; these are examples.
TEST(PathAbsolute, Relative) {
  ExpectFullPaths({{"/A", R"(=\A)"},  // relative by the Windows rules
                   {R"(\\srv)", R"(=\srv)"},
                   {"c:", "="},
                   {R"(C:\)", "="},  // printed as "C:"
                   {R"(\\?\C:a)", R"(=\a)"},
                   {"\xC3\xA9/\xF0\x9F\x98\x80.", "=\\\xC3\xA9\\\xF0\x9F\x98\x80"},
                   {Posix(R"(a\\b/c/..)"), R"(=\a\b)"},
                   {Posix(R"(a\b\)"), R"(=\a\b)"},
                   {Posix("/a/../b"), R"(C:\b)"},
                   {Parsed("/a/b", kNoType), R"(=\a\b)"},
                   {Repeat(R"(..\)", 100) + R"(x\..\y)", R"(C:\y)"},
                   // inner components: only a single dot is dropped
                   {R"(x\ .\y)", R"(=\x\ \y)"},
                   {R"(x\.. \y)", R"(=\x\.. \y)"},
                   // the last component: all dots and spaces
                   {" a..b. . ", R"(=\ a..b)"},
                   {"...", "="},
                   {R"(x\..\ )", "="},
                   {R"(a. \b\..)", R"(=\a)"}});  // known after ".." is resolved
}

// Windows keeps several dots at the end of an inner component, and so does Linux. Wine does not.
TEST(PathAbsolute, InnerDots) {
  if (RunsUnderWine()) GTEST_SKIP() << "Wine drops one of several dots";
  ExpectFullPaths({{R"(a..\b)", R"(=\a..\b)"},
                   {R"(x\...\y)", R"(=\x\...\y)"},
                   {R"(x\ ..\y)", R"(=\x\ ..\y)"},
                   {R"(\\srv\..)", R"(\\srv)"},
                   {R"(\\srv\..\x)", R"(\\srv\x)"}});
}

// Every path of up to four of these components, after each of these roots.
TEST(PathAbsolute, AllDots) {
  const ScopedDirectory directory;
  const Path current = Path::Getcwd();
  std::vector<std::string> components = reference::SplitAtSeparators(current.Str());
  components.erase(components.begin());
  const std::vector<std::string> names = {"a", ".", "..", "b.", "c ", " ", "d. .", "e..f"};
  for (const std::string root :
       {"", "C:", "q:", R"(C:\)", R"(Q:\)", R"(\\srv\share\)", R"(\\.\)"}) {
    ForEachText(std::string("01234567"), 4, [&](const std::string& chosen) {
      std::string text = root;
      for (const char number : chosen) text += names[static_cast<size_t>(number - '0')] + '\\';
      const Path path(text);
      reference::Path full;
      full.Set(reference::FullPath(path.Str(), components), Path::WINDOWS_PATH);
      EXPECT_EQ(path.Absolute().Str(), full.Str(Path::WINDOWS_PATH)) << path;
    });
  }
}

TEST(PathAbsolute, SharesAndDevices) {
  ExpectFullPaths({{R"(\\?\UNC\srv\share\x\..\y)", R"(\\srv\share\y)"},
                   {R"(UNC\srv\share\a\..\b)", R"(\\srv\share\b)"},
                   {Posix("//srv/share/x"), R"(C:\srv\share\x)"},
                   {R"(\\.\C:\..\..\y)", R"(\\.\y)"},
                   {R"(\\.\x\..)", R"(\\.)"}});
  EXPECT_TRUE(IsShare(Path(R"(\\srv\share\..\x)").Absolute()));
  // A server without a share is relative.
  EXPECT_EQ(Posix(R"(\\srv)").Absolute().Str(), "srv");
  // Its printed form looks like a long path: "\\?\UNC\?\x\y".
  EXPECT_EQ(State(Path(R"(UNC\?\UNC\?\x\.\y)").Absolute()), "[?][x][y] absolute share Windows");
  // Passed to the system with the long prefix; there ".." removes the drive.
  const std::string name(300, 'x');
  EXPECT_EQ(State(Path(R"(C:\..\)" + name).Absolute()), "[" + name + "] relative Windows");
}

TEST(PathAbsolute, LongPaths) {
  const std::string name(300, 'x');
  ExpectFullPaths({{R"(C:\a\..\)" + name, R"(\\?\C:\)" + name},
                   {R"(C:\)" + name + R"(\..\b)", R"(C:\b)"},
                   {R"(C:\)" + name + ". ", R"(\\?\C:\)" + name},
                   {R"(\\srv\share\a\..\)" + name, R"(\\?\UNC\srv\share\)" + name},
                   {R"(\\srv\share\)" + name + R"(\..\b)", R"(\\srv\share\b)"},
                   {name + R"(\..\b)", R"(=\b)"}});
}

// UTF-16 units count, not bytes. The prefix is passed to the system and returned with the result.
TEST(PathAbsolute, Limit) {
  const ScopedDirectory directory;
  const size_t before = Path::Getcwd().Wstr().size() + 1;
  const std::pair<std::string, size_t> componentsAndUnits[] = {
      {"x", 1}, {R"(y\x)", 3}, {"\xC3\xA9", 1}, {"\xF0\x9F\x98\x80", 2}};
  for (const auto& [component, perComponent] : componentsAndUnits) {
    for (const size_t units : {32765u, 32766u, 32767u, 32768u, 70000u}) {
      SCOPED_TRACE(component + " " + std::to_string(units));
      const std::string text = std::string((units - before) % perComponent, 'x') +
                               Repeat(component, (units - before) / perComponent);
      const std::wstring full = Path(text).Absolute().Wstr();
      EXPECT_EQ(full.size(), units < 32767 ? units + kLongPrefix.size() : 0);
    }
  }
  for (const std::string& start : {kLongPrefix + R"(C:\)", kLongSharePrefix + R"(srv\share\)"}) {
    const Path longest(start + std::string(32766 - start.size(), 'x'));
    EXPECT_EQ(longest.Absolute().Str(), longest.Str());
    ExpectDefault(Path(start + std::string(32767 - start.size(), 'x')).Absolute());
  }
}

// ---- queries ----

// "missing", "directory" or the size of a file.
std::string Found(const Path& path) {
  const bool directory = path.IsDirectory();
  EXPECT_EQ(path.Exists(), directory || path.IsFile()) << path;
  EXPECT_FALSE(directory && path.IsFile()) << path;
  if (directory) return "directory";
  if (path.IsFile()) return std::to_string(path.FileSize());
  EXPECT_EQ(path.FileSize(), 0u) << path;
  return "missing";
}

void ExpectFound(const std::vector<std::pair<Path, std::string>>& rows) {
  for (const auto& [path, found] : rows) EXPECT_EQ(Found(path), found) << path;
}

// A directory with objects to query.
class PathQueries : public testing::Test {
 protected:
  PathQueries() {
    std::filesystem::create_directories("d/sub");
    std::filesystem::create_directories("UNC/sub");
    directory.Write("f", "12345");
    directory.Write("empty", "");
    directory.Write("d/g", "123");
  }

  const ScopedDirectory directory;
};

TEST_F(PathQueries, Kind) {
  ExpectFound({{"f", "5"},
               {"empty", "0"},
               {R"(d\sub)", "directory"},
               {"d//g//", "3"},  // trailing separators are dropped
               {".", "directory"},
               {"..", "directory"},
               {R"(d\sub\..\..\f)", "5"},
               // relative by the Windows rules
               {"/d", "directory"},
               {R"(\\d)", "directory"},
               {Posix(R"(d\g)"), "3"},
               {Parsed("/d/g", kNoType), "3"},
               {R"(d\missing)", "missing"},
               {R"(f\x)", "missing"},
               {" ", "missing"},
               {Path(), "missing"},
               {Path(R"(C:\)").ParentPath(), "missing"},
               {Repeat(R"(x\)", 5000), "missing"}});
}

// Dots are resolved before the system is called: the components they remove need not exist or be
// directories.
TEST_F(PathQueries, Dots) {
  const std::string name = Path::Getcwd().Filename();
  const std::string file = directory.Text("f").substr(2);
  ExpectFound({{R"(missing\x\.\..\..\d\g)", "3"},
               {R"(f\.)", "5"},
               {R"(f\..)", "directory"},
               {R"(f\..\missing)", "missing"},
               {R"(..\f)", "missing"},
               {R"(C:missing\..\f)", "5"},
               {R"(missing\..\..\)" + name + R"(\f)", "5"},
               {R"(..\missing\..\)" + name + R"(\f)", "5"},
               {directory.Text("missing/../d/./g"), "3"},
               {Posix("/missing/.." + file), "5"},
               // ".." stops at the root
               {R"(C:\..\..\.)", "directory"},
               {"C:/../missing/.." + file, "5"},
               {Repeat(R"(..\)", 100) + file.substr(1), "5"}});
}

TEST_F(PathQueries, LinkParent) {
  // mingw-w64's standard library cannot create links.
  std::error_code error;
  std::filesystem::create_directory_symlink("d/sub", "link", error);
  if (error) GTEST_SKIP() << "the standard library cannot create links here";
  ExpectFound({{"link", "directory"}, {R"(link\..\f)", "5"}, {R"(link\..\g)", "missing"}});
  EXPECT_EQ(Path(R"(link\..\f)").Absolute().Str(), Path(directory.Text("f")).Str());
}

// From 260 bytes on the printed form has the prefix, and each of its components is taken literally.
TEST_F(PathQueries, LongDots) {
  for (const std::string dots : {R"(\.)", R"(\d\..)"}) {
    const Path path(directory.Text() + Repeat(dots, 150) + R"(\f)");
    ExpectFound({{directory.Text() + Repeat(dots, 2) + R"(\f)", "5"}, {path, "missing"}});
    EXPECT_EQ(path.Absolute().Str(), Path(directory.Text("f")).Str());
  }
}

TEST_F(PathQueries, Drives) {
  EXPECT_EQ(Path("C:").Absolute(), Path::Getcwd());
  ExpectFound({{"C:", "directory"}, {"c:/", "directory"}, {R"(c:d\g)", "3"}, {"C:x", "missing"}});
  // Any code unit before a colon is a drive.
  for (const char* const text :
       {"Q:", R"(Q:\)", "Q:f", R"(Q:\..\f)", "1:", "1:f", "\xC3\xA9:", "\xC3\xA9:f",
        "\xE2\x82\xAC:\\f", ":", R"(\\.\C:\f)", R"(\\tarsio.invalid\share\f)"}) {
    EXPECT_EQ(Found(text), "missing") << text;
    EXPECT_EQ(Found(text + std::string(300, 'x')), "missing") << text;
  }
}

// The parser reads "UNC\" as a share (by design). With the long prefix, the printed form of a share
// begins with "UNC" as well.
TEST_F(PathQueries, Unc) {
  const std::string name(254, 'x');
  const Path relative = Path("UNC/sub") / name;
  const Path share(R"(\\sub\)" + name);
  ASSERT_EQ(share.Str(), kLongSharePrefix + R"(sub\)" + name);
  EXPECT_TRUE(MakeDir(relative));
  ExpectFound({{"UNC", "directory"},
               {"UNC/sub", "directory"},
               {R"(UNC\sub)", "missing"},
               {relative.Absolute(), "directory"},
               {share, "missing"}});
  EXPECT_FALSE(MakeDir(share / "x"));
  // The standard library does not support such long paths on every system.
  EXPECT_TRUE(std::filesystem::remove(NativeName(relative.Absolute())));
}

TEST_F(PathQueries, Absolute) {
  const std::string absolute = directory.Text("d/g");
  const std::string windows = Path(absolute).Str();
  // A path that begins with one separator is absolute, on the current drive.
  const std::string withoutDrive = absolute.substr(2);
  EXPECT_EQ(Posix(withoutDrive).Absolute().Str(), windows);
  ExpectFound({{absolute, "3"},
               {"c" + windows.substr(1), "3"},
               {kLongPrefix + absolute, "3"},
               {reference::Widen(windows), "3"},
               {directory.Text("d"), "directory"},
               {directory.Text("d/missing"), "missing"},
               {Posix(withoutDrive), "3"},
               {Posix("/"), "directory"},
               {Posix(withoutDrive + "/missing"), "missing"},
               {withoutDrive, "missing"}});  // relative by the Windows rules
}

TEST_F(PathQueries, NotCached) {
  const Path path("x");
  EXPECT_EQ(Found(path), "missing");
  directory.Write("x", "1");
  EXPECT_EQ(Found(path), "1");
  std::filesystem::current_path("d");
  ExpectFound({{path, "missing"}, {"C:g", "3"}, {"../f", "5"}});
  std::filesystem::current_path(directory.Native(""));
}

// There is no check for a regular file (by design).
TEST_F(PathQueries, Devices) {
  const bool windows = std::filesystem::path::preferred_separator == '\\';
  ExpectFound({{"NUL", windows ? "0" : "missing"}, {"C:/dev/null", windows ? "missing" : "0"}});
}

// ---- creating directories ----

class PathMakeDir : public testing::Test {
 protected:
  const ScopedDirectory directory;
};

TEST_F(PathMakeDir, Parents) {
  EXPECT_FALSE(MakeDir(R"(a\b\c)"));
  EXPECT_THAT(directory.Tree(), IsEmpty());
  EXPECT_TRUE(MakeDir("a"));
  EXPECT_TRUE(MakeDir(R"(a\b)"));
  EXPECT_TRUE(MakeDir("a/b/c/"));
  EXPECT_TRUE(MakeDirs(R"(x\y\z)"));
  EXPECT_TRUE(MakeDirs("x/y/d/e/"));
  EXPECT_THAT(directory.Tree(),
              ElementsAre("a", "a/b", "a/b/c", "x", "x/y", "x/y/d", "x/y/d/e", "x/y/z"));
}

TEST_F(PathMakeDir, Refused) {
  directory.Write("f", "12345");
  EXPECT_TRUE(MakeDir("a"));
  for (const char* const path : {"a", ".", "..", "C:", R"(C:\..)", R"(a\..)", "f", "f/x", "f/x/y",
                                 "Q:", "Q:x", R"(Q:\x\y)", "1:x", "\xC3\xA9:\\x", "\xE2\x82\xAC:x",
                                 R"(\\tarsio.invalid\share)", R"(UNC\tarsio.invalid\x\y)"}) {
    EXPECT_FALSE(MakeDir(path) || MakeDirs(path)) << path;
  }
  EXPECT_FALSE(MakeDirs(Repeat(R"(x\)", 20000)));
  // A server alone is printed without its separators and is a directory name here.
  EXPECT_FALSE(MakeDirs(Posix(R"(\\server)")));
  EXPECT_THAT(directory.Tree(), ElementsAre("a", "f"));
  EXPECT_EQ(directory.Read("f"), "12345");
}

// On Windows a colon starts a stream name, and a directory has no streams.
TEST_F(PathMakeDir, Colon) {
  if (RunsUnderWine()) GTEST_SKIP() << "Wine treats the colon as part of the name";
  for (const std::string text : {"ab:", "ab:x", "./a:", "\xF0\x9F\x98\x80:"}) {
    EXPECT_FALSE(MakeDir(text) || MakeDirs(text + "/y")) << text;
    EXPECT_EQ(Found(text), "missing") << text;
  }
  EXPECT_THAT(directory.Tree(), IsEmpty());
}

TEST_F(PathMakeDir, FullPath) {
  EXPECT_TRUE(MakeDirs(R"(missing\..\b\c)"));
  EXPECT_TRUE(MakeDir(R"(missing\..\d)"));
  EXPECT_TRUE(MakeDir("e. . "));
  EXPECT_TRUE(MakeDirs(R"(g.\h. )"));
  EXPECT_TRUE(MakeDirs(R"(C:i\j)"));
  EXPECT_TRUE(MakeDir(reference::Widen(directory.Text("k"))));
  EXPECT_TRUE(MakeDirs(kLongPrefix + Path(directory.Text("k/l")).Str()));
  EXPECT_TRUE(MakeDirs(Posix(directory.Text("m/n").substr(2))));
  EXPECT_TRUE(MakeDirs("\xE2\x82\xAC/\xF0\x9F\x98\x80"));
  EXPECT_THAT(directory.Tree(),
              ElementsAre("b", "b/c", "d", "e", "g", "g/h", "i", "i/j", "k", "k/l", "m", "m/n",
                          "\xE2\x82\xAC", "\xE2\x82\xAC/\xF0\x9F\x98\x80"));
}

// ---- logging and threads ----

TEST(Path, SilentFailures) {
  const ScopedDirectory directory;
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  // Neither only spaces nor a path that is too long has a full path.
  for (const Path& path :
       {Path(), Path("   "), Path(R"(C:\)").ParentPath(), Path(std::string(70000, 'x'))}) {
    ExpectDefault(path.Absolute());
    EXPECT_EQ(Found(path), "missing");
    EXPECT_FALSE(MakeDir(path) || MakeDirs(path));
  }
  for (const Path& path : {Path(R"(Q:\x)"), Path(R"(\\tarsio.invalid\share)")}) {
    EXPECT_EQ(Found(path), "missing");
    EXPECT_FALSE(MakeDir(path / "x" / "y"));
  }
  EXPECT_THROW(Path(Bytes("a\0/b")), std::out_of_range);
  EXPECT_THAT(records->All(), IsEmpty());
}

TEST(Path, ConstManyThreads) {
  const ScopedDirectory directory;
  directory.Write("f", "12345");
  const Path path(directory.Text("f"));
  const Path relative("a/b");
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 200; ++round) {
        EXPECT_EQ(Path(path.Wstr()).Str(), path.Str());
        EXPECT_EQ((path / relative).ParentPath().ParentPath(), path);
        EXPECT_EQ(path.Filename() + path.Extension(), "f");
        EXPECT_EQ(path.Absolute(), path);
        EXPECT_EQ(path.ParentPath(), Path::Getcwd());
        EXPECT_EQ(Found(path), "5");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
