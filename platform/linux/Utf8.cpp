#include "platform/linux/Utf8.h"

#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <cstring>

namespace {

constexpr std::uint64_t kHighBits = 0x8080808080808080u;
constexpr std::uint64_t kUnitsAboveAscii = 0xFF80FF80FF80FF80u;

// Eight characters of ASCII go at once. The compilers turn these types into what the machine has.
constexpr CFIndex kRun = 8;
typedef UInt8 RunOfBytes __attribute__((vector_size(kRun)));
typedef UniChar RunOfUnits __attribute__((vector_size(2 * kRun)));

std::uint64_t LoadEight(void const* bytes) {
  std::uint64_t eight;
  std::memcpy(&eight, bytes, sizeof eight);
  return eight;
}

void Widen(UInt8 const* bytes, UniChar* units) {
  RunOfBytes narrow;
  std::memcpy(&narrow, bytes, sizeof narrow);
  RunOfUnits const wide = __builtin_convertvector(narrow, RunOfUnits);
  std::memcpy(units, &wide, sizeof wide);
}

void Narrow(UniChar const* units, UInt8* bytes) {
  RunOfUnits wide;
  std::memcpy(&wide, units, sizeof wide);
  RunOfBytes const narrow = __builtin_convertvector(wide, RunOfBytes);
  std::memcpy(bytes, &narrow, sizeof narrow);
}

// How many bytes stand before the first with its highest bit set, of which `high` has one.
CFIndex AsciiBefore(std::uint64_t high) {
  bool const lowFirst = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;
  return (lowFirst ? __builtin_ctzll(high) : __builtin_clzll(high)) / 8;
}

// Adds the lowest bits of the eight bytes.
CFIndex SumOfLowBits(std::uint64_t eight) {
  constexpr std::uint64_t kLowBits = 0x0101010101010101u;
  return static_cast<CFIndex>(((eight & kLowBits) * kLowBits) >> 56);
}

// The six bits of a continuation; 0x40 or more for another byte.
unsigned int Continuation(UInt8 byte) { return byte ^ 0x80u; }

// Decodes the character at `next`, which is not ASCII, and moves both pointers behind it. False
// where it is none.
bool DecodeCharacter(UInt8 const*& next, UInt8 const* end, UniChar*& unit) {
  unsigned int const head = *next;
  if (head < 0xE0) {
    if (head < 0xC2 || end - next < 2) return false;
    unsigned int const second = Continuation(next[1]);
    if (second >= 0x40) return false;
    *unit++ = static_cast<UniChar>((head & 0x1F) << 6 | second);
    next += 2;
    return true;
  }
  if (head < 0xF0) {
    if (end - next < 3) return false;
    unsigned int const second = Continuation(next[1]);
    unsigned int const third = Continuation(next[2]);
    unsigned int const value = (head & 0x0F) << 12 | second << 6 | third;
    if ((second | third) >= 0x40 || value < 0x800 || U16_IS_SURROGATE(value)) return false;
    *unit++ = static_cast<UniChar>(value);
    next += 3;
    return true;
  }
  if (head > 0xF4 || end - next < 4) return false;
  unsigned int const second = Continuation(next[1]);
  unsigned int const third = Continuation(next[2]);
  unsigned int const fourth = Continuation(next[3]);
  unsigned int const value = (head & 0x07) << 18 | second << 12 | third << 6 | fourth;
  if ((second | third | fourth) >= 0x40 || value < 0x10000 || value > 0x10FFFF) return false;
  *unit++ = U16_LEAD(value);
  *unit++ = U16_TRAIL(value);
  next += 4;
  return true;
}

}  // namespace

bool IsAscii(char const* text, std::size_t length) {
  if (length < 8) {
    unsigned int all = 0;
    for (std::size_t i = 0; i < length; ++i) all |= static_cast<unsigned char>(text[i]);
    return all < 0x80;
  }
  std::size_t i = 0;
  for (; i + 32 <= length; i += 32) {
    std::uint64_t const eights = LoadEight(text + i) | LoadEight(text + i + 8) |
                                 LoadEight(text + i + 16) | LoadEight(text + i + 24);
    if ((eights & kHighBits) != 0) return false;
  }
  std::uint64_t eights = LoadEight(text + length - 8);
  for (; i + 8 <= length; i += 8) eights |= LoadEight(text + i);
  return (eights & kHighBits) == 0;
}

