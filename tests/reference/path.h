// A second implementation of the rules in the public header, one character at a time, and of the
// mapping to native paths, one component at a time.

#ifndef TARSIO_COMMON_TESTS_REFERENCE_PATH_H_
#define TARSIO_COMMON_TESTS_REFERENCE_PATH_H_

#include <algorithm>
#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "reference/utf.h"

namespace reference {

struct Path {
  int type = 0;  // 0 is Windows, 1 is POSIX; other values parse as POSIX and print as Windows
  std::vector<std::string> components;
  bool absolute = false;
  bool share = false;

  // Throws std::out_of_range if a component starts after the first NUL.
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

  Path Parent() const {
    Path parent = *this;
    parent.type = 0;
    if (!components.empty()) parent.components.pop_back();
    if (components.empty() && !absolute) parent.components = {".."};
    return parent;
  }

  Path Joined(const Path& other) const {
    Path joined = *this;
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
    bool afterNul = false;
    for (const char c : text) {
      if (separators.find(c) != std::string::npos) {
        if (current) components.push_back(*current);
        current.reset();
        continue;
      }
      if (!current && afterNul) throw std::out_of_range("invalid string position");
      if (!current) current = "";
      if (c == '\0') afterNul = true;
      if (!afterNul) *current += c;
    }
    if (current) components.push_back(*current);
  }
};

using Components = std::vector<std::string>;

inline Components SplitAtSeparators(const std::string& text) {
  Components components(1);
  for (const char c : text) {
    if (c != '/' && c != '\\') {
      components.back() += c;
    } else if (!components.back().empty()) {
      components.emplace_back();
    }
  }
  if (components.back().empty()) components.pop_back();
  return components;
}

// The root of a printed path, and the components after it.
struct Root {
  std::string text;  // "C:", "\\server\share", "\\?"; empty for the current directory
  Components components;
};

inline Root FindRoot(std::string path) {
  for (char& c : path) c = c == '/' ? '\\' : c;
  Components components = SplitAtSeparators(path);
  const auto take = [&components] {
    if (components.empty()) return std::string();
    std::string first = components.front();
    components.erase(components.begin());
    return first;
  };
  if (path == "\\\\?") return {"\\\\.", {}};
  if (path.substr(0, 2) == "\\\\") {
    // The server may be empty.
    const std::string server = path.substr(2, 1) == "\\" ? "" : take();
    std::string root = "\\\\" + server;
    if (server == "." || server == "?") return {root, components};
    if (path.find('\\', 2) == std::string::npos) return {root, {}};
    while (!components.empty() && (components[0] == "." || components[0] == "..")) take();
    root += '\\' + take();
    return {root, components};
  }
  if (path.substr(0, 1) == "\\") return {"C:", components};
  const std::wstring wide = Widen(path);
  if (wide.size() < 2 || wide[1] != ':') return {"", components};
  const std::string drive = Narrow(wide.substr(0, 2));
  path.erase(0, drive.size());
  const bool isC = drive == "C:" || drive == "c:";
  return {path[0] != '\\' && isC ? "" : drive, SplitAtSeparators(path)};
}

// `untouched` is the number of components of `directory` that no ".." removes.
inline Components WithoutDots(const Components& directory, const Components& components,
                              size_t* untouched) {
  Components resolved = directory;
  *untouched = directory.size();
  for (const std::string& component : components) {
    if (component == "..") {
      if (!resolved.empty()) resolved.pop_back();
      *untouched = std::min(*untouched, resolved.size());
    } else if (component != ".") {
      resolved.push_back(component);
    }
  }
  return resolved;
}

// Returns the full path of `path`, in UTF-8. `directory` are the components of the current
// directory, which is on drive C:.
inline std::string FullPath(const std::string& path, const Components& directory) {
  if (path.find_first_not_of(' ') == std::string::npos) return {};
  Root root = FindRoot(path);
  const bool endsInSeparator = path.back() == '/' || path.back() == '\\';
  for (size_t i = 0; i + (endsInSeparator ? 0 : 1) < root.components.size(); ++i) {
    std::string& inner = root.components[i];
    const size_t name = inner.find_last_not_of('.');
    if (name != std::string::npos && name + 2 == inner.size()) inner.pop_back();
  }
  const bool relative = root.text.empty();
  size_t untouched = 0;
  Components resolved =
      WithoutDots(relative ? directory : Components(), root.components, &untouched);
  // Names from the current directory keep their trailing dots and spaces.
  if (!endsInSeparator && resolved.size() > untouched) {
    std::string& last = resolved.back();
    while (!last.empty() && (last.back() == '.' || last.back() == ' ')) last.pop_back();
  }
  std::string full = relative ? "C:" : root.text;
  for (const std::string& component : resolved) full += '\\' + component;
  // The root of a drive or a device ends with a separator; a server alone does not.
  const bool hasSeparator =
      root.text.substr(0, 2) != "\\\\" || root.text == "\\\\." || root.text == "\\\\?";
  if (resolved.empty() && hasSeparator) full += '\\';
  return full;
}

// Returns the native path of `path`, relative to the current directory `directory`, or nullopt if
// none can exist.
inline std::optional<std::string> NativeName(std::string path, const Components& directory) {
  if (path.empty()) return {};
  const bool literal = path.substr(0, 4) == "\\\\?\\";
  if (literal) {
    path.erase(0, 4);
    if (path.size() < 3 || path.substr(1, 2) != ":\\") return {};
    if (path.find('/') != std::string::npos) return {};
    for (const std::string& component : SplitAtSeparators(path)) {
      if (component == "." || component == "..") return {};
    }
  }
  const Root root = FindRoot(path);
  if (!root.text.empty() && root.text != "C:" && root.text != "c:") return {};
  std::string native = "/";
  const Components base = root.text.empty() ? directory : Components();
  size_t untouched = 0;
  for (const std::string& component : WithoutDots(base, root.components, &untouched)) {
    if (component.find(':') != std::string::npos) return {};
    native += component + '/';
  }
  if (native.size() > 1) native.pop_back();
  return native;
}

}  // namespace reference

#endif  // TARSIO_COMMON_TESTS_REFERENCE_PATH_H_
