#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdarg>
#include <string>
#include <utility>
#include <vector>

#include "QuillmereLib/strings/CUStringMac.h"
#include "QuillmereLib/strings/TextBuilder.h"
#include "tests/support/Strings.h"

namespace {

using namespace std::string_literals;
using Pointer = CUSharedPtr<CUStringMac>;

constexpr _CUString_CharCode kBeyondCodes = static_cast<_CUString_CharCode>(7);
constexpr _CUStringComparison kBeyondComparisons = static_cast<_CUStringComparison>(2);

// The null string, from bytes that do not decode.
CUStringMac Null() { return CUStringMac("\xFF", CUString_CharCode_UTF8); }

bool IsNull(CUStringMac const& string) { return static_cast<CFStringRef>(string) == nullptr; }

std::string Found(CUStringMac& text, Pointer const& other, _CUStringComparison comparison) {
  _CURange const range = text.Find(other, comparison);
  if (range.location == CURange_NoLocation && range.length == 0) return "none";
  return std::to_string(range.location) + "+" + std::to_string(range.length);
}

// Both renderings of one list of arguments, which must not be consumed by the first.
std::string FormatTwice(char const* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  Pointer const first = CUStringMac::CreateWithFormatV(Make(format), arguments);
  Pointer const second = CUStringMac::CreateWithFormatV(Make(format), arguments);
  va_end(arguments);
  return Utf8(first) + "|" + Utf8(second);
}

}  // namespace

TEST(CUStringMac, ConstructionFromBytes) {
  struct {
    std::string bytes;
    _CUString_CharCode code;
    std::string whole, cut;  // by byte count, and by strlen
  } const cases[] = {{"a\xC3\xA9", CUString_CharCode_UTF8, "a\u00e9", "a\u00e9"},
                     {"abc\0\xFF"s, CUString_CharCode_ASCII, "abc", "abc"},
                     {"\xC3\xA9", kBeyondCodes, "\u00e9", "\u00e9"},
                     {"\xEF\xBB\xBF"s + "a", CUString_CharCode_UTF8, "a", "a"},
                     {"\xC3\0\xA9"s, CUString_CharCode_UTF8, "<null>", "<null>"},
                     {"\xC3\xA9", CUString_CharCode_ASCII, "<null>", "<null>"},
                     {"", CUString_CharCode_UTF8, "", ""},
                     {"\xE9\0\x42\x30"s, CUString_CharCode_Unicode, "\u00e9\u3042", "<null>"},
                     {"\xE9\xE9\0\0a\0"s, CUString_CharCode_Unicode, "\ue9e9", "\ue9e9"},
                     {"\xFE\xFF\0a"s, CUString_CharCode_Unicode, "a", ""}};
  for (auto const& [bytes, code, expectedWhole, expectedCut] : cases) {
    CUStringMac whole(bytes.data(), static_cast<unsigned int>(bytes.size()), code);
    CUStringMac cut(bytes.c_str(), code);
    EXPECT_EQ(Utf8(whole), expectedWhole);
    EXPECT_EQ(Utf8(cut), expectedCut);
    EXPECT_EQ(IsNull(whole), expectedWhole == "<null>");
  }
  EXPECT_EQ(CUStringMac("\xE9\xE9\0\0a\0", 6, CUString_CharCode_Unicode).Length(), 3u);
  char const unterminated[] = {'a', 'b', 'c'};
  CUStringMac bounded(unterminated, 3, CUString_CharCode_UTF8);
  EXPECT_EQ(Utf8(bounded), "abc");
}

TEST(CUStringMac, ConstructionFromUnitsAndStrings) {
  unsigned short units[] = {'a', 0xFEFF, 0xE9};
  for (unsigned int bytes = 0; bytes <= 6; ++bytes) {
    EXPECT_EQ(CUStringMac(units, bytes).Length(), bytes / 2);
  }
  CUStringMac empty;
  EXPECT_FALSE(IsNull(empty));
  EXPECT_EQ(Utf8(empty), "");

  // Copies stand by themselves, and null stays null.
  CUStringMac* const source = new CUStringMac(units, 6);
  CFStringRef const platform = *source;
  CUStringMac copies[] = {*source, CUStringMac(platform),
                          CUStringMac(Pointer(new CUStringMac(*source)))};
  for (CUStringMac& copy : copies) EXPECT_NE(static_cast<CFStringRef>(copy), platform);
  delete source;
  for (CUStringMac& copy : copies) EXPECT_EQ(Utf8(copy), "a\ufeff\u00e9");
  CUStringMac const null = Null();
  CUStringMac const nulls[] = {null, CUStringMac(Pointer()),
                               CUStringMac(Pointer(new CUStringMac(null)))};
  for (CUStringMac const& copy : nulls) EXPECT_TRUE(IsNull(copy));
}

