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

  CFIndex const length = CFStringGetLength(m_string);
  CUStringMac const root(CFSTR("/"), Adopted::yes);  // constants are not counted
  if (*this == root) {
    add(CFSTR("/"));
  } else if (length == 0) {
    add(CFSTR(""));
  } else {
    CFHolder<CFArrayRef> const pieces(
        CFStringCreateArrayBySeparatingStrings(kCFAllocatorDefault, m_string, CFSTR("/")));
    if (!pieces) return CUResult_Failed;
    CFIndex first = 0;
    CFIndex count = CFArrayGetCount(pieces.Get());
    array->GetInternalArray()->reserve(static_cast<std::size_t>(count));
    // The empty pieces before a leading slash and behind a trailing one are none.
    if (CFStringFind(m_string, CFSTR("/"), 0).location == 0) {
      add(CFSTR("/"));
      first = 1;
    }
    if (CFStringHasSuffix(m_string, CFSTR("/"))) --count;
    for (CFIndex i = first; i < count; ++i) add(CFArrayGetValueAtIndex(pieces.Get(), i));
  }
  *components = array;
  return CUResult_Success;
}
