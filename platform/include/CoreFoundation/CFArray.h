#pragma once

// Ordered arrays of pointers. Immutable ones may be read by any number of threads; a mutable one
// belongs to one thread at a time. Makers return null when memory runs out.

#include <CoreFoundation/CFBase.h>

typedef struct __CFArray const* CFArrayRef;
typedef struct __CFArray* CFMutableArrayRef;

// What an array does to a value that enters or leaves it. Null members do nothing.
struct CFArrayCallBacks {
  CFIndex version;
  void const* (*retain)(CFAllocatorRef allocator, void const* value);
  void (*release)(CFAllocatorRef allocator, void const* value);
  CFStringRef (*copyDescription)(void const* value);
  Boolean (*equal)(void const* first, void const* second);
};

// Values are objects of the seam, retained while they are in the array.
CF_INSIDE CFArrayCallBacks const kCFTypeArrayCallBacks;

// An immutable array of the `count` pointers at `values`. Null `callBacks`: the values are
// borrowed.
CF_INSIDE CFArrayRef CFArrayCreate(CFAllocatorRef allocator, void const** values, CFIndex count,
                                   CFArrayCallBacks const* callBacks);

// An empty array that grows without bound; `capacity` is a guess at its size.
CF_INSIDE CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                                 CFArrayCallBacks const* callBacks);

// Appends one value. Out of memory, the array stays as it was.
CF_INSIDE void CFArrayAppendValue(CFMutableArrayRef array, void const* value);

// Appends the values of `source` in `range`, which must lie inside it. Out of memory, the array
// stays as it was.
CF_INSIDE void CFArrayAppendArray(CFMutableArrayRef array, CFArrayRef source, CFRange range);

// The number of values.
CF_INSIDE CFIndex CFArrayGetCount(CFArrayRef array);

// The value at `index`, lent; `index` must be inside the array.
CF_INSIDE void const* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index);
