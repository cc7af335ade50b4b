#pragma once

#include <CoreFoundation/CFBase.h>

#include <cstddef>

// Whether all bytes are ASCII.
bool IsAscii(char const* text, std::size_t length);

// The most UTF-16 units that UTF-8 can make, and just as many as it makes if it is valid.
CFIndex CountUnits(UInt8 const* bytes, CFIndex byteCount);

// Decodes into `units`, which has room for as many as CountUnits says or more. The number of units,
// or -1 for bytes that are not strictly UTF-8: no surrogates, overlong forms or cut sequences.
CFIndex DecodeUtf8(UInt8 const* bytes, CFIndex byteCount, UniChar* units, CFIndex room);

// Encodes up to the first unpaired surrogate, or the first character that does not fit. Returns how
// many units it took; `used` receives the number of bytes.
CFIndex EncodeUtf8(UniChar const* units, CFIndex length, UInt8* buffer, CFIndex capacity,
                   CFIndex* used);
