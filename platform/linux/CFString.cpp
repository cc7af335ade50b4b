#include <CoreFoundation/CFString.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>

#include "platform/linux/CFStringObject.h"

namespace {

// The units of a string in either width, for what need not be fast.
struct Units {
  explicit Units(CFStringRef string) : m_string(string) {}
  UniChar operator[](CFIndex i) const {
    return m_string->wide ? m_string->Wide()[i] : UnitOf(m_string->Narrow()[i]);
  }
  CFStringRef m_string;
};

bool StandsAt(CFStringRef string, CFIndex location, CFStringRef wanted) {
  if (string->wide == wanted->wide) {
    std::size_t const size = string->wide ? sizeof(UniChar) : 1;
    return std::memcmp(string->Narrow() + static_cast<std::size_t>(location) * size,
                       wanted->Narrow(), static_cast<std::size_t>(wanted->length) * size) == 0;
  }
  if (wanted->wide) return false;
  for (CFIndex i = 0; i < wanted->length; ++i) {
    if (string->Wide()[location + i] != UnitOf(wanted->Narrow()[i])) return false;
  }
  return true;
}

// The one unit of a string of length 1.
UniChar SingleUnit(CFStringRef string) { return Units(string)[0]; }

CFIndex Location(CFStringRef string, void const* found) {
  return found == nullptr ? kCFNotFound : static_cast<char const*>(found) - string->Narrow();
}

// Within the units from `start` to before `end`.
CFIndex FindForwards(CFStringRef string, CFIndex start, CFIndex end, CFStringRef wanted) {
  std::size_t const left = static_cast<std::size_t>(end - start);
  if (!string->wide && wanted->wide) return kCFNotFound;
  if (!string->wide) {
    char const* const from = string->Narrow() + start;
    return Location(string, wanted->length == 1 ? std::memchr(from, *wanted->Narrow(), left)
                                                : memmem(from, left, wanted->Narrow(),
                                                         static_cast<std::size_t>(wanted->length)));
  }
  if (wanted->length == 1) {
    UniChar const* const last = string->Wide() + end;
    UniChar const* const found = std::find(string->Wide() + start, last, SingleUnit(wanted));
    return found == last ? kCFNotFound : found - string->Wide();
  }
  for (CFIndex at = start; at <= end - wanted->length; ++at) {
    if (StandsAt(string, at, wanted)) return at;
  }
  return kCFNotFound;
}

CFIndex FindBackwards(CFStringRef string, CFStringRef wanted) {
  if (!string->wide && wanted->wide) return kCFNotFound;
  if (wanted->length == 1) {
    if (!string->wide) {
      return Location(string, memrchr(string->Narrow(), *wanted->Narrow(),
                                      static_cast<std::size_t>(string->length)));
    }
    UniChar const unit = SingleUnit(wanted);
    CFIndex at = string->length - 1;
    while (at >= 0 && string->Wide()[at] != unit) --at;
    return at;  // kCFNotFound below the first
  }
  for (CFIndex at = string->length - wanted->length; at >= 0; --at) {
    if (StandsAt(string, at, wanted)) return at;
  }
  return kCFNotFound;
}

// Copies all units of `source` to position `at` of a string that is being filled.
void CopyUnits(CFStringRef source, __CFString* target, CFIndex at) {
  std::size_t const count = static_cast<std::size_t>(source->length);
  if (!target->wide) {
    std::memcpy(target->Narrow() + at, source->Narrow(), count);
  } else if (source->wide) {
    std::memcpy(target->Wide() + at, source->Wide(), count * sizeof(UniChar));
  } else {
    std::copy(source->Narrow(), source->Narrow() + count, target->Wide() + at);
  }
}

CFStringRef CreatePart(CFStringRef string, CFIndex start, CFIndex length) {
  return string->wide ? CreateFromUnits(string->Wide() + start, length)
                      : CreateNarrow(string->Narrow() + start, length);
}

}  // namespace

__CFString* AllocateString(CFIndex length, bool wide, ObjectStore* store) {
  if (length < 0 || length > PTRDIFF_MAX / 4) return nullptr;
  std::size_t const size = static_cast<std::size_t>(length) << (wide ? 1 : 0);
  return MakeCFObjectIn<__CFString>(store, size, length, wide);
}

CFStringRef CreateNarrow(char const* text, CFIndex length, ObjectStore* store) {
  __CFString* const string = AllocateString(length, false, store);
  if (string != nullptr && length != 0) {
    std::memcpy(string->Narrow(), text, static_cast<std::size_t>(length));
  }
  return string;
}

CFStringRef CreateWide(UniChar const* units, CFIndex length, ObjectStore* store) {
  __CFString* const string = AllocateString(length, true, store);
  if (string != nullptr) {
    std::memcpy(string->Wide(), units, static_cast<std::size_t>(length) * sizeof(UniChar));
  }
  return string;
}

CFStringRef CreateFromUnits(UniChar const* units, CFIndex length) {
  if (length < 0) return nullptr;
  UniChar all = 0;
  for (CFIndex i = 0; i < length; ++i) all = static_cast<UniChar>(all | units[i]);
  if (all >= 0x80) return CreateWide(units, length);
  __CFString* const string = AllocateString(length, false);
  if (string != nullptr) {
    std::transform(units, units + length, string->Narrow(),
                   [](UniChar unit) { return static_cast<char>(unit); });
  }
  return string;
}

