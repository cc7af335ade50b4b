#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <thread>

#include "QuillmereLib/core/CFHolder.h"

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
  EXPECT_EQ(events, "+a+b+c+x+b+c+x+b+c");
  events.clear();
  CFRelease(CFRetain(fixed));
  EXPECT_EQ(events, "");
  CFRelease(fixed);
  EXPECT_EQ(events, "-a-b-c");
  EXPECT_EQ(CFArrayGetCount(list), 6);
  CFRelease(list);
  EXPECT_EQ(events, "-a-b-c-x-b-c-x-b-c");
}

TEST(Array, KeepsObjectsAliveAndBorrowsWithoutCallBacks) {
  UInt8 const byte = 'a';
  CFDataRef const data = CFDataCreate(nullptr, &byte, 1);
  void const* values[] = {data};
  CFHolder<CFArrayRef> const owner(CFArrayCreate(nullptr, values, 1, &kCFTypeArrayCallBacks));
  CFRelease(CFArrayCreate(nullptr, values, 1, nullptr));
  CFRelease(data);  // the borrower took nothing, so the owner's reference is left
  auto const kept = static_cast<CFDataRef>(CFArrayGetValueAtIndex(owner.Get(), 0));
  EXPECT_EQ(*CFDataGetBytePtr(kept), 'a');
}

TEST(Data, CopiesItsBytesAndIsCountedAcrossThreads) {
  UInt8 bytes[] = {'a', 0, 'b'};
  CFHolder<CFDataRef> const data(CFDataCreate(nullptr, bytes, 3));
  bytes[0] = 'z';
  auto const work = [&data] {
    for (int i = 0; i < 50000; ++i) CFRelease(CFRetain(data.Get()));
  };
  std::thread other(work);
  work();
  other.join();
  ASSERT_EQ(CFDataGetLength(data.Get()), 3);
  EXPECT_EQ(std::string(CFDataGetBytePtr(data.Get()), CFDataGetBytePtr(data.Get()) + 3),
            std::string("a\0b", 3));

  CFHolder<CFDataRef> const empty(CFDataCreate(nullptr, nullptr, 0));
  EXPECT_EQ(CFDataGetLength(empty.Get()), 0);
  EXPECT_NE(CFDataGetBytePtr(empty.Get()), nullptr);
  EXPECT_EQ(CFDataCreate(nullptr, bytes, -1), nullptr);
  EXPECT_EQ(CFDataCreate(nullptr, bytes, LONG_MAX), nullptr);
}
