// Writes and reads files in any mode, creates and removes directories, and compares the results
// with a model of the file system. The names include FIFOs and broken symbolic links. Some inputs
// also use a name that another thread replaces concurrently, and expect one of the documented
// results.

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <system_error>

#include "common/file_utils.h"
#include "common/path.h"
#include "require.h"
#include "support/fifo.h"
#include "support/scoped_directory.h"
#include "support/swapped_name.h"

namespace tarsio_fuzz {

namespace {

using tarsio::FileUtils;

// Returns the bytes of a text file with this content on this system.
std::string TextForm(const std::string& content) {
  std::ofstream("text form") << content;
  std::ifstream file("text form", std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

enum class Special { kFifo, kLinkToItself };

// A file system. A directory is an object without content.
class Model {
 public:
  bool Exists(const std::string& name) const {
    const auto found = specials.find(name);
    return found != specials.end() ? found->second == Special::kFifo : objects.count(name) > 0;
  }
  bool IsDirectory(const std::string& name) const {
    return name.empty() || (objects.count(name) > 0 && !objects.at(name));
  }
  bool IsFile(const std::string& name) const { return objects.count(name) > 0 && objects.at(name); }
  std::string Content(const std::string& name) const { return *objects.at(name); }

  // Returns true if an object with this name can be created.
  bool IsFree(const std::string& name) const {
    return objects.count(name) + specials.count(name) == 0 && IsDirectory(Parent(name));
  }
  void Add(const std::string& name, Special special) { specials.emplace(name, special); }

  static std::string Parent(const std::string& name) {
    return name.substr(0, name.find('/') == std::string::npos ? 0 : name.rfind('/'));
  }

  int Write(const std::string& name, const std::string& content, int mode) {
    if (IsDirectory(name)) return 6;
    if (!IsDirectory(Parent(name))) return 5;
    if (specials.count(name) > 0) return 4;  // a FIFO without a reader cannot be opened
    const auto has = [mode](int bit) { return (mode & bit) != 0; };
    const bool input = has(1), atEnd = has(4), append = has(8), truncate = has(16);
    if (mode > 0x3F || (append && truncate)) return 4;
    if (!Exists(name) && input && !append && !truncate) return 4;
    std::string& file = objects[name].emplace(Exists(name) ? objects[name].value_or("") : "");
    if (truncate || (!input && !atEnd && !append)) file.clear();
    const std::string written = has(32) ? content : TextForm(content);
    if (atEnd || append) {
      file += written;
    } else {
      file = written + (file.size() > written.size() ? file.substr(written.size()) : "");
    }
    return 0;
  }

  int Read(const std::string& name) const {
    if (!Exists(name) || IsDirectory(name)) return 1;
    return specials.count(name) > 0 || Content(name).empty() ? 2 : 0;
  }

  bool RemoveFile(const std::string& name) {
    return specials.erase(name) == 1 || (IsFile(name) && objects.erase(name) == 1);
  }

  bool RemoveDirectory(const std::string& name) {
    const auto holdsSomeOf = [&name](const auto& names) {
      const auto next = names.upper_bound(name + '/');
      return next != names.end() && next->first.rfind(name + '/', 0) == 0;
    };
    if (!IsDirectory(name) || holdsSomeOf(objects) || holdsSomeOf(specials)) return false;
    return objects.erase(name) == 1;
  }

  // Creates the directory and its parents. Skips names that exist, even files.
  bool MakeDirectories(const std::string& name) {
    for (size_t end = 1; end <= name.size(); ++end) {
      if (end < name.size() && name[end] != '/') continue;
      const std::string one = name.substr(0, end);
      if (Exists(one)) continue;
      if (!IsFree(one)) return false;
      objects[one] = std::nullopt;
    }
    return true;
  }

 private:
  std::map<std::string, std::optional<std::string>> objects;
  std::map<std::string, Special> specials;
};

void Write(FuzzedDataProvider& input, Model& model, const std::string& name,
           const std::string& text) {
  const std::string content = TakeText(input, 100);
  const int binary = portable ? 0x20 : 0;
  const int mode = input.ConsumeIntegralInRange(0, 0x4F) | binary;
  const int expected = model.Write(name, content, mode);
  RequireEqual(FileUtils::WriteFile(content, text, mode), expected, "WriteFile()");
}

void Read(const Model& model, const std::string& name, const std::string& text) {
  std::string content = "as before";
  const int result = FileUtils::GetFileContent(text, content);
  RequireEqual(result, model.Read(name), "GetFileContent()");
  RequireEqual(content, result == 0 ? model.Content(name) : "as before", "the content");
}

void MakeSpecial(FuzzedDataProvider& input, Model& model, const std::string& name) {
  if (portable || !model.IsFree(name)) return;
  if (input.ConsumeBool()) {
    if (tarsio_test::MakeFifo(name)) model.Add(name, Special::kFifo);
    return;
  }
  std::error_code error;
  const auto link = std::filesystem::u8path(name);
  std::filesystem::create_symlink(link.filename(), link, error);
  if (!error) model.Add(name, Special::kLinkToItself);
}

void UseSwappedName(FuzzedDataProvider& input) {
  const tarsio_test::SwappedName swapped("s");
  for (int steps = 0; steps < 20; ++steps) {
    const int mode = input.ConsumeIntegralInRange(0, 0x4F);
    const int written = FileUtils::WriteFile("content", "./s", mode);
    Require(written == 0 || (written >= 4 && written <= 6), "WriteFile() on a swapped name");
    std::string content;
    const int read = FileUtils::GetFileContent("./s", content);
    Require(read >= 0 && read <= 3, "GetFileContent() on a swapped name");
    Require((read == 0) == !content.empty(), "the content of a swapped name");
    static_cast<void>(tarsio::Path("s").FileSize());
    static_cast<void>(FileUtils::CheckDirOrFileExists("s"));
    static_cast<void>(FileUtils::MakeDir("s/below/"));
    if (input.ConsumeBool()) static_cast<void>(FileUtils::RemoveFile("s"));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string names[] = {"a", "\xC3\xBC x.txt", "d", "d/x", "d/e", "d/e/y", "a/b"};
  FuzzedDataProvider input(data, size);
  const tarsio_test::ScopedDirectory directory;
  Model model;
  if (input.ConsumeIntegralInRange(0, 15) == 15) UseSwappedName(input);
  for (int steps = 0; input.remaining_bytes() > 0 && steps < 40; ++steps) {
    const std::string& name = input.PickValueInArray(names);
    std::string text = directory.Text(name);
    const int form = input.ConsumeIntegralInRange(0, 3);
    if (form > 0) {
      for (char& c : text) c = c == '/' ? '\\' : c;
    }
    if (form == 2) text = "\\\\?\\" + text;
    if (form == 3) text.insert(directory.Text().size(), "\\missing\\.\\..");
    switch (input.ConsumeIntegralInRange(0, 6)) {
      case 0:
      case 1:
        Write(input, model, name, text);
        break;
      case 2:
        RequireEqual(FileUtils::RemoveFile(text), model.RemoveFile(name), "RemoveFile()");
        break;
      case 3:
        RequireEqual(FileUtils::RemoveDir(text), model.RemoveDirectory(name), "RemoveDir()");
        break;
      case 4:
        // MakeDir() would take the long-path prefix for a directory, and create "missing".
        if (form > 1) break;
        RequireEqual(FileUtils::MakeDir(text + '/'), model.MakeDirectories(name), "MakeDir()");
        break;
      case 5:
        MakeSpecial(input, model, name);
        break;
      default:
        break;
    }
    for (const std::string& each : names) {
      Read(model, each, directory.Text(each));
      RequireEqual(FileUtils::CheckDirOrFileExists(directory.Text(each)), model.Exists(each),
                   "CheckDirOrFileExists()");
    }
  }
  return 0;
}

}  // namespace tarsio_fuzz
