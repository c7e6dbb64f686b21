// A path by the rules in the public header, for comparison: one character at a time.

#ifndef TARSIO_COMMON_FUZZ_PATH_REFERENCE_H_
#define TARSIO_COMMON_FUZZ_PATH_REFERENCE_H_

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace tarsio_fuzz {

struct ReferencePath {
  int type = 0;  // 0 is Windows, 1 is POSIX; others parse as POSIX and print as Windows
  std::vector<std::string> components;
  bool absolute = false;
  bool share = false;

  // Throws std::out_of_range for a component that starts behind the first NUL.
  void Set(const std::string& text, int newType) {
    type = newType;
    components.clear();
    if (type != 0) {
      absolute = text.substr(0, 1) == "/";
      Split(text, "/");
      return;
    }
    std::string rest = text;
    if (rest.substr(0, 4) == "\\\\?\\") rest = rest.substr(4);
    if (rest.substr(0, 2) == "\\\\") {
      rest = rest.substr(2);
      absolute = share =
          rest.find('/') != std::string::npos || rest.find('\\') != std::string::npos;
    } else if (rest.substr(0, 4) == "UNC\\") {
      rest = rest.substr(4);
      absolute = share = true;
    } else {
      share = false;
      absolute = BeginsWithDriveRoot(rest);
      if (absolute) {
        components = {rest.substr(0, 2)};
        rest = rest.substr(3);
      }
    }
    Split(rest, "/\\");
  }

  std::string Str(int style) const {
    std::string text;
    for (const std::string& component : components) text += (style == 1 ? '/' : '\\') + component;
    if (!text.empty()) text.erase(0, 1);
    if (!absolute) return text;
    if (type == 1) return '/' + text;
    const bool isLong = text.size() + (share ? 2 : 0) >= 260;
    if (share) return (isLong ? "\\\\?\\UNC\\" : "\\\\") + text;
    return (isLong ? "\\\\?\\" : "") + text;
  }

  ReferencePath Parent() const {
    ReferencePath parent = *this;
    parent.type = 0;
    if (!components.empty()) parent.components.pop_back();
    if (components.empty() && !absolute) parent.components = {".."};
    return parent;
  }

  ReferencePath Joined(const ReferencePath& other) const {
    ReferencePath joined = *this;
    if (other.absolute || other.type != type) return joined;
    for (const std::string& component : other.components) joined.components.push_back(component);
    return joined;
  }

  std::string Filename() const { return components.empty() ? "" : components.back(); }

  std::string Extension() const {
    std::string reversed;
    const std::string filename = Filename();
    for (size_t i = filename.size(); i > 0; --i) {
      if (filename[i - 1] == '.') return {reversed.rbegin(), reversed.rend()};
      reversed += filename[i - 1];
    }
    return {};
  }

 private:
  static bool BeginsWithDriveRoot(const std::string& s) {
    if (s.size() < 3 || s[1] != ':' || (s[2] != '/' && s[2] != '\\')) return false;
    return (s[0] >= 'A' && s[0] <= 'Z') || (s[0] >= 'a' && s[0] <= 'z');
  }

  void Split(const std::string& text, const std::string& separators) {
    std::optional<std::string> current;
    bool behindNul = false;
    for (const char c : text) {
      if (separators.find(c) != std::string::npos) {
        if (current) components.push_back(*current);
        current.reset();
        continue;
      }
      if (!current && behindNul) throw std::out_of_range("invalid string position");
      if (!current) current = "";
      if (c == '\0') behindNul = true;
      if (!behindNul) *current += c;
    }
    if (current) components.push_back(*current);
  }
};

}  // namespace tarsio_fuzz

#endif  // TARSIO_COMMON_FUZZ_PATH_REFERENCE_H_
