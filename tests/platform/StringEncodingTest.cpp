#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <array>
#include <climits>
#include <optional>
#include <random>
#include <string>
#include <utility>

#include "QuillmereLib/core/CFHolder.h"
#include "tests/support/Strings.h"

namespace {

using namespace std::string_literals;
using String = CFHolder<CFStringRef>;
using Text = std::optional<std::u16string>;  // none where there is no string

constexpr CFStringEncoding kUtf8 = kCFStringEncodingUTF8;
constexpr CFStringEncoding kUnicode = kCFStringEncodingUnicode;
constexpr CFStringEncoding kAscii = kCFStringEncodingASCII;
constexpr CFStringEncoding kUtf32 = kCFStringEncodingUTF32LE;

// The first and last byte of each class, and those that bound overlong forms, surrogates and
// planes.
std::string const borders =
    "\x01\x41\x7F\x80\x8F\x90\x9F\xA0\xBF\xC0\xC1\xC2\xDF\xE0\xE1\xEC\xED\xEE\xEF\xF0\xF1\xF3\xF4"
    "\xF5\xF7\xF8\xFC\xFF";

CFStringRef FromUtf8(std::string const& bytes) {
  return CFStringCreateWithBytes(nullptr, reinterpret_cast<UInt8 const*>(bytes.data()),
                                 static_cast<CFIndex>(bytes.size()), kUtf8, false);
}

// `units` by way of a longer text that is not ASCII.
CFStringRef FromPart(std::u16string const& units) {
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

// The bytes of one character; none where the encoding cannot hold it.
std::string EncodeByRule(UChar32 character, CFStringEncoding encoding) {
  char bytes[4];
  std::size_t size = 0;
  if (encoding == kUnicode) {
    U16_APPEND_UNSAFE(reinterpret_cast<UniChar*>(bytes), size, character);
    return std::string(bytes, 2 * size);
  }
  bool const holds = encoding == kAscii ? character < 0x80 : !U_IS_SURROGATE(character);
  if (!holds) return "";
  if (encoding == kUtf32) return std::string(reinterpret_cast<char*>(&character), 4);
  U8_APPEND_UNSAFE(reinterpret_cast<UInt8*>(bytes), size, character);
  return std::string(bytes, size);
}

Conversion ConvertByRule(std::u16string const& units, CFStringEncoding encoding, CFIndex capacity) {
  Conversion result = {0, ""};
  for (std::size_t i = 0; i < units.size(); result.first = static_cast<CFIndex>(i)) {
    UChar32 character;
    U16_NEXT(units.data(), i, units.size(), character);
    std::string const bytes = EncodeByRule(character, encoding);
    CFIndex const room = capacity - static_cast<CFIndex>(result.second.size());
    if (bytes.empty() || static_cast<CFIndex>(bytes.size()) > room) break;
    result.second += bytes;
  }
  return result;
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
      for (char const c : borders) {
        ExpectDecodesLikeIcu({a, b, c});
        for (char const d : borders) ExpectDecodesLikeIcu({a, b, c, d});
      }
      if (HasFailure()) return;
    }
  }
  // Runs of ASCII take a faster road, behind which malformed bytes must not hide.
  std::mt19937 random(1);
  for (unsigned round = 0; round < 50000 && !HasFailure(); ++round) {
    std::string text(random() % (round % 8 == 0 ? 600 : 40), 'a');
    if (round % 2 == 0) text += "\u00e9\u20ac\U0001F600";
    for (auto count = 1 + random() % 4; count > 0; --count) {
      text += borders[random() % borders.size()];
    }
    ExpectDecodesLikeIcu(text + std::string(random() % 20, 'z'));
  }
}

