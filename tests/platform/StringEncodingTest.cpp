#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

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
constexpr CFStringEncoding kEncodings[] = {kUtf8, kUnicode, kAscii, kUtf32};

// The first and last byte of each class, and those that bound overlong forms, surrogates and
// planes.
std::string const borders =
    "\x01\x41\x7F\x80\x8F\x90\x9F\xA0\xBF\xC0\xC1\xC2\xDF\xE0\xE1\xEC\xED\xEE\xEF\xF0\xF1\xF3\xF4"
    "\xF5\xF7\xF8\xFC\xFF";

CFStringRef FromBytes(std::string const& bytes, CFStringEncoding encoding, bool external = false) {
  return CFStringCreateWithBytes(nullptr, reinterpret_cast<UInt8 const*>(bytes.data()),
                                 static_cast<CFIndex>(bytes.size()), encoding, external);
}

// `units` by way of a longer text that is not ASCII.
CFStringRef FromPart(std::u16string const& units) {
  String const whole(CreateString(u"\u00e9" + units + u"\u20ac"));
  return CFStringCreateWithSubstring(nullptr, whole.Get(),
                                     CFRangeMake(1, static_cast<CFIndex>(units.size())));
}

using Conversion = std::pair<CFIndex, std::string>;  // the units converted, and their bytes

// Sees that nothing is written behind the capacity.
Conversion Convert(CFStringRef string, CFRange range, CFStringEncoding encoding, char lossByte,
                   bool external, CFIndex capacity) {
  std::string buffer(static_cast<std::size_t>(capacity) + 4, '\x7E');
  CFIndex used = -1;
  CFIndex const converted =
      CFStringGetBytes(string, range, encoding, static_cast<UInt8>(lossByte), external,
                       reinterpret_cast<UInt8*>(buffer.data()), capacity, &used);
  EXPECT_LE(used, capacity);
  EXPECT_EQ(buffer.substr(static_cast<std::size_t>(capacity)), "~~~~");
  return {converted, buffer.substr(0, static_cast<std::size_t>(used))};
}

// The bytes of one character; none where the encoding cannot hold it.
std::string EncodeByRule(UChar32 character, CFStringEncoding encoding) {
  char bytes[4];
  std::size_t size = 0;
  if (encoding == kUnicode) {
    UniChar units[2];
    U16_APPEND_UNSAFE(units, size, character);
    return std::string(reinterpret_cast<char*>(units), 2 * size);
  }
  bool const holds = encoding == kAscii ? character < 0x80 : !U_IS_SURROGATE(character);
  if (!holds) return "";
  if (encoding == kUtf32) return std::string(reinterpret_cast<char*>(&character), 4);
  U8_APPEND_UNSAFE(reinterpret_cast<UInt8*>(bytes), size, character);
  return std::string(bytes, size);
}

Conversion ConvertByRule(std::u16string const& units, CFStringEncoding encoding, char lossByte,
                         bool external, std::size_t capacity) {
  Conversion result = {0, ""};
  if (external && encoding == kUnicode) {
    if (capacity < 2) return result;
    result.second = EncodeByRule(0xFEFF, encoding);
  }
  for (std::size_t i = 0; i < units.size(); result.first = static_cast<CFIndex>(i)) {
    UChar32 character;
    U16_NEXT(units.data(), i, units.size(), character);
    std::string bytes = EncodeByRule(character, encoding);
    if (bytes.empty() && lossByte != '\0') bytes = EncodeByRule(lossByte, encoding);
    if (bytes.empty() || result.second.size() + bytes.size() > capacity) break;
    result.second += bytes;
  }
  return result;
}

Text TextOf(CFStringRef string) {
  if (string == nullptr) return std::nullopt;
  CFIndex const length = CFStringGetLength(string);
  std::string const bytes =
      Convert(string, CFRangeMake(0, length), kUnicode, '\0', false, 2 * length).second;
  return std::u16string(reinterpret_cast<char16_t const*>(bytes.data()), bytes.size() / 2);
}

Text Decode(std::string const& bytes, CFStringEncoding encoding, bool external = false) {
  return TextOf(String(FromBytes(bytes, encoding, external)).Get());
}

