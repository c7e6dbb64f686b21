#include "common/path.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <clocale>
#include <cstdint>
#include <filesystem>
#include <fstream>
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
#include "support/native_name.h"
#include "support/recording_logger.h"
#include "support/scoped_directory.h"
#include "support/thread_locale.h"
#include "support/wine.h"

namespace {

using tarsio::MakeDir;
using tarsio::MakeDirs;
using tarsio::Path;
using tarsio_test::LogRecords;
using tarsio_test::NativeName;
using tarsio_test::RunsUnderWine;
using tarsio_test::ScopedDirectory;
using testing::ElementsAre;
using testing::IsEmpty;

using Components = std::vector<std::string>;

constexpr auto kNoType = static_cast<Path::PathType>(7);
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

// Whether unrelated code can name a member of Path.
template <template <typename> class Member, typename = void>
struct AllReach : std::false_type {};
template <template <typename> class Member>
struct AllReach<Member, std::void_t<Member<Path>>> : std::true_type {};

template <typename T>
using Length = decltype(&T::Length);
template <typename T>
using Splitter = decltype(&T::Tokenize);
template <typename T>
using Limit = decltype(&T::MAX_PATH_WINDOWS);
template <typename T>
using LegacyLimit = decltype(&T::MAX_PATH_WINDOWS_LEGACY);
template <typename T>
using ShareOffset = decltype(&T::WIN_SMB_PATH_OFFSET);

static_assert(AllReach<Length>::value, "public; proves that the checks below can fail");
static_assert(!AllReach<Splitter>::value, "protected");
static_assert(!AllReach<Limit>::value && !AllReach<LegacyLimit>::value &&
                  !AllReach<ShareOffset>::value,
              "private");

Path Parsed(const std::string& text, Path::PathType type) {
  Path path;
  path.Set(text, type);
  return path;
}

// ---- observable state ----

Components ComponentsOf(Path path) {
  Components components;
  for (; !path.Empty(); path = path.ParentPath()) {
    components.insert(components.begin(), path.Filename());
  }
  return components;
}

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

void ExpectDefault(const Path& path) {
  EXPECT_TRUE(path.Empty()) << path;
  EXPECT_FALSE(path.IsAbsolute());
  EXPECT_FALSE(IsShare(path));
  EXPECT_TRUE(HasType(path, Path::WINDOWS_PATH));
}

std::string Repeat(const std::string& text, size_t count) {
  std::string repeated;
  for (size_t i = 0; i < count; ++i) repeated += text;
  return repeated;
}

bool StartsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

// ---- construction ----

TEST(Path, Default) {
  const Path path;
  ExpectDefault(path);
  EXPECT_EQ(path.Length(), 0u);
  EXPECT_EQ(path.Str(), "");
  EXPECT_EQ(path.Str(Path::POSIX_PATH), "");
  EXPECT_EQ(path.Wstr(), L"");
}

TEST(Path, Constructors) {
  const Path paths[] = {Path(R"(C:\a/b)"), Path(std::string(R"(C:\a/b)")), Path(LR"(C:\a/b)"),
                        Path(std::wstring(LR"(C:\a/b)"))};
  for (const Path& path : paths) {
    EXPECT_THAT(ComponentsOf(path), ElementsAre("C:", "a", "b"));
    EXPECT_TRUE(path.IsAbsolute());
    EXPECT_FALSE(IsShare(path));
    EXPECT_TRUE(HasType(path, Path::WINDOWS_PATH));
  }
}

TEST(Path, EmptyStrings) {
  ExpectDefault(Path(""));
  ExpectDefault(Path(std::string()));
  ExpectDefault(Path(L""));
  ExpectDefault(Path(std::wstring()));
  EXPECT_EQ(Path("").Str(), "");
  EXPECT_EQ(Path("").Wstr(), L"");
}

TEST(Path, NullPointers) {
  const char* const narrow = nullptr;
  const wchar_t* const wide = nullptr;
  ExpectDefault(Path(narrow));
  ExpectDefault(Path(wide));
  Path path(R"(C:\a)");
  path = wide;
  ExpectDefault(path);
}

TEST(Path, Implicit) {
  const Path narrow = "a/b";
  const Path narrowString = std::string("a/b");
  const Path wide = L"a/b";
  const Path wideString = std::wstring(L"a/b");
  for (const Path& path : {narrow, narrowString, wide, wideString}) EXPECT_EQ(path.Str(), R"(a\b)");
}

TEST(Path, StringAssignment) {
  Path path = Parsed("/usr", Path::POSIX_PATH);
  path = LR"(\\srv\share\f)";
  EXPECT_EQ(path.Str(), R"(\\srv\share\f)");
  path = R"(C:\a)";
  EXPECT_EQ(path.Str(), R"(C:\a)");
  path = std::wstring(LR"(D:\b)");
  EXPECT_EQ(path.Str(), R"(D:\b)");
  path = std::string(R"(E:\c)");
  EXPECT_EQ(path.Str(), R"(E:\c)");
  EXPECT_TRUE(HasType(path, Path::WINDOWS_PATH));
  EXPECT_FALSE(IsShare(path));
}

TEST(Path, AssignmentResult) {
  Path path;
  const Path other("x");
  EXPECT_EQ(&(path = L"a"), &path);
  EXPECT_EQ(&(path = std::wstring(L"a")), &path);
  EXPECT_EQ(&(path = "a"), &path);
  EXPECT_EQ(&(path = other), &path);
  EXPECT_EQ(&(path = Path("y")), &path);
}

TEST(Path, Copies) {
  const Path originals[] = {Path(R"(\\srv\share\f)"), Path(R"(C:\a)"), Path("a"),
                            Parsed("/usr/lib", Path::POSIX_PATH), Parsed("/usr/lib", kNoType)};
  const Path::PathType types[] = {Path::WINDOWS_PATH, Path::WINDOWS_PATH, Path::WINDOWS_PATH,
                                  Path::POSIX_PATH, kNoType};
  for (size_t i = 0; i < std::size(originals); ++i) {
    const Path& original = originals[i];
    SCOPED_TRACE(original.Str());
    Path assigned("z");
    assigned = original;
    for (Path copy : {original, assigned}) {
      EXPECT_EQ(copy, original);
      EXPECT_EQ(copy.IsAbsolute(), original.IsAbsolute());
      EXPECT_EQ(IsShare(copy), IsShare(original));
      EXPECT_TRUE(HasType(copy, types[i]));
      const std::string before = original.Str();
      copy = R"(Z:\changed)";
      EXPECT_EQ(original.Str(), before);
      EXPECT_EQ(copy.Str(), R"(Z:\changed)");
    }
  }
}

TEST(Path, MovedFrom) {
  Path shareFlagged(R"(\\srv\share)");
  shareFlagged.Set("/usr/lib", kNoType);
  struct Row {
    Path path;
    Path::PathType type;
    std::string printedEmpty;
  };
  const Row rows[] = {{R"(\\srv\share\f)", Path::WINDOWS_PATH, R"(\\)"},
                      {R"(C:\a)", Path::WINDOWS_PATH, ""},
                      {"a", Path::WINDOWS_PATH, ""},
                      {Parsed("/usr/lib", Path::POSIX_PATH), Path::POSIX_PATH, "/"},
                      {shareFlagged, kNoType, R"(\\)"}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.path.Str());
    Path constructedFrom = row.path;
    const Path constructed(std::move(constructedFrom));
    Path assignedFrom = row.path;
    Path assigned("z");
    assigned = std::move(assignedFrom);
    for (const Path& target : {constructed, assigned}) {
      EXPECT_EQ(target.Str(), row.path.Str());
      EXPECT_EQ(target.Length(), row.path.Length());
      EXPECT_EQ(IsShare(target), IsShare(row.path));
      EXPECT_TRUE(HasType(target, row.type));
    }
    for (const Path& source : {constructedFrom, assignedFrom}) {
      EXPECT_TRUE(source.Empty());
      EXPECT_EQ(source.Length(), 0u);
      EXPECT_EQ(source.IsAbsolute(), row.path.IsAbsolute());
      EXPECT_EQ(IsShare(source), IsShare(row.path));
      EXPECT_TRUE(HasType(source, row.type));
      EXPECT_EQ(source.Str(), row.printedEmpty);
    }
  }
}

// ---- parsing ----

enum Kind { kRelative, kAbsolute, kShare };

struct ParseRow {
  std::string text;
  Components components;
  Kind kind;
  std::string windows;  // printed with WINDOWS_PATH
  std::string posix;    // printed with POSIX_PATH
};

void ExpectParses(const ParseRow& row, Path path, Path::PathType type) {
  SCOPED_TRACE(row.text);
  EXPECT_EQ(ComponentsOf(path), row.components);
  EXPECT_EQ(path.Length(), row.components.size());
  EXPECT_EQ(path.Empty(), row.components.empty());
  EXPECT_EQ(path.IsAbsolute(), row.kind != kRelative);
  EXPECT_EQ(IsShare(path), row.kind == kShare);
  EXPECT_TRUE(HasType(path, type));
  EXPECT_EQ(path.Str(Path::WINDOWS_PATH), row.windows);
  EXPECT_EQ(path.Str(Path::POSIX_PATH), row.posix);
}

