// Parses, joins, shortens and prints paths, and compares them with a second implementation of the
// rules. Also compares the file queries with the standard library's.

#include <array>
#include <cctype>
#include <filesystem>
#include <optional>
#include <system_error>

#include "common/path.h"
#include "reference/path.h"
#include "reference/utf.h"
#include "require.h"

namespace tarsio_fuzz {

namespace {

using tarsio::Path;
using tarsio::PathResolver;

struct Pair {
  Path path;
  reference::Path reference;
};

void Compare(const Pair& pair) {
  const Path& path = pair.path;
  const reference::Path& reference = pair.reference;
  for (const int style : {0, 1, 2}) {
    const auto pathStyle = static_cast<Path::PathType>(style);
    const std::string text = path.Str(pathStyle);
    RequireEqual(text, reference.Str(style), "Str()");
    RequireEqual(path.Wstr(pathStyle), reference::Widen(text), "Wstr() is Str() in UTF-16");
  }
  RequireEqual(path.Filename(), reference.Filename(), "Filename()");
  RequireEqual(path.Extension(), reference.Extension(), "Extension()");
  RequireEqual(path.Length(), reference.components.size(), "Length()");
  RequireEqual(path.Empty(), reference.components.empty(), "Empty()");
  RequireEqual(path.IsAbsolute(), reference.absolute, "IsAbsolute()");
  Require(path == Path(path) && !(path != Path(path)), "a copy compares equal");
}

// Parses with both implementations. Either both succeed, or both throw.
void Parse(Pair& pair, const std::string& text, bool wide, int type) {
  const std::wstring units = wide ? reference::Widen(text) : std::wstring();
  const std::string bytes = wide ? reference::Narrow(units) : text;
  Pair parsed = pair;  // a copy, since Set() may keep the old share flag
  bool referenceThrows = false;
  try {
    parsed.reference.Set(bytes, type);
  } catch (const std::out_of_range&) {
    referenceThrows = true;
  }
  const auto pathType = static_cast<Path::PathType>(type);
  try {
    wide ? parsed.path.Set(units, pathType) : parsed.path.Set(bytes, pathType);
  } catch (const std::out_of_range& error) {
    Require(referenceThrows, "Set() throws only for a component after a NUL");
    RequireEqual(std::string(error.what()), "invalid string position", "the exception's message");
    return;
  }
  Require(!referenceThrows, "Set() throws for a component after a NUL");
  pair = parsed;
}

// An absolute path on a drive or a share can be printed and parsed again, unless it has components
// that parsing cannot produce.
void PrintAndParse(const Pair& pair) {
  const reference::Path& reference = pair.reference;
  if (reference.type != 0 || !reference.absolute || reference.components.size() < 2) return;
  for (const std::string& component : reference.components) {
    if (component.empty() || component.find_first_of("/\\") != std::string::npos) return;
  }
  const std::string& first = reference.components[0];
  const bool isDrive =
      first.size() == 2 && std::isalpha(reference::ByteAt(first, 0)) != 0 && first[1] == ':';
  if (reference.share ? first == "?" : !isDrive) return;  // \\?\x is parsed as a prefix
  const Path again(pair.path.Str());
  Require(again == pair.path && again.IsAbsolute() && again.Str() == pair.path.Str(),
          "an absolute path is unchanged by printing and parsing");
}

void AskTheSystem(const Path& path) {
  const bool exists = path.Exists();
  Require(exists == (path.IsFile() || path.IsDirectory()),
          "an existing path is a file or a directory");
  Require(!(path.IsFile() && path.IsDirectory()), "a path is not both file and directory");
  Require(exists || path.FileSize() == 0, "a missing file has size 0");
  reference::Components current =
      reference::SplitAtSeparators(std::filesystem::current_path().u8string());
  const bool hasDrives = !current.empty() && current[0] == "C:";
  if (hasDrives) current.erase(current.begin());
  const std::string text = reference::Narrow(path.Wstr());
  std::string full = reference::FullPath(text, current);
  if (reference::Widen(full).size() >= 32767) full.clear();
  reference::Path parsed;
  parsed.Set(full, 0);
  Require(path.Absolute().Str() == parsed.Str(0), "Absolute() is the full path");

  if (hasDrives) return;  // the system itself maps names to objects
  const std::optional<std::string> native = reference::NativeName(text, current);
  std::error_code ignored;
  Require(exists == (native && std::filesystem::exists(*native, ignored)),
          "Exists() agrees with the file system");
}

void Resolve(const Path& value, const std::array<Pair, 3>& directories) {
  PathResolver resolver;
  resolver.Erase(resolver.begin());
  Path expected = value;
  bool found = false;
  for (const Pair& directory : directories) {
    resolver.Append(directory.path);
    const Path candidate = directory.path / value;
    if (!found && candidate.Exists()) {
      expected = candidate;
      found = true;
    }
  }
  RequireEqual(resolver.Size(), directories.size(), "Append() adds one directory");
  Require(resolver.Resolve(value) == expected, "Resolve() returns the first existing path");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  std::array<Pair, 3> pairs;
  for (int steps = 0; input.remaining_bytes() > 0 && steps < 50; ++steps) {
    Pair& pair = pairs[input.ConsumeIntegralInRange<size_t>(0, pairs.size() - 1)];
    const Pair& other = pairs[input.ConsumeIntegralInRange<size_t>(0, pairs.size() - 1)];
    switch (input.ConsumeIntegralInRange(0, 4)) {
      case 0:
        Parse(pair, WellFormedForWine(TakeText(input, 400)), input.ConsumeBool(),
              input.ConsumeIntegralInRange(0, 2));
        break;
      case 1:
        pair = {pair.path / other.path, pair.reference.Joined(other.reference)};
        break;
      case 2:
        pair = {pair.path.ParentPath(), pair.reference.Parent()};
        break;
      case 3:
        RequireEqual(pair.path == other.path,
                     pair.reference.components == other.reference.components,
                     "paths are equal if their components are");
        break;
      default:
        AskTheSystem(pair.path);
        Resolve(pair.path, pairs);
        break;
    }
    if (pair.path.Length() > 200) pair = Pair();
    Compare(pair);
    PrintAndParse(pair);
  }
  return 0;
}

}  // namespace tarsio_fuzz
