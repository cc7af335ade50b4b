#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "QuillmereLib/core/CFHolder.h"
#include "tests/support/FailingAllocation.h"
#include "tests/support/Strings.h"

namespace {

using namespace std::string_literals;
using Dictionary = CFHolder<CFMutableDictionaryRef>;
using Text = CFHolder<CFStringRef>;

int g_alive = 0;
void const* Count(CFAllocatorRef, void const* value) {
  ++g_alive;
  return value;
}
void Discount(CFAllocatorRef, void const*) { --g_alive; }

}  // namespace

// Every key is looked up by another object. Red when collation, width or address decides.
TEST(Dictionary, FindsStringsByTheirUnits) {
  Dictionary const owner(CFDictionaryCreateMutable(
      kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  CFMutableDictionaryRef const dictionary = owner.Get();
  std::vector<std::u16string> keys = {u"a", u"A", u"", u"\u00E9", u"e\u0301", u"\u6161", u"aa"};
  for (char16_t number = 0x100; number < 0x600; ++number) {
    keys.push_back((number % 2 == 0 ? u"key"s : u"k\u00E9y"s) + number);
  }
  for (std::u16string const& key : keys) {
    Text const text(CreateString(key));
    CFDictionaryAddValue(dictionary, text.Get(), text.Get());
    CFDictionaryAddValue(dictionary, text.Get(), kCFBooleanTrue);
  }
  ASSERT_EQ(CFDictionaryGetCount(dictionary), static_cast<CFIndex>(keys.size()));
  std::vector<void const*> inOrder(keys.size()), values(keys.size());
  CFDictionaryGetKeysAndValues(dictionary, inOrder.data(), values.data());
  EXPECT_EQ(inOrder, values);
  for (std::size_t i = 0; i < keys.size(); ++i) {
    EXPECT_EQ(CFDictionaryGetValue(dictionary, Text(CreateString(keys[i])).Get()), inOrder[i]) << i;
  }
  for (auto const* missing : {u"b", u"\u00E8", u"aaa"}) {
    EXPECT_EQ(CFDictionaryGetValue(dictionary, Text(CreateString(missing)).Get()), nullptr);
  }
  EXPECT_EQ(CFDictionaryGetValue(dictionary, kCFBooleanTrue), nullptr);
  CFDictionarySetValue(dictionary, inOrder[3], kCFBooleanFalse);
  EXPECT_EQ(CFDictionaryGetValue(dictionary, inOrder[3]), kCFBooleanFalse);
}

TEST(Dictionary, BalancesItsReferencesAlsoWithoutMemory) {
  CFDictionaryKeyCallBacks const keys = {0, Count, Discount, nullptr, nullptr, nullptr};
  CFDictionaryValueCallBacks const values = {0, Count, Discount, nullptr, nullptr};
  int addresses[40];
  void const* pointers[40];
  for (int i = 0; i < 40; ++i) pointers[i] = &addresses[i / 2];
  auto const fill = [&] {
    Dictionary const dictionary(CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &keys, &values));
    for (int i = 0; dictionary && i < 40; ++i) {
      CFDictionarySetValue(dictionary.Get(), pointers[i], pointers[i]);
      CFIndex const count = CFDictionaryGetCount(dictionary.Get());
      EXPECT_EQ(g_alive, 2 * count);
      if (count != i / 2 + 1) return;  // memory has run out
      for (CFIndex known = 0; known < 2 * count; ++known) {
        EXPECT_EQ(CFDictionaryGetValue(dictionary.Get(), pointers[known]), pointers[known]);
      }
    }
    CFHolder<CFDictionaryRef> const whole(
        CFDictionaryCreate(kCFAllocatorDefault, pointers, pointers, 40, &keys, &values));
    EXPECT_TRUE(!whole || CFDictionaryGetCount(whole.Get()) == 20);
  };
  EXPECT_GT(FailEachAllocation(fill, [] { EXPECT_EQ(g_alive, 0); }), 8);
}

TEST(Numbers, HoldSixtyFourBits) {
  for (SInt64 const value : {SInt64{-1}, INT64_MAX, INT64_MIN}) {
    CFHolder<CFNumberRef> const number(
        CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &value));
    SInt64 got = 7;
    EXPECT_FALSE(CFNumberGetValue(number.Get(), static_cast<CFNumberType>(6), &got));
    EXPECT_EQ(got, 7);
    EXPECT_TRUE(CFNumberGetValue(number.Get(), kCFNumberLongLongType, &got));
    EXPECT_EQ(got, value);
  }
  CFRelease(kCFBooleanTrue);
  EXPECT_TRUE(CFBooleanGetValue(kCFBooleanTrue) && !CFBooleanGetValue(kCFBooleanFalse));
}
