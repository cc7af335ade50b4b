#include <CoreFoundation/CFNumber.h>

#include <cstdlib>
#include <cstring>

#include "platform/linux/CFObject.h"

struct __CFNumber final : CFObject {
  explicit __CFNumber(SInt64 number) : value(number) {}

  SInt64 const value;
};

struct __CFBoolean final : CFObject {};

namespace {

bool IsKnown(CFNumberType type) {
  return type == kCFNumberSInt64Type || type == kCFNumberLongLongType;
}

CFBooleanRef MakeBoolean() {
  __CFBoolean* const boolean = MakeCFObject<__CFBoolean>(0);
  if (boolean == nullptr) std::abort();  // a constant has no way to say so
  boolean->MakeImmortal();
  return boolean;
}

}  // namespace

CFBooleanRef const kCFBooleanTrue = MakeBoolean();
CFBooleanRef const kCFBooleanFalse = MakeBoolean();

CFNumberRef CFNumberCreate(CFAllocatorRef, CFNumberType type, void const* value) {
  if (!IsKnown(type)) return nullptr;
  SInt64 number = 0;
  std::memcpy(&number, value, sizeof number);
  return MakeCFObject<__CFNumber>(0, number);
}

Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value) {
  if (!IsKnown(type)) return false;
  std::memcpy(value, &number->value, sizeof number->value);
  return true;
}

Boolean CFBooleanGetValue(CFBooleanRef boolean) { return boolean == kCFBooleanTrue; }