const ParseRow kWindowsRows[] = {
    {"", {}, kRelative, "", ""},
    // a drive
    {R"(C:\a\b)", {"C:", "a", "b"}, kAbsolute, R"(C:\a\b)", "C:/a/b"},
    {"C:/a/b", {"C:", "a", "b"}, kAbsolute, R"(C:\a\b)", "C:/a/b"},
    {R"(c:\A)", {"c:", "A"}, kAbsolute, R"(c:\A)", "c:/A"},
    {R"(C:\)", {"C:"}, kAbsolute, "C:", "C:"},
    {"z:/", {"z:"}, kAbsolute, "z:", "z:"},
    {R"(C:\\a//b\)", {"C:", "a", "b"}, kAbsolute, R"(C:\a\b)", "C:/a/b"},
    {R"(C:\D:\x)", {"C:", "D:", "x"}, kAbsolute, R"(C:\D:\x)", "C:/D:/x"},
    // not the root of a drive: relative
    {"C:", {"C:"}, kRelative, "C:", "C:"},
    {"C:name", {"C:name"}, kRelative, "C:name", "C:name"},
    {R"(C:name\x)", {"C:name", "x"}, kRelative, R"(C:name\x)", "C:name/x"},
    {R"(CD:\x)", {"CD:", "x"}, kRelative, R"(CD:\x)", "CD:/x"},
    {R"(1:\x)", {"1:", "x"}, kRelative, R"(1:\x)", "1:/x"},
    {R"(:\x)", {":", "x"}, kRelative, R"(:\x)", ":/x"},
    {R"(C;\x)", {"C;", "x"}, kRelative, R"(C;\x)", "C;/x"},
    {R"(\name)", {"name"}, kRelative, "name", "name"},
    {"/name", {"name"}, kRelative, "name", "name"},
    {"/usr/lib", {"usr", "lib"}, kRelative, R"(usr\lib)", "usr/lib"},
    {"name", {"name"}, kRelative, "name", "name"},
    {R"(a//b\\c/)", {"a", "b", "c"}, kRelative, R"(a\b\c)", "a/b/c"},
    {R"(\)", {}, kRelative, "", ""},
    {"///", {}, kRelative, "", ""},
    {R"(/\/)", {}, kRelative, "", ""},
    // nothing is normalized
    {R"(.\..\a\.)", {".", "..", "a", "."}, kRelative, R"(.\..\a\.)", "./../a/."},
    {R"(C:\..\x)", {"C:", "..", "x"}, kAbsolute, R"(C:\..\x)", "C:/../x"},
    {R"( a . \b. )", {" a . ", "b. "}, kRelative, R"( a . \b. )", " a . /b. "},
    {"\xC3\xA9/\xF0\x9F\x98\x80",
     {"\xC3\xA9", "\xF0\x9F\x98\x80"},
     kRelative,
     "\xC3\xA9\\\xF0\x9F\x98\x80",
     "\xC3\xA9/\xF0\x9F\x98\x80"},
    // a share
    {R"(\\server\share)", {"server", "share"}, kShare, R"(\\server\share)", R"(\\server/share)"},
    {R"(\\srv\share\f)", {"srv", "share", "f"}, kShare, R"(\\srv\share\f)", R"(\\srv/share/f)"},
    {R"(\\srv/share)", {"srv", "share"}, kShare, R"(\\srv\share)", R"(\\srv/share)"},
    {R"(\\srv\)", {"srv"}, kShare, R"(\\srv)", R"(\\srv)"},
    {R"(\\srv/)", {"srv"}, kShare, R"(\\srv)", R"(\\srv)"},
    {R"(\\\srv)", {"srv"}, kShare, R"(\\srv)", R"(\\srv)"},
    {R"(\\C:\x)", {"C:", "x"}, kShare, R"(\\C:\x)", R"(\\C:/x)"},
    {R"(\\\)", {}, kShare, R"(\\)", R"(\\)"},
    {R"(\\UNC\srv)", {"UNC", "srv"}, kShare, R"(\\UNC\srv)", R"(\\UNC/srv)"},
    // a server without a share is relative
    {R"(\\srv)", {"srv"}, kRelative, "srv", "srv"},
    {R"(\\)", {}, kRelative, "", ""},
    // only two backslashes make a share
    {"//srv/share", {"srv", "share"}, kRelative, R"(srv\share)", "srv/share"},
    {R"(/\srv\share)", {"srv", "share"}, kRelative, R"(srv\share)", "srv/share"},
    {R"(\/srv\share)", {"srv", "share"}, kRelative, R"(srv\share)", "srv/share"},
    // the long-path prefix
    {R"(\\?\C:\x\y)", {"C:", "x", "y"}, kAbsolute, R"(C:\x\y)", "C:/x/y"},
    {R"(\\?\C:/x)", {"C:", "x"}, kAbsolute, R"(C:\x)", "C:/x"},
    {R"(\\?\C:\)", {"C:"}, kAbsolute, "C:", "C:"},
    {R"(\\?\C:)", {"C:"}, kRelative, "C:", "C:"},
    {R"(\\?\a\b)", {"a", "b"}, kRelative, R"(a\b)", "a/b"},
    {R"(\\?\)", {}, kRelative, "", ""},
    {R"(\\?\UNC\srv\share\f)",
     {"srv", "share", "f"},
     kShare,
     R"(\\srv\share\f)",
     R"(\\srv/share/f)"},
    {R"(\\?\UNC\srv)", {"srv"}, kShare, R"(\\srv)", R"(\\srv)"},
    {R"(\\?\UNC\)", {}, kShare, R"(\\)", R"(\\)"},
    {R"(\\?\UNC)", {"UNC"}, kRelative, "UNC", "UNC"},
    {R"(\\?\\\srv\share)", {"srv", "share"}, kShare, R"(\\srv\share)", R"(\\srv/share)"},
    {R"(\\?\/a)", {"a"}, kRelative, "a", "a"},
    // The prefix is removed once ...
    {R"(\\?\\\?\C:\x)", {"?", "C:", "x"}, kShare, R"(\\?\C:\x)", R"(\\?/C:/x)"},
    // ... and consists of exactly these four characters.
    {R"(\\?/C:/x)", {"?", "C:", "x"}, kShare, R"(\\?\C:\x)", R"(\\?/C:/x)"},
    {"//?/C:/x", {"?", "C:", "x"}, kRelative, R"(?\C:\x)", "?/C:/x"},
    {R"(\\?)", {"?"}, kRelative, "?", "?"},
    {R"(\\.\x)", {".", "x"}, kShare, R"(\\.\x)", R"(\\./x)"},
    {R"(\?\C:\x)", {"?", "C:", "x"}, kRelative, R"(?\C:\x)", "?/C:/x"},
    {R"(a\\?\b)", {"a", "?", "b"}, kRelative, R"(a\?\b)", "a/?/b"},
    // first component "UNC": see Path.RelativeUnc
    {R"(UNC\srv\share)", {"srv", "share"}, kShare, R"(\\srv\share)", R"(\\srv/share)"},
    {R"(UNC\)", {}, kShare, R"(\\)", R"(\\)"},
    {R"(UNC\\srv)", {"srv"}, kShare, R"(\\srv)", R"(\\srv)"},
    {R"(UNC\UNC\srv)", {"UNC", "srv"}, kShare, R"(\\UNC\srv)", R"(\\UNC/srv)"},
    {"UNC/srv/share", {"UNC", "srv", "share"}, kRelative, R"(UNC\srv\share)", "UNC/srv/share"},
    {R"(unc\srv)", {"unc", "srv"}, kRelative, R"(unc\srv)", "unc/srv"},
    {R"(Unc\srv)", {"Unc", "srv"}, kRelative, R"(Unc\srv)", "Unc/srv"},
    {R"(UNCX\srv)", {"UNCX", "srv"}, kRelative, R"(UNCX\srv)", "UNCX/srv"},
    {R"(\UNC\srv)", {"UNC", "srv"}, kRelative, R"(UNC\srv)", "UNC/srv"},
    {"UNC", {"UNC"}, kRelative, "UNC", "UNC"},
};

TEST(Path, WindowsParsing) {
  for (const ParseRow& row : kWindowsRows) {
    ExpectParses(row, Path(row.text), Path::WINDOWS_PATH);
    ExpectParses(row, Path(row.text.c_str()), Path::WINDOWS_PATH);
    ExpectParses(row, Parsed(row.text, Path::WINDOWS_PATH), Path::WINDOWS_PATH);
  }
}

TEST(Path, WideParsing) {
  for (const ParseRow& row : kWindowsRows) {
    const std::wstring wide = reference::Widen(row.text);
    ExpectParses(row, Path(wide), Path::WINDOWS_PATH);
    ExpectParses(row, Path(wide.c_str()), Path::WINDOWS_PATH);
    Path assigned = Parsed("/z", Path::POSIX_PATH);
    assigned = wide;
    ExpectParses(row, assigned, Path::WINDOWS_PATH);
  }
  Path posix;
  posix.Set(LR"(/a\b/c)", Path::POSIX_PATH);
  EXPECT_THAT(ComponentsOf(posix), ElementsAre(R"(a\b)", "c"));
  EXPECT_TRUE(posix.IsAbsolute());
  EXPECT_TRUE(HasType(posix, Path::POSIX_PATH));
}

TEST(Path, SetReplaces) {
  const Path befores[] = {Path(), Path(R"(C:\x\y)"), Path(R"(\\srv\share)"),
                          Parsed("/x/y", Path::POSIX_PATH), Parsed("x", kNoType)};
  for (const Path& before : befores) {
    SCOPED_TRACE(before.Str());
    for (const ParseRow& row : kWindowsRows) {
      Path path = before;
      path.Set(row.text);
      ExpectParses(row, path, Path::WINDOWS_PATH);
    }
  }
}

const ParseRow kPosixRows[] = {
    {"", {}, kRelative, "", ""},
    {"/usr/lib", {"usr", "lib"}, kAbsolute, R"(/usr\lib)", "/usr/lib"},
    {"/", {}, kAbsolute, "/", "/"},
    {"///", {}, kAbsolute, "/", "/"},
    {"//a", {"a"}, kAbsolute, "/a", "/a"},
    {"a", {"a"}, kRelative, "a", "a"},
    {"a/", {"a"}, kRelative, "a", "a"},
    {R"(a//b\\c/)", {"a", R"(b\\c)"}, kRelative, R"(a\b\\c)", R"(a/b\\c)"},
    {R"(\a)", {R"(\a)"}, kRelative, R"(\a)", R"(\a)"},
    {R"(\\srv\share)", {R"(\\srv\share)"}, kRelative, R"(\\srv\share)", R"(\\srv\share)"},
    {R"(\\?\C:\x)", {R"(\\?\C:\x)"}, kRelative, R"(\\?\C:\x)", R"(\\?\C:\x)"},
    {R"(UNC\srv)", {R"(UNC\srv)"}, kRelative, R"(UNC\srv)", R"(UNC\srv)"},
    {"C:/a", {"C:", "a"}, kRelative, R"(C:\a)", "C:/a"},
    {"/C:/a", {"C:", "a"}, kAbsolute, R"(/C:\a)", "/C:/a"},
    {"/./../a", {".", "..", "a"}, kAbsolute, R"(/.\..\a)", "/./../a"},
};

TEST(Path, PosixParsing) {
  for (const ParseRow& row : kPosixRows) {
    ExpectParses(row, Parsed(row.text, Path::POSIX_PATH), Path::POSIX_PATH);
  }
}

// The parser checks for the value 0, the printer for the value 1 (by design).
TEST(Path, UnknownType) {
  for (const Path::PathType type : {kNoType, kNegativeType}) {
    for (ParseRow row : kPosixRows) {
      // The prefix belongs to a Windows path; POSIX parsing does not know drives and shares.
      if (row.kind == kAbsolute) {
        row.windows.erase(0, 1);
        row.posix.erase(0, 1);
      }
      ExpectParses(row, Parsed(row.text, type), type);
    }
    EXPECT_FALSE(HasType(Parsed("a", type), Path::POSIX_PATH));
    EXPECT_FALSE(HasType(Parsed("a", type), Path::WINDOWS_PATH));
  }
}

// Only Windows parsing writes the flag (by design).
TEST(Path, PosixShare) {
  for (const Path::PathType type : {Path::POSIX_PATH, kNoType, kNegativeType}) {
    Path path(R"(\\srv\share)");
    path.Set("/usr/lib/x", type);
    EXPECT_TRUE(IsShare(path));
    EXPECT_EQ(path.ParentPath().Str(), R"(\\usr\lib)");
    EXPECT_EQ(path.Str(), type == Path::POSIX_PATH ? R"(/usr\lib\x)" : R"(\\usr\lib\x)");
    path.Set("usr", type);
    EXPECT_TRUE(IsShare(path));
    EXPECT_EQ(path.Str(), "usr");

    path = R"(C:\a)";
    path.Set("/usr/lib/x", type);
    EXPECT_FALSE(IsShare(path));
    EXPECT_EQ(path.ParentPath().Str(), R"(usr\lib)");
  }
}

