#include "platform/linux/CFObject.h"

CFTypeRef CFRetain(CFTypeRef object) {
  static_cast<CFObject const*>(object)->Retain();
  return object;
}

void CFRelease(CFTypeRef object) { static_cast<CFObject const*>(object)->Release(); }

void const* RetainObject(CFAllocatorRef, void const* object) { return CFRetain(object); }

void ReleaseObject(CFAllocatorRef, void const* object) { CFRelease(object); }
