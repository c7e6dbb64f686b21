// A host in a hostile environment: see scenario.h.

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <random>
#include <regex>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "common/charset_cvt.h"
#include "common/file_utils.h"
#include "common/log.h"
#include "common/path.h"
#include "common/string_utils.h"
#include "everyday_use.h"
#include "scenario.h"
#include "support/environment.h"
#include "support/recording_logger.h"
#include "support/scoped_directory.h"
#include "support/scoped_time_zone.h"
#include "support/swapped_name.h"

namespace {

using tarsio::FileUtils;
using tarsio::Path;
using tarsio_test::Expect;
using tarsio_test::ScopedDirectory;

constexpr size_t kHuge = 100000;

// ---- hostile names ----

// The test runs in "a/b/c/inside" of a tree in which nothing else may change.
class Place {
 public:
  Place() {
    std::filesystem::create_directories("a/b/c/inside");
    for (const char* const canary : {"a/f", "a/b/f", "a/b/c/f"}) directory.Write(canary, "canary");
    std::filesystem::create_directories("a/b/c/d/empty");
    before = Tree();
    std::filesystem::current_path(directory.Native("a/b/c/inside"));
  }

  std::string Inside() const { return directory.Text("a/b/c/inside"); }

  bool IsUnchanged() const { return Tree() == before; }

  void Clear() const {
    for (const auto& entry :
         std::filesystem::directory_iterator(directory.Native("a/b/c/inside"))) {
      std::error_code ignored;
      std::filesystem::remove_all(entry.path(), ignored);
    }
  }

 private:
  std::vector<std::string> Tree() const {
    std::vector<std::string> tree;
    const std::filesystem::recursive_directory_iterator end;
    for (std::filesystem::recursive_directory_iterator i(directory.Native("")); i != end; ++i) {
      if (i->path().filename() == "inside") i.disable_recursion_pending();
      tree.push_back(i->path().generic_u8string());
      if (i->is_regular_file()) tree.push_back(std::to_string(i->file_size()));
    }
    return tree;
  }

