#include <sstream>

#include "common/path.h"
#include "parity/families.h"

namespace tarsio_test {

namespace {

using tarsio::Path;
using tarsio::PathResolver;
using Texts = std::vector<std::string>;

const Texts& Fronts() {
  static const Texts texts{"",
                           "/",
                           "\\",
                           "//",
                           "\\\\",
                           "\\\\?\\",
                           "\\\\?\\C:\\",
                           "\\\\?\\UNC\\",
                           "UNC\\",
                           "unc\\",
                           "UNC/",
                           "C:",
                           "C:\\",
                           "c:/",
                           "1:\\",
                           "\xC3\xA9:\\",
                           "\\\\srv",
                           "\\\\srv\\share",
                           "\\\\.\\",
                           "\\\\?\\\\\\?\\C:\\"};
  return texts;
}

const Texts& Middles() {
  static const Texts texts{"",
                           "a",
                           "a\\b",
                           "a/b",
                           "a//b\\\\c",
                           ".",
                           "..\\.",
                           "a.tar.gz",
                           ".bashrc",
                           "name.",
                           " a ",
                           "\xC3\xBC\xE4\xB8\xAD\xF0\x9F\x98\x80",
                           "\xC3(\xED\xA0\x80\xF4\x90\x80\x80",
                           "\xE4\xB8",
                           std::string("a\0b", 3),
                           std::string("a\\b\0c/d", 7)};
  return texts;
}

Path Parsed(const std::string& text, Path::PathType type) {
  Path path;
  path.Set(text, type);
  return path;
}

void AddOnePath(Table& table, const std::string& text, Path::PathType type) {
  const auto parsed = [&] { return Parsed(text, type); };
  const auto each = [&](const char* function, auto call) {
    table.Add(
        function, [&] { return call(parsed()); }, text, type);
  };
  each("Path::Str(WINDOWS)", [](const Path& p) { return p.Str(Path::WINDOWS_PATH); });
  each("Path::Str(POSIX)", [](const Path& p) { return p.Str(Path::POSIX_PATH); });
  each("Path::Wstr", [](const Path& p) { return p.Wstr(Path::WINDOWS_PATH); });
  each("Path::Filename", [](const Path& p) { return p.Filename(); });
  each("Path::Extension", [](const Path& p) { return p.Extension(); });
  each("Path::Length", [](const Path& p) { return p.Length(); });
  each("Path::Empty", [](const Path& p) { return p.Empty(); });
  each("Path::IsAbsolute", [](const Path& p) { return p.IsAbsolute(); });
  each("Path::ParentPath", [](const Path& p) { return p.ParentPath().Str(); });
  each("Path::ParentPath twice", [](const Path& p) { return p.ParentPath().ParentPath().Str(); });
  each("the wide text parsed", [type](const Path& p) {
    Path again;
    again.Set(p.Wstr(), type);
    return again.Str() + (again == p ? " equal" : " unequal");
  });
}

void AddTwoPaths(Table& table, const std::string& a, const std::string& b) {
  for (const auto aType : {Path::WINDOWS_PATH, Path::POSIX_PATH}) {
    for (const auto bType : {Path::WINDOWS_PATH, Path::POSIX_PATH}) {
      const Path first = Parsed(a, aType);
      const Path second = Parsed(b, bType);
      table.Add(
          "Path::operator/", [&] { return (first / second).Str(); }, a, aType, b, bType);
      table.Add(
          "Path::operator==", [&] { return first == second; }, a, aType, b, bType);
    }
  }
}

// Lengths around the one where the long prefix begins, with components of one and of three bytes
// per character.
void AddThresholds(Table& table) {
  for (const char* const front : {"C:\\", "\\\\srv\\share\\", "UNC\\s\\", "\\\\?\\", "/"}) {
    for (size_t length = 250; length <= 266; ++length) {
      AddOnePath(table, front + std::string(length, 'x'), Path::WINDOWS_PATH);
      AddOnePath(table, front + std::string(length, 'x'), Path::POSIX_PATH);
    }
    std::string text = front;
    while (text.size() < 270) {
      text += "\xE4\xB8\xAD\\";
      if (text.size() > 250) AddOnePath(table, text, Path::WINDOWS_PATH);
    }
  }
}

// Unpaired surrogates, pairs, and the ends of the ranges.
void AddWideTexts(Table& table) {
  const std::vector<std::wstring> texts{L"",
                                        L"C:\\a",
                                        {0xD83D, 0xDE00},
                                        {0xD83D},
                                        {0xDE00},
                                        {0xDE00, 0xD83D},
                                        {0xD83D, 'a', 0xDE00},
                                        {0xD83D, 0xD83D, 0xDE00},
                                        {0xFFFF},
                                        {0xFFFD},
                                        {0x7F, 0x80, 0x7FF, 0x800},
                                        {0xD7FF, 0xE000},
                                        {'C', ':', '\\', 0xDBFF, 0xDFFF}};
  for (const std::wstring& text : texts) {
    table.Add(
        "Path(wide)", [&] { return Path(text).Str(); }, text);
    table.Add(
        "Path(wide)::Wstr", [&] { return Path(text).Wstr(); }, text);
  }
}

void AddResolver(Table& table, const Texts& texts) {
  PathResolver resolver;
  resolver.Erase(resolver.begin());  // the current directory
  const auto printed = [&resolver] {
    std::ostringstream out;
    out << resolver;
    return out.str();
  };
  table.Add("PathResolver printed", printed, resolver.Size());
  for (const std::string& text : texts) {
    resolver.Append(text);
    resolver.Prepend(Parsed(text, Path::POSIX_PATH));
    if (resolver.Size() > 6) resolver.Erase(resolver.begin() + 3);
    table.Add("PathResolver printed", printed, text, resolver.Size());
  }
}

}  // namespace

void AddPaths(Table& table) {
  Texts texts;
  for (const std::string& front : Fronts()) {
    for (const std::string& middle : Middles()) texts.push_back(front + middle);
  }
  Random random;
  Texts pieces = Fronts();
  pieces.insert(pieces.end(), Middles().begin(), Middles().end() - 2);
  for (int i = 0; i < 300; ++i) texts.push_back(random.Text(pieces, 6));
  for (const std::string& text : texts) {
    AddOnePath(table, text, Path::WINDOWS_PATH);
    AddOnePath(table, text, Path::POSIX_PATH);
  }
  for (const std::string& a : Fronts()) {
    for (const std::string& b : Fronts()) AddTwoPaths(table, a + "x", b + "y");
  }
  AddThresholds(table);
  AddWideTexts(table);
  AddResolver(table, Fronts());
}

}  // namespace tarsio_test