// "\\?\UNC\srv\share" without the prefix has this form (by design).
TEST(Path, RelativeUnc) {
  const Path path(R"(UNC\srv\share)");
  EXPECT_TRUE(path.IsAbsolute());
  EXPECT_TRUE(IsShare(path));
  EXPECT_EQ(path.Str(), R"(\\srv\share)");
  EXPECT_EQ(Path(path.Str()).Str(), R"(\\srv\share)");
  // A relative "UNC/x" prints as such a string.
  EXPECT_FALSE(Path("UNC/x").IsAbsolute());
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

TEST(Path, SetDefault) {
  Path path = Parsed("/a", Path::POSIX_PATH);
  path.Set(R"(C:\a)");
  EXPECT_TRUE(HasType(path, Path::WINDOWS_PATH));
  EXPECT_EQ(path.Str(), R"(C:\a)");
  path.Set("/a", Path::POSIX_PATH);
  path.Set(LR"(C:\b)");
  EXPECT_TRUE(HasType(path, Path::WINDOWS_PATH));
  EXPECT_EQ(path.Str(), R"(C:\b)");
}

// ---- tokenizing ----

class Tokenizer : public Path {
 public:
  using Path::Tokenize;
};

// Makes a std::string from a literal, including its NULs.
template <size_t N>
std::string Bytes(const char (&literal)[N]) {
  return std::string(literal, N - 1);
}
template <size_t N>
std::wstring Units(const wchar_t (&literal)[N]) {
  return std::wstring(literal, N - 1);
}

struct TokenizeRow {
  std::string text;
  std::string delimiters;
  Components components;
};

TEST(PathTokenize, NoEmpty) {
  const TokenizeRow rows[] = {
      {"", "/", {}},
      {"", "", {}},
      {"/", "/", {}},
      {"///", "/", {}},
      {R"(/\/)", R"(/\)", {}},
      {"a", "/", {"a"}},
      {"/a", "/", {"a"}},
      {"a/", "/", {"a"}},
      {"//a///b//", "/", {"a", "b"}},
      {R"(a\b/c)", R"(/\)", {"a", "b", "c"}},
      {R"(a\b/c)", R"(\)", {"a", "b/c"}},
      {"a/b", "", {"a/b"}},
      {"a b,c; d", ",; ", {"a", "b", "c", "d"}},
      {"aXbXXc", "XYZ", {"a", "b", "c"}},
      {"a/\xC3\xA9/\xFF", "/", {"a", "\xC3\xA9", "\xFF"}},
      {". ../ ", "/", {". ..", " "}},
  };
  for (const TokenizeRow& row : rows) {
    SCOPED_TRACE("\"" + row.text + "\" by \"" + row.delimiters + "\"");
    EXPECT_EQ(Tokenizer::Tokenize(row.text, row.delimiters), row.components);
  }
}

// Components are cut from a copy that ends at the first NUL.
const TokenizeRow kNulRows[] = {
    {Bytes("a\0b"), "/", {"a"}},
    {Bytes("x/a\0b"), "/", {"x", "a"}},
    {Bytes("x/abc\0"), "/", {"x", "abc"}},
    {Bytes("\0"), "/", {""}},
    {Bytes("\0abc"), "/", {""}},
    {Bytes("\0/"), "/", {""}},
    {Bytes("x/\0"), "/", {"x", ""}},
    {Bytes("x/\0yz//"), "/", {"x", ""}},
    {Bytes("/\0"), "/", {""}},
    {Bytes("a\0///"), "/", {"a"}},
    {Bytes("a\0b\0c"), "/", {"a"}},
    {Bytes("ab/cd\0ef/"), "/", {"ab", "cd"}},
};

TEST(PathTokenize, Nul) {
  for (const TokenizeRow& row : kNulRows) {
    SCOPED_TRACE(testing::PrintToString(row.text));
    EXPECT_EQ(Tokenizer::Tokenize(row.text, row.delimiters), row.components);
    const Path windows(row.text);
    EXPECT_EQ(windows.Length(), row.components.size());
    EXPECT_EQ(windows.Filename(), row.components.back());
    EXPECT_EQ(ComponentsOf(Parsed(row.text, Path::POSIX_PATH)), row.components);
    EXPECT_EQ(ComponentsOf(Path(std::wstring(row.text.begin(), row.text.end()))), row.components);
  }
  EXPECT_THAT(Tokenizer::Tokenize(Bytes("a\0"), Bytes("\0")), ElementsAre("a"));
  EXPECT_THAT(Tokenizer::Tokenize(Bytes("\0\0"), Bytes("\0")), IsEmpty());
}

TEST(PathTokenize, Empty) {
  const Path path(Bytes("x/\0yz"));
  EXPECT_EQ(path.Length(), 2u);
  EXPECT_FALSE(path.Empty());
  EXPECT_EQ(path.Str(), R"(x\)");
  EXPECT_EQ(path.Filename(), "");
  EXPECT_EQ(path.Extension(), "");
  EXPECT_EQ(path.ParentPath().Str(), "x");
  EXPECT_EQ((path / "y").Str(), R"(x\\y)");
  const Path only(Bytes("\0"));
  EXPECT_EQ(only.Length(), 1u);
  EXPECT_FALSE(only.Empty());
  EXPECT_EQ(only.Str(), "");
  EXPECT_NE(only, Path());
  EXPECT_EQ(Path(Bytes("C:\\\0")).Str(), R"(C:\)");
}

template <typename F>
void ExpectOutOfRange(const F& parse) {
  try {
    parse();
    ADD_FAILURE() << "no exception";
  } catch (const std::out_of_range& error) {
    EXPECT_STREQ(error.what(), "invalid string position");
  }
}

TEST(PathTokenize, SetThrows) {
  const std::string refused = Bytes("a\0/b");
  Path path("of/before");
  ExpectOutOfRange([&] { path.Set(refused, Path::POSIX_PATH); });
  EXPECT_EQ(path, Path("of/before"));
  ExpectOutOfRange([&] { path.Set(refused, Path::WINDOWS_PATH); });
  EXPECT_TRUE(path.Empty());
}

TEST(PathTokenize, AfterNul) {
  const std::string texts[] = {Bytes("a\0/b"), Bytes("\0/b"), Bytes("x/a\0b/c/d"), Bytes("x/\0/b"),
                               Bytes("a\0b/c\0d")};
  for (const std::string& text : texts) {
    SCOPED_TRACE(testing::PrintToString(text));
    const std::wstring wide(text.begin(), text.end());
    Path path("before");
    ExpectOutOfRange([&] { Tokenizer::Tokenize(text, "/"); });
    ExpectOutOfRange([&] { const Path built(text); });
    ExpectOutOfRange([&] { const Path built(wide); });
    ExpectOutOfRange([&] { path.Set(text, Path::POSIX_PATH); });
    ExpectOutOfRange([&] { path.Set(text, kNoType); });
    ExpectOutOfRange([&] { path.Set(wide, Path::WINDOWS_PATH); });
    ExpectOutOfRange([&] { path = wide; });
    path = R"(C:\a)";  // the path is still usable
    EXPECT_EQ(path.Str(), R"(C:\a)");
  }
  ExpectOutOfRange([] { Tokenizer::Tokenize(Bytes("a\0b"), Bytes("\0")); });
  // The prefix and the drive are removed before the rest is split.
  ExpectOutOfRange([] { const Path built(Bytes("\\\\?\\C:\\a\0/b")); });
  EXPECT_EQ(Path(Bytes("\\\\?\\C:\\a\0b")).Str(), R"(C:\a)");
}

TEST(Path, PointersEndAtNul) {
  EXPECT_EQ(Path("a\0/b").Str(), "a");
  EXPECT_EQ(Path(L"a\0/b").Str(), "a");
  Path path;
  path = L"a\0/b";
  EXPECT_EQ(path.Str(), "a");
  path = "c\0/b";
  EXPECT_EQ(path.Str(), "c");
  EXPECT_EQ(Path(Units(L"a\0b")).Str(), "a");
}

// ---- printing ----

// The prefix follows the type of the last parse, the separator follows the argument (by design).
TEST(Path, PrefixAndSeparator) {
  Path shareFlaggedPosix(R"(\\srv\share)");
  shareFlaggedPosix.Set("/usr/lib", Path::POSIX_PATH);
  Path shareFlaggedOther(R"(\\srv\share)");
  shareFlaggedOther.Set("/usr/lib", kNoType);
  struct Row {
    Path path;
    std::string backslashes;
    std::string slashes;
  };
  const Row rows[] = {
      {R"(C:\a\b)", R"(C:\a\b)", "C:/a/b"},
      {R"(\\srv\share\f)", R"(\\srv\share\f)", R"(\\srv/share/f)"},
      {R"(a\b)", R"(a\b)", "a/b"},
      {Parsed("/usr/lib", Path::POSIX_PATH), R"(/usr\lib)", "/usr/lib"},
      {Parsed("usr/lib", Path::POSIX_PATH), R"(usr\lib)", "usr/lib"},
      {Parsed("/usr/lib", kNoType), R"(usr\lib)", "usr/lib"},
      {shareFlaggedPosix, R"(/usr\lib)", "/usr/lib"},
      {shareFlaggedOther, R"(\\usr\lib)", R"(\\usr/lib)"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.backslashes);
    EXPECT_EQ(row.path.Str(), row.backslashes);
    EXPECT_EQ(row.path.Str(Path::WINDOWS_PATH), row.backslashes);
    EXPECT_EQ(row.path.Str(kNoType), row.backslashes);
    EXPECT_EQ(row.path.Str(kNegativeType), row.backslashes);
    EXPECT_EQ(row.path.Str(Path::POSIX_PATH), row.slashes);
    EXPECT_EQ(row.path.Wstr(), std::wstring(row.backslashes.begin(), row.backslashes.end()));
    EXPECT_EQ(row.path.Wstr(Path::POSIX_PATH),
              std::wstring(row.slashes.begin(), row.slashes.end()));
  }
}

// Appends whole copies of `filler` to `start` until it has `length` bytes.
std::string Body(const std::string& start, const std::string& filler, size_t length) {
  const size_t rest = length - start.size();
  return start + std::string(rest % filler.size(), 'x') + Repeat(filler, rest / filler.size());
}

std::string WithSlashes(std::string text) {
  for (char& c : text) c = c == '\\' ? '/' : c;
  return text;
}

TEST(Path, LongPrefix) {
  using Build = Path (*)(const std::string& body);
  const Build drive = [](const std::string& body) { return Path(body); };
  const Build prefixedDrive = [](const std::string& body) { return Path(kLongPrefix + body); };
  const Build joined = [](const std::string& body) {
    return Path(body).ParentPath() / Path(body).Filename();
  };
  const Build noType = [](const std::string& body) {
    return Parsed("/" + WithSlashes(body), kNoType);
  };
  const Build share = [](const std::string& body) { return Path(R"(\\)" + body); };
  const Build prefixedShare = [](const std::string& body) { return Path(kLongSharePrefix + body); };
  const Build noTypeOnShare = [](const std::string& body) {
    Path path(R"(\\srv\share)");
    path.Set("/" + WithSlashes(body), kNoType);
    return path;
  };
  struct Row {
    const char* name;
    std::string start;
    std::string filler;
    Build build;
    bool share;
  };
  const Row rows[] = {
      {"one long component", R"(C:\)", "x", drive, false},
      {"many components", R"(C:\x)", R"(\x)", drive, false},
      {"bytes count, not characters", R"(C:\)", "\xC3\xA9", drive, false},
      {"bytes count, not UTF-16 units", R"(C:\)", "\xF0\x9F\x98\x80", drive, false},
      {"bytes count, valid or not", R"(C:\)", "\xFF", drive, false},
      {"input with the prefix", R"(C:\)", "x", prefixedDrive, false},
      {"joined", R"(C:\a\)", "x", joined, false},
      {"type 7", R"(usr\)", "x", noType, false},
      {"share", R"(srv\share\)", "x", share, true},
      {"share, many components", "srv", R"(\x)", share, true},
      {"share, bytes count", R"(srv\share\)", "\xC3\xA9", share, true},
      {"share, input with the prefix", R"(srv\share\)", "x", prefixedShare, true},
      {"share, type 7", R"(usr\)", "x", noTypeOnShare, true},
  };
  for (const Row& row : rows) {
    // The two leading backslashes of a share are included in the length.
    const size_t shareLength = row.share ? 2 : 0;
    for (const size_t length : {256u, 257u, 258u, 259u, 260u, 261u, 262u, 263u, 1000u, 70000u}) {
      SCOPED_TRACE(row.name + (" " + std::to_string(length)));
      const std::string body = Body(row.start, row.filler, length - shareLength);
      const Path path = row.build(body);
      std::string prefix = row.share ? R"(\\)" : "";
      if (length >= 260) prefix = row.share ? kLongSharePrefix : kLongPrefix;
      EXPECT_EQ(path.Str(), prefix + body);
      EXPECT_EQ(path.Str(Path::POSIX_PATH), prefix + WithSlashes(body));
    }
  }
}

TEST(Path, NoLongPrefix) {
  const std::string name(1000, 'x');
  EXPECT_EQ(Path(name).Str(), name);
  EXPECT_EQ(Path("C:" + name).Str(), "C:" + name);
  EXPECT_EQ(Path(R"(\\)" + name).Str(), name);
  EXPECT_EQ(Parsed("/" + name + "/a", Path::POSIX_PATH).Str(Path::POSIX_PATH), "/" + name + "/a");
  EXPECT_EQ(Parsed("/" + name + "/a", Path::POSIX_PATH).Str(), "/" + name + R"(\a)");
  Path shareFlagged(R"(\\srv\share)");
  shareFlagged.Set("/" + name, Path::POSIX_PATH);
  EXPECT_EQ(shareFlagged.Str(), "/" + name);
  EXPECT_EQ(Parsed(name, kNoType).Str(), name);
}

TEST(Path, LongRoundTrip) {
  for (const std::string start : {R"(C:\)", R"(\\srv\share\)"}) {
    const Path path(start + std::string(300, 'x'));
    const Path again(path.Str());
    EXPECT_EQ(again, path);
    EXPECT_TRUE(again.IsAbsolute());
    EXPECT_EQ(IsShare(again), IsShare(path));
    EXPECT_EQ(again.Str(), path.Str());
    EXPECT_EQ(Path(path.Wstr()).Str(), path.Str());
  }
}

TEST(Path, ShortParent) {
  const Path path(R"(\\?\C:\a\)" + std::string(300, 'x'));
  EXPECT_EQ(path.Str(), R"(\\?\C:\a\)" + std::string(300, 'x'));
  EXPECT_EQ(path.ParentPath().Str(), R"(C:\a)");
}

TEST(Path, Stream) {
  const Path paths[] = {Path(),
                        Path("C:/a/b"),
                        Path("//a/b"),
                        Path(R"(\\srv/share/f)"),
                        Parsed("/usr/lib", Path::POSIX_PATH),
                        Parsed("/usr/lib", kNoType),
                        Path(R"(C:\)" + std::string(300, 'x')),
                        Path("\xC3\xA9/\xFF")};
  std::string expected;
  std::ostringstream out;
  for (const Path& path : paths) {
    out << path << ';';
    expected += path.Str(Path::WINDOWS_PATH) + ';';
  }
  EXPECT_EQ(out.str(), expected);
}

// ---- joining and splitting ----

TEST(Path, Join) {
  struct Row {
    Path left;
    Path right;
    std::string joined;
    bool absolute;
    bool share;
  };
  const Row rows[] = {
      {"a", "b", R"(a\b)", false, false},
      {"a", R"(b/c\d)", R"(a\b\c\d)", false, false},
      {"", "a/b", R"(a\b)", false, false},
      {"a/b", "", R"(a\b)", false, false},
      {"", "", "", false, false},
      {R"(C:\a)", "b", R"(C:\a\b)", true, false},
      {R"(C:\)", "b", R"(C:\b)", true, false},
      {"C:", "b", R"(C:\b)", false, false},
      {R"(\\srv\share)", "f", R"(\\srv\share\f)", true, true},
      {R"(C:\a)", "C:b", R"(C:\a\C:b)", true, false},
      {R"(C:\a)", "C:", R"(C:\a\C:)", true, false},
      {R"(C:\a)", "/b", R"(C:\a\b)", true, false},
      {R"(C:\a)", R"(\\srv)", R"(C:\a\srv)", true, false},
      {R"(.\..)", R"(..\.)", R"(.\..\..\.)", false, false},
      {R"(C:\a)", R"(..\.)", R"(C:\a\..\.)", true, false},
      {Path(R"(C:\)").ParentPath(), "b", "b", true, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.left.Str() + " / " + row.right.Str());
    const Path joined = row.left / row.right;
    EXPECT_EQ(joined.Str(), row.joined);
    EXPECT_EQ(joined.Length(), row.left.Length() + row.right.Length());
    EXPECT_EQ(joined.IsAbsolute(), row.absolute);
    EXPECT_EQ(IsShare(joined), row.share);
    EXPECT_TRUE(HasType(joined, Path::WINDOWS_PATH));
  }
  const Path self("a/b");
  EXPECT_EQ((self / self).Str(), R"(a\b\a\b)");
  EXPECT_EQ((Path("a") / "b" / L"c" / std::string("d")).Str(), R"(a\b\c\d)");
}

TEST(Path, JoinKeepsOperands) {
  const Path left("a");
  const Path right("b");
  EXPECT_EQ((left / right).Str(), R"(a\b)");
  EXPECT_EQ(left.Str(), "a");
  EXPECT_EQ(right.Str(), "b");
}

TEST(Path, JoinKeepsType) {
  const Path posix = Parsed("/usr", Path::POSIX_PATH) / Parsed(R"(lib\x/y)", Path::POSIX_PATH);
  EXPECT_EQ(posix.Str(Path::POSIX_PATH), R"(/usr/lib\x/y)");
  EXPECT_TRUE(HasType(posix, Path::POSIX_PATH));
  const Path noType = Parsed("/usr", kNoType) / Parsed("lib", kNoType);
  EXPECT_EQ(noType.Str(), R"(usr\lib)");
  EXPECT_TRUE(noType.IsAbsolute());
  EXPECT_TRUE(HasType(noType, kNoType));
}

TEST(Path, JoinIgnoresShare) {
  Path flagged(R"(\\srv\share)");
  flagged.Set("lib", Path::POSIX_PATH);
  ASSERT_TRUE(IsShare(flagged));
  const Path joined = Parsed("/usr", Path::POSIX_PATH) / flagged;
  EXPECT_EQ(joined.Str(Path::POSIX_PATH), "/usr/lib");
  EXPECT_FALSE(IsShare(joined));
}

// Neither throws nor logs (by design).
TEST(Path, JoinOfAbsolute) {
  const Path lefts[] = {Path("a"), Path(), Path(R"(C:\a)"), Path(R"(\\srv\share)")};
  const Path rights[] = {Path(R"(C:\b)"),
                         Path(R"(\\srv\share\b)"),
                         Path(R"(UNC\srv)"),
                         Path(R"(C:\)").ParentPath(),  // absolute without components
                         Parsed("b", Path::POSIX_PATH),
                         Parsed("/b", Path::POSIX_PATH),
                         Parsed("b", kNoType),
                         Parsed("", Path::POSIX_PATH)};
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  for (const Path& left : lefts) {
    for (const Path& right : rights) {
      SCOPED_TRACE(left.Str() + " / " + right.Str());
      const Path joined = left / right;
      EXPECT_EQ(joined, left);
      EXPECT_EQ(joined.Str(), left.Str());
      EXPECT_EQ(joined.IsAbsolute(), left.IsAbsolute());
      EXPECT_EQ(IsShare(joined), IsShare(left));
      EXPECT_TRUE(HasType(joined, Path::WINDOWS_PATH));
    }
  }
  EXPECT_EQ((Parsed("/a", Path::POSIX_PATH) / "b").Str(), "/a");
  EXPECT_EQ((Parsed("/a", Path::POSIX_PATH) / Parsed("/b", Path::POSIX_PATH)).Str(), "/a");
  EXPECT_EQ((Parsed("a", kNoType) / Parsed("b", Path::POSIX_PATH)).Str(), "a");
  EXPECT_EQ((Parsed("a", kNoType) / Parsed("b", kNegativeType)).Str(), "a");
  EXPECT_THAT(records->All(), IsEmpty());
}

TEST(Path, Parent) {
  struct Row {
    Path path;
    std::string parent;
    uint64_t length;
  };
  const Row rows[] = {
      {R"(C:\a\b)", R"(C:\a)", 2},
      {R"(C:\x)", "C:", 1},
      {R"(C:\)", "", 0},
      {Path(R"(C:\)").ParentPath(), "", 0},
      {R"(\\srv\share\f)", R"(\\srv\share)", 2},
      {R"(\\srv\share)", R"(\\srv)", 1},
      {R"(\\srv\)", R"(\\)", 0},
      {R"(\\\)", R"(\\)", 0},
      {R"(a\b)", "a", 1},
      {"a", "", 0},
      {"C:", "", 0},
      {"", "..", 1},
      {"..", "", 0},
      {R"(..\..)", "..", 1},
      {".", "", 0},
      {R"(a\..)", "a", 1},
      {Parsed("/usr/lib", Path::POSIX_PATH), "usr", 1},
      {Parsed("/usr", Path::POSIX_PATH), "", 0},
      {Parsed("/", Path::POSIX_PATH), "", 0},
      {Parsed("", Path::POSIX_PATH), "..", 1},
      {Parsed("", kNoType), "..", 1},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.path.Str());
    const Path parent = row.path.ParentPath();
    EXPECT_EQ(parent.Str(), row.parent);
    EXPECT_EQ(parent.Length(), row.length);
    EXPECT_EQ(parent.IsAbsolute(), row.path.IsAbsolute());
    EXPECT_EQ(IsShare(parent), IsShare(row.path));
  }
}

