#pragma once

// Immutable strings of UTF-16 units.
//
// Lengths, locations and ranges count UTF-16 units, whatever the storage. A string may hold
// unpaired surrogates, if it was made from units; conversions stop at them. All functions may be
// called from any thread. Makers return null when memory runs out. No string argument may be null.

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFBase.h>

#include <cstddef>

typedef UInt32 CFStringEncoding;
enum : CFStringEncoding {
  kCFStringEncodingUnicode = 0x0100,
  kCFStringEncodingASCII = 0x0600,
  kCFStringEncodingUTF8 = 0x08000100,
  kCFStringEncodingUTF32LE = 0x1c000100
};

typedef CFOptionFlags CFStringCompareFlags;
enum : CFStringCompareFlags {
  kCFCompareCaseInsensitive = 1,
  kCFCompareBackwards = 4,
  kCFCompareLocalized = 32
};

// A constant string from a literal of ASCII characters. Made once a place, in memory of that place,
// so that it never fails; never destroyed.
#define CFSTR(literal)                                                                    \
  ([]() noexcept -> CFStringRef {                                                         \
    alignas(8) static unsigned char storage[__kCFStringHeadSize + sizeof("" literal "")]; \
    static CFStringRef const constant = __CFStringMakeConstantString(storage, literal);   \
    return constant;                                                                      \
  }())

// Behind CFSTR; not to be used by themselves.
constexpr std::size_t __kCFStringHeadSize = 32;
CF_EXPORT CFStringRef __CFStringMakeConstantString(unsigned char* storage, char const* ascii);

// A string from `byteCount` bytes in `encoding` (UTF-8, Unicode or ASCII; any other gives null).
// Null when the bytes do not decode, in whole: UTF-8 admits no surrogates, overlong forms, values
// over 0x10FFFF or cut sequences; ASCII no byte above 127; Unicode no odd last byte. With
// `isExternalRepresentation` one leading byte-order mark is taken off UTF-8 and Unicode, and
// decides the byte order of the latter; Unicode without a mark is in host order.
CF_EXPORT CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, UInt8 const* bytes,
                                              CFIndex byteCount, CFStringEncoding encoding,
                                              Boolean isExternalRepresentation);

// A string from `count` UTF-16 units, taken as they are: nothing is checked, no mark is taken off.
CF_EXPORT CFStringRef CFStringCreateWithCharacters(CFAllocatorRef allocator, UniChar const* units,
                                                   CFIndex count);

// A string from a format. The one that is known is "%@", which makes an independent copy of its
// argument, a CFStringRef, in one allocation (null reads "(null)"); any other gives null. A
// constant is given as it is, since it outlives all copies. `options` is ignored.
CF_INSIDE CFStringRef CFStringCreateWithFormat(CFAllocatorRef allocator, CFDictionaryRef options,
                                               CFStringRef format, ...);

// The units of `range` as a new string. A range that reaches past the end is cut off there; one
// that begins past the end, or is negative, gives null.
CF_INSIDE CFStringRef CFStringCreateWithSubstring(CFAllocatorRef allocator, CFStringRef string,
                                                  CFRange range);

// The strings of `strings` in order with `separator` between each two. An empty array gives the
// empty string. The array must hold strings only.
CF_INSIDE CFStringRef CFStringCreateByCombiningStrings(CFAllocatorRef allocator, CFArrayRef strings,
                                                       CFStringRef separator);

// The number of UTF-16 units.
CF_EXPORT CFIndex CFStringGetLength(CFStringRef string);

// Converts the units of `range` (which must lie inside the string) to `encoding` and returns how
// many of them were converted. With lossByte 0 the conversion stops at the first unit that the
// encoding cannot hold (an unpaired surrogate in UTF-8 and UTF-32, all but ASCII in ASCII); other
// values of it stand in its place. It stops as well before the first character that does not fit
// in `capacity` bytes, never inside one. A null `buffer` counts only. `usedBytes` (may be null)
// receives the bytes written or needed. With `isExternalRepresentation` the encoding Unicode
// begins with a byte-order mark. UTF-32LE is always without one.
CF_EXPORT CFIndex CFStringGetBytes(CFStringRef string, CFRange range, CFStringEncoding encoding,
                                   UInt8 lossByte, Boolean isExternalRepresentation, UInt8* buffer,
                                   CFIndex capacity, CFIndex* usedBytes);

// The most bytes that `length` units can need in `encoding`: 3, 2, 1 or 4 a unit for UTF-8,
// Unicode, ASCII and UTF-32. kCFNotFound where the product does not fit, or for other encodings.
CF_EXPORT CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding);

// The order of two strings. With kCFCompareLocalized by the collation of the user's locale (that of
// no language where none is set): tertiary strength, or secondary with kCFCompareCaseInsensitive,
// under which case makes no difference. Without kCFCompareLocalized unit by unit, and
// kCFCompareCaseInsensitive is ignored. The locale is read once a process.
CF_EXPORT CFComparisonResult CFStringCompare(CFStringRef first, CFStringRef second,
                                             CFStringCompareFlags options);

// The first occurrence of `wanted`, or the last with kCFCompareBackwards; {kCFNotFound, 0} where
// there is none, and for an empty `wanted`. With kCFCompareLocalized what counts as equal is what
// CFStringCompare with the same options calls equal, on character boundaries of the language, and
// the length of the match may differ from that of `wanted`; a match of length 0 (characters that
// the collation ignores) is none. Without it unit by unit. Backwards and localized do not
// combine: that gives {kCFNotFound, 0}.
CF_EXPORT CFRange CFStringFind(CFStringRef string, CFStringRef wanted,
                               CFStringCompareFlags options);

// Whether `wanted` occurs within `range`, which must lie inside the string; `result` (may be null)
// receives where it does first. Unit by unit and forwards: `options` must be 0, and other values
// find nothing.
CF_INSIDE Boolean CFStringFindWithOptions(CFStringRef string, CFStringRef wanted, CFRange range,
                                          CFStringCompareFlags options, CFRange* result);

// Whether the string ends with `suffix`, unit by unit. An empty suffix is always there.
CF_INSIDE Boolean CFStringHasSuffix(CFStringRef string, CFStringRef suffix);
