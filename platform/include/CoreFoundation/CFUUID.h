#pragma once

// Universally unique identifiers.

#include <CoreFoundation/CFBase.h>

typedef struct __CFUUID const* CFUUIDRef;

// The sixteen bytes, in the order of the text.
struct CFUUIDBytes {
  UInt8 byte0;
  UInt8 byte1;
  UInt8 byte2;
  UInt8 byte3;
  UInt8 byte4;
  UInt8 byte5;
  UInt8 byte6;
  UInt8 byte7;
  UInt8 byte8;
  UInt8 byte9;
  UInt8 byte10;
  UInt8 byte11;
  UInt8 byte12;
  UInt8 byte13;
  UInt8 byte14;
  UInt8 byte15;
};

// A new identifier of version 4: random bytes of cryptographic strength but for the version, 4 in
// the upper half of byte 6, and the variant, binary 10 on top of byte 8. Never the same twice, also
// not in a process and its forks. Null when memory runs out or the system gives no random bytes.
// Any thread may call it.
CF_EXPORT CFUUIDRef CFUUIDCreate(CFAllocatorRef allocator);

// The identifier of these bytes, whatever they are. Null when memory runs out.
CF_EXPORT CFUUIDRef CFUUIDCreateWithBytes(CFAllocatorRef allocator, UInt8 byte0, UInt8 byte1,
                                          UInt8 byte2, UInt8 byte3, UInt8 byte4, UInt8 byte5,
                                          UInt8 byte6, UInt8 byte7, UInt8 byte8, UInt8 byte9,
                                          UInt8 byte10, UInt8 byte11, UInt8 byte12, UInt8 byte13,
                                          UInt8 byte14, UInt8 byte15);
CF_EXPORT CFUUIDRef CFUUIDCreateFromUUIDBytes(CFAllocatorRef allocator, CFUUIDBytes bytes);

// The bytes. Callers must give an identifier; null gives sixteen zeroes here.
CF_EXPORT CFUUIDBytes CFUUIDGetUUIDBytes(CFUUIDRef uuid);

// The text: upper-case hexadecimal digits in groups of 8, 4, 4, 4 and 12, joined by hyphens. Null
// when memory runs out, and for null.
CF_EXPORT CFStringRef CFUUIDCreateString(CFAllocatorRef allocator, CFUUIDRef uuid);
