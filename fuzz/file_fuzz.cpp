// Whole files written and read with any mode, directories made and removed, against a model of the
// file system.

#include <map>
#include <optional>
#include <string>

#include "common/file_utils.h"
#include "require.h"
#include "support/scoped_directory.h"

namespace tarsio_fuzz {

namespace {

using tarsio::FileUtils;

// Names of files and directories; a directory has no content.
class Model {
 public:
  bool Exists(const std::string& name) const { return objects.count(name) > 0; }
  bool IsDirectory(const std::string& name) const {
    return name.empty() || (Exists(name) && !objects.at(name));
  }
  bool IsFile(const std::string& name) const { return Exists(name) && objects.at(name); }
  std::string Content(const std::string& name) const { return *objects.at(name); }

  static std::string Parent(const std::string& name) {
    return name.substr(0, name.find('/') == std::string::npos ? 0 : name.rfind('/'));
  }

  int Write(const std::string& name, const std::string& content, int mode) {
    if (IsDirectory(name)) return 6;
    if (!IsDirectory(Parent(name))) return 5;
    const auto has = [mode](int bit) { return (mode & bit) != 0; };
    const bool input = has(1), atEnd = has(4), append = has(8), truncate = has(16);
    if (mode > 0x3F || (append && truncate)) return 4;
    if (!Exists(name) && input && !append && !truncate) return 4;
    std::string& file = objects[name].emplace(Exists(name) ? objects[name].value_or("") : "");
    if (truncate || (!input && !atEnd && !append)) file.clear();
    if (atEnd || append) {
      file += content;
    } else {
      file = content + (file.size() > content.size() ? file.substr(content.size()) : "");
    }
    return 0;
  }

  int Read(const std::string& name) const {
    if (!IsFile(name)) return 1;
    return Content(name).empty() ? 2 : 0;
  }

  bool RemoveFile(const std::string& name) { return IsFile(name) && objects.erase(name) == 1; }

  bool RemoveDirectory(const std::string& name) {
    const auto next = objects.upper_bound(name + '/');
    const bool holdsSomething = next != objects.end() && next->first.rfind(name + '/', 0) == 0;
    return IsDirectory(name) && !holdsSomething && objects.erase(name) == 1;
  }

  // Every directory on the way, itself included. What exists is passed over, a file too.
  bool MakeDirectories(const std::string& name) {
    for (size_t end = 1; end <= name.size(); ++end) {
      if (end < name.size() && name[end] != '/') continue;
      const std::string one = name.substr(0, end);
      if (Exists(one)) continue;
      if (!IsDirectory(Parent(one))) return false;
      objects[one] = std::nullopt;
    }
    return true;
  }

 private:
  std::map<std::string, std::optional<std::string>> objects;
};

void Write(FuzzedDataProvider& input, Model& model, const std::string& name,
           const std::string& text) {
  const std::string content = TakeText(input, 100);
  const int mode = input.ConsumeIntegralInRange(0, 0x4F);
  const int expected = model.Write(name, content, mode);
  Require(FileUtils::WriteFile(content, text, mode) == expected, "WriteFile()");
}

void Read(const Model& model, const std::string& name, const std::string& text) {
  std::string content = "as before";
  const int result = FileUtils::GetFileContent(text, content);
  Require(result == model.Read(name), "GetFileContent()");
  Require(content == (result == 0 ? model.Content(name) : "as before"), "the content");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string names[] = {"a", "\xC3\xBC x.txt", "d", "d/x", "d/e", "d/e/y", "a/b"};
  FuzzedDataProvider input(data, size);
  const tarsio_test::ScopedDirectory directory;
  Model model;
  for (int steps = 0; input.remaining_bytes() > 0 && steps < 40; ++steps) {
    const std::string& name = input.PickValueInArray(names);
    std::string text = directory.Text(name);
    const int form = input.ConsumeIntegralInRange(0, 3);
    if (form > 0) {
      for (char& c : text) c = c == '/' ? '\\' : c;
    }
    if (form == 2) text = "\\\\?\\" + text;
    if (form == 3) text.insert(directory.Text().size(), "\\missing\\.\\..");
    switch (input.ConsumeIntegralInRange(0, 5)) {
      case 0:
      case 1:
        Write(input, model, name, text);
        break;
      case 2:
        Require(FileUtils::RemoveFile(text) == model.RemoveFile(name), "RemoveFile()");
        break;
      case 3:
        Require(FileUtils::RemoveDir(text) == model.RemoveDirectory(name), "RemoveDir()");
        break;
      case 4:
        // The prefix itself ends in a separator, and what is missing would be made.
        if (form > 1) break;
        Require(FileUtils::MakeDir(text + '/') == model.MakeDirectories(name), "MakeDir()");
        break;
      default:
        break;
    }
    for (const std::string& each : names) {
      Read(model, each, directory.Text(each));
      Require(FileUtils::CheckDirOrFileExists(directory.Text(each)) == model.Exists(each),
              "CheckDirOrFileExists()");
    }
  }
  return 0;
}

}  // namespace tarsio_fuzz
