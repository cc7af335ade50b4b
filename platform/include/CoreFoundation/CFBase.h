#pragma once

// The base of the CoreFoundation seam: its scalar types, and the counted life of its objects.
//
// Only what the library uses is declared, with the platform's own names, signatures and values.
// Every object of the seam is immutable unless its maker says "Mutable"; immutable objects may be
// used from any number of threads at once, and their counts are atomic. Functions named `Create` or
// `Copy` give the caller one reference, to be let go with CFRelease; all others lend.

#include <cstdint>

// Functions that callers of the library need too are exported from it; the rest stay inside.
#define CF_EXPORT extern "C" __attribute__((visibility("default")))
#define CF_INSIDE extern "C"

typedef unsigned char Boolean;
typedef unsigned char UInt8;
typedef signed char SInt8;
typedef std::uint16_t UInt16;
typedef std::int16_t SInt16;
typedef std::uint32_t UInt32;
typedef std::int32_t SInt32;
typedef std::int64_t SInt64;
typedef std::uint64_t UInt64;
typedef UInt16 UniChar;
typedef unsigned long UniCharCount;
typedef SInt16 OSErr;
typedef SInt32 OSStatus;

typedef long CFIndex;
typedef unsigned long CFOptionFlags;
typedef void const* CFTypeRef;
typedef struct __CFAllocator const* CFAllocatorRef;
typedef struct __CFString const* CFStringRef;
typedef struct __CFDictionary const* CFDictionaryRef;

// Marks a location that was not found.
enum : CFIndex { kCFNotFound = -1 };

struct CFRange {
  CFIndex location;
  CFIndex length;
};

inline CFRange CFRangeMake(CFIndex location, CFIndex length) { return CFRange{location, length}; }

enum CFComparisonResult : CFIndex {
  kCFCompareLessThan = -1,
  kCFCompareEqualTo = 0,
  kCFCompareGreaterThan = 1
};

// Stands for the only allocator there is, the heap. Every `allocator` argument is ignored.
constexpr CFAllocatorRef kCFAllocatorDefault = nullptr;

// Adds one reference and returns the object. Atomic, never fails. `object` must not be null.
CF_EXPORT CFTypeRef CFRetain(CFTypeRef object);

// Takes one reference off; the last one destroys the object. Atomic. `object` must not be null.
// Constant strings (CFSTR) ignore both calls and live to the end of the process.
CF_EXPORT void CFRelease(CFTypeRef object);
