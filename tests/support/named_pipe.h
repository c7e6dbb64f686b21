// A named pipe that the test reads from.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_NAMED_PIPE_H_
#define TARSIO_COMMON_TESTS_SUPPORT_NAMED_PIPE_H_

#include <cstdint>
#include <string>

namespace tarsio_test {

// Created in the current directory on systems where pipes are files.
class NamedPipe {
 public:
  NamedPipe();
  NamedPipe(const NamedPipe&) = delete;
  NamedPipe& operator=(const NamedPipe&) = delete;
  ~NamedPipe();

  // Its path, for the library under test.
  static std::wstring Text();
  // Returns what has been written so far, up to 100 bytes, without blocking.
  std::string Received() const;
  bool HasWriter() const;

 private:
  intptr_t reader;
};

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_NAMED_PIPE_H_
