// A sink that writes to a file and starts a new file when it is full.

//! [includes]
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "common/log.h"
//! [includes]

namespace {

//! [sink]
class RotatingLogger : public tarsio::Logger {
 public:
  RotatingLogger(std::string fileName, std::streamoff mostBytes)
      : name(std::move(fileName)), limit(mostBytes), file(name, std::ios::binary) {}

  // Several threads may log concurrently.
  void DoOutput(const char* line) override {
    const std::lock_guard<std::mutex> lock(mutex);
    if (file.tellp() >= limit) Rotate();
    file << line << std::endl;
  }

 private:
  void Rotate() {
    file.close();
    std::filesystem::rename(name, name + ".1");  // replaces an older file
    file.open(name, std::ios::binary);
  }

  const std::string name;
  const std::streamoff limit;
  std::mutex mutex;  // guards file
  std::ofstream file;
};
//! [sink]

int LinesOf(const std::string& name) {
  std::ifstream file(name);
  int lines = 0;
  for (std::string line; std::getline(file, line);) ++lines;
  return lines;
}

}  // namespace

int main() {
  tarsio::Log& log = tarsio::Log::GetInstance();
  log.SetLogger(std::make_unique<RotatingLogger>("recipe.log", 400));
  for (int i = 10; i < 20; ++i) TARSIO_LOG(tarsio::LOG_LEVEL_ERROR, "%200d", i);
  log.SetLogger(nullptr);  // closes the file
  std::cout << LinesOf("recipe.log.1") << " lines, then " << LinesOf("recipe.log") << '\n';
  std::filesystem::remove("recipe.log");
  std::filesystem::remove("recipe.log.1");
  return 0;
}
