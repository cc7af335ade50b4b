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

constexpr CFStringEncoding kEncodings[] = {kCFStringEncodingUTF8, kCFStringEncodingUnicode,
                                           kCFStringEncodingASCII, kCFStringEncodingUTF32LE};

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
  if (encoding == kCFStringEncodingUnicode) {
    UniChar units[2];
    U16_APPEND_UNSAFE(units, size, character);
    return std::string(reinterpret_cast<char*>(units), 2 * size);
  }
  bool const holds =
      encoding == kCFStringEncodingASCII ? character < 0x80 : !U_IS_SURROGATE(character);
  if (!holds) return "";
  if (encoding == kCFStringEncodingUTF32LE)
    return std::string(reinterpret_cast<char*>(&character), 4);
  U8_APPEND_UNSAFE(reinterpret_cast<UInt8*>(bytes), size, character);
  return std::string(bytes, size);
}

Conversion ConvertByRule(std::u16string const& units, CFStringEncoding encoding, char lossByte,
                         bool external, std::size_t capacity) {
  Conversion result = {0, ""};
  if (external && encoding == kCFStringEncodingUnicode) {
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
      Convert(string, CFRangeMake(0, length), kCFStringEncodingUnicode, '\0', false, 2 * length)
          .second;
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
  EXPECT_EQ(Decode(utf8, kCFStringEncodingUTF8), expected) << testing::PrintToString(utf8);
}

}  // namespace

TEST(StringEncoding, Utf8DecodesExactlyWhatIcuCallsWellFormed) {
  for (std::size_t i = 0; i < borders.size() * borders.size() && !HasFailure(); ++i) {
    std::string const two = {borders[i / borders.size()], borders[i % borders.size()]};
    ExpectDecodesLikeIcu(two);
    for (char const c : borders) {
      ExpectDecodesLikeIcu(two + c);
      for (char const d : borders) ExpectDecodesLikeIcu(two + c + d);
    }
  }
  // Runs of ASCII take a faster road, behind which malformed bytes must not hide.
  std::mt19937 random(1);
  for (unsigned round = 0; round < 50000 && !HasFailure(); ++round) {
    std::string text(random() % 40, 'a');
    if (round % 2 == 0) text += "\u00e9\u20ac\U0001F600";
    for (auto count = 1 + random() % 4; count > 0; --count)
      text += borders[random() % borders.size()];
    ExpectDecodesLikeIcu(text + std::string(random() % 20, 'z'));
  }
}

TEST(StringEncoding, ByteOrderMarksAndByteCounts) {
  constexpr CFStringEncoding kUtf8 = kCFStringEncodingUTF8;
  constexpr CFStringEncoding kUnicode = kCFStringEncodingUnicode;
  constexpr CFStringEncoding kAscii = kCFStringEncodingASCII;
  struct {
    CFStringEncoding encoding;
    bool external;
    std::string bytes;
    Text expected;
  } const cases[] = {{kUtf8, true, "\xEF\xBB\xBF\x61", u"a"},
                     {kUtf8, true, "\xEF\xBB\xBF\xEF\xBB\xBF", u"\uFEFF"},
                     {kUtf8, true, "\xEF\xBB\xBF", u""},
                     {kUtf8, true, "\xEF\xBB", std::nullopt},
                     {kUtf8, true, "a\xEF\xBB\xBF", u"a\uFEFF"},
                     {kUtf8, false, "\xEF\xBB\xBF\x61", u"\uFEFFa"},
                     {kUtf8, false, "a\0b"s, u"a\0b"s},
                     {kUtf8, true, "", u""},
                     {kUnicode, true, "\xFE\xFF\0a\x30\x42"s, u"a\u3042"},
                     {kUnicode, true, "\xFF\xFE\x61\0\x42\x30"s, u"a\u3042"},
                     {kUnicode, true, "a\0\x42\x30"s, u"a\u3042"},
                     {kUnicode, true, "\xFE\xFF\xD8\x3D\xDE\x00"s, u"\U0001F600"},
                     {kUnicode, true, "\xFE\xFF\xFE\xFF", u"\uFEFF"},
                     {kUnicode, true, "\xFF\xFE", u""},
                     {kUnicode, true, "\xFE", std::nullopt},
                     {kUnicode, false, "a\0b"s, std::nullopt},
                     {kUnicode, false, "\xFF\xFE\x61\0"s, u"\uFEFFa"},
                     {kAscii, true, "a\x7F\x01"s, u"a\x7F\x01"},
                     {kAscii, false, std::string(40, 'a') + "\x80", std::nullopt},
                     {kAscii, true, "\xEF\xBB\xBF\x61", std::nullopt},
                     {kCFStringEncodingUTF32LE, false, "a\0\0\0"s, std::nullopt},
                     {0x0201, false, "a", std::nullopt}};
  for (auto const& test : cases) {
    EXPECT_EQ(Decode(test.bytes, test.encoding, test.external), test.expected)
        << test.encoding << (test.external ? " external " : " ")
        << testing::PrintToString(test.bytes);
  }
}

