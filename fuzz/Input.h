#pragma once

// Cases from bytes, for the targets of strings, paths and streams.

#include <cstdint>
#include <cstdlib>
#include <string>

inline void Require(bool holds) {
  if (!holds) std::abort();
}

// Hands out the bytes from the front; zeroes once they are used up.
class Input {
 public:
  Input(std::uint8_t const* bytes, std::size_t size)
      : m_rest(reinterpret_cast<char const*>(bytes), size) {}

  bool IsEmpty() const { return m_rest.empty(); }
  std::uint8_t TakeByte() { return static_cast<std::uint8_t>(TakeText(1).c_str()[0]); }

  // Small, or near a power of two: also just below zero, taken as signed.
  std::uint64_t TakeNumber() {
    std::uint8_t const first = TakeByte();
    if (first < 0xC0) return first;
    auto const nearness = static_cast<std::int8_t>(TakeByte());
    return (std::uint64_t{1} << (first & 0x3F)) + static_cast<std::uint64_t>(nearness);
  }

  // At most `size` bytes.
  std::string TakeText(std::size_t size) {
    std::string const text = m_rest.substr(0, size);
    m_rest.erase(0, text.size());
    return text;
  }

  // Up to the next line feed, which goes as well, or the end.
  std::string TakeLine() {
    std::string const line = TakeText(m_rest.find('\n'));
    TakeByte();
    return line;
  }

 private:
  std::string m_rest;
};