  const ScopedDirectory directory;
  std::vector<std::string> before;
};

std::wstring Wide(const std::string& bytes) {
  std::wstring wide;
  for (const char c : bytes) wide += static_cast<wchar_t>(static_cast<unsigned char>(c));
  return wide;
}

void Ask(const Path& path) {
  static_cast<void>(path.Exists());
  static_cast<void>(path.IsFile());
  static_cast<void>(path.IsDirectory());
  static_cast<void>(path.FileSize());
  path.Absolute();
  path.ParentPath();
  path.Filename();
  path.Extension();
  path.Wstr();
  for (const auto type : {Path::WINDOWS_PATH, Path::POSIX_PATH}) path.Str(type);
}

void Write(const std::string& name) {
  for (const int mode : {0x00, 0x21, 0x24, 0x08, 0x10}) {
    const int result = FileUtils::WriteFile("content", name, mode);
    Expect(result == 0 || (result >= 4 && result <= 6), "WriteFile: " + std::to_string(result));
  }
}

void Read(const std::string& name) {
  std::string content;
  const int result = FileUtils::GetFileContent(name, content);
  Expect(result >= 0 && result <= 3, "GetFileContent: " + std::to_string(result));
}

void Resolve(const std::string& name) {
  tarsio::PathResolver resolver;
  resolver.Append(Path(name));
  resolver.Prepend(Path(name));
  static_cast<void>(resolver.Resolve(Path(name)));
  static_cast<void>(resolver.Resolve(Path("f")));
}

// Each call is guarded separately, so that an exception does not skip the others.
void UseEverywhere(const std::string& name) {
  const auto isSeparator = [](char c) { return c == '/' || c == '\\'; };
  const bool isDeep = std::count_if(name.begin(), name.end(), isSeparator) >= 5000;
  Path posix;
  const auto removeDir = [&] { static_cast<void>(FileUtils::RemoveDir(name)); };
  const std::function<void()> calls[] = {
      [&] { Ask(Path(name)); },
      [&] { Ask(Path(Wide(name))); },
      [&] { Ask(Path("d") / Path(name)); },
      [&] { posix.Set(name, Path::POSIX_PATH); },
      [&] { Ask(posix); },
      [&] { static_cast<void>(FileUtils::CheckDirOrFileExists(name)); },
      // Processes each prefix.
      [&] { static_cast<void>(isDeep || FileUtils::MakeDir(name)); },
      removeDir,
      [&] { static_cast<void>(tarsio::MakeDir(Path(name))); },
      removeDir,
      [&] { static_cast<void>(tarsio::MakeDirs(Path(name))); },
      [&] { Read(name); },
      removeDir,
      [&] { Write(name); },
      [&] { Write(".\\" + name); },
      [&] { Read(".\\" + name); },
      [&] { static_cast<void>(FileUtils::RemoveFile(name)); },
      [&] { Resolve(name); },
      [&] { tarsio::CharsetCvt::GetEnv(Wide(name), ""); },
  };
  for (const auto& call : calls) {
    try {
      call();
    } catch (const std::out_of_range& e) {
      const bool stated = e.what() == std::string("invalid string position");
      Expect(stated && name.find('\0') != std::string::npos, e.what());
    }
  }
}

std::string Repeated(const std::string& piece, int times) {
  std::string text;
  for (int i = 0; i < times; ++i) text += piece;
  return text;
}

std::vector<std::string> ListedNames(const std::string& inside) {
  const char* const list =
      "a\nb \x1b[2J\x1b]0;title\a %s%n%x CON con.txt NUL COM1.x LPT9 a:b file:stream file::$DATA "
      "a. ... * ? <|>\" ~ $HOME -rf UNC\\server\\share\\f \\\\server\\share\\f //server/share/f "
      "\\\\.\\x \\\\?\\ \\\\?\\x \\\\?\\UNC\\ \\\\?\\\\\\?\\x \\??\\x x\\..\\y missing/./../y "
      "..\\inside\\y ../../../b/c/inside/y \xC0\xAF \xC0\xAE\xC0\xAE\xC0\xAFy "
      "\xE2\x80\xAEtxt.exe \xED\xA0\x80 \xF4\x90\x80\x80 \xFF\xFE "
      "\xEF\xBC\x8E\xEF\xBC\x8E\xEF\xBC\x8Fy";
  std::vector<std::string> names = tarsio::StringUtils::SplitString(list, " ");
  for (const char* const name : {"", "a ", ". ."}) names.emplace_back(name);
  names.emplace_back("f\0g", 3);
  names.emplace_back("f\0/../../x", 10);
  names.emplace_back("\0f", 2);
  names.emplace_back("d/\0/x", 5);
  names.push_back(R"(\\?\)" + inside + R"(\x\..\y)");
  names.push_back(R"(\\?\)" + inside + R"(\.\y)");
  names.push_back(inside + "/x/../y");
  for (int byte = 1; byte < 256; ++byte) names.emplace_back(1, static_cast<char>(byte));
  for (const size_t size : {255U, 256U, 4096U, 1000000U}) {
    for (const char c : {'n', '\xFF', '\\', '.'}) names.emplace_back(size, c);
  }
  // Dots are resolved again for each prefix.
  for (const char* const piece : {"c/", "c\\"}) names.push_back(Repeated(piece, 10000));
  for (const char* const piece : {"./", "x/../"}) names.push_back(Repeated(piece, 1000));
  for (const int times : {1, 2, 100, 1000}) names.push_back(Repeated("../", times));
  return names;
}

// Combines pieces that are special on one system or the other. No piece is "..", and the first is
// not a separator, so that the name stays inside.
std::string RandomName(std::mt19937_64& random) {
  static const std::string pieces[] = {"\\",   "/",    ".",    "a",      " ",  "~1",
                                       "\n",   "\x1b", "\xFF", "\xC3",   "?",  "|",
                                       "CON",  "NUL",  ":",    "stream", "\t", std::string(1, '\0'),
                                       "x/..", "UNC"};
  std::string name = "r";
  for (uint64_t left = random() % 12; left > 0; --left) {
    const std::string& piece = pieces[random() % std::size(pieces)];
    if (piece == "." && name.back() == '.') continue;
    name += piece;
  }
  return name;
}

void Try(const Place& place, const std::string& name) {
  UseEverywhere(name);
  Expect(place.IsUnchanged(), "outside, after the name " + name.substr(0, 40));
  place.Clear();
}

// Passes hostile names of all kinds to every call that takes a name, in a directory that they must
// not escape. No name contains ".." followed by a component, since such a name may escape.
void UseHostileNames() {
  const Place place;
  for (const std::string& name : ListedNames(place.Inside())) Try(place, name);
  std::mt19937_64 random(1);
  for (int i = 0; i < 200; ++i) Try(place, RandomName(random));
}

// ---- names that are swapped concurrently ----

void UseSwapped(const std::string& name) {
  for (int i = 0; i < 2000; ++i) {
    const int mode = i % 64;
    const int written = FileUtils::WriteFile("content", name, mode);
    Expect(written == 0 || (written >= 4 && written <= 6), "WriteFile: " + std::to_string(written));
    std::string content = "as before";
    const int got = FileUtils::GetFileContent(name, content);
    Expect(got >= 0 && got <= 3, "GetFileContent: " + std::to_string(got));
    Expect(got == 0 || content == (got == 3 ? "" : "as before"), "output after a failure");
    Expect(got != 0 || !content.empty(), "a successful read has content");
    const Path path(name);
    static_cast<void>(path.FileSize());
    static_cast<void>(path.Exists());
    static_cast<void>(path.IsFile());
    static_cast<void>(path.IsDirectory());
    static_cast<void>(FileUtils::CheckDirOrFileExists(name));
    static_cast<void>(FileUtils::MakeDir(name + "/below/"));
    static_cast<void>(MakeDirs(Path(name + "/below")));
    static_cast<void>(FileUtils::RemoveDir(name + "/below"));
    if (i % 4 == 0) static_cast<void>(FileUtils::RemoveFile(name));
  }
}

// Two threads, so that a FIFO that one of them reads has a reader when the other writes to it.
void UseSwappedNames() {
  const ScopedDirectory directory;
  const tarsio_test::SwappedName swapped("s");
  std::thread other(UseSwapped, "./s");
  UseSwapped("./s");
  other.join();
}

// ---- time zones and locales ----

void UseHostileTimeZones() {
  const std::regex form(
      R"(\[\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{1,3}\]\[ERROR\]\[a\.cpp:1\] in a strange place)");
  const auto records = tarsio_test::LogRecords::Install(tarsio::LOG_LEVEL_ERROR);
  const std::string zones[] = {std::string(kHuge, 'A'),
                               std::string(kHuge, '9'),
                               "JST-9" + std::string(kHuge, '0'),
                               ":/dev/full",
                               ":/dev/zero",
                               ":/",
                               "../../../etc/passwd",
                               "/etc/passwd",
                               ":" + std::string(kHuge, '/'),
                               "%s%s%s%n",
                               "A-99999999999999999999",
                               "<\x1b[2J\n>-1",
                               "\xFF\xFE",
                               "EST5EDT,M99.99.99,J9999/-999"};
  for (const std::string& zone : zones) {
    const tarsio_test::ScopedTimeZone here(zone);
    tarsio::Log::GetInstance().DoLog(tarsio::LOG_LEVEL_ERROR, "a.cpp", 1, "f", "%s",
                                     "in a strange place");
    const std::string line = records->All().back().text;
    Expect(std::regex_match(line, form), zone.substr(0, 20) + ": " + line);
  }
  Expect(records->All().size() == std::size(zones), "one line per zone");
}

// The result is a string or a documented exception.
void Convert(const std::string& locale) {
  for (const auto convert : {tarsio::CharsetCvt::U8ToMb, tarsio::CharsetCvt::MbToU8}) {
    for (const char* const text : {"plain", "\xC3\xA9", "\xE9"}) {
      try {
        convert(text);
      } catch (const std::range_error& e) {
        Expect(e.what() == std::string("bad conversion"), locale + ": " + e.what());
      } catch (const std::runtime_error& e) {
        Expect(e.what() == std::string("bad locale name"), locale + ": " + e.what());
      }
    }
  }
}

void UseHostileLocales() {
  const ScopedDirectory directory;
  const std::string locales[] = {std::string(kHuge, 'x'),
                                 "nothing_XX.UTF-8",
                                 "/dev/full",
                                 "../../../../etc/passwd",
                                 "./.",
                                 "C/../C",
                                 "%s%n",
                                 "\xFF\n",
                                 "LC_CTYPE=C;LC_ALL=" + std::string(1000, ';'),
                                 "C"};
  for (const char* const variable : {"LC_ALL", "LC_CTYPE", "LANG", "LOCPATH"}) {
    for (const std::string& locale : locales) {
      const tarsio_test::ScopedVariable user(variable, locale);
      Convert(variable + ("=" + locale.substr(0, 20)));
    }
  }
  Expect(tarsio_test::EverydayUse(), "still works");
}

// ---- a current directory with libraries in it ----

void TakeNoPlantedLibrary() {
  Expect(std::filesystem::exists("planted"), "planted libraries exist");
  Expect(tarsio_test::EverydayUse(), "works");  // the program itself was loaded earlier
  Expect(!std::filesystem::exists("taken"), "no planted library is loaded");
}

constexpr tarsio_test::Scenario kScenarios[] = {
    {"names", UseHostileNames},
    {"swapped_names", UseSwappedNames},
    {"time_zones", UseHostileTimeZones},
    {"locales", UseHostileLocales},
    {"planted_libraries", TakeNoPlantedLibrary},
};

}  // namespace

int main(int argc, char** argv) { return tarsio_test::RunScenario(kScenarios, argc, argv); }