void ExpectDecodesLikeIcu(std::string const& utf8) {
  Text expected(std::in_place, utf8.size() + 1, u'\0');
  int32_t length = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strFromUTF8(expected->data(), static_cast<int32_t>(expected->size()), &length, utf8.data(),
                static_cast<int32_t>(utf8.size()), &status);
  expected->resize(static_cast<std::size_t>(length));
  if (U_FAILURE(status)) expected.reset();
  EXPECT_EQ(Decode(utf8, kUtf8), expected) << testing::PrintToString(utf8);
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

TEST(StringEncoding, ByteOrderMarksAndByteCounts) {
  struct {
    CFStringEncoding encoding;
    bool external;
    std::string bytes;
    Text expected;
  } const cases[] = {{kUtf8, true, "\xEF\xBB\xBF\xEF\xBB\xBF", u"\uFEFF"},
                     {kUtf8, true, "\xEF\xBB", std::nullopt},
                     {kUtf8, false, "\xEF\xBB\xBF\x61", u"\uFEFFa"},
                     {kUtf8, false, "a\0b"s, u"a\0b"s},
                     {kUnicode, true, "\xFE\xFF\0a\x30\x42"s, u"a\u3042"},
                     {kUnicode, true, "\xFF\xFE\x61\0\x42\x30"s, u"a\u3042"},
                     {kUnicode, true, "a\0\x42\x30"s, u"a\u3042"},
                     {kUnicode, true, "\xFE", std::nullopt},
                     {kUnicode, false, "a\0b"s, std::nullopt},
                     {kUnicode, false, "\xFF\xFE\x61\0"s, u"\uFEFFa"},
                     {kAscii, true, "a\x7F\x01"s, u"a\x7F\x01"},
                     {kAscii, false, std::string(40, 'a') + "\x80", std::nullopt},
                     {kAscii, true, "\xEF\xBB\xBF\x61", std::nullopt},
                     {kUtf32, false, "a\0\0\0"s, std::nullopt}};
  for (auto const& test : cases) {
    EXPECT_EQ(Decode(test.bytes, test.encoding, test.external), test.expected)
        << test.encoding << testing::PrintToString(test.bytes);
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
    Conversion const utf8 = ConvertByRule(units, kUtf8, '\0', false, SIZE_MAX);
    if (utf8.first == CFStringGetLength(string.Get())) {
      String const decoded(FromBytes(utf8.second, kUtf8, true));
      EXPECT_EQ(CFStringCompare(string.Get(), decoded.Get(), 0), kCFCompareEqualTo);
      EXPECT_EQ(CFStringCompare(decoded.Get(), string.Get(), kCFCompareLocalized), 0);
    }
    std::size_t const start = random() % (units.size() + 1);
    std::u16string const part = units.substr(start, random() % 20);
    auto const range = CFRangeMake(static_cast<CFIndex>(start), static_cast<CFIndex>(part.size()));
    CFStringEncoding const encoding = kEncodings[random() % 4];
    char const loss = random() % 2 == 0 ? '?' : '\0';
    bool const external = random() % 2 == 0;
    SCOPED_TRACE(testing::PrintToString(part) + " in " + std::to_string(encoding) + loss);
    Conversion const all = ConvertByRule(part, encoding, loss, external, SIZE_MAX);
    CFIndex needed = -1;
    CFIndex const counted =
        CFStringGetBytes(string.Get(), range, encoding, static_cast<UInt8>(loss), external, nullptr,
                         1, &needed);  // without a buffer the capacity is nothing
    ASSERT_EQ(counted, all.first);
    ASSERT_EQ(needed, static_cast<CFIndex>(all.second.size()));
    for (CFIndex room = 0; room <= needed + 2; ++room) {
      EXPECT_EQ(Convert(string.Get(), range, encoding, loss, external, room),
                ConvertByRule(part, encoding, loss, external, static_cast<std::size_t>(room)))
          << room;
    }
  }
}

// Against the standard library, over few letters, so that matches abound and overlap; one of them
// makes a text wide.
TEST(StringParts, UnitwiseSearchOrderAndJoining) {
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
    // What the standard library calls npos is -1 as a signed number.
    auto const shown = [&](std::size_t place) {
      CFIndex const location = wanted.empty() ? kCFNotFound : static_cast<CFIndex>(place);
      return std::pair(location, location < 0 ? 0 : CFStringGetLength(needle.Get()));
    };
    auto const find = [&](CFStringCompareFlags flags) {
      CFRange const found = CFStringFind(string.Get(), needle.Get(), flags);
      return std::pair(found.location, found.length);
    };
    EXPECT_EQ(find(0), shown(text.find(wanted)));
    EXPECT_EQ(find(kCFCompareBackwards), shown(text.rfind(wanted)));
    EXPECT_EQ(find(kCFCompareBackwards | kCFCompareLocalized).first, kCFNotFound);

    std::size_t const start = random() % (text.size() + 1);
    std::size_t const size = random() % (text.size() - start + 1);
    String const part(CFStringCreateWithSubstring(
        nullptr, string.Get(),
        CFRangeMake(static_cast<CFIndex>(start), round % 3 == 0 ? LONG_MAX : CFIndex{2})));
    EXPECT_EQ(TextOf(part.Get()), text.substr(start, round % 3 == 0 ? text.npos : 2));
    auto const within = shown(text.substr(start, size).find(wanted));
    CFRange const range = {static_cast<CFIndex>(start), static_cast<CFIndex>(size)};
    CFRange found = {-7, -7};
    bool const isThere = CFStringFindWithOptions(string.Get(), needle.Get(), range, 0, &found) != 0;
    EXPECT_EQ(isThere, within.first >= 0);
    EXPECT_EQ(found.location, isThere ? range.location + within.first : -7);
    EXPECT_EQ(found.length, isThere ? within.second : -7);
    EXPECT_FALSE(
        CFStringFindWithOptions(string.Get(), needle.Get(), range, kCFCompareBackwards, nullptr));

    int const order = text.compare(wanted);
    EXPECT_EQ(CFStringCompare(string.Get(), needle.Get(), round % 2), (order > 0) - (order < 0));
    EXPECT_EQ(CFStringHasSuffix(string.Get(), needle.Get()) != 0,
              text.size() >= wanted.size() && text.substr(text.size() - wanted.size()) == wanted);
    void const* three[] = {string.Get(), needle.Get(), string.Get()};
    CFHolder<CFArrayRef> const pieces(CFArrayCreate(nullptr, three, 3, nullptr));
    String const joined(CFStringCreateByCombiningStrings(nullptr, pieces.Get(), needle.Get()));
    EXPECT_EQ(TextOf(joined.Get()), text + wanted + wanted + wanted + text);
  }
}