// Every part of the texts, in each encoding and with every room.
TEST(StringEncoding, GetBytesCutsBetweenCharacters) {
  for (std::u16string const& text :
       {u"abc"s, u"a\u00e9\u20ac\U0001F600z"s, u"\U0001F600\U00010000"s, u"\xDE00z\xD83D\u00e9"s}) {
    String const string(CreateString(text));
    for (std::size_t i = 0; i < text.size() * text.size(); ++i) {
      std::size_t const start = i / text.size();
      std::u16string const part = text.substr(start, i % text.size() + 1);
      CFRange const range =
          CFRangeMake(static_cast<CFIndex>(start), static_cast<CFIndex>(part.size()));
      for (unsigned mode = 0; mode < 16 && !HasFailure(); ++mode) {
        CFStringEncoding const encoding = kEncodings[mode & 3];
        char const lossByte = (mode & 4) != 0 ? '?' : '\0';
        bool const external = (mode & 8) != 0;
        SCOPED_TRACE(testing::PrintToString(part) + " mode " + std::to_string(mode));
        CFIndex needed = -1;
        CFIndex const counted =
            CFStringGetBytes(string.Get(), range, encoding, static_cast<UInt8>(lossByte), external,
                             nullptr, 1, &needed);  // without a buffer the capacity is nothing
        Conversion const all = ConvertByRule(part, encoding, lossByte, external, SIZE_MAX);
        ASSERT_EQ(counted, all.first);
        ASSERT_EQ(needed, static_cast<CFIndex>(all.second.size()));
        for (CFIndex room = 0; room <= needed + 2; ++room) {
          EXPECT_EQ(
              Convert(string.Get(), range, encoding, lossByte, external, room),
              ConvertByRule(part, encoding, lossByte, external, static_cast<std::size_t>(room)))
              << room;
        }
      }
    }
  }
}

TEST(StringEncoding, MaximumSizes) {
  CFIndex const perUnit[] = {3, 2, 1, 4};
  for (int i = 0; i < 4; ++i) {
    CFIndex const most = LONG_MAX / perUnit[i];
    EXPECT_EQ(CFStringGetMaximumSizeForEncoding(0, kEncodings[i]), 0);
    EXPECT_EQ(CFStringGetMaximumSizeForEncoding(most, kEncodings[i]), most * perUnit[i]);
    if (perUnit[i] == 1) continue;
    EXPECT_EQ(CFStringGetMaximumSizeForEncoding(most + 1, kEncodings[i]), kCFNotFound);
  }
  EXPECT_EQ(CFStringGetMaximumSizeForEncoding(1, 0x0201), kCFNotFound);
}

// However a text came about, it is the same in everything.
TEST(StringEncoding, RandomTextsMakeTheRoundTrip) {
  UChar32 const limits[] = {0x80, 0x800, 0x10000, 0x110000};
  std::mt19937 random(2);
  for (unsigned round = 0; round < 4000 && !HasFailure(); ++round) {
    std::u16string units;
    UChar32 const limit = limits[random() % 4];
    for (auto count = random() % 40; count > 0; --count) {
      auto const drawn = static_cast<UChar32>(random() % static_cast<unsigned>(limit));
      std::string const unit =
          EncodeByRule(U_IS_SURROGATE(drawn) ? 0x10FFFF : drawn, kCFStringEncodingUnicode);
      units.append(reinterpret_cast<char16_t const*>(unit.data()), unit.size() / 2);
    }
    std::string utf8 = ConvertByRule(units, kCFStringEncodingUTF8, '\0', false, SIZE_MAX).second;
    String const decoded(FromBytes(utf8, kCFStringEncodingUTF8));
    for (String const& string : {String(CreateString(units)), String(FromPart(units)),
                                 String(FromBytes(utf8, kCFStringEncodingUTF8, true))}) {
      EXPECT_EQ(TextOf(string.Get()), units);
      EXPECT_EQ(CFStringCompare(string.Get(), decoded.Get(), 0), kCFCompareEqualTo);
      EXPECT_EQ(CFStringCompare(string.Get(), decoded.Get(), kCFCompareLocalized),
                kCFCompareEqualTo);
      for (CFStringEncoding const encoding : kEncodings) {
        CFIndex const all = static_cast<CFIndex>(units.size());
        EXPECT_EQ(Convert(string.Get(), CFRangeMake(0, all), encoding, '\0', false, 4 * all),
                  ConvertByRule(units, encoding, '\0', false, SIZE_MAX));
      }
    }
    if (!utf8.empty()) utf8[random() % utf8.size()] = static_cast<char>(random() % 256);
    ExpectDecodesLikeIcu(utf8);
  }
}

