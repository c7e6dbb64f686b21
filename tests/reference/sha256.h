// A straightforward implementation of SHA-256 (FIPS 180-4) without any library, used as a
// reference.

#ifndef TARSIO_COMMON_TESTS_REFERENCE_SHA256_H_
#define TARSIO_COMMON_TESTS_REFERENCE_SHA256_H_

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>

namespace reference {

namespace sha256_detail {

// Returns the first 32 bits of the fractional part of a root of the `index`-th prime. A double's 53
// bits are sufficient, since the integer part has at most 5.
inline uint32_t RootBits(int index, double (*root)(double)) {
  int prime = 2;
  for (int found = 0;; ++prime) {
    bool isPrime = true;
    for (int divisor = 2; divisor * divisor <= prime; ++divisor) {
      if (prime % divisor == 0) isPrime = false;
    }
    if (isPrime && found++ == index) break;
  }
  const double value = root(prime);
  return static_cast<uint32_t>((value - std::floor(value)) * 4294967296.0);
}

inline double SquareRoot(double x) { return std::sqrt(x); }
inline double CubeRoot(double x) { return std::cbrt(x); }

inline uint32_t Rotate(uint32_t x, int count) { return x >> count | x << (32 - count); }

}  // namespace sha256_detail

// Returns the digest as 32 bytes.
inline std::array<unsigned char, 32> Sha256(const std::string& data) {
  using sha256_detail::Rotate;
  std::array<uint32_t, 64> k{};
  std::array<uint32_t, 8> hash{};
  for (int i = 0; i < 64; ++i) {
    k[static_cast<size_t>(i)] = sha256_detail::RootBits(i, sha256_detail::CubeRoot);
  }
  for (int i = 0; i < 8; ++i) {
    hash[static_cast<size_t>(i)] = sha256_detail::RootBits(i, sha256_detail::SquareRoot);
  }

  std::string padded = data + '\x80';
  while (padded.size() % 64 != 56) padded += '\0';
  const uint64_t bits = uint64_t{data.size()} * 8;
  for (int shift = 56; shift >= 0; shift -= 8) padded += static_cast<char>(bits >> shift & 0xFF);

  for (size_t block = 0; block < padded.size(); block += 64) {
    std::array<uint32_t, 64> w{};
    for (size_t i = 0; i < 64; ++i) {
      w[i / 4] = w[i / 4] << 8 | static_cast<unsigned char>(padded[block + i]);
    }
    for (size_t i = 16; i < 64; ++i) {
      const uint32_t s0 = Rotate(w[i - 15], 7) ^ Rotate(w[i - 15], 18) ^ w[i - 15] >> 3;
      const uint32_t s1 = Rotate(w[i - 2], 17) ^ Rotate(w[i - 2], 19) ^ w[i - 2] >> 10;
      w[i] = w[i - 16] + s0 + w[i - 7] + s1;
    }
    std::array<uint32_t, 8> v = hash;
    for (size_t i = 0; i < 64; ++i) {
      const uint32_t s1 = Rotate(v[4], 6) ^ Rotate(v[4], 11) ^ Rotate(v[4], 25);
      const uint32_t choice = (v[4] & v[5]) ^ (~v[4] & v[6]);
      const uint32_t t1 = v[7] + s1 + choice + k[i] + w[i];
      const uint32_t s0 = Rotate(v[0], 2) ^ Rotate(v[0], 13) ^ Rotate(v[0], 22);
      const uint32_t majority = (v[0] & v[1]) ^ (v[0] & v[2]) ^ (v[1] & v[2]);
      for (size_t j = 7; j > 0; --j) v[j] = v[j - 1];
      v[4] += t1;
      v[0] = t1 + s0 + majority;
    }
    for (size_t j = 0; j < 8; ++j) hash[j] += v[j];
  }

  std::array<unsigned char, 32> digest{};
  for (size_t i = 0; i < 32; ++i) {
    digest[i] = static_cast<unsigned char>(hash[i / 4] >> (24 - 8 * (i % 4)) & 0xFF);
  }
  return digest;
}

}  // namespace reference

#endif  // TARSIO_COMMON_TESTS_REFERENCE_SHA256_H_
