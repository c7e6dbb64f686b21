#include "common/path.h"

namespace tarsio {

PathResolver::PathResolver() : paths{Path::Getcwd()} {}
PathResolver::PathResolver(const PathResolver& other) = default;
PathResolver& PathResolver::operator=(const PathResolver& other) = default;
PathResolver::~PathResolver() = default;

uint64_t PathResolver::Size() const { return paths.size(); }
Path& PathResolver::operator[](uint64_t index) { return paths[index]; }
const Path& PathResolver::operator[](uint64_t index) const { return paths[index]; }

void PathResolver::Append(const Path& path) { paths.push_back(path); }
void PathResolver::Prepend(const Path& path) { paths.insert(paths.begin(), path); }
void PathResolver::Erase(const_iterator position) { paths.erase(position); }

Path PathResolver::Resolve(const Path& value) const {
  for (const Path& directory : paths) {
    // If `value` is absolute or of another type, the candidate is the directory itself, so the
    // first directory that exists is returned (by design).
    Path candidate = directory / value;
    if (candidate.Exists()) return candidate;
  }
  return value;
}

}  // namespace tarsio