CFStringRef __CFStringMakeConstantString(unsigned char* storage, char const* ascii) {
  static_assert(sizeof(__CFString) <= __kCFStringHeadSize);
  std::size_t const length = std::strlen(ascii);
  auto* const string = new (storage) __CFString(static_cast<CFIndex>(length), false);
  std::memcpy(string->Narrow(), ascii, length);
  string->MakeImmortal();
  return string;
}

CFStringRef CFStringCreateWithCharacters(CFAllocatorRef, UniChar const* units, CFIndex count) {
  return CreateFromUnits(units, count);
}

CFStringRef CFStringCreateWithFormat(CFAllocatorRef, CFDictionaryRef, CFStringRef format, ...) {
  if (format->length != 2 || format->wide || std::memcmp(format->Narrow(), "%@", 2) != 0) {
    return nullptr;
  }
  va_list arguments;
  va_start(arguments, format);
  CFStringRef const source = va_arg(arguments, CFStringRef);
  va_end(arguments);
  if (source == nullptr) return CreateNarrow("(null)", 6);
  if (source->IsImmortal()) return source;
  return source->wide ? CreateWide(source->Wide(), source->length)
                      : CreateNarrow(source->Narrow(), source->length);
}

CFStringRef CFStringCreateWithSubstring(CFAllocatorRef, CFStringRef string, CFRange range) {
  if (range.location < 0 || range.length < 0 || range.location > string->length) return nullptr;
  return CreatePart(string, range.location,
                    std::min(range.length, string->length - range.location));
}

CFStringRef CFStringCreateByCombiningStrings(CFAllocatorRef, CFArrayRef strings,
                                             CFStringRef separator) {
  CFIndex const count = CFArrayGetCount(strings);
  if (count == 0) return CreateNarrow("", 0);
  auto const stringAt = [strings](CFIndex i) {
    return static_cast<CFStringRef>(CFArrayGetValueAtIndex(strings, i));
  };

  CFIndex length = 0;
  bool wide = separator->wide && count > 1;
  if (__builtin_mul_overflow(separator->length, count - 1, &length)) return nullptr;
  for (CFIndex i = 0; i < count; ++i) {
    if (__builtin_add_overflow(length, stringAt(i)->length, &length)) return nullptr;
    wide = wide || stringAt(i)->wide;
  }

  __CFString* const combined = AllocateString(length, wide);
  if (combined == nullptr) return nullptr;
  CFIndex at = 0;
  for (CFIndex i = 0; i < count; ++i) {
    if (i != 0) {
      CopyUnits(separator, combined, at);
      at += separator->length;
    }
    CopyUnits(stringAt(i), combined, at);
    at += stringAt(i)->length;
  }
  return combined;
}

CFIndex CFStringGetLength(CFStringRef string) { return string->length; }

CFComparisonResult CFStringCompare(CFStringRef first, CFStringRef second,
                                   CFStringCompareFlags options) {
  if ((options & kCFCompareLocalized) != 0) {
    return CompareLocalized(first, second, (options & kCFCompareCaseInsensitive) != 0);
  }
  CFIndex const shared = std::min(first->length, second->length);
  Units const a(first);
  Units const b(second);
  for (CFIndex i = 0; i < shared; ++i) {
    if (a[i] != b[i]) return a[i] < b[i] ? kCFCompareLessThan : kCFCompareGreaterThan;
  }
  if (first->length == second->length) return kCFCompareEqualTo;
  return first->length < second->length ? kCFCompareLessThan : kCFCompareGreaterThan;
}

CFRange CFStringFind(CFStringRef string, CFStringRef wanted, CFStringCompareFlags options) {
  CFRange const notFound = CFRangeMake(kCFNotFound, 0);
  if (wanted->length == 0 || string->length == 0) return notFound;
  bool const backwards = (options & kCFCompareBackwards) != 0;
  if ((options & kCFCompareLocalized) != 0) {
    if (backwards) return notFound;
    return FindLocalized(string, wanted, (options & kCFCompareCaseInsensitive) != 0);
  }
  if (wanted->length > string->length) return notFound;
  CFIndex const at =
      backwards ? FindBackwards(string, wanted) : FindForwards(string, 0, string->length, wanted);
  return at == kCFNotFound ? notFound : CFRangeMake(at, wanted->length);
}

Boolean CFStringFindWithOptions(CFStringRef string, CFStringRef wanted, CFRange range,
                                CFStringCompareFlags options, CFRange* result) {
  if (options != 0 || wanted->length == 0) return false;
  CFIndex const at = FindForwards(string, range.location, range.location + range.length, wanted);
  if (at == kCFNotFound) return false;
  if (result != nullptr) *result = CFRangeMake(at, wanted->length);
  return true;
}

Boolean CFStringHasSuffix(CFStringRef string, CFStringRef suffix) {
  return suffix->length <= string->length &&
         StandsAt(string, string->length - suffix->length, suffix);
}