// One for every byte that is no continuation, and a second for each head of four bytes.
CFIndex CountUnits(UInt8 const* bytes, CFIndex byteCount) {
  CFIndex units = byteCount;
  CFIndex i = 0;
  for (; i + 8 <= byteCount; i += 8) {
    std::uint64_t const eight = LoadEight(bytes + i);
    std::uint64_t const high = eight >> 7;
    units -= SumOfLowBits(high & ~(eight >> 6));
    units += SumOfLowBits(high & (eight >> 6) & (eight >> 5) & (eight >> 4));
  }
  for (; i < byteCount; ++i) {
    if ((bytes[i] & 0xC0) == 0x80) --units;
    if (bytes[i] >= 0xF0) ++units;
  }
  return units;
}

CFIndex DecodeUtf8(UInt8 const* bytes, CFIndex byteCount, UniChar* units, CFIndex room) {
  UInt8 const* next = bytes;
  UInt8 const* const end = bytes + byteCount;
  UniChar* unit = units;
  UniChar* const roomEnd = units + room;
  while (next < end) {
    if (*next >= 0x80) {
      if (!DecodeCharacter(next, end, unit)) return -1;
    } else if (end - next >= kRun && roomEnd - unit >= kRun) {
      // All eight are written, and those that are ASCII count.
      Widen(next, unit);
      std::uint64_t const high = LoadEight(next) & kHighBits;
      CFIndex const count = high == 0 ? kRun : AsciiBefore(high);
      next += count;
      unit += count;
    } else {
      *unit++ = *next++;
    }
  }
  return unit - units;
}

namespace {

// As EncodeUtf8, which says whether there is room for all units, however many bytes each takes.
template <bool hasRoom>
CFIndex Encode(UniChar const* units, CFIndex length, UInt8* buffer, CFIndex capacity,
               CFIndex* used) {
  auto const lacks = [&](CFIndex at, CFIndex size) { return !hasRoom && capacity - at < size; };
  CFIndex i = 0;
  CFIndex at = 0;
  while (i < length) {
    unsigned int const unit = units[i];
    if (unit < 0x80) {
      if (length - i >= kRun && !lacks(at, kRun) &&
          ((LoadEight(units + i) | LoadEight(units + i + kRun / 2)) & kUnitsAboveAscii) == 0) {
        Narrow(units + i, buffer + at);
        at += kRun;
        i += kRun;
        continue;
      }
      if (lacks(at, 1)) break;
      buffer[at++] = static_cast<UInt8>(unit);
    } else if (unit < 0x800) {
      if (lacks(at, 2)) break;
      buffer[at++] = static_cast<UInt8>(0xC0 | unit >> 6);
      buffer[at++] = static_cast<UInt8>(0x80 | (unit & 0x3F));
    } else if (!U16_IS_SURROGATE(unit)) {
      if (lacks(at, 3)) break;
      buffer[at++] = static_cast<UInt8>(0xE0 | unit >> 12);
      buffer[at++] = static_cast<UInt8>(0x80 | (unit >> 6 & 0x3F));
      buffer[at++] = static_cast<UInt8>(0x80 | (unit & 0x3F));
    } else {
      bool const pair = U16_IS_SURROGATE_LEAD(unit) && i + 1 < length && U16_IS_TRAIL(units[i + 1]);
      if (!pair || lacks(at, 4)) break;
      int const character = U16_GET_SUPPLEMENTARY(unit, units[i + 1]);
      U8_APPEND_UNSAFE(buffer, at, character);
      ++i;
    }
    ++i;
  }
  *used = at;
  return i;
}

}  // namespace

CFIndex EncodeUtf8(UniChar const* units, CFIndex length, UInt8* buffer, CFIndex capacity,
                   CFIndex* used) {
  constexpr CFIndex kMostBytes = 3;  // of a unit; the four of a pair are two each
  return length <= capacity / kMostBytes ? Encode<true>(units, length, buffer, capacity, used)
                                         : Encode<false>(units, length, buffer, capacity, used);
}
