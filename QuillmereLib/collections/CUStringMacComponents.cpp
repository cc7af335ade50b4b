// CUStringMac::PathComponents, the one path operation that returns an array, and so stands on the
// floor of the collections.

#include <CoreFoundation/CoreFoundation.h>

#include <utility>

#include "QuillmereLib/collections/CUArray.h"
#include "QuillmereLib/core/CFHolder.h"
#include "QuillmereLib/strings/CUStringMac.h"

CUResult CUStringMac::PathComponents(CUSharedPtr<CUArray>* components) {
  if (components == nullptr || m_string == nullptr) return CUResult_Failed;
  CUSharedPtr<CUMutableArray> const array = new CUMutableArray;
  array->GetInternalArray()->reserve(8);  // as many as most paths have
  // Takes over a piece that nothing else refers to; false for null.
  auto const add = [&array](CFStringRef made) {
    CFHolder<CFStringRef> piece(made);
    if (!piece) return false;
    auto component = CUSharedPtr<CUStringMac>::OfNew(new CUStringMac(nullptr, Adopted::yes));
    component->m_string = piece.Release();
    array->AddObject(std::move(component));
    return true;
  };

  // Constants are not counted.
  CFStringRef const slash = CFSTR("/");
  CUStringMac const root(slash, Adopted::yes);
  CFIndex end = CFStringGetLength(m_string);
  if (*this == root) {
    add(slash);
  } else if (end == 0) {
    add(CFSTR(""));
  } else {
    CFIndex start = 0;
    if (CFStringFindWithOptions(m_string, slash, CFRangeMake(0, 1), 0, nullptr)) {
      add(slash);
      start = 1;
    }
    if (end > start && CFStringHasSuffix(m_string, slash)) --end;
    for (;;) {
      CFRange next = {end, 0};
      CFStringFindWithOptions(m_string, slash, CFRangeMake(start, end - start), 0, &next);
      CFRange const piece = {start, next.location - start};
      if (!add(CFStringCreateWithSubstring(kCFAllocatorDefault, m_string, piece))) {
        return CUResult_Failed;
      }
      if (next.location == end) break;
      start = next.location + 1;
    }
  }
  *components = array;
  return CUResult_Success;
}
