// Replaces standard output's stream buffer and records how it is written to.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_COUT_RECORDER_H_
#define TARSIO_COMMON_TESTS_SUPPORT_COUT_RECORDER_H_

#include <iostream>
#include <mutex>
#include <streambuf>
#include <string>
#include <vector>

namespace tarsio_test {

class CoutRecorder : public std::streambuf {
 public:
  CoutRecorder() : before(std::cout.rdbuf(this)) {}
  CoutRecorder(const CoutRecorder&) = delete;
  CoutRecorder& operator=(const CoutRecorder&) = delete;
  ~CoutRecorder() override { std::cout.rdbuf(before); }

  // The insertions, and "<flush>" for each flush, in order.
  std::vector<std::string> Events() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return events;
  }

 protected:
  std::streamsize xsputn(const char* text, std::streamsize size) override {
    Add(std::string(text, static_cast<size_t>(size)));
    return size;
  }
  int_type overflow(int_type character) override {
    Add(std::string(1, traits_type::to_char_type(character)));
    return traits_type::not_eof(character);
  }
  int sync() override {
    Add("<flush>");
    return 0;
  }

 private:
  void Add(std::string event) {
    const std::lock_guard<std::mutex> lock(mutex);
    events.push_back(std::move(event));
  }

  std::streambuf* const before;
  mutable std::mutex mutex;
  std::vector<std::string> events;
};

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_COUT_RECORDER_H_
