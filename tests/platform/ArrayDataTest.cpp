#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "QuillmereLib/core/CFHolder.h"
#include "tests/support/Threads.h"

namespace {

std::string events;

void const* NoteRetain(CFAllocatorRef, void const* value) {
  events += std::string("+") + static_cast<char const*>(value);
  return value;
}

void NoteRelease(CFAllocatorRef, void const* value) {
  events += std::string("-") + static_cast<char const*>(value);
}

}  // namespace

// Whoever enters is retained once, and released once when the array goes.
TEST(Array, CountsItsValuesThroughTheCallBacks) {
  CFArrayCallBacks const callBacks = {0, NoteRetain, NoteRelease, nullptr, nullptr};
  void const* values[] = {"a", "b", "c"};
  CFArrayRef const fixed = CFArrayCreate(nullptr, values, 3, &callBacks);
  CFMutableArrayRef const list = CFArrayCreateMutable(nullptr, 1, &callBacks);
  CFArrayAppendValue(list, "x");
  CFArrayAppendArray(list, fixed, CFRangeMake(1, 2));
  CFArrayAppendArray(list, fixed, CFRangeMake(3, 0));
  CFArrayAppendArray(list, list, CFRangeMake(0, 3));
  EXPECT_EQ(CFArrayGetCount(list), 6);
  CFRelease(CFArrayCreate(nullptr, values, 1, nullptr));  // which borrows
  CFRelease(CFRetain(fixed));
  EXPECT_EQ(events, "+a+b+c+x+b+c+x+b+c");
  CFRelease(fixed);
  CFRelease(list);
  EXPECT_EQ(events, "+a+b+c+x+b+c+x+b+c-a-b-c-x-b-c-x-b-c");
}

TEST(Data, CopiesItsBytesAndIsCountedAcrossThreads) {
  UInt8 bytes[] = {'a', 0, 'b'};
  CFDataRef const data = CFDataCreate(nullptr, bytes, 3);
  void const* values[] = {data};
  CFHolder<CFArrayRef> const owner(CFArrayCreate(nullptr, values, 1, &kCFTypeArrayCallBacks));
  CFRelease(data);  // the array's reference is left
  bytes[0] = 'z';
  OnThreads(2, [data](int) {
    for (int i = 0; i < 50000; ++i) CFRelease(CFRetain(data));
  });
  UInt8 const* const kept = CFDataGetBytePtr(data);
  EXPECT_EQ(std::string(kept, kept + CFDataGetLength(data)), std::string("a\0b", 3));

  CFHolder<CFDataRef> const empty(CFDataCreate(nullptr, nullptr, 0));
  EXPECT_EQ(CFDataGetLength(empty.Get()), 0);
  EXPECT_NE(CFDataGetBytePtr(empty.Get()), nullptr);
  EXPECT_EQ(CFDataCreate(nullptr, bytes, -1), nullptr);
  EXPECT_EQ(CFDataCreate(nullptr, bytes, LONG_MAX), nullptr);
}
