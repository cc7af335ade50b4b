#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>
#include <unicode/ustring.h>

#include <climits>
#include <optional>
#include <string>
#include <tuple>
#include <utility>

#include "QuillmereLib/core/CFHolder.h"
#include "tests/support/Strings.h"

namespace {

using namespace std::string_literals;
using String = CFHolder<CFStringRef>;
using Text = std::optional<std::u16string>;  // none where there is no string

constexpr CFStringEncoding kUnicode = kCFStringEncodingUnicode;

// The first and last byte of each class, and those that bound overlong forms, surrogates and
// planes.
std::string const borders =
    "\x01\x41\x7F\x80\x8F\x90\x9F\xA0\xBF\xC0\xC1\xC2\xDF\xE0\xE1\xEC\xED\xEE\xEF\xF0\xF1\xF3\xF4"
    "\xF5\xF7\xF8\xFC\xFF";

CFStringRef FromUtf8(std::string const& bytes) {
  return CFStringCreateWithBytes(nullptr, reinterpret_cast<UInt8 const*>(bytes.data()),
                                 static_cast<CFIndex>(bytes.size()), kCFStringEncodingUTF8, false);
}

// Every other time by way of a longer text that is not ASCII.
CFStringRef Create(std::u16string const& units, unsigned round) {
  if (round % 2 == 0) return CreateString(units);
  String const whole(CreateString(u"\u00e9" + units + u"\u20ac"));
  return CFStringCreateWithSubstring(nullptr, whole.Get(),
                                     CFRangeMake(1, static_cast<CFIndex>(units.size())));
}

using Conversion = std::pair<CFIndex, std::string>;  // the units converted, and their bytes

// Sees that nothing is written behind the capacity.
Conversion Convert(CFStringRef string, CFRange range, CFStringEncoding encoding, CFIndex capacity) {
  std::string buffer(static_cast<std::size_t>(capacity) + 4, '\x7E');
  CFIndex used = -1;
  CFIndex const converted = CFStringGetBytes(
      string, range, encoding, 0, false, reinterpret_cast<UInt8*>(buffer.data()), capacity, &used);
  EXPECT_LE(used, capacity);
  EXPECT_EQ(buffer.substr(static_cast<std::size_t>(capacity)), "~~~~");
  return {converted, buffer.substr(0, static_cast<std::size_t>(used))};
}

Text TextOf(CFStringRef string) {
  if (string == nullptr) return std::nullopt;
  CFIndex const length = CFStringGetLength(string);
  std::string const bytes = Convert(string, CFRangeMake(0, length), kUnicode, 2 * length).second;
  return std::u16string(reinterpret_cast<char16_t const*>(bytes.data()), bytes.size() / 2);
}

void ExpectDecodesLikeIcu(std::string const& utf8) {
  Text expected(std::in_place, utf8.size() + 1, u'\0');
  int32_t length = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strFromUTF8(expected->data(), static_cast<int32_t>(expected->size()), &length, utf8.data(),
                static_cast<int32_t>(utf8.size()), &status);
  expected->resize(static_cast<std::size_t>(length));
  if (U_FAILURE(status)) expected.reset();
  EXPECT_EQ(TextOf(String(FromUtf8(utf8)).Get()), expected) << testing::PrintToString(utf8);
}

}  // namespace

TEST(StringEncoding, Utf8DecodesExactlyWhatIcuCallsWellFormed) {
  for (char const a : borders) {
    for (char const b : borders) {
      ExpectDecodesLikeIcu({a, b});
      // Runs of ASCII take a faster road, behind which malformed bytes must not hide.
      ExpectDecodesLikeIcu(std::string(19, 'a') + a + b + std::string(19, 'z'));
      for (char const c : borders) {
        ExpectDecodesLikeIcu({a, b, c});
        for (char const d : borders) ExpectDecodesLikeIcu({a, b, c, d});
      }
      if (HasFailure()) return;
    }
  }
}

TEST(StringEncoding, TakesOfAPartWhatFitsIntoTheRoom) {
  for (unsigned const round : {0u, 1u}) {
    String const string(Create(u"a\u00e9\U0001F600z\xDE00", round));
    auto const convert = [&](CFStringEncoding encoding, CFIndex room) {
      return Convert(string.Get(), CFRangeMake(1, 5), encoding, room);
    };
    EXPECT_EQ(convert(kCFStringEncodingUTF8, 99), Conversion(4, "\u00e9\U0001F600z"));
    EXPECT_EQ(convert(kCFStringEncodingUTF8, 5), Conversion(1, "\u00e9"));
    EXPECT_EQ(convert(kUnicode, 99), Conversion(5, "\xE9\0\x3D\xD8\0\xDEz\0\0\xDE"s));
    EXPECT_EQ(convert(kUnicode, 5), Conversion(1, "\xE9\0"s));
    EXPECT_EQ(convert(kCFStringEncodingUTF32LE, 11), Conversion(3, "\xE9\0\0\0\0\xF6\1\0"s));
    EXPECT_EQ(convert(kCFStringEncodingASCII, 9), Conversion(0, ""));
  }
}

TEST(StringParts, AreFoundByUnitsAndBothWays) {
  // Text, what is looked for, and the first and the last place of it.
  std::tuple<std::u16string, std::u16string, CFIndex, CFIndex> const cases[] = {
      {u"aabaaabaab", u"aab", 0, 7},
      {u"aaabaab", u"aaba", 1, 1},
      {u"\u00e9\u00e9aab", u"aab", 2, 2},
      {u"abc", u"\u00e9", -1, -1},
      {u"ab", u"abc", -1, -1},
      {u"a", u"", -1, -1}};
  for (auto const& [text, wanted, first, last] : cases) {
    String const string(CreateString(text)), needle(CreateString(wanted));
    EXPECT_EQ(CFStringFind(string.Get(), needle.Get(), 0).location, first) << first;
    EXPECT_EQ(CFStringFind(string.Get(), needle.Get(), kCFCompareBackwards).location, last) << last;
    int const order = text.compare(wanted);
    EXPECT_EQ(CFStringCompare(string.Get(), needle.Get(), 0), (order > 0) - (order < 0)) << first;
  }
  for (CFRange const& outside : {CFRange{-1, 1}, {0, -1}, {4, 0}, {5, LONG_MAX}}) {
    EXPECT_EQ(CFStringCreateWithSubstring(nullptr, CFSTR("abc"), outside), nullptr);
  }
}
