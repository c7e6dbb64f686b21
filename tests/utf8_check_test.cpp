// The checks of IsASCII() and IsU8() with each set of instructions, compared with the reference.

#include "utf8_check.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>

#include "reference/utf.h"

namespace {

using tarsio::Simd;

// The bytes at which a rule begins or ends.
const std::string kEdges = "\x01\x7F\x80\x9F\xA0\xBF\xC0\xDF\xE0\xEC\xED\xEE\xEF\xF0\xF7\xF8\xFF";

// Returns whether `s` is UTF-8. The library gets a copy that begins `offset` bytes into its buffer
// and ends with it, for the address sanitizer.
bool ExpectAgreement(const std::string& s, size_t offset) {
  const bool ascii = std::all_of(s.begin(), s.end(), [](char c) { return (c & 0x80) == 0; });
  const bool utf8 = s.empty() || reference::IsU8(s);
  const std::unique_ptr<unsigned char[]> buffer(new unsigned char[offset + s.size()]);
  unsigned char* const begin = buffer.get() + offset;
  std::copy(s.begin(), s.end(), begin);
  for (const Simd simd : {Simd::kBest, Simd::kSse2}) {
    const auto traced = [&] {
      return testing::PrintToString(s) + " with " + std::to_string(int(simd));
    };
    EXPECT_EQ(tarsio::IsAscii(begin, s.size(), simd), ascii) << traced();
    EXPECT_EQ(tarsio::IsUtf8(begin, s.size(), simd), utf8) << traced();
  }
  return utf8;
}

std::string Repeat(const std::string& s, size_t size) {
  std::string repeated;
  while (repeated.size() < size) repeated += s;
  repeated.resize(size);
  return repeated;
}

// All sizes up to some blocks, and all places in them.
TEST(Utf8Check, EveryPlace) {
  for (const char* const base : {"a", "\xC3\xA9", "\xE4\xB8\x80", "\xF0\x9F\x98\x80"}) {
    for (size_t size = 0; size <= 300; size += size < 70 ? 1 : 13) {
      const std::string whole = Repeat(base, size);
      ExpectAgreement(whole, size % 32);
      for (size_t place = 0; place < size; ++place) {
        std::string s = whole;
        for (const char edge : kEdges) {
          s[place] = edge;
          ExpectAgreement(s, place % 32);
        }
      }
    }
  }
  EXPECT_FALSE(HasFailure());
}

// Ends of sequences on both sides of every border between blocks and chunks.
TEST(Utf8Check, RandomSequences) {
  std::mt19937 random(20261122);
  const auto below = [&random](size_t limit) { return random() % limit; };
  int valid = 0;
  constexpr int kRounds = 40000;
  for (int round = 0; round < kRounds && !HasFailure(); ++round) {
    std::string s;
    const size_t size = below(700);
    while (s.size() < size) {
      const size_t kind = below(5);
      if (kind == 0) s += std::string(below(300), 'a');
      if (kind == 1) s += "\xC3\xA9";
      if (kind == 2) s += "\xED\x9F\xBF";
      if (kind == 3) s += "\xF0\x80\x80\x80";
      if (kind == 4) s += "\xEF\xBF\xBF";
    }
    if (!s.empty() && below(2) == 0) s[below(s.size())] = kEdges[below(kEdges.size())];
    valid += static_cast<int>(ExpectAgreement(s, below(32)));
  }
  EXPECT_GT(valid, kRounds / 4);
  EXPECT_LT(valid, kRounds * 3 / 4);
}

}  // namespace
