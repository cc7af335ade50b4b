#pragma once

// Immutable blocks of bytes.

#include <CoreFoundation/CFBase.h>

typedef struct __CFData const* CFDataRef;

// A copy of `length` bytes, or null when memory runs out or `length` is negative.
CF_EXPORT CFDataRef CFDataCreate(CFAllocatorRef allocator, UInt8 const* bytes, CFIndex length);

// The number of bytes.
CF_EXPORT CFIndex CFDataGetLength(CFDataRef data);

// The bytes, lent for the life of the object; not null, also for an empty block.
CF_EXPORT UInt8 const* CFDataGetBytePtr(CFDataRef data);
