#include "names.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "common/charset_cvt.h"
#include "common/file_utils.h"
#include "common/path.h"
#include "common/string_utils.h"
#include "scenario.h"
#include "support/scoped_directory.h"

namespace tarsio_test {

namespace {

using tarsio::FileUtils;
using tarsio::Path;

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

}  // namespace

void UseHostileNames() {
  const Place place;
  for (const std::string& name : ListedNames(place.Inside())) Try(place, name);
  std::mt19937_64 random(1);
  for (int i = 0; i < 200; ++i) Try(place, RandomName(random));
}

}  // namespace tarsio_test