// The type is not copied (by design).
TEST(Path, ParentIsWindows) {
  for (const Path::PathType type : {Path::WINDOWS_PATH, Path::POSIX_PATH, kNoType}) {
    for (const char* const text : {"/usr/lib", "/usr", "/", "usr/lib", "usr", ""}) {
      EXPECT_TRUE(HasType(Parsed(text, type).ParentPath(), Path::WINDOWS_PATH)) << text;
    }
  }
  EXPECT_EQ((Parsed("/usr/lib", Path::POSIX_PATH).ParentPath() / "x").Str(), R"(usr\x)");
}

TEST(Path, ParentOfEmpty) {
  Path path;
  path = path.ParentPath();
  EXPECT_THAT(ComponentsOf(path), ElementsAre(".."));
  path = path.ParentPath();
  ExpectDefault(path);
}

TEST(Path, Filename) {
  struct Row {
    std::string text;
    std::string filename;
    std::string extension;
  };
  const Row rows[] = {
      {"", "", ""},
      {R"(C:\)", "C:", ""},
      {"C:", "C:", ""},
      {R"(C:\a\b.txt)", "b.txt", "txt"},
      {"a/b.txt/", "b.txt", "txt"},
      {"a.tar.gz", "a.tar.gz", "gz"},
      {".bashrc", ".bashrc", "bashrc"},
      {"name.", "name.", ""},
      {"name", "name", ""},
      {"a.b/name", "name", ""},
      {"a..b", "a..b", "b"},
      {".", ".", ""},
      {"..", "..", ""},
      {"a/..", "..", ""},
      {"a. ", "a. ", " "},
      {R"(\\srv\sh.are)", "sh.are", "are"},
      {R"(\\s.rv)", "s.rv", "rv"},
      {"C:a.b", "C:a.b", "b"},
      {"\xC3\xA9.\xC3\xA9", "\xC3\xA9.\xC3\xA9", "\xC3\xA9"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(Path(row.text).Filename(), row.filename);
    EXPECT_EQ(Path(row.text).Extension(), row.extension);
  }
  EXPECT_EQ(Parsed(R"(/a.b\c)", Path::POSIX_PATH).Filename(), R"(a.b\c)");
  EXPECT_EQ(Parsed(R"(/a.b\c)", Path::POSIX_PATH).Extension(), R"(b\c)");
  EXPECT_EQ(Parsed("/", Path::POSIX_PATH).Filename(), "");
  EXPECT_EQ(Path(R"(C:\)").ParentPath().Filename(), "");
}

TEST(Path, Length) {
  EXPECT_EQ(Path(R"(C:\a\b)").Length(), 3u);
  EXPECT_EQ(Path(R"(\\srv\share\f)").Length(), 3u);
  EXPECT_EQ(Path("name").Length(), 1u);
  EXPECT_EQ(Path(Repeat("a/", 10000)).Length(), 10000u);
}

TEST(Path, Empty) {
  EXPECT_TRUE(Path("/").Empty());
  EXPECT_TRUE(Parsed("/", Path::POSIX_PATH).Empty());
  EXPECT_TRUE(Parsed("/", Path::POSIX_PATH).IsAbsolute());
  EXPECT_TRUE(Path(R"(C:\)").ParentPath().Empty());
  EXPECT_TRUE(Path(R"(C:\)").ParentPath().IsAbsolute());
  EXPECT_FALSE(Path(R"(C:\)").Empty());
  EXPECT_FALSE(Path(".").Empty());
}

// Type and flags are not compared (by design).
TEST(Path, Equality) {
  struct Row {
    Path left;
    Path right;
    bool equal;
  };
  const Row rows[] = {
      {"", "", true},
      {"a/b", R"(a\b)", true},
      {Parsed("/a", Path::POSIX_PATH), "a", true},
      {Parsed("/a", Path::POSIX_PATH), Parsed("a", kNoType), true},
      {R"(\\srv\share)", "srv/share", true},
      {R"(C:\)", "C:", true},
      {R"(C:\)", R"(\\C:\)", true},
      {Parsed("/", Path::POSIX_PATH), Path(), true},
      {Path(R"(C:\)").ParentPath(), Path(), true},
      {"a", "A", false},
      {"C:", "c:", false},
      {"a", "", false},
      {"a", "a/b", false},
      {"a/b", "a", false},
      {"a/b", "a/c", false},
      {"b/a", "c/a", false},
      {"ab", "a/b", false},
      {"a", "a.", false},
      {"a", "a ", false},
      {"a", "./a", false},
      {"\xC3\xA9", "e\xCC\x81", false},
      {Parsed(R"(a\b)", Path::POSIX_PATH), R"(a\b)", false},
      {Bytes("\0"), "", false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.left.Str() + " and " + row.right.Str());
    EXPECT_EQ(row.left == row.right, row.equal);
    EXPECT_EQ(row.right == row.left, row.equal);
    EXPECT_EQ(row.left != row.right, !row.equal);
    EXPECT_EQ(row.right != row.left, !row.equal);
    EXPECT_TRUE(row.left == Path(row.left));
  }
}

// ---- UTF-8 and UTF-16 ----

struct TextRow {
  const char* name;
  std::string utf8;
  std::wstring utf16;
};

TEST(Path, ValidUtf8) {
  const TextRow rows[] = {
      {"empty", "", L""},
      {"ASCII", "a b~", L"a b~"},
      {"control characters", "\x01\x1F\x7F", L"\x01\x1F\x7F"},
      {"first of two bytes", "\xC2\x80", L"\x80"},
      {"e acute", "\xC3\xA9", L"\xE9"},
      {"last of two bytes", "\xDF\xBF", L"\x7FF"},
      {"first of three bytes", "\xE0\xA0\x80", L"\x800"},
      {"euro sign", "\xE2\x82\xAC", L"\x20AC"},
      {"last before the surrogates", "\xED\x9F\xBF", L"\xD7FF"},
      {"first after the surrogates", "\xEE\x80\x80", L"\xE000"},
      {"byte order mark", "\xEF\xBB\xBFx", L"\xFEFF\x78"},
      {"replacement character", "\xEF\xBF\xBD", L"\xFFFD"},
      {"last of three bytes", "\xEF\xBF\xBF", L"\xFFFF"},
      {"first of four bytes", "\xF0\x90\x80\x80", L"\xD800\xDC00"},
      {"grinning face", "\xF0\x9F\x98\x80", L"\xD83D\xDE00"},
      {"last of four bytes", "\xF4\x8F\xBF\xBF", L"\xDBFF\xDFFF"},
      {"two pairs", "\xF0\x9F\x98\x80\xF0\x9F\x98\x81", L"\xD83D\xDE00\xD83D\xDE01"},
      {"a decomposed letter stays so", "e\xCC\x81", L"e\x301"},
  };
  for (const TextRow& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(Path(row.utf8).Wstr(), row.utf16);
    EXPECT_EQ(Path(row.utf16).Str(), row.utf8);
    EXPECT_EQ(Parsed("x/" + row.utf8, Path::POSIX_PATH).Wstr(Path::POSIX_PATH),
              row.utf16.empty() ? L"x" : L"x/" + row.utf16);
  }
}

TEST(Path, InvalidUtf8) {
  const TextRow rows[] = {
      {"continuation alone", "\x80", L"\xFFFD"},
      {"lone last continuation", "\xBF\x41", L"\xFFFD\x41"},
      {"overlong lead", "\xC0\x80", L"\xFFFD\xFFFD"},
      {"overlong lead and letter", "\xC1\x41", L"\xFFFD\x41"},
      {"two cut short", "\xC3", L"\xFFFD"},
      {"two cut by a letter", "\xC3\x41", L"\xFFFD\x41"},
      {"two cut by a lead", "\xC3\xC3\xA9", L"\xFFFD\xE9"},
      {"overlong three", "\xE0\x80\x80", L"\xFFFD\xFFFD"},
      {"overlong three, last", "\xE0\x9F\xBF", L"\xFFFD\xFFFD"},
      {"three cut short", "\xE2\x82", L"\xFFFD"},
      {"three cut by a letter", "\xE2\x82\x41", L"\xFFFD\x41"},
      {"three cut by two letters", "\xE2\x41\x42", L"\xFFFD\x41\x42"},
      {"surrogate", "\xED\xA0\x80", L"\xFFFD\xFFFD"},
      {"surrogate, last", "\xED\xBF\xBF", L"\xFFFD\xFFFD"},
      {"surrogate cut short", "\xED\xA0", L"\xFFFD"},
      {"surrogate cut by a letter", "\xED\xA0\x41", L"\xFFFD\x41"},
      {"surrogate pair", "\xED\xA0\xBD\xED\xB8\x80", L"\xFFFD\xFFFD\xFFFD\xFFFD"},
      {"overlong four", "\xF0\x80\x80\x80", L"\xFFFD\xFFFD\xFFFD"},
      {"overlong four, last", "\xF0\x8F\xBF\xBF", L"\xFFFD\xFFFD\xFFFD"},
      {"four cut by letters", "\xF0\x9F\x41\x42", L"\xFFFD\x41\x42"},
      {"four cut by a letter", "\xF0\x9F\x98\x41", L"\xFFFD\x41"},
      {"four cut short", "\xF0\x9F\x98", L"\xFFFD"},
      {"above the last character", "\xF4\x90\x80\x80", L"\xFFFD\xFFFD\xFFFD"},
      {"above the last character, cut short", "\xF4\x90", L"\xFFFD"},
      {"lead above F4", "\xF5\x80\x80\x80", L"\xFFFD\xFFFD\xFFFD\xFFFD"},
      {"lead of five bytes", "\xF8\x88\x80\x80\x80", L"\xFFFD\xFFFD\xFFFD\xFFFD\xFFFD"},
      {"never a lead", "\xFE\xFF", L"\xFFFD\xFFFD"},
      {"between valid characters", "a\xFF\xC3\xA9", L"a\xFFFD\xE9"},
  };
  for (const TextRow& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(Path(row.utf8).Wstr(), row.utf16);
    EXPECT_EQ(Path(row.utf8).Str(), row.utf8) << "the components keep their bytes";
  }
}

// Wine replaces the whole rest with one character if it is shorter than the sequence that was
// begun.
TEST(Path, InvalidUtf8Ends) {
  const struct {
    std::string utf8;
    std::wstring utf16;
    std::wstring underWine;
  } rows[] = {
      {"\xE9s", L"\xFFFDs", L"\xFFFD"},
      {"\xE9s and more", L"\xFFFDs and more", L"\xFFFDs and more"},
      {"\xF0\x41\x42", L"\xFFFD\x41\x42", L"\xFFFD"},
      {"\xF0\x9F\x41", L"\xFFFD\x41", L"\xFFFD"},
      {"\xF4\x90\x41", L"\xFFFD\x41", L"\xFFFD"},
      {"\xF0\xC3\xA9", L"\xFFFD\xE9", L"\xFFFD"},
      {"\xF0\x80\x80", L"\xFFFD\xFFFD", L"\xFFFD"},
      {"\xF0\x80\x80/x", L"\xFFFD\xFFFD\\x", L"\xFFFD\xFFFD\\x"},
      // The printed form is converted, so a separator follows the incomplete sequence.
      {"\xF0/b", L"\xFFFD\\b", L"\xFFFD"},
      {"\xE2/b", L"\xFFFD\\b", L"\xFFFD\\b"},
      {"\xC3/b", L"\xFFFD\\b", L"\xFFFD\\b"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.utf8));
    EXPECT_EQ(Path(row.utf8).Wstr(), RunsUnderWine() ? row.underWine : row.utf16);
  }
}

