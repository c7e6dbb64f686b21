// Started by launcher_test.sh: the first argument selects the output and the way to exit.

#include <windows.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

namespace {

unsigned long Number(const char* text) { return std::strtoul(text, nullptr, 0); }

void PrintArguments(int count, char** arguments) {
  for (int i = 2; i < count; ++i) std::printf("<%s>\n", arguments[i]);
}

void CopyInput() {
  for (std::string line; std::getline(std::cin, line);) {
    std::cout << "out " << line << '\n';
    std::cerr << "err " << line << '\n';
  }
}

volatile int deepest = INT_MAX;

// Not tail-recursive: work is left after the call.
int UseUpTheStack(int depth) {
  if (depth == deepest) return 0;
  volatile char frame[1000];
  frame[0] = 1;
  return UseUpTheStack(depth + 1) + frame[0];
}

}  // namespace

int main(int count, char** arguments) {
  const std::string mode = count > 1 ? arguments[1] : "";
  const char* const value = count > 2 ? arguments[2] : "";
  if (mode == "exit") return static_cast<int>(Number(value));
  if (mode == "terminate") TerminateProcess(GetCurrentProcess(), Number(value));
  if (mode == "crash") *reinterpret_cast<volatile char*>(std::strtoull(value, nullptr, 0)) = 0;
  if (mode == "recursion") return UseUpTheStack(0);
  if (mode == "arguments") PrintArguments(count, arguments);
  if (mode == "copy") CopyInput();
  if (mode == "create") {
    std::fclose(std::fopen(value, "w"));
    CopyInput();
  }
  return 0;
}
