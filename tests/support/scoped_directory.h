// A new, empty directory, which is the current one while the object lives.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_SCOPED_DIRECTORY_H_
#define TARSIO_COMMON_TESTS_SUPPORT_SCOPED_DIRECTORY_H_

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace tarsio_test {

class ScopedDirectory {
 public:
  ScopedDirectory() : before(std::filesystem::current_path()) {
    std::random_device random;
    do {
      root = std::filesystem::temp_directory_path() / ("tarsio-" + std::to_string(random()));
    } while (!std::filesystem::create_directory(root));
    root = std::filesystem::canonical(root);
    std::filesystem::current_path(root);
  }
  ScopedDirectory(const ScopedDirectory&) = delete;
  ScopedDirectory& operator=(const ScopedDirectory&) = delete;
  ~ScopedDirectory() {
    std::error_code ignored;
    std::filesystem::current_path(before, ignored);
    std::filesystem::remove_all(root, ignored);
  }

  // The standard library's path of `name` in this directory.
  std::filesystem::path Native(const std::string& name) const {
    return root / std::filesystem::u8path(name);
  }

  // The same as an absolute path for the library under test: C:/tmp/x/name.
  std::string Text(const std::string& name) const { return Text() + '/' + name; }
  // The directory itself: C:/tmp/x.
  std::string Text() const {
    const std::string text = root.generic_u8string();
    return text.front() == '/' ? "C:" + text : text;
  }

  // Everything below the directory, sorted: "a", "a/b".
  std::vector<std::string> Tree() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
      names.push_back(entry.path().lexically_relative(root).generic_u8string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  // Write and read a file without the library.
  void Write(const std::string& name, const std::string& content) const {
    std::ofstream(Native(name), std::ios::binary) << content;
  }
  std::string Read(const std::string& name) const {
    std::ifstream file(Native(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

 private:
  const std::filesystem::path before;
  std::filesystem::path root;
};

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_SCOPED_DIRECTORY_H_
