#pragma once

// Checksum, the 64-bit FNV-1a sum of bytes that arrive in portions.

#include <cstddef>
#include <cstdint>

// For each byte the sum is combined with it by exclusive or, then multiplied by the prime, modulo
// 2^64. It tells accidental changes, not forgeries.
class Checksum {
 public:
  void Add(unsigned char const* bytes, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) m_sum = (m_sum ^ bytes[i]) * kPrime;
  }

  std::uint64_t Sum() const { return m_sum; }

 private:
  static constexpr std::uint64_t kBasis = 0xcbf29ce484222325u;
  static constexpr std::uint64_t kPrime = 0x100000001b3u;

  std::uint64_t m_sum = kBasis;
};