TEST(Path, LoneSurrogates) {
  const std::string bad = "\xEF\xBF\xBD";
  const TextRow rows[] = {
      {"high alone", bad, L"\xD800"},
      {"last high alone", bad, L"\xDBFF"},
      {"low alone", bad, L"\xDC00"},
      {"last low alone", bad, L"\xDFFF"},
      {"high and letter", bad + "A", L"\xD83D\x41"},
      {"letter and high", "A" + bad, L"\x41\xD83D"},
      {"low before high", bad + bad, L"\xDE00\xD83D"},
      {"high before a pair", bad + "\xF0\x9F\x98\x80", L"\xD83D\xD83D\xDE00"},
      {"low after a pair", "\xF0\x9F\x98\x80" + bad, L"\xD83D\xDE00\xDE00"},
  };
  for (const TextRow& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(Path(row.utf16).Str(), row.utf8);
    Path posix;
    posix.Set(row.utf16, Path::POSIX_PATH);
    EXPECT_EQ(posix.Str(), row.utf8);
  }
}

TEST(Path, WideUnits) {
  if constexpr (sizeof(wchar_t) > 2) {
    const auto wide = [](uint32_t character) {
      return std::wstring(1, static_cast<wchar_t>(character));
    };
    EXPECT_EQ(Path(wide(0x10000)).Str(), "\xF0\x90\x80\x80");
    EXPECT_EQ(Path(wide(0x1F600)).Str(), "\xF0\x9F\x98\x80");
    EXPECT_EQ(Path(wide(0x10FFFF)).Str(), "\xF4\x8F\xBF\xBF");
    EXPECT_EQ(Path(wide(0xD83D) + wide(0x1F600)).Str(), "\xEF\xBF\xBD\xF0\x9F\x98\x80");
    EXPECT_EQ(Path(wide(0x110000)).Str(), "\xEF\xBF\xBD");
    EXPECT_EQ(Path(wide(0xFFFFFFFF)).Str(), "\xEF\xBF\xBD");
    // Wstr() always returns 16-bit units.
    EXPECT_EQ(Path(wide(0x1F600)).Wstr(), L"\xD83D\xDE00");
  } else {
    EXPECT_EQ(Path(L"\xD83D\xDE00").Str(), "\xF0\x9F\x98\x80");
  }
}

TEST(Path, RandomConversion) {
  std::mt19937_64 random(20260401);
  // Leads, continuations and letters; the limits of each range are more likely than other bytes.
  const std::string limits =
      "a/\x7F\x80\x8F\x90\x9F\xA0\xBF\xC0\xC1\xC2\xDF\xE0\xE1\xEC\xED\xEE\xEF\xF0\xF1\xF3\xF4\xF5"
      "\xFF";
  const std::wstring units = L"a\x7F\x80\x7FF\x800\xD7FF\xD800\xDBFF\xDC00\xDFFF\xE000\xFFFF";
  for (int i = 0; i < 200000; ++i) {
    std::string bytes;
    for (size_t left = random() % 9; left > 0; --left) {
      bytes += random() % 3 != 0 ? limits[random() % limits.size()]
                                 : static_cast<char>(1 + random() % 255);
    }
    if (RunsUnderWine()) bytes += "aaa";  // Wine drops the rest after an incomplete sequence
    const Path path = Parsed(bytes, Path::POSIX_PATH);
    const std::string printed = path.Str(Path::POSIX_PATH);
    ASSERT_EQ(path.Wstr(Path::POSIX_PATH), reference::Widen(printed))
        << testing::PrintToString(bytes);

    std::wstring wide;
    for (size_t left = random() % 6; left > 0; --left) {
      wide += random() % 3 != 0 ? units[random() % units.size()]
                                : static_cast<wchar_t>(1 + random() % 0xFFFF);
    }
    Path fromWide;
    fromWide.Set(wide, Path::POSIX_PATH);
    ASSERT_EQ(fromWide.Str(Path::POSIX_PATH),
              Parsed(reference::Narrow(wide), Path::POSIX_PATH).Str(Path::POSIX_PATH));
  }
}

// ---- random strings against a reference implementation ----

class RandomTexts {
 public:
  explicit RandomTexts(uint64_t seed) : random(seed) {}

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
    return choice < 6 ? Path::POSIX_PATH : Any();
  }
  Path::PathType Any() { return static_cast<Path::PathType>(static_cast<int32_t>(random())); }

 private:
  uint64_t Below(uint64_t limit) { return random() % limit; }

  std::mt19937_64 random;
};

void ExpectSame(const Path& path, const reference::Path& model, Path::PathType style) {
  EXPECT_EQ(path.Str(style), model.Str(style));
  EXPECT_EQ(path.Length(), model.components.size());
  EXPECT_EQ(path.IsAbsolute(), model.absolute);
}