// Against the standard library, over few letters, so that matches abound and overlap; one of them
// makes a text wide.
TEST(StringParts, UnitwiseSearchOrderAndJoining) {
  std::mt19937 random(3);
  auto const make = [&random](std::size_t letters, std::size_t most) {
    std::u16string text;
    for (auto count = random() % (most + 1); count > 0; --count) {
      text += u"abA\u00e9"[random() % letters];
    }
    return text;
  };
  for (unsigned round = 0; round < 20000 && !HasFailure(); ++round) {
    std::u16string const text = make(2 + random() % 3, 12);
    std::u16string const wanted = make(2 + random() % 3, 3);
    String const string(round % 2 == 0 ? CreateString(text) : FromPart(text));
    String const needle(CreateString(wanted));
    SCOPED_TRACE(testing::PrintToString(text) + " / " + testing::PrintToString(wanted));

    // What the standard library calls npos is -1 as a signed number.
    std::size_t const none = std::u16string::npos;
    std::size_t const first = wanted.empty() ? none : text.find(wanted);
    std::size_t const last = wanted.empty() ? none : text.rfind(wanted);
    CFRange const forwards = CFStringFind(string.Get(), needle.Get(), 0);
    CFRange const backwards = CFStringFind(string.Get(), needle.Get(), kCFCompareBackwards);
    EXPECT_EQ(forwards.location, static_cast<CFIndex>(first));
    EXPECT_EQ(backwards.location, static_cast<CFIndex>(last));
    EXPECT_EQ(forwards.length, first == none ? 0 : CFStringGetLength(needle.Get()));
    EXPECT_EQ(backwards.length, forwards.length);
    CFStringCompareFlags const both = kCFCompareBackwards | kCFCompareLocalized;
    EXPECT_EQ(CFStringFind(string.Get(), needle.Get(), both).location, kCFNotFound);

    int const order = text.compare(wanted);
    EXPECT_EQ(CFStringCompare(string.Get(), needle.Get(), round % 2), (order > 0) - (order < 0));
    bool const ends =
        text.size() >= wanted.size() && text.substr(text.size() - wanted.size()) == wanted;
    EXPECT_EQ(CFStringHasSuffix(string.Get(), needle.Get()) != 0, ends);

    std::size_t const start = random() % (text.size() + 1);
    std::size_t const size = random() % (text.size() - start + 1);
    std::size_t const within = wanted.empty() ? none : text.substr(start, size).find(wanted);
    CFRange const range = {static_cast<CFIndex>(start), static_cast<CFIndex>(size)};
    CFRange found = {-7, -7};
    bool const isThere = CFStringFindWithOptions(string.Get(), needle.Get(), range, 0, &found) != 0;
    EXPECT_EQ(isThere, within != none);
    EXPECT_EQ(found.location, isThere ? static_cast<CFIndex>(start + within) : -7);
    EXPECT_EQ(found.length, isThere ? CFStringGetLength(needle.Get()) : -7);
    EXPECT_FALSE(
        CFStringFindWithOptions(string.Get(), needle.Get(), range, kCFCompareBackwards, nullptr));

    void const* three[] = {string.Get(), needle.Get(), string.Get()};
    CFHolder<CFArrayRef> const pieces(CFArrayCreate(nullptr, three, 3, nullptr));
    String const joined(CFStringCreateByCombiningStrings(nullptr, pieces.Get(), needle.Get()));
    EXPECT_EQ(TextOf(joined.Get()), text + wanted + wanted + wanted + text);
  }
}

TEST(StringParts, SubstringsAreCutAtTheEnd) {
  for (std::u16string const& text : {u"abcd"s, u"ab\u00e9d"s}) {
    String const string(CreateString(text));
    for (CFIndex const location : {-1L, 0L, 1L, 3L, 4L, 5L, LONG_MAX}) {
      for (CFIndex const length : {-1L, 0L, 1L, 2L, 4L, LONG_MAX}) {
        bool const isPart = location >= 0 && length >= 0 && location <= 4;
        Text const expected = isPart ? Text(text.substr(static_cast<std::size_t>(location),
                                                        static_cast<std::size_t>(length)))
                                     : std::nullopt;
        CFRange const range = CFRangeMake(location, length);
        String const part(CFStringCreateWithSubstring(nullptr, string.Get(), range));
        EXPECT_EQ(TextOf(part.Get()), expected) << location << "+" << length;
      }
    }
  }
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
