#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <utility>
#include <vector>

#include "QuillmereLib/collections/CUArray.h"
#include "QuillmereLib/strings/CUStringMac.h"
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

using Operation = CUResult (CUStringMac::*)(CUStringMac&);

constexpr Operation kOperations[] = {
    &CUStringMac::PathRemoveLastComponent, &CUStringMac::PathGetFileName,
    &CUStringMac::PathGetFileNameNoExtension, &CUStringMac::PathGetExtension,
    &CUStringMac::PathGetLastComponent};

// The result's text; "fail" where a failure kept it, "fail:" and the text where it did not.
std::string Outcome(CUStringMac& path, Operation operation) {
  CUStringMac result("kept", CUString_CharCode_UTF8);
  CUResult const status = (path.*operation)(result);
  std::string const text = Utf8(result);
  if (status == CUResult_Success) return text;
  EXPECT_EQ(status, CUResult_Failed);
  return text == "kept" ? "fail" : "fail:" + text;
}

std::string Components(CUStringMac& path) {
  CUSharedPtr<CUArray> components;
  if (path.PathComponents(&components) != CUResult_Success) return "fail";
  std::string text;
  for (auto const& component : *components->GetInternalArray()) text += "|" + Utf8(component);
  return text.substr(1);
}

// Changes what the operations under test are made of, to see that they go through the class.
class Overriding : public CUStringMac {
 public:
  using CUStringMac::CUStringMac;
  CUResult PathGetFileName(CUStringMac& result) override {
    result = *Make("x.y");
    return fileNameStatus;
  }
  bool Equals(CUStringMac const&, _CUStringComparison) override { return true; }
  CUStringMac& operator=(CUStringMac const& other) override {
    ++assignments;
    return CUStringMac::operator=(other);
  }
  CUResult fileNameStatus = CUResult_Success;
  int assignments = 0;
};

}  // namespace

TEST(CUStringMac, IsMadeFromBytesUnitsAndStrings) {
  struct {
    std::string bytes;
    _CUString_CharCode code;
    std::string whole, cut;  // by byte count, and by strlen
  } const cases[] = {{"a\xC3\xA9", CUString_CharCode_UTF8, "a\u00e9", "a\u00e9"},
                     {"\xC3\xA9", kBeyondCodes, "\u00e9", "\u00e9"},
                     {"\xEF\xBB\xBF"s + "a", CUString_CharCode_UTF8, "a", "a"},
                     {"\xC3\0\xA9"s, CUString_CharCode_UTF8, "<null>", "<null>"},
                     {"\xE9\xE9\0\0a\0"s, CUString_CharCode_Unicode, "\ue9e9", "\ue9e9"},
                     {"\xFE\xFF\0a"s, CUString_CharCode_Unicode, "a", ""}};
  for (auto const& [bytes, code, expectedWhole, expectedCut] : cases) {
    CUStringMac whole(bytes.data(), static_cast<unsigned int>(bytes.size()), code);
    CUStringMac cut(bytes.c_str(), code);
    EXPECT_EQ(Utf8(whole), expectedWhole);
    EXPECT_EQ(Utf8(cut), expectedCut);
  }
  unsigned short units[] = {'a', 0xFEFF, 0xE9};
  for (unsigned int bytes = 0; bytes <= 6; ++bytes) {
    EXPECT_EQ(CUStringMac(units, bytes).Length(), bytes / 2);
  }
  EXPECT_FALSE(IsNull(CUStringMac()));

  // Copies stand by themselves, and null stays null.
  CUStringMac* const source = new CUStringMac(units, 6);
  CFStringRef const platform = *source;
  CUStringMac copies[] = {*source, CUStringMac(platform),
                          CUStringMac(Pointer(new CUStringMac(*source)))};
  for (CUStringMac& copy : copies) EXPECT_NE(static_cast<CFStringRef>(copy), platform);
  delete source;
  for (CUStringMac& copy : copies) EXPECT_EQ(Utf8(copy), "a\ufeff\u00e9");
  CUStringMac const null = Null(), copy(null), none((Pointer()));
  EXPECT_TRUE(IsNull(copy) && IsNull(none));
}

