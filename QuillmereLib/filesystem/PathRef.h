#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>

#include <cstring>

#include "QuillmereLib/strings/CUStringMac.h"

// The path as C text, which lives in the string until its next conversion. Null where that would
// be only its beginning, up to a null unit or half of a surrogate pair: no entry has such a path,
// and the beginning may name another one.
inline char const* WholePathText(CUStringMac& path) {
  char const* const text = path;
  CFStringRef const string = path;
  if (text == nullptr || string == nullptr) return nullptr;
  CFRange const all = CFRangeMake(0, CFStringGetLength(string));
  CFIndex size = 0;
  CFIndex const converted =
      CFStringGetBytes(string, all, kCFStringEncodingUTF8, 0, false, nullptr, 0, &size);
  bool const isWhole =
      converted == all.length && std::strlen(text) == static_cast<std::size_t>(size);
  return isWhole ? text : nullptr;
}

// The platform's reference to the entry at `path`, and whether that is a directory.
inline OSStatus ResolvePath(CUStringMac& path, OptionBits options, FSRef* ref,
                            Boolean* isDirectory = nullptr) {
  char const* const text = WholePathText(path);
  return FSPathMakeRefWithOptions(reinterpret_cast<UInt8 const*>(text), options, ref, isDirectory);
}

// The reference to what a link at the path's end leads to; false where there is none.
inline bool MakeRef(CUStringMac& path, FSRef* ref, Boolean* isDirectory = nullptr) {
  return ResolvePath(path, kFSPathMakeRefDefaultOptions, ref, isDirectory) == noErr;
}
