#include <CoreFoundation/CFArray.h>

#include <new>
#include <vector>

#include "platform/linux/CFObject.h"

namespace {

void const* RetainObject(CFAllocatorRef, void const* value) { return CFRetain(value); }

void ReleaseObject(CFAllocatorRef, void const* value) { CFRelease(value); }

constexpr CFArrayCallBacks kBorrowing = {0, nullptr, nullptr, nullptr, nullptr};

}  // namespace

CFArrayCallBacks const kCFTypeArrayCallBacks = {0, RetainObject, ReleaseObject, nullptr, nullptr};

struct __CFArray final : CFObject {
  explicit __CFArray(CFArrayCallBacks const* given)
      : callBacks(given != nullptr ? *given : kBorrowing) {}
  ~__CFArray() override {
    if (callBacks.release == nullptr) return;
    for (void const* value : values) callBacks.release(nullptr, value);
  }

  // Room for `count` values more; false when memory runs out.
  bool Reserve(std::size_t count) {
    if (values.capacity() - values.size() >= count) return true;
    try {
      std::size_t const needed = values.size() + count;
      std::size_t const doubled = 2 * values.capacity();
      values.reserve(needed > doubled ? needed : doubled);
      return true;
    } catch (...) {
      return false;
    }
  }

  // Appends within what is reserved.
  void Append(void const* value) {
    values.push_back(callBacks.retain != nullptr ? callBacks.retain(nullptr, value) : value);
  }

  CFArrayCallBacks const callBacks;
  std::vector<void const*> values;
};

CFArrayRef CFArrayCreate(CFAllocatorRef, void const** values, CFIndex count,
                         CFArrayCallBacks const* callBacks) {
  if (count < 0) return nullptr;
  __CFArray* const array = MakeCFObject<__CFArray>(0, callBacks);
  if (array == nullptr) return nullptr;
  if (!array->Reserve(static_cast<std::size_t>(count))) {
    array->Release();
    return nullptr;
  }
  for (CFIndex i = 0; i < count; ++i) array->Append(values[i]);
  return array;
}

CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef, CFIndex, CFArrayCallBacks const* callBacks) {
  return MakeCFObject<__CFArray>(0, callBacks);
}

void CFArrayAppendValue(CFMutableArrayRef array, void const* value) {
  if (array->Reserve(1)) array->Append(value);
}

void CFArrayAppendArray(CFMutableArrayRef array, CFArrayRef source, CFRange range) {
  if (!array->Reserve(static_cast<std::size_t>(range.length))) return;
  for (CFIndex i = 0; i < range.length; ++i) {
    array->Append(source->values[static_cast<std::size_t>(range.location + i)]);
  }
}

CFIndex CFArrayGetCount(CFArrayRef array) { return static_cast<CFIndex>(array->values.size()); }

void const* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index) {
  return array->values[static_cast<std::size_t>(index)];
}