TEST(StringParts, AreRefusedOutsideTheText) {
  for (CFRange const range :
       {CFRange{-1, 1}, CFRange{0, -1}, CFRange{4, 0}, CFRange{5, LONG_MAX}}) {
    EXPECT_EQ(CFStringCreateWithSubstring(nullptr, CFSTR("abc"), range), nullptr) << range.location;
  }
  CFIndex const most = LONG_MAX / 4;
  EXPECT_EQ(CFStringGetMaximumSizeForEncoding(most, kUtf32), 4 * most);
  EXPECT_EQ(CFStringGetMaximumSizeForEncoding(most + 1, kUtf32), kCFNotFound);
  EXPECT_EQ(CFStringGetMaximumSizeForEncoding(1, 0x0201), kCFNotFound);
}

TEST(StringParts, FormatCopiesAndConstantsOutliveReleases) {
  for (std::u16string const& text : {u"ab"s, u"\u00e9\xD83D"s}) {
    String source(CreateString(text));
    String const copy(CFStringCreateWithFormat(nullptr, nullptr, CFSTR("%@"), source.Get()));
    EXPECT_NE(copy.Get(), source.Get());
    source.Reset(nullptr);
    EXPECT_EQ(TextOf(copy.Get()), text);
  }
  CFStringRef const none = nullptr;
  String const null(CFStringCreateWithFormat(nullptr, nullptr, CFSTR("%@"), none));
  EXPECT_EQ(TextOf(null.Get()), u"(null)");
  EXPECT_EQ(CFStringCreateWithFormat(nullptr, nullptr, CFSTR("%d"), 1), nullptr);

  CFStringRef const constant = CFSTR("constant");
  for (int i = 0; i < 3; ++i) CFRelease(constant);
  EXPECT_EQ(TextOf(constant), u"constant");
  CFHolder<CFMutableArrayRef> const nothing(CFArrayCreateMutable(nullptr, 0, nullptr));
  String const joined(CFStringCreateByCombiningStrings(nullptr, nothing.Get(), CFSTR(",")));
  EXPECT_EQ(TextOf(joined.Get()), u"");
}
