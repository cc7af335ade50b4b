#include <CoreFoundation/CFData.h>

#include <cstring>

#include "platform/linux/CFObject.h"

// The bytes follow the object.
struct __CFData final : CFObject {
  explicit __CFData(CFIndex byteCount) : length(byteCount) {}
  UInt8* Bytes() { return reinterpret_cast<UInt8*>(this + 1); }
  UInt8 const* Bytes() const { return reinterpret_cast<UInt8 const*>(this + 1); }

  CFIndex const length;
};

CFDataRef CFDataCreate(CFAllocatorRef, UInt8 const* bytes, CFIndex length) {
  if (length < 0) return nullptr;
  std::size_t const size = static_cast<std::size_t>(length);
  __CFData* const data = MakeCFObject<__CFData>(size, length);
  if (data != nullptr && size != 0) std::memcpy(data->Bytes(), bytes, size);
  return data;
}

CFIndex CFDataGetLength(CFDataRef data) { return data->length; }

UInt8 const* CFDataGetBytePtr(CFDataRef data) { return data->Bytes(); }
