#pragma once

// Joins many pieces of text into one string, in time linear in their length.

#include <CoreFoundation/CoreFoundation.h>

#include "QuillmereLib/core/CFHolder.h"
#include "QuillmereLib/core/CUSharedPtr.h"
#include "QuillmereLib/strings/CUStringMac.h"

// Throws std::bad_alloc where the platform runs out of memory, so that no text goes missing.
class TextBuilder {
 public:
  TextBuilder();

  // Appends the text of `piece`; null and the null string are nothing.
  void Append(CFStringRef piece);

  // Appends UTF-8 text, which must be valid.
  void Append(char const* text);

  // Appends what `object` says of itself; "<NULL>" for null, and where that is a null pointer.
  void AppendDescription(CUObject* object);

  // A new string of all pieces so far.
  CUSharedPtr<CUStringMac> Text() const;

  // A new string of `count` platform strings, which are only lent.
  static CUSharedPtr<CUStringMac> Join(void const** pieces, CFIndex count);

 private:
  static CUSharedPtr<CUStringMac> Join(CFArrayRef pieces);

  CFHolder<CFMutableArrayRef> m_pieces;
};