TEST(CUStringMac, NullStringFailsEverywhere) {
  Pointer const nullPointer = new CUStringMac(Null()), textPointer = Make("a");
  CUStringMac &null = *nullPointer, &text = *textPointer;
  EXPECT_EQ(null.Length() + null.CountOfChars(), 0u);
  for (_CUStringComparison comparison :
       {CUStringComparison_CaseSensitive, CUStringComparison_IgnoreCase, kBeyondComparisons}) {
    EXPECT_FALSE(null.Equals(null, comparison) || null.Equals(text, comparison) ||
                 text.Equals(null, comparison));
    EXPECT_EQ(Found(null, textPointer, comparison), "none");
    EXPECT_EQ(Found(text, nullPointer, comparison), "none");
    EXPECT_EQ(Found(text, nullptr, comparison), "none");
  }
  EXPECT_FALSE(null == null || null == text || text == null);
  EXPECT_FALSE(null < text || text < null || null < null);
  unsigned int size = 7;
  char buffer[8] = "kept";
  EXPECT_EQ(null.GetString(nullptr, CUString_CharCode_UTF8, size), CUResult_Failed);
  EXPECT_EQ(null.GetString(buffer, CUString_CharCode_UTF8, size), CUResult_Failed);
  EXPECT_EQ(size, 7u);
  EXPECT_STREQ(buffer, "kept");
  EXPECT_EQ(static_cast<char const*>(null), nullptr);
  EXPECT_EQ(null.SubString(0, 0), nullptr);
  EXPECT_EQ(null.SubString(0), nullptr);
  EXPECT_TRUE(IsNull(*null.Description()));
  CUStringMac sums[] = {null + text, null + null, text + null};
  EXPECT_EQ(Utf8(sums[0]) + "|" + Utf8(sums[1]) + "|" + Utf8(sums[2]), "||a");
}

TEST(CUStringMac, AssignmentDropsBeforeItReads) {
  CUStringMac string = *Make("old"), other = *Make("new");
  char const* const old = string;
  EXPECT_EQ(&(string = other), &string);
  EXPECT_STREQ(old, "old");  // alive until the next conversion
  EXPECT_NE(static_cast<CFStringRef>(string), static_cast<CFStringRef>(other));

  CUObject& object = string;
  object = static_cast<CUObject const&>(CUStringMac());
  EXPECT_EQ(Utf8(string), "new");
  EXPECT_EQ(Utf8(object.Description()), "new");

  CUStringMac& same = string;
  string = same;
  EXPECT_TRUE(IsNull(string));
  string = other;
  EXPECT_EQ(Utf8(string), "new");
  string = Null();
  EXPECT_TRUE(IsNull(string));
}

TEST(CUStringMac, GetStringFillsAnyBuffer) {
  CUStringMac string = *Make(u"ab\u00e9\u20ac\U0001F600z");
  std::vector<std::string> const utf8 = {"a", "b", "\u00e9", "\u20ac", "\U0001F600", "z"};
  struct {
    _CUString_CharCode code;
    unsigned int perUnit;
    std::vector<std::string> characters;  // as far as the encoding can hold them
  } const cases[] = {{CUString_CharCode_UTF8, 3, utf8},
                     {kBeyondCodes, 3, utf8},
                     {CUString_CharCode_Unicode,
                      2,
                      {"a\0"s, "b\0"s, "\xE9\0"s, "\xAC\x20", "\x3D\xD8\0\xDE"s, "z\0"s}},
                     {CUString_CharCode_ASCII, 1, {"a", "b"}}};
  for (auto const& [code, perUnit, characters] : cases) {
    unsigned int need = 0;
    ASSERT_EQ(string.GetString(nullptr, code, need), CUResult_Success);
    EXPECT_EQ(need, (string.Length() + 1) * perUnit);
    for (unsigned int size = 1; size <= need + 3; ++size) {
      std::string expected;
      for (std::string const& character : characters) {
        if (expected.size() + character.size() + perUnit > size) break;
        expected += character;
      }
      expected.resize(size, '\0');
      std::string buffer(size + 4, '\x7E');
      unsigned int given = size;
      EXPECT_EQ(string.GetString(buffer.data(), code, given), CUResult_Success);
      EXPECT_EQ(given, size);
      EXPECT_EQ(buffer, expected + "\x7E\x7E\x7E\x7E") << code << " size " << size;
    }
  }
  unsigned int none = 0;
  char byte = 'k';
  EXPECT_EQ(string.GetString(&byte, CUString_CharCode_UTF8, none), CUResult_Failed);
  EXPECT_EQ(byte, 'k');
}

TEST(CUStringMac, CountsUnitsAndCharactersUpToAnUnpairedSurrogate) {
  CUStringMac text = *Make(u"a\U0001F600\u00e9");
  EXPECT_EQ(text.Length(), 4u);
  EXPECT_EQ(text.CountOfChars(), 3u);
  CUStringMac broken = *Make(u"a\u00e9\xD83Dz");
  EXPECT_EQ((broken + broken).Length(), 8u);
  EXPECT_EQ(broken.CountOfChars(), 2u);
  EXPECT_EQ(Utf8(broken), "a\u00e9");
}

