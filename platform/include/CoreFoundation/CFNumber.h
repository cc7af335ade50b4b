#pragma once

// Numbers and truth values as objects. All may be used from any thread.

#include <CoreFoundation/CFBase.h>

typedef struct __CFNumber const* CFNumberRef;
typedef struct __CFBoolean const* CFBooleanRef;

// What a value is, in memory: both are signed 64-bit numbers.
enum CFNumberType : CFIndex { kCFNumberSInt64Type = 4, kCFNumberLongLongType = 11 };

// A number object of the value at `value`. Null for another type, or when memory runs out.
CF_INSIDE CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType type,
                                     void const* value);

// Stores the value at `value` and gives true; false, with nothing stored, for another type.
CF_INSIDE Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value);

// The two values, which outlive every release.
CF_INSIDE CFBooleanRef const kCFBooleanTrue;
CF_INSIDE CFBooleanRef const kCFBooleanFalse;

// Whether it is kCFBooleanTrue.
CF_INSIDE Boolean CFBooleanGetValue(CFBooleanRef boolean);