// However a text came about, it is the same; and of any part of it, each encoding takes what fits
// into the room.
TEST(StringEncoding, RandomPartsAreConvertedIntoEveryRoom) {
  unsigned const limits[] = {0x80, 0x800, 0x10000, 0x110000};
  std::mt19937 random(2);
  for (unsigned round = 0; round < 8000 && !HasFailure(); ++round) {
    std::u16string units;
    unsigned const limit = limits[random() % 4];
    for (auto count = random() % 20; count > 0; --count) {
      // Halves of pairs come as well.
      std::string const unit = EncodeByRule(static_cast<UChar32>(random() % limit), kUnicode);
      units.append(reinterpret_cast<char16_t const*>(unit.data()), unit.size() / 2);
    }
    String const string(round % 2 == 0 ? CreateString(units) : FromPart(units));
    EXPECT_EQ(TextOf(string.Get()), units);
    Conversion const utf8 = ConvertByRule(units, kUtf8, LONG_MAX);
    if (utf8.first == CFStringGetLength(string.Get())) {
      String const decoded(FromUtf8(utf8.second));
      EXPECT_EQ(CFStringCompare(string.Get(), decoded.Get(), 0), kCFCompareEqualTo);
    }
    std::size_t const start = random() % (units.size() + 1);
    std::u16string const part = units.substr(start, random() % 20);
    auto const range = CFRangeMake(static_cast<CFIndex>(start), static_cast<CFIndex>(part.size()));
    CFStringEncoding const encoding = std::array{kUtf8, kUnicode, kAscii, kUtf32}[random() % 4];
    SCOPED_TRACE(testing::PrintToString(part) + " in " + std::to_string(encoding));
    Conversion const all = ConvertByRule(part, encoding, LONG_MAX);
    CFIndex needed = -1;
    // Without a buffer the capacity is nothing.
    EXPECT_EQ(CFStringGetBytes(string.Get(), range, encoding, 0, false, nullptr, 1, &needed),
              all.first);
    ASSERT_EQ(needed, static_cast<CFIndex>(all.second.size()));
    for (CFIndex room = 0; room <= needed + 2; ++room) {
      EXPECT_EQ(Convert(string.Get(), range, encoding, room), ConvertByRule(part, encoding, room));
    }
  }
}

// Against the standard library, over few letters, so that matches abound and overlap; one of them
// makes a text wide.
TEST(StringParts, UnitwiseSearchAndOrder) {
  std::mt19937 random(3);
  auto const make = [&random](std::size_t most) {
    std::size_t const letters = 2 + random() % 3;
    std::u16string text;
    for (auto count = random() % (most + 1); count > 0; --count) {
      text += u"abA\u00e9"[random() % letters];
    }
    return text;
  };
  for (unsigned round = 0; round < 20000 && !HasFailure(); ++round) {
    std::u16string const text = make(12), wanted = make(3);
    String const string(round % 2 == 0 ? CreateString(text) : FromPart(text));
    String const needle(CreateString(wanted));
    SCOPED_TRACE(testing::PrintToString(text) + " / " + testing::PrintToString(wanted));
    auto const find = [&](CFStringCompareFlags flags) {
      CFRange const found = CFStringFind(string.Get(), needle.Get(), flags);
      EXPECT_EQ(found.length, found.location < 0 ? 0 : CFStringGetLength(needle.Get()));
      return static_cast<std::size_t>(found.location);  // -1, if nowhere, which is npos
    };
    EXPECT_EQ(find(0), wanted.empty() ? text.npos : text.find(wanted));
    EXPECT_EQ(find(kCFCompareBackwards), wanted.empty() ? text.npos : text.rfind(wanted));

    int const order = text.compare(wanted);
    EXPECT_EQ(CFStringCompare(string.Get(), needle.Get(), round % 2), (order > 0) - (order < 0));
  }
  CFIndex const outside[][2] = {{-1, 1}, {0, -1}, {4, 0}, {5, LONG_MAX}};
  for (auto const& [location, length] : outside) {
    CFRange const range = {location, length};
    EXPECT_EQ(CFStringCreateWithSubstring(nullptr, CFSTR("abc"), range), nullptr) << location;
  }
}
