// Strings from bytes and to bytes.

#include <CoreFoundation/CFString.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <climits>
#include <cstring>

#include "platform/linux/CFStringObject.h"

namespace {

constexpr std::uint64_t kHighBits = 0x8080808080808080u;
constexpr UniChar kByteOrderMark = 0xFEFF;
constexpr UniChar kSwappedByteOrderMark = 0xFFFE;

std::uint64_t LoadEight(char const* bytes) {
  std::uint64_t eight;
  std::memcpy(&eight, bytes, sizeof eight);
  return eight;
}

// Adds the lowest bits of the eight bytes.
CFIndex SumOfLowBits(std::uint64_t eight) {
  constexpr std::uint64_t kLowBits = 0x0101010101010101u;
  return static_cast<CFIndex>(((eight & kLowBits) * kLowBits) >> 56);
}

// The most UTF-16 units that UTF-8 can make, and just as many as it makes if it is valid: one for
// every byte that is no continuation, and a second for each head of four bytes.
CFIndex CountUnits(UInt8 const* bytes, CFIndex byteCount) {
  CFIndex units = byteCount;
  CFIndex i = 0;
  for (; i + 8 <= byteCount; i += 8) {
    std::uint64_t const eight = LoadEight(reinterpret_cast<char const*>(bytes) + i);
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

bool IsContinuation(UInt8 byte) { return (byte & 0xC0) == 0x80; }

// Decodes into as many units as CountUnits says. False for bytes that are not strictly UTF-8.
bool DecodeUtf8(UInt8 const* next, UInt8 const* end, UniChar* unit) {
  while (next < end) {
    UInt8 const head = *next;
    if (head < 0x80) {
      *unit++ = head;
      ++next;
    } else if (head < 0xE0) {
      if (head < 0xC2 || end - next < 2 || !IsContinuation(next[1])) return false;
      *unit++ = static_cast<UniChar>((head & 0x1F) << 6 | (next[1] & 0x3F));
      next += 2;
    } else if (head < 0xF0) {
      if (end - next < 3 || !IsContinuation(next[1]) || !IsContinuation(next[2])) return false;
      int const value = (head & 0x0F) << 12 | (next[1] & 0x3F) << 6 | (next[2] & 0x3F);
      if (value < 0x800 || U16_IS_SURROGATE(value)) return false;
      *unit++ = static_cast<UniChar>(value);
      next += 3;
    } else {
      if (end - next < 4 || !IsContinuation(next[1]) || !IsContinuation(next[2]) ||
          !IsContinuation(next[3])) {
        return false;
      }
      int const value =
          (head & 0x0F) << 18 | (next[1] & 0x3F) << 12 | (next[2] & 0x3F) << 6 | (next[3] & 0x3F);
      if (head > 0xF4 || value < 0x10000 || value > 0x10FFFF) return false;
      *unit++ = U16_LEAD(value);
      *unit++ = U16_TRAIL(value);
      next += 4;
    }
  }
  return true;
}

CFStringRef CreateFromUtf16(UInt8 const* bytes, CFIndex byteCount, bool swapped) {
  if (byteCount % 2 != 0) return nullptr;
  CFIndex const length = byteCount / 2;
  UniChar all = 0;
  auto const unitAt = [bytes, swapped](CFIndex i) {
    UniChar unit;
    std::memcpy(&unit, bytes + 2 * i, sizeof unit);
    return swapped ? __builtin_bswap16(unit) : unit;
  };
  for (CFIndex i = 0; i < length; ++i) all = static_cast<UniChar>(all | unitAt(i));
  bool const wide = all >= 0x80;
  __CFString* const string = AllocateString(length, wide);
  if (string == nullptr) return nullptr;
  for (CFIndex i = 0; i < length; ++i) {
    if (wide) {
      string->Wide()[i] = unitAt(i);
    } else {
      string->Narrow()[i] = static_cast<char>(unitAt(i));
    }
  }
  return string;
}

// Takes bytes for a conversion, up to a capacity; without a buffer it only counts them.
class ByteSink {
 public:
  ByteSink(UInt8* buffer, CFIndex capacity)
      : m_buffer(buffer), m_capacity(buffer != nullptr ? capacity : LONG_MAX) {}

  CFIndex Used() const { return m_used; }
  CFIndex Room() const { return m_capacity - m_used; }
  bool Writes() const { return m_buffer != nullptr; }
  void Skip(CFIndex count) { m_used += count; }

  void Put(void const* bytes, CFIndex count) {
    if (m_buffer != nullptr) std::memcpy(m_buffer + m_used, bytes, static_cast<std::size_t>(count));
    m_used += count;
  }

 private:
  UInt8* m_buffer;
  CFIndex m_capacity;
  CFIndex m_used = 0;
};

// The bytes of `character` in an encoding, or 0 where it cannot hold it.
CFIndex Encode(UChar32 character, CFStringEncoding encoding, UInt8 (&bytes)[4]) {
  bool const scalar = !U_IS_SURROGATE(character);
  switch (encoding) {
    case kCFStringEncodingASCII:
      bytes[0] = static_cast<UInt8>(character);
      return character < 0x80 ? 1 : 0;
    case kCFStringEncodingUTF32LE:
      for (int i = 0; i < 4; ++i) bytes[i] = static_cast<UInt8>(character >> (8 * i));
      return scalar ? 4 : 0;
    default: {
      CFIndex count = 0;
      if (scalar) U8_APPEND_UNSAFE(bytes, count, character);
      return count;
    }
  }
}

// Converts wide units and returns how many it took.
CFIndex ConvertWide(UniChar const* units, CFIndex length, CFStringEncoding encoding, UInt8 lossByte,
                    ByteSink& sink) {
  CFIndex i = 0;
  while (i < length) {
    CFIndex next = i;
    UChar32 character;
    U16_NEXT(units, next, length, character);
    UInt8 bytes[4];
    CFIndex count = Encode(character, encoding, bytes);
    if (count == 0 && lossByte != 0) count = Encode(lossByte, encoding, bytes);
    if (count == 0 || count > sink.Room()) break;
    sink.Put(bytes, count);
    i = next;
  }
  return i;
}

// The same for the usual case: UTF-8, into a buffer, without a loss byte.
CFIndex ConvertWideToUtf8(UniChar const* units, CFIndex length, UInt8* buffer, CFIndex capacity,
                          CFIndex* used) {
  CFIndex i = 0;
  CFIndex at = 0;
  while (i < length) {
    int const unit = units[i];
    if (unit < 0x80) {
      if (capacity - at < 1) break;
      buffer[at++] = static_cast<UInt8>(unit);
    } else if (unit < 0x800) {
      if (capacity - at < 2) break;
      buffer[at++] = static_cast<UInt8>(0xC0 | unit >> 6);
      buffer[at++] = static_cast<UInt8>(0x80 | (unit & 0x3F));
    } else if (!U16_IS_SURROGATE(unit)) {
      if (capacity - at < 3) break;
      buffer[at++] = static_cast<UInt8>(0xE0 | unit >> 12);
      buffer[at++] = static_cast<UInt8>(0x80 | (unit >> 6 & 0x3F));
      buffer[at++] = static_cast<UInt8>(0x80 | (unit & 0x3F));
    } else {
      bool const pair = U16_IS_SURROGATE_LEAD(unit) && i + 1 < length && U16_IS_TRAIL(units[i + 1]);
      if (!pair || capacity - at < 4) break;
      int const character = U16_GET_SUPPLEMENTARY(unit, units[i + 1]);
      U8_APPEND_UNSAFE(buffer, at, character);
      ++i;
    }
    ++i;
  }
  *used = at;
  return i;
}

// Units as they are, but for a pair that would be cut in two.
CFIndex ConvertToUtf16(CFStringRef string, CFRange range, ByteSink& sink) {
  CFIndex length = std::min(range.length, sink.Room() / 2);
  if (string->wide) {
    UniChar const* const units = string->Wide() + range.location;
    if (length < range.length && length > 0 && U16_IS_LEAD(units[length - 1]) &&
        U16_IS_TRAIL(units[length])) {
      --length;
    }
    sink.Put(units, 2 * length);
  } else {
    for (CFIndex i = 0; i < length; ++i) {
      UniChar const unit = UnitOf(string->Narrow()[range.location + i]);
      sink.Put(&unit, 2);
    }
  }
  return length;
}

// ASCII, which every encoding holds, in `width` bytes each.
CFIndex ConvertNarrow(char const* text, CFIndex length, CFIndex width, ByteSink& sink) {
  CFIndex const count = std::min(length, sink.Room() / width);
  if (width == 1) {
    sink.Put(text, count);
  } else if (!sink.Writes()) {
    sink.Skip(count * width);
  } else {
    for (CFIndex i = 0; i < count; ++i) {
      UInt8 const bytes[4] = {static_cast<UInt8>(text[i]), 0, 0, 0};
      sink.Put(bytes, width);
    }
  }
  return count;
}

}  // namespace

CFStringRef CreateFromUtf8(std::string_view text, ObjectStore* store) {
  auto const* const bytes = reinterpret_cast<UInt8 const*>(text.data());
  auto const byteCount = static_cast<CFIndex>(text.size());
  if (IsAscii(text.data(), text.size())) return CreateNarrow(text.data(), byteCount, store);
  __CFString* const string = AllocateString(CountUnits(bytes, byteCount), true, store);
  if (string == nullptr || DecodeUtf8(bytes, bytes + byteCount, string->Wide())) return string;
  if (store == nullptr) string->Release();
  return nullptr;
}

bool IsAscii(char const* text, std::size_t length) {
  std::size_t i = 0;
  for (; i + 32 <= length; i += 32) {
    std::uint64_t const eights = LoadEight(text + i) | LoadEight(text + i + 8) |
                                 LoadEight(text + i + 16) | LoadEight(text + i + 24);
    if ((eights & kHighBits) != 0) return false;
  }
  unsigned int all = 0;
  for (; i < length; ++i) all |= static_cast<unsigned char>(text[i]);
  return all < 0x80;
}

CFStringRef CFStringCreateWithBytes(CFAllocatorRef, UInt8 const* bytes, CFIndex byteCount,
                                    CFStringEncoding encoding, Boolean isExternalRepresentation) {
  if (byteCount < 0) return nullptr;
  bool const external = isExternalRepresentation != 0;
  switch (encoding) {
    case kCFStringEncodingUTF8: {
      std::string_view text(reinterpret_cast<char const*>(bytes),
                            static_cast<std::size_t>(byteCount));
      constexpr std::string_view kMark = "\xEF\xBB\xBF";
      if (external && text.substr(0, kMark.size()) == kMark) text.remove_prefix(kMark.size());
      return CreateFromUtf8(text);
    }
    case kCFStringEncodingUnicode: {
      UniChar mark = 0;
      if (external && byteCount >= 2) std::memcpy(&mark, bytes, sizeof mark);
      bool const marked = mark == kByteOrderMark || mark == kSwappedByteOrderMark;
      CFIndex const skipped = marked ? 2 : 0;
      return CreateFromUtf16(bytes + skipped, byteCount - skipped, mark == kSwappedByteOrderMark);
    }
    case kCFStringEncodingASCII: {
      char const* const text = reinterpret_cast<char const*>(bytes);
      if (!IsAscii(text, static_cast<std::size_t>(byteCount))) return nullptr;
      return CreateNarrow(text, byteCount);
    }
    default:
      return nullptr;
  }
}

CFIndex CFStringGetBytes(CFStringRef string, CFRange range, CFStringEncoding encoding,
                         UInt8 lossByte, Boolean isExternalRepresentation, UInt8* buffer,
                         CFIndex capacity, CFIndex* usedBytes) {
  if (string->wide && encoding == kCFStringEncodingUTF8 && buffer != nullptr && lossByte == 0) {
    CFIndex used = 0;
    CFIndex const converted =
        ConvertWideToUtf8(string->Wide() + range.location, range.length, buffer, capacity, &used);
    if (usedBytes != nullptr) *usedBytes = used;
    return converted;
  }
  ByteSink sink(buffer, std::max<CFIndex>(capacity, 0));
  CFIndex converted = 0;
  if (encoding == kCFStringEncodingUnicode) {
    bool const marked = isExternalRepresentation != 0;
    if (marked && sink.Room() >= 2) sink.Put(&kByteOrderMark, 2);
    if (!marked || sink.Used() != 0) converted = ConvertToUtf16(string, range, sink);
  } else if (!string->wide) {
    converted = ConvertNarrow(string->Narrow() + range.location, range.length,
                              encoding == kCFStringEncodingUTF32LE ? 4 : 1, sink);
  } else {
    converted =
        ConvertWide(string->Wide() + range.location, range.length, encoding, lossByte, sink);
  }
  if (usedBytes != nullptr) *usedBytes = sink.Used();
  return converted;
}

CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding) {
  CFIndex width = 0;
  switch (encoding) {
    case kCFStringEncodingUTF8:
      width = 3;
      break;
    case kCFStringEncodingUnicode:
      width = 2;
      break;
    case kCFStringEncodingASCII:
      width = 1;
      break;
    case kCFStringEncodingUTF32LE:
      width = 4;
      break;
    default:
      return kCFNotFound;
  }
  CFIndex size = 0;
  return __builtin_mul_overflow(length, width, &size) ? kCFNotFound : size;
}