// Each of a million strings is parsed into the same path, so that state left by the previous parse
// would show. The path is then printed, joined with an earlier one and split.
TEST(Path, RandomStrings) {
  RandomTexts random(3141592653);
  Path path;
  reference::Path model;
  Path earlier;
  reference::Path earlierModel;
  int refused = 0;
  for (int i = 0; i < 1000000; ++i) {
    const std::string text = random.Text();
    const Path::PathType type = random.Type();
    const Path::PathType style = random.Type();
    bool fits = true;
    try {
      model.Set(text, type);
    } catch (const std::out_of_range&) {
      fits = false;
    }
    try {
      path.Set(text, type);
      EXPECT_TRUE(fits);
    } catch (const std::out_of_range& error) {
      EXPECT_FALSE(fits);
      EXPECT_STREQ(error.what(), "invalid string position");
    }
    if (!fits) {
      ++refused;
      path = Path();
      model = reference::Path();
    }
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
  const Path current = Path::Getcwd();
  EXPECT_EQ(current.Str(), Path(directory.Text("")).Str());
  EXPECT_TRUE(current.IsAbsolute());
  EXPECT_TRUE(HasType(current, Path::WINDOWS_PATH));
  EXPECT_TRUE(current.IsDirectory());

  std::filesystem::create_directory(std::filesystem::u8path("e\xE2\x82\xAC"));
  std::filesystem::current_path(std::filesystem::u8path("e\xE2\x82\xAC"));
  EXPECT_EQ(Path::Getcwd(), current / "e\xE2\x82\xAC");
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
    EXPECT_FALSE(MakeDir("x"));
    EXPECT_FALSE(MakeDirs("x/y"));
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
  for (const char* const name : {"a\\b", "a\xFF", "a:b"}) {
    SCOPED_TRACE(testing::PrintToString(name));
    std::filesystem::create_directories("a/b");
    std::filesystem::create_directories(std::string(name) + "/d");
    std::filesystem::current_path(name);
    for (const char* const below : {".", "d"}) {
      std::filesystem::current_path(below);
      ExpectDefault(Path::Getcwd());
      for (const char* const text : {"x", "..", "C:", "C:x", R"(\\?\x)"}) {
        ExpectDefault(Path(text).Absolute());
      }
      EXPECT_EQ(Path(R"(C:\x)").Absolute().Str(), R"(C:\x)");
      EXPECT_FALSE(MakeDir("x"));
      EXPECT_FALSE(MakeDirs("x"));
      EXPECT_FALSE(MakeDirs("y/z"));
    }
    EXPECT_TRUE(Path("../d").IsDirectory());  // does not need the directory's name
    std::filesystem::current_path(directory.Native(""));
    EXPECT_EQ(std::distance(std::filesystem::recursive_directory_iterator("."), {}), 4);
    std::filesystem::remove_all(name);
  }
}

// In an expected string "=" stands for the current directory.
struct AbsoluteRow {
  std::string text;
  std::string full;
};

void ExpectFullPaths(const std::vector<AbsoluteRow>& rows) {
  const ScopedDirectory directory;
  const std::string current = Path::Getcwd().Str();
  for (const AbsoluteRow& row : rows) {
    SCOPED_TRACE("\"" + row.text + "\"");
    const std::string expected = row.full[0] == '=' ? current + row.full.substr(1) : row.full;
    const Path full = Path(row.text).Absolute();
    EXPECT_EQ(full.Str(), expected);
    EXPECT_TRUE(full.IsAbsolute());
    EXPECT_TRUE(HasType(full, Path::WINDOWS_PATH));
  }
}

TEST(PathAbsolute, Relative) {
  ExpectFullPaths({{"a", R"(=\a)"},
                   {"a/b", R"(=\a\b)"},
                   {R"(a//b\\c/)", R"(=\a\b\c)"},
                   {"A/b", R"(=\A\b)"},
                   {"/a", R"(=\a)"},  // relative by the Windows rules
                   {R"(\\srv)", R"(=\srv)"},
                   {"UNC/srv", R"(=\UNC\srv)"},
                   {"C:", "="},
                   {"c:", "="},
                   {R"(C:\)", "="},  // printed as "C:"
                   {"C:a", R"(=\a)"},
                   {R"(c:a\b)", R"(=\a\b)"},
                   {R"(C:a\..\b)", R"(=\b)"},
                   {R"(\\?\a)", R"(=\a)"},
                   {R"(\\?\C:)", "="},
                   {"\xC3\xA9/\xF0\x9F\x98\x80", "=\\\xC3\xA9\\\xF0\x9F\x98\x80"}});
}

TEST(PathAbsolute, Dots) {
  ExpectFullPaths({{".", "="},
                   {R"(.\.)", "="},
                   {R"(.\a)", R"(=\a)"},
                   {R"(a\.)", R"(=\a)"},
                   {R"(a\.\b)", R"(=\a\b)"},
                   {R"(a\..)", "="},
                   {R"(a\..\b)", R"(=\b)"},
                   {R"(a\b\..\..\c)", R"(=\c)"},
                   {R"(C:.)", "="},
                   {Repeat(R"(..\)", 100) + "x", R"(C:\x)"},
                   {Repeat(R"(..\)", 100) + R"(x\..\y)", R"(C:\y)"},
                   {R"(C:\..\x)", R"(C:\x)"},
                   {R"(C:\..\..\x)", R"(C:\x)"},
                   {"c:/x/../y", R"(c:\y)"},
                   {R"(\\?\C:\a\..\b)", R"(C:\b)"}});
  const ScopedDirectory directory;
  EXPECT_EQ(Path("..").Absolute().Str(), Path::Getcwd().ParentPath().Str());
  EXPECT_EQ(Path("C:..").Absolute().Str(), Path::Getcwd().ParentPath().Str());
  EXPECT_EQ(Path(R"(x\..\..)").Absolute().Str(), Path::Getcwd().ParentPath().Str());
  EXPECT_EQ(Path().ParentPath().Absolute().Str(), Path::Getcwd().ParentPath().Str());
}

TEST(PathAbsolute, InnerDots) {
  ExpectFullPaths({{R"(a.\b)", R"(=\a\b)"},
                   {R"(a .\b)", R"(=\a \b)"},
                   {R"(x\ .\y)", R"(=\x\ \y)"},
                   {R"(x\a. .\y)", R"(=\x\a. \y)"}});
}

// Wine also removes one dot of several, so "..." becomes "..", and it accepts a share named "..".
TEST(PathAbsolute, DotsWindows) {
  const std::vector<AbsoluteRow> rows = {{R"(a..\b)", R"(=\a..\b)"},
                                         {R"(a...\b)", R"(=\a...\b)"},
                                         {R"(x\...\y)", R"(=\x\...\y)"},
                                         {R"(x\....\y)", R"(=\x\....\y)"},
                                         {R"(x\ ..\y)", R"(=\x\ ..\y)"},
                                         {R"(x\ ...\y)", R"(=\x\ ...\y)"},
                                         {R"(\\srv\share\...\y)", R"(\\srv\share\...\y)"},
                                         {R"(\\srv\..)", R"(\\srv)"},
                                         {R"(\\srv\..\x)", R"(\\srv\x)"}};
  const std::vector<AbsoluteRow> underWine = {{R"(a..\b)", R"(=\a.\b)"},
                                              {R"(a...\b)", R"(=\a..\b)"},
                                              {R"(x\...\y)", R"(=\x\..\y)"},
                                              {R"(x\....\y)", R"(=\x\...\y)"},
                                              {R"(x\ ..\y)", R"(=\x\ .\y)"},
                                              {R"(x\ ...\y)", R"(=\x\ ..\y)"},
                                              {R"(\\srv\share\...\y)", R"(\\srv\share\..\y)"},
                                              {R"(\\srv\..)", R"(\\srv\..)"},
                                              {R"(\\srv\..\x)", R"(\\srv\..\x)"}};
  ExpectFullPaths(RunsUnderWine() ? underWine : rows);
}

TEST(PathAbsolute, InnerSpaces) {
  ExpectFullPaths({{R"(a \b)", R"(=\a \b)"},
                   {R"(a. \b)", R"(=\a. \b)"},
                   {R"(x\. \y)", R"(=\x\. \y)"},
                   {R"(x\.. \y)", R"(=\x\.. \y)"},
                   {R"(x\ \y)", R"(=\x\ \y)"},
                   {R"( a\b)", R"(=\ a\b)"}});
}

TEST(PathAbsolute, LastDots) {
  ExpectFullPaths({{"a.", R"(=\a)"},
                   {"a ", R"(=\a)"},
                   {"a. . ", R"(=\a)"},
                   {"a..b. ", R"(=\a..b)"},
                   {" a", R"(=\ a)"},
                   {"...", "="},
                   {"....", "="},
                   {". ", "="},
                   {".. ", "="},
                   {R"(x\...)", R"(=\x)"},
                   {R"(x\. )", R"(=\x)"},
                   {R"(x\.. )", R"(=\x)"},
                   {R"(x\ )", R"(=\x)"},
                   {R"(x\ . )", R"(=\x)"},
                   {R"(x\..\ )", "="},
                   {R"(x\ \. )", R"(=\x\ )"},  // only the last component
                   {"C: ", "="},
                   {"C:.. ", "="},
                   {R"(C:\a. )", R"(C:\a)"},
                   {R"(C:\a\ )", R"(C:\a)"},
                   {"\xF0\x9F\x98\x80.", "=\\\xF0\x9F\x98\x80"}});
}

// Which component is last is known only after "." and ".." are resolved.
TEST(PathAbsolute, NewLast) {
  ExpectFullPaths({{R"(a \.)", R"(=\a)"},
                   {R"(a..\.)", R"(=\a)"},
                   {R"(a. \b\..)", R"(=\a)"},
                   {R"(...\.)", "="},
                   {R"( \.)", "="},
                   {R"(x\...\.)", R"(=\x)"},
                   {R"(C:\a \.)", R"(C:\a)"}});
}

TEST(PathAbsolute, Drives) {
  ExpectFullPaths({{"Q:x", R"(Q:\x)"},
                   {"q:x", R"(q:\x)"},
                   {R"(Q:\x\..\y)", R"(Q:\y)"},
                   {R"(Q:..\x)", R"(Q:\x)"}});
  const Path drive = Path("Q:").Absolute();
  EXPECT_TRUE(drive.IsAbsolute());
  EXPECT_EQ(drive.Str(), "Q:");
}

// A component of a POSIX path may contain backslashes, which the system treats as separators.
TEST(PathAbsolute, Separators) {
  const ScopedDirectory directory;
  const auto full = [](const char* text) {
    return Parsed(text, Path::POSIX_PATH).Absolute().Str();
  };
  const std::string current = Path::Getcwd().Str();
  EXPECT_EQ(full(R"(a\\b)"), current + R"(\a\b)");
  EXPECT_EQ(full(R"(a\b\)"), current + R"(\a\b)");
  EXPECT_EQ(full(R"(a\)"), current + R"(\a)");
  EXPECT_EQ(full(R"(\\srv)"), "srv");  // a server without a share
}

TEST(PathAbsolute, Shares) {
  ExpectFullPaths({{R"(\\srv\share\x)", R"(\\srv\share\x)"},
                   {R"(\\srv\share)", R"(\\srv\share)"},
                   {R"(\\srv/share//x/)", R"(\\srv\share\x)"},
                   {R"(\\srv\share\.)", R"(\\srv\share)"},
                   {R"(\\srv\share\..)", R"(\\srv\share)"},
                   {R"(\\srv\share\a\..)", R"(\\srv\share)"},
                   {R"(\\srv\share\..\..\x)", R"(\\srv\share\x)"},
                   {R"(\\srv\share\a.\b. )", R"(\\srv\share\a\b)"},
                   {R"(\\?\UNC\srv\share\x\..\y)", R"(\\srv\share\y)"},
                   {R"(UNC\srv\share\a\..\b)", R"(\\srv\share\b)"}});
  EXPECT_TRUE(IsShare(Path(R"(\\srv\share\..\x)").Absolute()));
}

TEST(PathAbsolute, Devices) {
  ExpectFullPaths({{R"(\\.\x)", R"(\\.\x)"},
                   {R"(\\.\x.)", R"(\\.\x)"},
                   {R"(\\.\x\..\y)", R"(\\.\y)"},
                   {R"(\\.\..\y)", R"(\\.\y)"},
                   {R"(\\.\C:\..\..\y)", R"(\\.\y)"},
                   {R"(\\.\x\..)", R"(\\.)"}});
  // Passed to the system with the long prefix; there ".." removes the drive.
  const std::string name(300, 'x');
  const Path full = Path(R"(C:\..\)" + name).Absolute();
  EXPECT_EQ(full.Str(), name);
  EXPECT_FALSE(full.IsAbsolute());
}

// Its printed form looks like a long path: "\\?\UNC\?\x\y".
TEST(PathAbsolute, ServerPrefix) {
  const Path full = Path(R"(UNC\?\UNC\?\x\.\y)").Absolute();
  EXPECT_TRUE(full.IsAbsolute());
  EXPECT_TRUE(IsShare(full));
  EXPECT_EQ(full.Str(), R"(\\?\x\y)");
  EXPECT_EQ(full.Length(), 3u);
}

TEST(PathAbsolute, LongPaths) {
  const std::string name(300, 'x');
  ExpectFullPaths({{R"(C:\a\..\)" + name, R"(\\?\C:\)" + name},
                   {R"(C:\a\.\)" + name, R"(\\?\C:\a\)" + name},
                   {R"(C:\)" + name + R"(\..\b)", R"(C:\b)"},
                   {R"(C:\)" + name + ". ", R"(\\?\C:\)" + name},
                   {R"(\\srv\share\a\..\)" + name, R"(\\?\UNC\srv\share\)" + name},
                   {R"(\\srv\share\)" + name + R"(\..\b)", R"(\\srv\share\b)"},
                   {name + R"(\..\b)", R"(=\b)"}});
}

TEST(PathAbsolute, OnlySpaces) {
  const ScopedDirectory directory;
  ExpectDefault(Path().Absolute());
  ExpectDefault(Path("").Absolute());
  ExpectDefault(Path(" ").Absolute());
  ExpectDefault(Path("   ").Absolute());
  ExpectDefault(Path("///").Absolute());
  ExpectDefault(Path(R"(C:\)").ParentPath().Absolute());
}

TEST(PathAbsolute, PosixPaths) {
  const ScopedDirectory directory;
  const std::string current = Path::Getcwd().Str();
  EXPECT_EQ(Parsed(R"(a\b/c/..)", Path::POSIX_PATH).Absolute().Str(), current + R"(\a\b)");
  EXPECT_EQ(Parsed("/a/../b", Path::POSIX_PATH).Absolute().Str(), R"(C:\b)");
  EXPECT_EQ(Parsed("//srv/share/x", Path::POSIX_PATH).Absolute().Str(), R"(C:\srv\share\x)");
  EXPECT_EQ(Parsed("/a/b", kNoType).Absolute().Str(), current + R"(\a\b)");
  EXPECT_TRUE(HasType(Parsed("/a/b", Path::POSIX_PATH).Absolute(), Path::WINDOWS_PATH));
}

// Returns a relative path whose full path has exactly `units` UTF-16 units.
std::string RelativeText(const std::string& component, size_t bytesPerUnit, size_t units) {
  const size_t rest = units - Path::Getcwd().Wstr().size() - 1;
  const size_t componentUnits = component.size() / bytesPerUnit;
  return std::string(rest % componentUnits, 'x') + Repeat(component, rest / componentUnits);
}

TEST(PathAbsolute, Limit) {
  const ScopedDirectory directory;
  struct Row {
    const char* name;
    std::string component;
    size_t bytesPerUnit;
  };
  const Row rows[] = {{"one long component", "x", 1},
                      {"many components", R"(y\x)", 1},
                      {"units count, not bytes", "\xC3\xA9", 2},
                      {"pairs count twice", "\xF0\x9F\x98\x80", 2}};
  for (const Row& row : rows) {
    for (const size_t units : {32000u, 32765u, 32766u}) {
      SCOPED_TRACE(row.name + (" " + std::to_string(units)));
      const Path path = Path(RelativeText(row.component, row.bytesPerUnit, units)).Absolute();
      // Printed with the long prefix.
      EXPECT_EQ(path.Wstr().size(), units + kLongPrefix.size());
    }
    for (const size_t units : {32767u, 32768u, 40000u, 70000u}) {
      SCOPED_TRACE(row.name + (" " + std::to_string(units)));
      ExpectDefault(Path(RelativeText(row.component, row.bytesPerUnit, units)).Absolute());
    }
  }
}

// The prefix is passed to the system and returned with the result.
TEST(PathAbsolute, PrefixLimit) {
  for (const std::string& start : {kLongPrefix + R"(C:\)", kLongSharePrefix + R"(srv\share\)"}) {
    const Path longest(start + std::string(32766 - start.size(), 'x'));
    EXPECT_EQ(longest.Absolute().Str(), longest.Str());
    ExpectDefault(Path(start + std::string(32767 - start.size(), 'x')).Absolute());
  }
}

// ---- queries ----

struct QueryRow {
  Path path;
  bool file;
  bool directory;
  uint64_t size;  // of a file
};

void ExpectAnswers(const QueryRow& row) {
  SCOPED_TRACE("\"" + row.path.Str() + "\"");
  EXPECT_EQ(row.path.Exists(), row.file || row.directory);
  EXPECT_EQ(row.path.IsFile(), row.file);
  EXPECT_EQ(row.path.IsDirectory(), row.directory);
  if (!row.directory) {
    EXPECT_EQ(row.path.FileSize(), row.size);
  }
}

void ExpectMissing(const Path& path) { ExpectAnswers({path, false, false, 0}); }

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
  const QueryRow rows[] = {
      {"f", true, false, 5},
      {"empty", true, false, 0},
      {"d", false, true, 0},
      {R"(d\sub)", false, true, 0},
      {"d/g", true, false, 3},
      {R"(d\g)", true, false, 3},
      {R"(.\d\.\g)", true, false, 3},
      {R"(d\..\f)", true, false, 5},
      {R"(d\sub\..\..\f)", true, false, 5},
      {".", false, true, 0},
      {"..", false, true, 0},
      {"d/", false, true, 0},
      {"d//g//", true, false, 3},
      {"f/", true, false, 5},  // trailing separators are dropped
      {"/d", false, true, 0},  // relative by the Windows rules
      {R"(\\d)", false, true, 0},
  };
  for (const QueryRow& row : rows) ExpectAnswers(row);
}

