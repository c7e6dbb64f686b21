// HashText() with a fake digest function.

#include <gtest/gtest.h>
#include <openssl/sha.h>

#include <cstddef>
#include <string>

#include "common/string_utils.h"
#include "support/fake_platform.h"

namespace {

bool digestFails = false;
std::string digested;

}  // namespace

// Returns the bytes from 00 to 1F instead of a digest, or fails.
extern "C" unsigned char* SHA256(const unsigned char* data, size_t length, unsigned char* digest) {
  digested.assign(reinterpret_cast<const char*>(data), length);
  for (unsigned char i = 0; i < SHA256_DIGEST_LENGTH; ++i) digest[i] = i;
  return digestFails ? nullptr : digest;
}

namespace {

TEST(HashText, FakeDigest) {
  tarsio_test::FakePlatform platform;
  const std::string data("a\0b", 3);
  const auto hash = [&] { return tarsio::StringUtils::GetHashText(data.data(), data.size()); };
  EXPECT_EQ(hash(), " 0 1 2 3 4 5 6 7 8 9 a b c d e f101112131415161718191a1b1c1d1e1f");
  EXPECT_EQ(digested, data);
  digestFails = true;
  EXPECT_EQ(hash(), "");
  digestFails = false;

  digested.clear();
  platform.libcryptoIsUsable = false;
  EXPECT_EQ(hash(), "");
  EXPECT_EQ(digested, "") << "not called";
}

}  // namespace
