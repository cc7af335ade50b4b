#include <CoreFoundation/CFArray.h>

#include "platform/linux/CFObject.h"
#include "platform/linux/ItemList.h"

namespace {

constexpr CFArrayCallBacks kBorrowing = {0, nullptr, nullptr, nullptr, nullptr};

}  // namespace

CFArrayCallBacks const kCFTypeArrayCallBacks = {0, RetainObject, ReleaseObject, nullptr, nullptr};

struct __CFArray final : CFObject {
  // `room` is that behind the object.
  __CFArray(CFArrayCallBacks const& callBacks, std::size_t room)
      : retain(callBacks.retain), release(callBacks.release), values(this + 1, room) {}
  ~__CFArray() override {
    if (release == nullptr) return;
    for (void const* value : values) release(nullptr, value);
  }

  // Appends within what is reserved.
  void Append(void const* value) {
    values.Append(retain != nullptr ? retain(nullptr, value) : value);
  }

  decltype(CFArrayCallBacks::retain) const retain;
  decltype(CFArrayCallBacks::release) const release;
  ItemList<void const*> values;
};

CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef, CFIndex capacity,
                                       CFArrayCallBacks const* callBacks) {
  std::size_t const room = RoomBehind(capacity);
  return MakeCFObject<__CFArray>(room * sizeof(void*),
                                 callBacks != nullptr ? *callBacks : kBorrowing, room);
}

CFArrayRef CFArrayCreate(CFAllocatorRef allocator, void const** values, CFIndex count,
                         CFArrayCallBacks const* callBacks) {
  if (count < 0) return nullptr;
  __CFArray* const array = CFArrayCreateMutable(allocator, count, callBacks);
  if (array == nullptr) return nullptr;
  if (!array->values.Reserve(static_cast<std::size_t>(count))) {
    array->Release();
    return nullptr;
  }
  for (CFIndex i = 0; i < count; ++i) array->Append(values[i]);
  return array;
}

void CFArrayAppendValue(CFMutableArrayRef array, void const* value) {
  if (array->values.Reserve(1)) array->Append(value);
}

void CFArrayAppendArray(CFMutableArrayRef array, CFArrayRef source, CFRange range) {
  if (!array->values.Reserve(static_cast<std::size_t>(range.length))) return;
  for (CFIndex i = 0; i < range.length; ++i) {
    array->Append(source->values[static_cast<std::size_t>(range.location + i)]);
  }
}

CFIndex CFArrayGetCount(CFArrayRef array) { return static_cast<CFIndex>(array->values.size()); }

void const* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index) {
  return array->values[static_cast<std::size_t>(index)];
}
