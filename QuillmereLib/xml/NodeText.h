#pragma once

// Strings for nodes.

#include <CoreFoundation/CoreFoundation.h>

#include <new>

#include "QuillmereLib/core/Create.h"
#include "QuillmereLib/strings/CUStringMac.h"

// A new string with this text; the null string for null. Throws std::bad_alloc, so that no text is
// lost where memory runs out.
inline CUSharedPtr<CUStringMac> NewString(CFStringRef text) {
  auto string = Create<CUStringMac>(text);
  if (text != nullptr && static_cast<CFStringRef>(*string) == nullptr) throw std::bad_alloc();
  return string;
}

// The platform string, lent; null for no string and for the null string.
inline CFStringRef PlatformString(CUStringMac const* string) {
  return string != nullptr ? static_cast<CFStringRef>(*string) : nullptr;
}
