#pragma once

// Between the texts of the tests and those of the library.

#include <CoreFoundation/CoreFoundation.h>

#include <string>

#include "QuillmereLib/core/CUSharedPtr.h"
#include "QuillmereLib/strings/CUStringMac.h"

// The null string for bytes that are not UTF-8. Ends at a zero byte.
inline CUSharedPtr<CUStringMac> Make(std::string const& utf8) {
  return new CUStringMac(utf8.data(), static_cast<unsigned int>(utf8.size()),
                         CUString_CharCode_UTF8);
}

inline CUSharedPtr<CUStringMac> Make(std::u16string units) {
  return new CUStringMac(reinterpret_cast<unsigned short*>(units.data()),
                         static_cast<unsigned int>(units.size() * 2));
}

// A new string of the platform.
inline CFStringRef CreateString(std::u16string const& units) {
  return CFStringCreateWithCharacters(kCFAllocatorDefault,
                                      reinterpret_cast<UniChar const*>(units.data()),
                                      static_cast<CFIndex>(units.size()));
}

// "<null>" for the null string and for no string.
inline std::string Utf8(CUStringMac& string) {
  char const* const text = string;
  return text == nullptr ? "<null>" : text;
}
inline std::string Utf8(CFStringRef string) {
  CUStringMac copy(string);
  return Utf8(copy);
}
inline std::string Utf8(CUSharedPtr<CUStringMac> const& string) {
  return string == nullptr ? "<null>" : Utf8(*string);
}
inline std::string Utf8(CUSharedPtr<CUObject> const& object) {
  auto* const string = dynamic_cast<CUStringMac*>(object.Get());
  return string == nullptr ? "<null>" : Utf8(*string);
}