// Dots are resolved before the system is called: the components they remove need not exist or be
// directories.
TEST_F(PathQueries, Dots) {
  const std::string name = Path::Getcwd().Filename();
  const QueryRow rows[] = {
      {R"(missing\..\f)", true, false, 5},
      {"missing/../f", true, false, 5},
      {R"(missing\x\.\..\..\d\g)", true, false, 3},
      {R"(f\..\f)", true, false, 5},
      {R"(f\.)", true, false, 5},
      {R"(f\..)", false, true, 0},
      {R"(missing\..)", false, true, 0},
      {R"(C:missing\..\f)", true, false, 5},
      {R"(missing\..\..\)" + name + R"(\f)", true, false, 5},
      {R"(..\)" + name + R"(\missing\..\f)", true, false, 5},
      {R"(..\missing\..\)" + name + R"(\f)", true, false, 5},
      {directory.Text("missing/../d/./g"), true, false, 3},
      {directory.Text("f/../d"), false, true, 0},
      {Parsed(directory.Text("missing/../f").substr(2), Path::POSIX_PATH), true, false, 5},
      // ".." stops at the root
      {R"(C:\..\..\.)", false, true, 0},
      {"C:/../missing/.." + directory.Text("f").substr(2), true, false, 5},
      {Repeat(R"(..\)", 100) + directory.Text("f").substr(3), true, false, 5},
  };
  for (const QueryRow& row : rows) ExpectAnswers(row);
  ExpectMissing(R"(f\..\missing)");
  ExpectMissing(R"(..\f)");
}

TEST_F(PathQueries, LinkParent) {
  // mingw-w64's standard library cannot create links.
  std::error_code error;
  std::filesystem::create_directory_symlink("d/sub", "link", error);
  if (error) GTEST_SKIP() << "the standard library cannot create links here";
  ExpectAnswers({"link", false, true, 0});
  ExpectAnswers({R"(link\..\f)", true, false, 5});
  ExpectMissing(R"(link\..\g)");
  EXPECT_EQ(Path(R"(link\..\f)").Absolute().Str(), Path(directory.Text("f")).Str());
}

// From 260 bytes on the printed form has the prefix, and each of its components is taken literally.
TEST_F(PathQueries, LongDots) {
  for (const std::string dots : {R"(\.)", R"(\d\..)"}) {
    ExpectAnswers({directory.Text() + Repeat(dots, 2) + R"(\f)", true, false, 5});
    const Path path(directory.Text() + Repeat(dots, 150) + R"(\f)");
    ASSERT_TRUE(StartsWith(path.Str(), kLongPrefix));
    ExpectMissing(path);
    EXPECT_EQ(path.Absolute().Str(), Path(directory.Text("f")).Str());
  }
}

TEST_F(PathQueries, Missing) {
  for (const char* const text :
       {"missing", R"(missing\x)", R"(d\missing)", R"(f\x)", R"(empty\x\y)", " "}) {
    ExpectMissing(text);
  }
  ExpectMissing(Path(std::string(300, 'x')));
  ExpectMissing(Path(Repeat(R"(x\)", 5000)));
}

TEST_F(PathQueries, Empty) {
  ExpectMissing(Path());
  ExpectMissing(Path("///"));
  ExpectMissing(Path(R"(C:\)").ParentPath());
}

TEST_F(PathQueries, DriveAlone) {
  ExpectAnswers({"C:", false, true, 0});
  ExpectAnswers({R"(C:\)", false, true, 0});
  ExpectAnswers({"c:/", false, true, 0});
  EXPECT_EQ(Path("C:").Absolute(), Path::Getcwd());
  ExpectAnswers({"C:f", true, false, 5});
  ExpectAnswers({R"(c:d\g)", true, false, 3});
  ExpectMissing("C:missing");
}

TEST_F(PathQueries, Drives) {
  ExpectMissing("Q:");
  ExpectMissing(R"(Q:\)");
  ExpectMissing("Q:f");
  ExpectMissing(R"(Q:\f)");
  // Any code unit before a colon is a drive.
  for (const char* const text : {"1:", "1:f", "\xC3\xA9:", "\xC3\xA9:f", "\xE2\x82\xAC:\\f", ":"}) {
    ExpectMissing(text);
  }
  ExpectMissing(R"(Q:\..\f)");
  ExpectMissing(R"(\\.\C:\f)");
  ExpectMissing(R"(\\tarsio.invalid\share)");
  ExpectMissing(R"(\\tarsio.invalid\share\f)");
  ExpectMissing(R"(\\?\UNC\tarsio.invalid\share\f)");
  ExpectMissing(Path(R"(\\tarsio.invalid\share\)" + std::string(300, 'x')));
}

// The parser reads it as a share (by design).
TEST_F(PathQueries, Unc) {
  ExpectAnswers({"UNC", false, true, 0});
  ExpectAnswers({"UNC/sub", false, true, 0});
  ExpectMissing(R"(UNC\sub)");
}

// With the long prefix, the printed form of a share begins with "UNC" as well.
TEST_F(PathQueries, LongShare) {
  const std::string name(200, 'x');
  const Path relative = Path("UNC/sub") / name / name;
  EXPECT_TRUE(MakeDir(relative.ParentPath()));
  EXPECT_TRUE(MakeDir(relative));
  EXPECT_TRUE(relative.Absolute().IsDirectory());
  const Path share(R"(\\sub\)" + name + "/" + name);
  ASSERT_EQ(share.Str(), kLongSharePrefix + R"(sub\)" + name + R"(\)" + name);
  ExpectMissing(share);
  EXPECT_FALSE(MakeDir(share / "x"));
  ExpectMissing(relative.Absolute() / "x");
  // The standard library does not support such long paths on every system.
  EXPECT_TRUE(std::filesystem::remove(NativeName(relative.Absolute())));
  EXPECT_TRUE(std::filesystem::remove(NativeName(relative.ParentPath().Absolute())));
}

TEST_F(PathQueries, Absolute) {
  const std::string absolute = directory.Text("d/g");
  const std::string windows = Path(absolute).Str();
  ASSERT_TRUE(Path(absolute).IsAbsolute());
  std::string lowerCase = windows;
  lowerCase[0] = 'c';
  for (const std::string& text :
       {absolute, windows, lowerCase, kLongPrefix + windows, kLongPrefix + absolute,
        directory.Text("d/sub/../g"), directory.Text(".//d///g/")}) {
    ExpectAnswers({text, true, false, 3});
  }
  ExpectAnswers({std::wstring(windows.begin(), windows.end()), true, false, 3});
  ExpectAnswers({directory.Text("d"), false, true, 0});
  ExpectMissing(directory.Text("d/missing"));
}

TEST_F(PathQueries, Posix) {
  ExpectAnswers({Parsed("d/g", Path::POSIX_PATH), true, false, 3});
  ExpectAnswers({Parsed(R"(d\g)", Path::POSIX_PATH), true, false, 3});
  ExpectAnswers({Parsed("/d/g", kNoType), true, false, 3});
  // A path that begins with one separator is absolute, on the current drive.
  const std::string withoutDrive = directory.Text("d/g").substr(2);
  const Path absolute = Parsed(withoutDrive, Path::POSIX_PATH);
  ASSERT_EQ(absolute.Str().front(), '/');
  ASSERT_TRUE(absolute.IsAbsolute());
  ExpectAnswers({absolute, true, false, 3});
  EXPECT_EQ(absolute.Absolute().Str(), Path(directory.Text("d/g")).Str());
  ExpectAnswers({Parsed(directory.Text("d").substr(2), Path::POSIX_PATH), false, true, 0});
  ExpectAnswers({Parsed("/", Path::POSIX_PATH), false, true, 0});
  ExpectMissing(Parsed(withoutDrive + "/missing", Path::POSIX_PATH));
  // Under the Windows rules the same path is relative.
  ExpectMissing(withoutDrive);
}

TEST_F(PathQueries, Relative) {
  const Path path("g");
  ExpectMissing(path);
  std::filesystem::current_path(directory.Native("d"));
  ExpectAnswers({path, true, false, 3});
  ExpectAnswers({"C:g", true, false, 3});
  ExpectAnswers({"../f", true, false, 5});
  std::filesystem::current_path(directory.Native(""));
  ExpectMissing(path);
}

TEST_F(PathQueries, NotCached) {
  const Path path("x");
  ExpectMissing(path);
  directory.Write("x", "1");
  ExpectAnswers({path, true, false, 1});
  directory.Write("x", "12");
  ExpectAnswers({path, true, false, 2});
  std::filesystem::remove("x");
  std::filesystem::create_directory("x");
  ExpectAnswers({path, false, true, 0});
  std::filesystem::remove("x");
  ExpectMissing(path);
}

TEST_F(PathQueries, Unicode) {
  for (const char* const name : {"\xC3\xA9", "\xE2\x82\xAC.txt", "\xF0\x9F\x98\x80", "a b"}) {
    directory.Write(name, "1234");
    ExpectAnswers({name, true, false, 4});
    ExpectAnswers({Path(Path(name).Wstr()), true, false, 4});
    ExpectAnswers({directory.Text(name), true, false, 4});
  }
}

// There is no check for a regular file (by design).
TEST_F(PathQueries, Devices) {
  int devices = 0;
  for (const char* const text : {"NUL", "C:/dev/null"}) {  // each exists on one system
    const Path path(text);
    if (!path.Exists()) continue;
    ++devices;
    ExpectAnswers({path, true, false, 0});
  }
  EXPECT_EQ(devices, 1);
}

