// Strings from bytes and to bytes.

#include <CoreFoundation/CFString.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <climits>
#include <cstring>

#include "platform/linux/CFStringObject.h"
#include "platform/linux/Utf8.h"

namespace {

constexpr UniChar kByteOrderMark = 0xFEFF;
constexpr UniChar kSwappedByteOrderMark = 0xFFFE;

// UTF-8 up to this size is decoded on the stack, so that its units need not be counted beforehand.
constexpr CFIndex kBriefSize = 512;

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
  if (byteCount <= kBriefSize) {
    UniChar units[kBriefSize];
    CFIndex const count = DecodeUtf8(bytes, byteCount, units, kBriefSize);
    return count < 0 ? nullptr : CreateWide(units, count, store);
  }
  CFIndex const length = CountUnits(bytes, byteCount);
  __CFString* const string = AllocateString(length, true, store);
  if (string == nullptr || DecodeUtf8(bytes, byteCount, string->Wide(), length) == length) {
    return string;
  }
  if (store == nullptr) string->Release();
  return nullptr;
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
  // The usual case has a shorter road.
  if (string->wide && encoding == kCFStringEncodingUTF8 && buffer != nullptr && lossByte == 0) {
    CFIndex used = 0;
    CFIndex const converted =
        EncodeUtf8(string->Wide() + range.location, range.length, buffer, capacity, &used);
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
