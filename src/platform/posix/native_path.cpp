#include "platform/posix/native_path.h"

#include <algorithm>
#include <utility>

#include "path_syntax.h"
#include "platform/platform.h"

namespace tarsio::platform {

namespace {

size_t ComponentEnd(std::string_view path, size_t begin) {
  while (begin < path.size() && !IsSeparator(path[begin])) ++begin;
  return begin;
}

size_t ComponentBegin(std::string_view path, size_t begin) {
  while (begin < path.size() && IsSeparator(path[begin])) ++begin;
  return begin;
}

bool IsDot(std::string_view component) {
  return component.size() <= 2 && (component == "." || component == "..");
}

// Returns the size of the drive, such as "C:", that `path` begins with, or 0. Windows takes any
// UTF-16 unit before a colon for a drive.
size_t DriveSize(std::string_view path) {
  if (path.size() > 1 && path[1] == ':') return 2;
  for (const size_t colon : {2U, 3U}) {  // a non-ASCII unit takes two or three bytes
    if (path.size() <= colon || path[colon] != ':') continue;
    if (Widen(std::string(path.substr(0, colon))).size() == 1) return colon + 1;
  }
  return 0;
}

bool IsDriveC(std::string_view root) {
  return root.size() >= 2 && (root[0] == 'C' || root[0] == 'c') && root[1] == ':';
}

// `path` begins with two separators.
RootedPath OnShareOrDevice(std::string_view path) {
  const size_t server = ComponentEnd(path, 2);
  if (server == 3 && (path[2] == '.' || path[2] == '?')) {
    // A device has no share that belongs to the root.
    if (server == path.size()) return {"//./", {}};
    return {std::string(path.substr(0, 4)), path.substr(4)};
  }
  if (server == path.size()) return {std::string(path), {}};
  size_t begin = ComponentBegin(path, server);
  size_t end = ComponentEnd(path, begin);
  while (IsDot(path.substr(begin, end - begin))) {  // dots cannot go above the share
    begin = ComponentBegin(path, end);
    end = ComponentEnd(path, begin);
  }
  RootedPath rooted{std::string(path.substr(0, server + 1)), path.substr(end)};
  rooted.root += path.substr(begin, end - begin);
  if (end < path.size()) rooted.root += '/';
  return rooted;
}

// Returns true if `path`, which followed the long-path prefix, can exist: a drive's root, then
// components that are taken literally. A "/" would be part of a name, which Windows does not allow.
bool IsLiteralPath(std::string_view path) {
  if (path.size() < 3 || path[1] != ':' || path[2] != '\\') return false;
  if (path.find('/') != std::string_view::npos) return false;
  for (size_t begin = 3; begin < path.size();) {
    const size_t end = ComponentEnd(path, begin);
    if (IsDot(path.substr(begin, end - begin))) return false;
    begin = end + 1;
  }
  return true;
}

// Returns true if a component begins with a dot. Cheaper than looking for "." and "..", and few
// components begin with one.
bool MayHaveDots(const std::string& path) {
  for (size_t dot = path.find('.'); dot != std::string::npos; dot = path.find('.', dot + 1)) {
    if (dot == 0 || IsSeparator(path[dot - 1])) return true;
  }
  return false;
}

}  // namespace

RootedPath FindRoot(std::string_view path) {
  if (!path.empty() && IsSeparator(path[0])) {
    if (path.size() > 1 && IsSeparator(path[1])) return OnShareOrDevice(path);
    return {"C:/", path.substr(1)};
  }
  const size_t drive = DriveSize(path);
  if (drive == 0) return {{}, path};
  const bool absolute = path.size() > drive && IsSeparator(path[drive]);
  // Only C: has a current directory. A relative path on another drive starts at its root.
  if (!absolute && IsDriveC(path)) return {{}, path.substr(drive)};
  return {std::string(path.substr(0, drive)) + '/', path.substr(absolute ? drive + 1 : drive)};
}

size_t ResolveDots(std::string& path, size_t root, size_t begin, bool keepParents) {
  const std::string_view given(path);
  char* const resolved = path.data();  // in place: writing never overtakes reading
  size_t size = begin;
  size_t left = begin;
  for (size_t next = ComponentBegin(given, begin); next < given.size();
       next = ComponentBegin(given, next)) {
    const size_t parent = size;
    if (size > 0 && !IsSeparator(resolved[size - 1])) resolved[size++] = '/';
    const size_t name = size;
    while (next < given.size() && !IsSeparator(given[next])) resolved[size++] = given[next++];
    const std::string_view component(resolved + name, size - name);
    if (!IsDot(component)) continue;
    if (component == ".." && parent == root && keepParents) {
      root = size;
      continue;
    }
    size = parent;
    if (component == ".") continue;
    while (size > root && resolved[size - 1] != '/') --size;
    if (size > root) --size;
    left = std::min(left, size);
  }
  path.resize(size);
  return left;
}

namespace {

// Requires: `path` contains no null character.
std::string MapToNative(std::string path) {
  if (std::string_view(path).substr(0, kLongPrefix.size()) == kLongPrefix) {
    path.erase(0, kLongPrefix.size());
    if (!IsLiteralPath(path)) return {};
  }
  if (path.empty()) return {};
  const RootedPath rooted = FindRoot(path);
  const bool absolute = !rooted.root.empty();
  if (absolute && !IsDriveC(rooted.root)) return {};
  const size_t root = absolute ? 1 : 0;
  path.erase(0, path.size() - rooted.rest.size() - root);
  if (absolute) path[0] = '/';
  if (MayHaveDots(path)) {
    const bool endsInSeparator = IsSeparator(path.back());
    // Leading ".." are kept for the system to resolve: the current directory is a real path,
    // without links.
    ResolveDots(path, root, root, !absolute);
    if (endsInSeparator && path.size() > root) path += '/';
  } else {
    std::replace(path.begin(), path.end(), '\\', '/');
  }
  if (path.find(':') != std::string::npos) return {};
  if (path.empty()) path = ".";
  return path;
}

}  // namespace

std::string NativePath(std::string path) {
  path.resize(std::min(path.size(), path.find('\0')));
  return MapToNative(std::move(path));
}

std::string NativePath(const std::wstring& path) { return MapToNative(Narrow(path)); }

}  // namespace tarsio::platform