TEST_F(PathQueries, Size) {
  for (const size_t size :
       {0u, 1u, 2u, 511u, 512u, 4095u, 4096u, 4097u, 65535u, 65536u, 1000003u}) {
    directory.Write("sized", std::string(size, '\n'));
    EXPECT_EQ(Path("sized").FileSize(), size);
    EXPECT_EQ(Path(directory.Text("sized")).FileSize(), size);
  }
}

TEST_F(PathQueries, Size64) {
  for (const uint64_t size : {0x7FFFFFFFu + 1ull, 0xFFFFFFFFull, 0x100000000ull, 0x123456789ull}) {
    std::filesystem::resize_file("f", size);
    EXPECT_EQ(Path("f").FileSize(), size);
    EXPECT_TRUE(Path("f").IsFile());
  }
}

// A missing file, an empty one and an invalid name differ only in Exists() and IsFile().
TEST_F(PathQueries, SizeZero) {
  EXPECT_EQ(Path("missing").FileSize(), 0u);
  EXPECT_EQ(Path("empty").FileSize(), 0u);
  EXPECT_FALSE(Path("missing").Exists());
  EXPECT_TRUE(Path("empty").IsFile());
}

// ---- creating directories ----

bool IsNativeDirectory(const std::string& name) {
  return std::filesystem::is_directory(std::filesystem::u8path(name));
}

size_t ObjectsBelow(const std::string& name) {
  const std::filesystem::recursive_directory_iterator begin(std::filesystem::u8path(name));
  return static_cast<size_t>(std::distance(begin, end(begin)));
}

TEST(PathMakeDir, LastOnly) {
  const ScopedDirectory directory;
  EXPECT_FALSE(MakeDir(R"(a\b\c)"));
  EXPECT_EQ(ObjectsBelow("."), 0u);
  EXPECT_TRUE(MakeDir("a"));
  EXPECT_FALSE(MakeDir(R"(a\b\c)"));
  EXPECT_EQ(ObjectsBelow("."), 1u);
  EXPECT_TRUE(MakeDir(R"(a\b)"));
  EXPECT_TRUE(MakeDir("a/b/c/"));
  EXPECT_TRUE(IsNativeDirectory("a/b/c"));
  EXPECT_EQ(ObjectsBelow("."), 3u);
}

TEST(PathMakeDirs, Parents) {
  const ScopedDirectory directory;
  EXPECT_TRUE(MakeDirs(R"(a\b\c)"));
  EXPECT_TRUE(IsNativeDirectory("a"));
  EXPECT_TRUE(IsNativeDirectory("a/b"));
  EXPECT_TRUE(IsNativeDirectory("a/b/c"));
  EXPECT_EQ(ObjectsBelow("."), 3u);
  EXPECT_TRUE(MakeDirs("a/b/d/e/"));
  EXPECT_TRUE(IsNativeDirectory("a/b/d/e"));
  EXPECT_TRUE(MakeDirs("x"));
  EXPECT_TRUE(IsNativeDirectory("x"));
  EXPECT_EQ(ObjectsBelow("."), 6u);
}

TEST(PathMakeDirs, SecondCall) {
  const ScopedDirectory directory;
  EXPECT_TRUE(MakeDirs("a/b/c"));
  EXPECT_FALSE(MakeDirs("a/b/c"));
  EXPECT_FALSE(MakeDirs("a/b"));
  EXPECT_FALSE(MakeDirs("a"));
  EXPECT_TRUE(Path("a/b/c").IsDirectory());
}

TEST(PathMakeDir, Existing) {
  const ScopedDirectory directory;
  EXPECT_TRUE(MakeDir("a"));
  EXPECT_FALSE(MakeDir("a"));
  EXPECT_FALSE(MakeDir("a/"));
  for (const char* const text : {".", "..", "C:", R"(C:\..)", R"(a\..)"}) {
    EXPECT_FALSE(MakeDir(text)) << text;
    EXPECT_FALSE(MakeDirs(text)) << text;
  }
  EXPECT_TRUE(IsNativeDirectory("a"));
}

TEST(PathMakeDir, File) {
  const ScopedDirectory directory;
  directory.Write("f", "12345");
  for (const char* const text : {"f", "f/x", "f/x/y"}) {
    EXPECT_FALSE(MakeDir(text)) << text;
    EXPECT_FALSE(MakeDirs(text)) << text;
  }
  EXPECT_EQ(ObjectsBelow("."), 1u);
  EXPECT_EQ(directory.Read("f"), "12345");
}

TEST(PathMakeDir, NoFullPath) {
  const ScopedDirectory directory;
  for (const Path& path : {Path(), Path(" "), Path(Repeat(R"(x\)", 20000))}) {
    EXPECT_FALSE(MakeDir(path));
    EXPECT_FALSE(MakeDirs(path));
  }
  EXPECT_EQ(ObjectsBelow("."), 0u);
}

TEST(PathMakeDir, Drives) {
  const ScopedDirectory directory;
  for (const char* const text : {"Q:", "Q:x", R"(Q:\x)", R"(Q:\x\y)", "1:", "1:x", "\xC3\xA9:",
                                 "\xC3\xA9:\\x", "\xE2\x82\xAC:x", R"(\\tarsio.invalid\share)",
                                 R"(\\tarsio.invalid\share\x\y)", R"(UNC\tarsio.invalid\x\y)"}) {
    EXPECT_FALSE(MakeDir(text)) << text;
    EXPECT_FALSE(MakeDirs(text)) << text;
  }
  EXPECT_EQ(ObjectsBelow("."), 0u);
}

// On Windows a colon starts a stream name, and a directory has no streams.
TEST(PathMakeDir, Colon) {
  // Wine creates a directory.
  if (RunsUnderWine()) GTEST_SKIP() << "Wine treats the colon as part of the name";
  const ScopedDirectory directory;
  for (const char* const text : {"ab:", "ab:x", "./a:", "\xF0\x9F\x98\x80:"}) {
    SCOPED_TRACE(text);
    EXPECT_FALSE(MakeDir(text));
    EXPECT_FALSE(MakeDirs(std::string(text) + "/y"));
    ExpectMissing(text);
  }
  EXPECT_EQ(ObjectsBelow("."), 0u);
}

// Wine treats "..." as "..", so it creates "new" next to "box".
TEST(PathMakeDirs, ThreeDots) {
  const ScopedDirectory directory;
  std::filesystem::create_directory("box");
  EXPECT_TRUE(MakeDirs(directory.Text("box/.../new")));
  EXPECT_EQ(IsNativeDirectory("new"), RunsUnderWine());
  EXPECT_EQ(ObjectsBelow("box"), RunsUnderWine() ? 0u : 2u);
}

// A server alone is printed without its separators and is a directory name here.
TEST(PathMakeDirs, NoFullPath) {
  const ScopedDirectory directory;
  const Path server = Parsed(R"(\\server)", Path::POSIX_PATH);
  EXPECT_FALSE(MakeDirs(server));
  EXPECT_EQ(ObjectsBelow("."), 0u);
}

TEST(PathMakeDir, FullPath) {
  const ScopedDirectory directory;
  EXPECT_TRUE(MakeDirs(R"(missing\..\b\c)"));
  EXPECT_TRUE(IsNativeDirectory("b/c"));
  EXPECT_FALSE(IsNativeDirectory("missing"));
  EXPECT_TRUE(MakeDir(R"(missing\..\d)"));
  EXPECT_TRUE(MakeDir("e. . "));
  EXPECT_TRUE(IsNativeDirectory("e"));
  EXPECT_TRUE(MakeDirs(R"(g.\h. )"));
  EXPECT_TRUE(IsNativeDirectory("g/h"));
  EXPECT_TRUE(MakeDirs(R"(C:i\j)"));
  EXPECT_TRUE(IsNativeDirectory("i/j"));
  EXPECT_EQ(ObjectsBelow("."), 8u);
}

TEST(PathMakeDir, Absolute) {
  const ScopedDirectory directory;
  EXPECT_TRUE(MakeDir(directory.Text("a")));
  EXPECT_TRUE(MakeDir(Path(directory.Text("a/b")).Wstr()));
  EXPECT_TRUE(MakeDir(kLongPrefix + Path(directory.Text("a/c")).Str()));
  EXPECT_TRUE(MakeDirs(directory.Text("d/e")));
  EXPECT_TRUE(MakeDirs(kLongPrefix + Path(directory.Text("d/f/g")).Str()));
  EXPECT_TRUE(MakeDir(Parsed(directory.Text("h").substr(2), Path::POSIX_PATH)));
  EXPECT_TRUE(MakeDirs(Parsed(directory.Text("i/j").substr(2), Path::POSIX_PATH)));
  for (const char* const name : {"a/b", "a/c", "d/e", "d/f/g", "h", "i/j"}) {
    EXPECT_TRUE(IsNativeDirectory(name)) << name;
  }
  EXPECT_EQ(ObjectsBelow("."), 10u);
}

TEST(PathMakeDir, Unicode) {
  const ScopedDirectory directory;
  const std::string euro = "\xE2\x82\xAC";
  const std::string face = "\xF0\x9F\x98\x80";
  EXPECT_TRUE(MakeDir(euro));
  EXPECT_TRUE(MakeDirs(Path(euro + "/" + face + "/" + euro).Wstr()));
  EXPECT_TRUE(IsNativeDirectory(euro + "/" + face + "/" + euro));
}

// One level at a time: the system call for whole chains is limited to 248 characters.
TEST(PathMakeDir, DeepPath) {
  const ScopedDirectory directory;
  const std::string name = "a directory of 25 letters";
  std::vector<Path> levels = {Path(directory.Text(""))};
  size_t length = levels.back().Str().size();
  while (length < 1000) {
    levels.push_back(levels.back() / name);
    length += 1 + name.size();
    const Path& path = levels.back();
    SCOPED_TRACE(length);
    EXPECT_EQ(path.Str().size(), length + (length >= 260 ? kLongPrefix.size() : 0));
    EXPECT_EQ(StartsWith(path.Str(), kLongPrefix), length >= 260);
    ExpectMissing(path);
    EXPECT_TRUE(MakeDir(path));
    EXPECT_FALSE(MakeDir(path));
    ExpectAnswers({path, false, true, 0});
    EXPECT_EQ(path.Absolute().Str(), path.Str());
    ExpectMissing(path / "missing");
    EXPECT_FALSE(MakeDir(path / "missing" / "x"));
  }
  ASSERT_GT(levels.size(), 10u);
  const Path file = levels.back() / "file";
  std::ofstream(NativeName(file)) << "12345";
  ExpectAnswers({file, true, false, 5});

  EXPECT_TRUE(std::filesystem::remove(NativeName(file)));
  ExpectMissing(file);
  for (; levels.size() > 1; levels.pop_back()) {
    EXPECT_TRUE(std::filesystem::remove(NativeName(levels.back())));
    ExpectMissing(levels.back());
  }
  EXPECT_EQ(ObjectsBelow("."), 0u);
}

// ---- logging and threads ----

TEST(Path, SilentFailures) {
  const ScopedDirectory directory;
  const auto records = LogRecords::Install(tarsio::LOG_LEVEL_DEBUG);
  const Path paths[] = {Path(),
                        Path(" "),
                        Path("missing/x"),
                        Path(R"(Q:\x)"),
                        Path(R"(\\tarsio.invalid\share)"),
                        Path(std::string(70000, 'x')),
                        Path("\xFF/\xE2")};
  for (const Path& path : paths) {
    EXPECT_NO_THROW({
      EXPECT_FALSE(path.Exists());
      EXPECT_FALSE(path.IsFile());
      EXPECT_FALSE(path.IsDirectory());
      EXPECT_EQ(path.FileSize(), 0u);
      EXPECT_FALSE(MakeDir(path / "x" / "y"));
      static_cast<void>(MakeDirs(path));
      path.Absolute();
      path.ParentPath();
      path.Extension();
      Path::Getcwd();
    });
  }
  EXPECT_THROW(Path(Bytes("a\0/b")), std::out_of_range);
  EXPECT_THAT(records->All(), IsEmpty());
}

TEST(Path, ConstManyThreads) {
  const ScopedDirectory directory;
  directory.Write("f", "12345");
  const Path path(directory.Text("f"));
  const Path relative("a/b");
  const std::string text = path.Str();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 200; ++round) {
        const Path own(text);
        EXPECT_EQ(own, path);
        EXPECT_EQ(path.Str(), text);
        EXPECT_EQ(Path(path.Wstr()), own);
        EXPECT_EQ((path / relative).ParentPath().ParentPath(), path);
        EXPECT_EQ(path.Filename(), "f");
        EXPECT_EQ(path.Absolute(), path);
        EXPECT_EQ(path.ParentPath(), Path::Getcwd());
        EXPECT_TRUE(path.Exists() && path.IsFile() && !path.IsDirectory());
        EXPECT_EQ(path.FileSize(), 5u);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