TEST(CUStringMac, EqualsOrdersAndFindsByCollation) {
  struct {
    std::string text, other;
    bool equal, equalIgnoringCase;
    std::string found, foundIgnoringCase;
  } const cases[] = {{"abc", "ABC", false, true, "none", "0+3"},
                     {"a\u00adbc", "ab", false, false, "0+3", "0+3"},
                     {"caf\u00e9", "cafe\u0301", true, true, "0+4", "0+4"},
                     {"abc", "d", false, false, "none", "none"},
                     {"abc", "", false, false, "none", "none"},
                     {"", "", true, true, "none", "none"},
                     {"abc", "\u00ad", false, false, "none", "none"}};
  for (auto const& test : cases) {
    SCOPED_TRACE(test.text + " / " + test.other);
    Pointer const text = Make(test.text), other = Make(test.other);
    EXPECT_EQ(*text == *other, test.equal);
    EXPECT_EQ(text->Equals(*other, CUStringComparison_CaseSensitive), test.equal);
    EXPECT_EQ(text->Equals(*other, CUStringComparison_IgnoreCase), test.equalIgnoringCase);
    EXPECT_FALSE(text->Equals(*text, kBeyondComparisons));
    EXPECT_EQ((*text < *other) || (*other < *text), !test.equal);
    EXPECT_EQ(Found(*text, other, CUStringComparison_CaseSensitive), test.found);
    EXPECT_EQ(Found(*text, other, CUStringComparison_IgnoreCase), test.foundIgnoringCase);
    EXPECT_EQ(Found(*text, text, kBeyondComparisons), "none");
  }
  EXPECT_TRUE(*Make("a") < *Make("B"));  // by the collation, not by units
  EXPECT_FALSE(*Make("B") < *Make("a"));
}

TEST(CUStringMac, SubStringKeepsInsideTheText) {
  CUStringMac string = *Make(u"a\u00e9");
  EXPECT_EQ(Utf8(string.SubString(0, 2)) + Utf8(string.SubString(1, 1)), "a\u00e9\u00e9");
  EXPECT_EQ(Utf8(string.SubString(2, 0)), "");
  EXPECT_EQ(Utf8(string.SubString(1)) + Utf8(string.SubString(2)), "\u00e9");
  std::pair<int, int> const refused[] = {
      {0, 3}, {3, 0}, {0, -1}, {-1, 1}, {INT_MIN, INT_MIN}, {INT_MAX, INT_MAX}, {2, INT_MAX}};
  for (auto const& [start, length] : refused) {
    EXPECT_EQ(string.SubString(start, length), nullptr) << start << "+" << length;
  }
  for (int start : {3, -1, INT_MAX, INT_MIN}) EXPECT_EQ(string.SubString(start), nullptr) << start;
}

TEST(CUStringMac, FormatsLikePrintf) {
  EXPECT_EQ(FormatTwice("%s-%05d-%%-%.2f", "\u00e9", 42, 1.5),
            "\u00e9-00042-%-1.50|\u00e9-00042-%-1.50");
  EXPECT_EQ(FormatTwice(""), "|");
  std::string const text(100000, 'x');
  Pointer const length = CUStringMac::CreateWithFormat(Make("%s%*d"), text.c_str(), 50000, 7);
  EXPECT_EQ(Utf8(length), text + std::string(49999, ' ') + "7");

  EXPECT_EQ(CUStringMac::CreateWithFormat(Pointer(), 1), nullptr);
  EXPECT_EQ(CUStringMac::CreateWithFormat(new CUStringMac(Null()), 1), nullptr);
  // The C library refuses these; what it makes of an unknown conversion is its own.
  EXPECT_EQ(CUStringMac::CreateWithFormat(Make("50%")), nullptr);
  EXPECT_EQ(CUStringMac::CreateWithFormat(Make("%lc"), 0x7FFFFFFF), nullptr);
  EXPECT_EQ(Utf8(CUStringMac::CreateWithFormat(Make("a%!b"))).front(), 'a');
  // Text of which no string can be made gives the null string, in a pointer that is not null.
  Pointer const undecodable = CUStringMac::CreateWithFormat(Make("%s"), "\xFF");
  ASSERT_NE(undecodable, nullptr);
  EXPECT_TRUE(IsNull(*undecodable));
}

TEST(TextBuilder, JoinsPiecesOfBothWidths) {
  TextBuilder builder;
  EXPECT_EQ(Utf8(builder.Text()), "");
  for (int i = 0; i < 2; ++i) {
    builder.Append("ab");
    builder.Append(static_cast<CFStringRef>(nullptr));
    builder.Append(static_cast<CFStringRef>(*Make("\u00e9")));
  }
  EXPECT_EQ(Utf8(builder.Text()), "ab\u00e9ab\u00e9");
}