TEST(CUStringMac, NullStringFailsEverywhere) {
  Pointer const nullPointer = new CUStringMac(Null()), textPointer = Make("a");
  CUStringMac &null = *nullPointer, &text = *textPointer;
  EXPECT_EQ(null.Length() + null.CountOfChars(), 0u);
  for (auto const comparison : {CUStringComparison_CaseSensitive, CUStringComparison_IgnoreCase}) {
    EXPECT_FALSE(null.Equals(null, comparison) || text.Equals(null, comparison));
    EXPECT_EQ(Found(null, textPointer, comparison), "none");
    EXPECT_EQ(Found(text, nullPointer, comparison), "none");
    EXPECT_EQ(Found(text, nullptr, comparison), "none");
  }
  EXPECT_FALSE(null < text || text < null || null < null);
  unsigned int size = 7;
  char buffer[8] = "kept";
  EXPECT_EQ(null.GetString(buffer, CUString_CharCode_UTF8, size), CUResult_Failed);
  EXPECT_EQ(std::to_string(size) + buffer, "7kept");
  EXPECT_TRUE(null.SubString(0, 0) == nullptr && IsNull(*null.Description()));
  CUStringMac sums[] = {null + text, null + null, text + null};
  EXPECT_EQ(Utf8(sums[0]) + "|" + Utf8(sums[1]) + "|" + Utf8(sums[2]), "||a");
}

TEST(CUStringMac, AssignmentDropsBeforeItReads) {
  CUStringMac string = *Make("old"), other = *Make("new");
  char const* const old = string;
  string = other;
  EXPECT_STREQ(old, "old");  // alive until the next conversion
  EXPECT_NE(static_cast<CFStringRef>(string), static_cast<CFStringRef>(other));

  CUObject& object = string;
  object = static_cast<CUObject const&>(CUStringMac());
  EXPECT_EQ(Utf8(object.Description()), "new");

  CUStringMac& same = string;
  string = same;
  EXPECT_TRUE(IsNull(string));
  string = other;
  EXPECT_EQ(Utf8(string), "new");
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

  CUStringMac broken = *Make(u"a\U0001F600\u00e9\xD83Dz");
  EXPECT_EQ((broken + broken).Length(), 12u);
  EXPECT_EQ(Utf8(broken), "a\U0001F600\u00e9") << "up to the unpaired surrogate";
  EXPECT_EQ(broken.CountOfChars(), 3u);
}

