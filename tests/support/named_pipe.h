// A named pipe that the test reads from.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_NAMED_PIPE_H_
#define TARSIO_COMMON_TESTS_SUPPORT_NAMED_PIPE_H_

#include <memory>
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
  std::wstring Text() const;
  // Returns what has been written so far, up to 100 bytes, without blocking.
  std::string Received() const;
  bool HasWriter() const;

 private:
  struct State;
  const std::unique_ptr<State> state;
};

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_NAMED_PIPE_H_
