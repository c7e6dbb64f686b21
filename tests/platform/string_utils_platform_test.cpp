// HashText() with a fake digest function. The library's source is compiled into this program.

#include <gtest/gtest.h>
#include <openssl/sha.h>

#include <cstddef>
#include <cstring>
#include <string>

#include "common/string_utils.h"
#include "platform/platform.h"

namespace {

struct FakeDigest {
  bool fails = false;
  bool isUsable = true;
  std::string digested;
};

FakeDigest* current = nullptr;

}  // namespace

// Returns the bytes from 00 to 1F instead of a digest, or fails.
extern "C" unsigned char* SHA256(const unsigned char* data, size_t length, unsigned char* digest) {
  current->digested.assign(reinterpret_cast<const char*>(data), length);
  for (unsigned char i = 0; i < SHA256_DIGEST_LENGTH; ++i) digest[i] = i;
  return current->fails ? nullptr : digest;
}

namespace tarsio::platform {

bool RuntimeLocaleIsClassic() { return false; }
bool LibcryptoIsUsable() { return current->isUsable; }

}  // namespace tarsio::platform

namespace {

class HashText : public testing::Test {
 protected:
  HashText() { current = &digest; }
  ~HashText() override { current = nullptr; }

  FakeDigest digest;
};

TEST_F(HashText, AllBytes) {
  const std::string data("a\0b", 3);
  EXPECT_EQ(tarsio::StringUtils::GetHashText(data.data(), data.size()),
            " 0 1 2 3 4 5 6 7 8 9 a b c d e f101112131415161718191a1b1c1d1e1f");
  EXPECT_EQ(digest.digested, data);
}

TEST_F(HashText, FailedDigest) {
  digest.fails = true;
  EXPECT_EQ(tarsio::StringUtils::GetHashText("abc", 3), "");
  EXPECT_EQ(digest.digested, "abc");
}

TEST_F(HashText, AfterCleanUp) {
  digest.isUsable = false;
  EXPECT_EQ(tarsio::StringUtils::GetHashText("abc", 3), "");
  EXPECT_EQ(digest.digested, "");
}

}  // namespace
