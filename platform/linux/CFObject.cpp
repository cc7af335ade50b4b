#include "platform/linux/CFObject.h"

CFTypeRef CFRetain(CFTypeRef object) {
  static_cast<CFObject const*>(object)->Retain();
  return object;
}

void CFRelease(CFTypeRef object) { static_cast<CFObject const*>(object)->Release(); }
