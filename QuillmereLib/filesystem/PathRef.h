#pragma once

#include <CoreServices/CoreServices.h>

#include "QuillmereLib/strings/CUStringMac.h"

// The platform's reference to the entry at `path`, what a link at its end leads to; false where
// there is none. Changes the path's buffer for C text.
inline bool MakeRef(CUStringMac& path, FSRef* ref, Boolean* isDirectory = nullptr) {
  char const* const text = path;
  return FSPathMakeRef(reinterpret_cast<UInt8 const*>(text), ref, isDirectory) == noErr;
}