TEST(CUStringMac, EqualsOrdersAndFindsByCollation) {
  struct {
    std::string text, other;
    bool equal, equalIgnoringCase;
    std::string found, foundIgnoringCase;
  } const cases[] = {{"abc", "ABC", false, true, "none", "0+3"},
                     {"a\u00adbc", "ab", false, false, "0+3", "0+3"},
                     {"caf\u00e9", "cafe\u0301", true, true, "0+4", "0+4"},
                     {"", "", true, true, "none", "none"},
                     {"abc", "\u00ad", false, false, "none", "none"}};
  for (auto const& test : cases) {
    SCOPED_TRACE(test.text + " / " + test.other);
    Pointer const text = Make(test.text), other = Make(test.other);
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
  EXPECT_EQ(Utf8(string.SubString(0, 2)) + Utf8(string.SubString(2, 0)), "a\u00e9");
  EXPECT_EQ(Utf8(string.SubString(1)) + Utf8(string.SubString(2)), "\u00e9");
  std::pair<int, int> const refused[] = {
      {0, 3}, {3, 0}, {0, -1}, {-1, 1}, {INT_MIN, INT_MIN}, {INT_MAX, INT_MAX}, {2, INT_MAX}};
  for (auto const& [start, length] : refused) {
    EXPECT_EQ(string.SubString(start, length), nullptr) << start << "+" << length;
  }
  for (int start : {3, -1, INT_MIN}) EXPECT_EQ(string.SubString(start), nullptr) << start;
}

TEST(CUStringMac, FormatsLikePrintf) {
  EXPECT_EQ(Utf8(CUStringMac::CreateWithFormat(Make("%s-%05d-%%-%.2f"), "\u00e9", 42, 1.5)),
            "\u00e9-00042-%-1.50");
  std::string const text(100000, 'x');
  Pointer const length = CUStringMac::CreateWithFormat(Make("%s%*d"), text.c_str(), 50000, 7);
  EXPECT_EQ(Utf8(length), text + std::string(49999, ' ') + "7");

  EXPECT_EQ(CUStringMac::CreateWithFormat(new CUStringMac(Null()), 1), nullptr);
  // The C library refuses this.
  EXPECT_EQ(CUStringMac::CreateWithFormat(Make("%lc"), 0x7FFFFFFF), nullptr);
  // Text of which no string can be made gives the null string, in a pointer that is not null.
  Pointer const undecodable = CUStringMac::CreateWithFormat(Make("%s"), "\xFF");
  ASSERT_NE(undecodable, nullptr);
  EXPECT_TRUE(IsNull(*undecodable));
}

TEST(CUStringMacPath, TakesPathsApart) {
  struct {
    std::string path;
    std::string results[5];  // in the order of kOperations
    std::string components;
  } const cases[] = {{"/", {"/", "", "", "fail", "/"}, "/"},
                     {"\xFF", {"fail", "fail", "fail", "fail", "fail"}, "fail"},
                     {"a.b", {"fail:", "fail", "fail", ".b", "fail"}, "a.b"},
                     {"/a", {"/", "a", "a", "fail", "a"}, "/|a"},
                     {"a.d/b", {"a.d", "b", "b", ".d/b", "b"}, "a.d|b"},
                     {"/.a", {"/", ".a", "", ".a", ".a"}, "/|.a"},
                     {"a.b/", {"fail:", "", "", ".b/", "fail"}, "a.b"},
                     {"/é/あ.😀", {"/é", "あ.😀", "あ", ".😀", "あ.😀"}, "/|é|あ.😀"},
                     // Equal to the root by the collation, which passes over the soft hyphen.
                     {"/\u00ad", {"/", "\u00ad", "\u00ad", "fail", "/"}, "/"},
                     {"\u00ad/", {"fail:", "", "", "fail", "/"}, "/"}};
  for (auto const& test : cases) {
    Pointer const path = Make(test.path);
    std::string const before = Utf8(path);
    for (int i = 0; i < 5; ++i) {
      Operation const operation = kOperations[i];
      EXPECT_EQ(Outcome(*path, operation), test.results[i]) << test.path << " operation " << i;
      // With the string itself for the result nothing is different, but that a failure keeps it.
      CUStringMac same(*path);
      (same.*operation)(same);
      std::string const left = test.results[i] == "fail:" ? "" : test.results[i];
      EXPECT_EQ(Utf8(same), left == "fail" ? before : left) << test.path << " in place, " << i;
    }
    EXPECT_EQ(Components(*path), test.components) << test.path;
    EXPECT_EQ(Utf8(path), before);
  }
  CUSharedPtr<CUArray> const before = new CUArray;
  CUSharedPtr<CUArray> components = before;
  EXPECT_EQ(Make("\xFF")->PathComponents(&components), CUResult_Failed);
  EXPECT_EQ(components, before);
  EXPECT_EQ(Make("a")->PathComponents(nullptr), CUResult_Failed);
  EXPECT_EQ(Make("a")->PathComponents(&components), CUResult_Success);
  EXPECT_NE(dynamic_cast<CUMutableArray*>(components.Get()), nullptr);
}

TEST(CUStringMacPath, Appends) {
  std::string const cases[][3] = {{"a", "/b", "a//b"},
                                  {"\u00e9/", "", "\u00e9/"},
                                  {"", "b", "/b"},
                                  {"/\u00ad", "b", "/\u00ad/b"}};  // no matter of collation
  for (auto const& [path, component, expected] : cases) {
    CUStringMac result;
    EXPECT_EQ(Make(path)->PathAppend(*Make(component), result), CUResult_Success);
    EXPECT_EQ(Utf8(result), expected);
  }
  CUStringMac path = *Make("a"), component = *Make("b"), null = Null();
  EXPECT_EQ(null.PathAppend(component, component), CUResult_Failed);
  EXPECT_EQ(path.PathAppend(component, component), CUResult_Success);
  EXPECT_EQ(path.PathAppend(component, path), CUResult_Success);
  EXPECT_EQ(path.PathAppend(path, path), CUResult_Success);
  EXPECT_EQ(Utf8(path), "a/a/b/a/a/b");
}

TEST(CUStringMacPath, CallsThroughTheVirtualTable) {
  Overriding path("a/b", CUString_CharCode_UTF8);
  CUStringMac result("kept", CUString_CharCode_UTF8);
  path.fileNameStatus = CUResult_MoveFailed;
  EXPECT_EQ(path.PathGetFileNameNoExtension(result), CUResult_MoveFailed);
  EXPECT_EQ(Utf8(result), "kept");
  path.fileNameStatus = static_cast<CUResult>(0x20000);  // only the low 16 bits tell
  EXPECT_EQ(path.PathGetFileNameNoExtension(result), CUResult_Success);
  EXPECT_EQ(Utf8(result), "x");
  EXPECT_TRUE(path == result);
  EXPECT_EQ(path.PathGetLastComponent(result), CUResult_Success);
  EXPECT_EQ(Utf8(result), "/");
  EXPECT_EQ(Make("a/b.c")->PathGetFileName(path), CUResult_Success);
  EXPECT_EQ(Make("a/b")->PathGetFileNameNoExtension(path), CUResult_Success);
  EXPECT_EQ(Make("a")->PathAppend(*Make("b"), path), CUResult_Success);
  EXPECT_EQ(Utf8(path) + std::to_string(path.assignments), "a/b3");
}

TEST(CUStringMacPath, UnicodeFileNames) {
  struct {
    std::u16string name;
    CUResult status;
    std::u16string expected;
  } const cases[] = {
      {u"a:b/\u00e9\U0001F600\xD83D:", CUResult_Success, u"a/b/\u00e9\U0001F600\xD83D/"},
      {std::u16string(255, u':'), CUResult_Success, std::u16string(255, u'/')},
      {std::u16string(256, u'a'), CUResult_Failed, u"kept"},
      {std::u16string(65538, u'a'), CUResult_Success, u"aa"}};
  for (auto const& [name, status, expected] : cases) {
    HFSUniStr255 result = {4, {'k', 'e', 'p', 't'}};
    EXPECT_EQ(CUStringMac::GetUnicodeFileName(Make(name), &result), status);
    EXPECT_EQ(std::u16string(result.unicode, result.unicode + result.length), expected);
  }
  HFSUniStr255 result = {};
  EXPECT_EQ(CUStringMac::GetUnicodeFileName(Pointer(), &result), CUResult_Failed);
  EXPECT_EQ(CUStringMac::GetUnicodeFileName(Make("\xFF"), &result), CUResult_Failed);
  EXPECT_EQ(CUStringMac::GetUnicodeFileName(Make("a"), nullptr), CUResult_Failed);
}

// Quadratic work over a path of a megabyte would show as a test that does not end.
TEST(CUStringMacPath, LongPaths) {
  std::string text;
  for (int i = 0; i < 100000; ++i) text += "/\u00e9bcdefgh";
  Pointer const path = Make(text);
  EXPECT_EQ(Components(*path).size(), text.size() + 1);
  EXPECT_EQ(Outcome(*path, kOperations[0]).size() + 10, text.size());
  EXPECT_EQ(Outcome(*path, kOperations[3]), "fail");
}
