#pragma once

#include <CoreFoundation/CFString.h>

#include <string_view>

#include "platform/linux/ObjectStore.h"

// A string is one block: this head and its units. Text of ASCII alone is stored in 8 bits a unit,
// all other text in 16, without exception: two strings of different widths are never the same text.
struct __CFString final : CFObject {
  __CFString(CFIndex units, bool wideUnits) : wide(wideUnits), length(units) {}

  char const* Narrow() const { return reinterpret_cast<char const*>(this + 1); }
  char* Narrow() { return reinterpret_cast<char*>(this + 1); }
  UniChar const* Wide() const { return reinterpret_cast<UniChar const*>(this + 1); }
  UniChar* Wide() { return reinterpret_cast<UniChar*>(this + 1); }

  bool const wide;  // has room within the head of the object
  CFIndex const length;
};

// The unit that a stored character stands for.
inline UniChar UnitOf(char stored) { return static_cast<unsigned char>(stored); }
inline UniChar UnitOf(UniChar stored) { return stored; }

// A string of `length` units that the caller fills; null when memory runs out. The caller keeps the
// rule of the two widths. A string goes into a store if one is given.
__CFString* AllocateString(CFIndex length, bool wide, ObjectStore* store = nullptr);

// A copy of `length` characters of ASCII.
CFStringRef CreateNarrow(char const* text, CFIndex length, ObjectStore* store = nullptr);

// From strict UTF-8, of which a byte-order mark is a part; null if it is not, too.
CFStringRef CreateFromUtf8(std::string_view text, ObjectStore* store = nullptr);

// A copy of `length` units of which one at least is not ASCII.
CFStringRef CreateWide(UniChar const* units, CFIndex length, ObjectStore* store = nullptr);

// A copy of `length` units, in the width that they call for.
CFStringRef CreateFromUnits(UniChar const* units, CFIndex length);

// Compares and searches by the collation of the user's locale.
CFComparisonResult CompareLocalized(CFStringRef first, CFStringRef second, bool ignoreCase);
CFRange FindLocalized(CFStringRef string, CFStringRef wanted, bool ignoreCase);
