#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>

#include <climits>
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
  for (char16_t number = 0x100; number < 0x600; ++number) keys.push_back(u"key"s + number);
  for (std::u16string const& key : keys) {
    Text const text(CreateString(key));
    CFDictionaryAddValue(dictionary, text.Get(), text.Get());
    CFDictionaryAddValue(dictionary, text.Get(), kCFBooleanTrue);
  }
  std::vector<void const*> inOrder(keys.size()), values(keys.size());
  CFDictionaryGetKeysAndValues(dictionary, inOrder.data(), values.data());
  for (std::size_t i = 0; i < keys.size(); ++i) {
    Text const text(CreateString(keys[i]));
    EXPECT_EQ(CFDictionaryGetValue(dictionary, text.Get()), inOrder[i]) << i;
    EXPECT_EQ(values[i], inOrder[i]);
  }
  EXPECT_EQ(CFDictionaryGetValue(dictionary, kCFBooleanTrue), nullptr);
}

TEST(Containers, BalanceTheirReferencesAlsoWithoutMemory) {
  CFDictionaryKeyCallBacks const keys = {0, Count, Discount, nullptr, nullptr, nullptr};
  CFDictionaryValueCallBacks const values = {0, Count, Discount, nullptr, nullptr};
  int addresses[20];
  auto const fill = [&] {
    Dictionary const dictionary(CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &keys, &values));
    for (int i = 0; dictionary && i < 40; ++i) {
      CFDictionarySetValue(dictionary.Get(), &addresses[i / 2], &addresses[i / 2]);
      CFIndex const count = CFDictionaryGetCount(dictionary.Get());
      EXPECT_EQ(g_alive, 2 * count);
      if (count != i / 2 + 1) return;  // memory has run out
      for (int const& known : addresses) {
        bool const isThere = &known - addresses < count;
        EXPECT_EQ(CFDictionaryGetValue(dictionary.Get(), &known), isThere ? &known : nullptr);
      }
    }
    CFArrayCallBacks const elements = {0, Count, Discount, nullptr, nullptr};
    CFHolder<CFMutableArrayRef> const array(CFArrayCreateMutable(nullptr, 1, &elements));
    for (int i = 0; array && i < 20; ++i) CFArrayAppendValue(array.Get(), &addresses[i]);
  };
  EXPECT_GT(FailEachAllocation(fill, [] { EXPECT_EQ(g_alive, 0); }), 5);
}

TEST(Data, TakesNoLengthThatCannotBe) {
  UInt8 const byte = 0;
  EXPECT_EQ(CFDataCreate(nullptr, &byte, -1), nullptr);
  EXPECT_EQ(CFDataCreate(nullptr, &byte, LONG_MAX), nullptr);
}
