// A program in a separate directory that loads a module by its full path, as docs/security.md
// recommends, while the current directory contains planted libraries.
//
//     planted_host MODULE

#include <windows.h>

#include <array>
#include <cstdio>
#include <filesystem>

namespace {

int Fail(const char* what) {
  std::fprintf(stderr, "%s\n", what);
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  std::array<char, 1000> path{};
  const DWORD size = static_cast<DWORD>(path.size());
  if (::GetFullPathNameA(argv[1], size, path.data(), nullptr) == 0) return 2;
  if (!std::filesystem::exists("planted")) return Fail("no planted libraries here");
  std::filesystem::remove("taken");
  const HMODULE module = ::LoadLibraryExA(
      path.data(), nullptr, LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32);
  if (module == nullptr) return Fail("the module cannot be loaded");
  const auto use = reinterpret_cast<bool (*)()>(
      reinterpret_cast<void (*)()>(::GetProcAddress(module, "UsePlugin")));
  if (use == nullptr || !use()) return Fail("the module does not work");
  if (std::filesystem::exists("taken")) return Fail("a planted library was loaded");
  return 0;
}
