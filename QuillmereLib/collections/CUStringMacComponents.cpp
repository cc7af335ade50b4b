// CUStringMac::PathComponents, the one path operation that returns an array, and so stands on the
// floor of the collections.

#include <CoreFoundation/CoreFoundation.h>

#include "QuillmereLib/collections/CUArray.h"
#include "QuillmereLib/core/CFHolder.h"
#include "QuillmereLib/strings/CUStringMac.h"

CUResult CUStringMac::PathComponents(CUSharedPtr<CUArray>* components) {
  if (components == nullptr || m_string == nullptr) return CUResult_Failed;
  CUSharedPtr<CUMutableArray> const array = new CUMutableArray;
  // Each piece is nobody else's: a constant, or lent by a list that ends with this operation.
  auto const add = [&array](void const* piece) {
    CUSharedPtr<CUStringMac> const component = new CUStringMac(nullptr, Adopted::yes);
    component->m_string = static_cast<CFStringRef>(CFRetain(piece));
    array->AddObject(component);
  };

  CFIndex end = CFStringGetLength(m_string);
  CUStringMac const root(CFSTR("/"), Adopted::yes);  // constants are not counted
  if (*this == root) {
    add(CFSTR("/"));
  } else if (end == 0) {
    add(CFSTR(""));
  } else {
    CFIndex start = 0;
    CFRange const first = CFStringFind(m_string, CFSTR("/"), 0);
    if (first.length > 0 && first.location == 0) {
      add(CFSTR("/"));
      start = 1;
    }
    CFRange const last = CFStringFind(m_string, CFSTR("/"), kCFCompareBackwards);
    if (last.length > 0 && last.location == end - 1 && end > start) --end;

    CFHolder<CFStringRef> const working(CFStringCreateWithSubstring(
        kCFAllocatorDefault, m_string, CFRangeMake(start, end - start)));
    if (!working) return CUResult_Failed;
    CFHolder<CFArrayRef> const pieces(
        CFStringCreateArrayBySeparatingStrings(kCFAllocatorDefault, working.Get(), CFSTR("/")));
    if (!pieces) return CUResult_Failed;
    CFIndex const count = CFArrayGetCount(pieces.Get());
    array->GetInternalArray()->reserve(array->Count() + static_cast<std::size_t>(count));
    for (CFIndex i = 0; i < count; ++i) add(CFArrayGetValueAtIndex(pieces.Get(), i));
  }
  *components = array;
  return CUResult_Success;
}
