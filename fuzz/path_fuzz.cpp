// Paths that are parsed, joined, cut and printed, against a second implementation of the rules; and
// what the file system says about them.

#include <array>
#include <cctype>
#include <filesystem>
#include <optional>
#include <system_error>

#include "common/path.h"
#include "path_reference.h"
#include "require.h"
#include "utf_reference.h"

namespace tarsio_fuzz {

namespace {

using tarsio::Path;
using tarsio::PathResolver;

struct Pair {
  Path path;
  ReferencePath reference;
};

void Compare(const Pair& pair) {
  const Path& path = pair.path;
  const ReferencePath& reference = pair.reference;
  for (const int style : {0, 1, 2}) {
    const auto pathStyle = static_cast<Path::PathType>(style);
    const std::string text = path.Str(pathStyle);
    Require(text == reference.Str(style), "Str()");
    Require(path.Wstr(pathStyle) == ReferenceWiden(text), "Wstr() is Str() in UTF-16");
  }
  Require(path.Filename() == reference.Filename(), "Filename()");
  Require(path.Extension() == reference.Extension(), "Extension()");
  Require(path.Length() == reference.components.size(), "Length()");
  Require(path.Empty() == reference.components.empty(), "Empty()");
  Require(path.IsAbsolute() == reference.absolute, "IsAbsolute()");
  Require(path == Path(path) && !(path != Path(path)), "a copy is equal");
}

// Parses on both sides: either both do, or both throw.
void Parse(Pair& pair, const std::string& text, bool wide, int type) {
  const std::wstring units = wide ? ReferenceWiden(text) : std::wstring();
  const std::string bytes = wide ? ReferenceNarrow(units) : text;
  Pair parsed = pair;  // of the path that is parsed into, the share flag may stay
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
    Require(referenceThrows, "Set() throws only for a component behind a NUL");
    Require(std::string(error.what()) == "invalid string position", "the text of the exception");
    return;
  }
  Require(!referenceThrows, "Set() throws for a component behind a NUL");
  pair = parsed;
}

// The printed text says all about an absolute path on a drive or a share, unless it was made by
// other ways than parsing a text and has odd components.
void PrintAndParse(const Pair& pair) {
  const ReferencePath& reference = pair.reference;
  if (reference.type != 0 || !reference.absolute || reference.components.size() < 2) return;
  for (const std::string& component : reference.components) {
    if (component.empty() || component.find_first_of("/\\") != std::string::npos) return;
  }
  const std::string& first = reference.components[0];
  const bool isDrive = first.size() == 2 && std::isalpha(ByteAt(first, 0)) != 0 && first[1] == ':';
  if (reference.share ? first == "?" : !isDrive) return;  // \\?\x reads as a prefix
  const Path again(pair.path.Str());
  Require(again == pair.path && again.IsAbsolute() && again.Str() == pair.path.Str(),
          "an absolute path survives printing and parsing");
}

void AskTheSystem(const Path& path) {
  const bool exists = path.Exists();
  Require(exists == (path.IsFile() || path.IsDirectory()), "what exists is file or directory");
  Require(!(path.IsFile() && path.IsDirectory()), "nothing is both");
  Require(exists || path.FileSize() == 0, "what does not exist has no size");
  const Components current = SplitAtSeparators(std::filesystem::current_path().string());
  const std::string text = ReferenceNarrow(path.Wstr());
  std::string full = ReferenceFullPath(text, current);
  if (ReferenceWiden(full).size() >= 32767) full.clear();
  ReferencePath parsed;
  parsed.Set(full, 0);
  Require(path.Absolute().Str() == parsed.Str(0), "Absolute() is the full path");

  const std::optional<std::string> native = ReferenceNativeName(text, current);
  std::error_code ignored;
  Require(exists == (native && std::filesystem::exists(*native, ignored)),
          "what exists is what the path names by its text");
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
  Require(resolver.Size() == directories.size(), "Append() adds one");
  Require(resolver.Resolve(value) == expected, "Resolve() finds the first that exists");
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
        Parse(pair, TakeText(input, 400), input.ConsumeBool(), input.ConsumeIntegralInRange(0, 2));
        break;
      case 1:
        pair = {pair.path / other.path, pair.reference.Joined(other.reference)};
        break;
      case 2:
        pair = {pair.path.ParentPath(), pair.reference.Parent()};
        break;
      case 3:
        Require(
            (pair.path == other.path) == (pair.reference.components == other.reference.components),
            "equal paths have equal components");
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
