// Paths as values. Our library and POCO parse Windows paths, the others the same paths in POSIX
// form.

#include <filesystem>
#include <string>
#include <vector>

#include "common/path.h"
#include "support/bench.h"
#include "support/memory.h"

#ifdef TARSIO_BENCH_BOOST
#include <boost/filesystem.hpp>
#endif
#ifdef TARSIO_BENCH_POCO
#include <Poco/Path.h>
#endif

namespace tarsio_bench {

namespace {

constexpr const char* kNames[] = {"Program Files", "Vendor",  "Product",  "modules",
                                  "x64",           "release", "resources"};

// Returns a path with `components` components: a root, directories, and a file.
std::string Text(size_t components, const std::string& root, char separator) {
  std::string text = root;
  for (size_t i = 0; i + 2 < components; ++i) {
    text += kNames[i % std::size(kNames)];
    text += separator;
  }
  return text + "core.dll";
}

std::string WindowsText(size_t components) { return Text(components, "C:\\", '\\'); }
std::string PosixText(size_t components) { return Text(components, "/", '/'); }

void AddSize(size_t components) {
  const std::string windowsText = WindowsText(components);
  const std::string posixText = PosixText(components);
  const std::string more = "more.txt";

  // From a string to components and back to a string.
  const std::string parse = Sized("parse_and_print", "components", components);
  AddCall(parse, "ours", [windowsText] { return tarsio::Path(windowsText).Str(); });
  AddCall(parse, "peer:std", [posixText] { return std::filesystem::path(posixText).string(); });
  AddCall(parse, "limit:copy", [windowsText] { return std::string(windowsText); });

  const std::string join = Sized("join_paths", "components", components);
  const std::string parent = Sized("parent_path", "components", components);
  const std::string copy = Sized("copy_a_path", "components", components);
  for (const std::string& workload : {join, parent, copy}) {
    AddCall(workload, "limit:copy", [windowsText] { return std::string(windowsText); });
  }
  {
    const tarsio::Path path(windowsText);
    const tarsio::Path file(more);
    AddCall(join, "ours", [path, file] { return path / file; });
    AddCall(parent, "ours", [path] { return path.ParentPath(); });
    AddCall(copy, "ours", [path] { return tarsio::Path(path); });
  }
  {
    const std::filesystem::path path(posixText);
    const std::filesystem::path file(more);
    AddCall(join, "peer:std", [path, file] { return path / file; });
    AddCall(parent, "peer:std", [path] { return path.parent_path(); });
    AddCall(copy, "peer:std", [path] { return std::filesystem::path(path); });
  }
#ifdef TARSIO_BENCH_BOOST
  {
    const boost::filesystem::path path(posixText);
    const boost::filesystem::path file(more);
    // Boost stores only the string. Iterating makes it find the components.
    AddCall(parse, "peer:Boost", [posixText] {
      const boost::filesystem::path parsed(posixText);
      for (const boost::filesystem::path& component : parsed) benchmark::DoNotOptimize(component);
      return parsed.string();
    });
    AddCall(join, "peer:Boost", [path, file] { return path / file; });
    AddCall(parent, "peer:Boost", [path] { return path.parent_path(); });
    AddCall(copy, "peer:Boost", [path] { return boost::filesystem::path(path); });
  }
#endif
#ifdef TARSIO_BENCH_POCO
  {
    const Poco::Path path(windowsText, Poco::Path::PATH_WINDOWS);
    const Poco::Path file(more, Poco::Path::PATH_WINDOWS);
    AddCall(parse, "peer:POCO", [windowsText] {
      return Poco::Path(windowsText, Poco::Path::PATH_WINDOWS).toString(Poco::Path::PATH_WINDOWS);
    });
    AddCall(join, "peer:POCO", [path, file] { return Poco::Path(path).append(file); });
    AddCall(parent, "peer:POCO", [path] { return path.parent(); });
    AddCall(copy, "peer:POCO", [path] { return Poco::Path(path); });
  }
#endif
}

// 100,000 paths of eight components.
template <typename Path>
void AddPathMemory(const std::string& who, const std::string& text) {
  AddMemory("memory_of_100,000_paths", who, [text] {
    const std::vector<Path> paths(100000, Path(text));
    benchmark::DoNotOptimize(paths.data());
  });
}

}  // namespace

void RegisterAll() {
  for (const size_t components : Sizes{2, 8, 32}) AddSize(components);
  AddPathMemory<tarsio::Path>("ours", WindowsText(8));
  AddPathMemory<std::filesystem::path>("peer:std", PosixText(8));
#ifdef TARSIO_BENCH_POCO
  AddPathMemory<Poco::Path>("peer:POCO", PosixText(8));
#endif
  AddPathMemory<std::string>("limit:copy", WindowsText(8));
}

}  // namespace tarsio_bench
