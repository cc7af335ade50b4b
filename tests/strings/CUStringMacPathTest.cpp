#include <CoreServices/CoreServices.h>
#include <gtest/gtest.h>

#include <string>

#include "QuillmereLib/collections/CUArray.h"
#include "QuillmereLib/strings/CUStringMac.h"
#include "tests/support/Strings.h"

namespace {

using Pointer = CUSharedPtr<CUStringMac>;
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
  for (unsigned int i = 0; i < components->Count(); ++i) {
    text += (i == 0 ? "" : "|") + Utf8(components->ObjectAtIndex(i));
  }
  return text;
}

// Changes what the operations under test are made of, to see that they go through the class.
class CountingAssignments : public CUStringMac {
 public:
  CUStringMac& operator=(CUStringMac const& other) override {
    ++count;
    return CUStringMac::operator=(other);
  }
  int count = 0;
};

class Overriding : public CUStringMac {
 public:
  using CUStringMac::CUStringMac;
  CUResult GetString(char*, _CUString_CharCode, unsigned int&) override {
    return CUResult_CopyFailed;
  }
  CUResult PathGetFileName(CUStringMac& result) override {
    result = *Make("x.y");
    return fileNameStatus;
  }
  bool Equals(CUStringMac const&, _CUStringComparison) override { return true; }
  CUResult fileNameStatus = CUResult_Success;
};

}  // namespace

TEST(CUStringMacPath, TakesPathsApart) {
  struct Case {
    std::string path;
    std::string results[5];  // in the order of kOperations
    std::string components;
  } const cases[] = {
      {"/", {"/", "", "", "fail", "/"}, "/"},
      {"", {"fail:", "fail", "fail", "fail", "fail"}, ""},
      {"a", {"fail:", "fail", "fail", "fail", "fail"}, "a"},
      {"a/", {"fail:", "", "", "fail", "fail"}, "a"},
      {"a.b", {"fail:", "fail", "fail", ".b", "fail"}, "a.b"},
      {"/a", {"/", "a", "a", "fail", "a"}, "/|a"},
      {"/a/", {"/", "", "", "fail", "a"}, "/|a"},
      {"/a/b", {"/a", "b", "b", "fail", "b"}, "/|a|b"},
      {"/a/b/", {"/a", "", "", "fail", "b"}, "/|a|b"},
      {"a/b.c", {"a", "b.c", "b", ".c", "b.c"}, "a|b.c"},
      {"a.d/b", {"a.d", "b", "b", ".d/b", "b"}, "a.d|b"},
      {"a/b.c.d", {"a", "b.c.d", "b.c", ".d", "b.c.d"}, "a|b.c.d"},
      {"a/b.", {"a", "b.", "b", ".", "b."}, "a|b."},
      {"/.a", {"/", ".a", "", ".a", ".a"}, "/|.a"},
      {"a.b/", {"fail:", "", "", ".b/", "fail"}, "a.b"},
      {"a//b", {"a/", "b", "b", "fail", "b"}, "a||b"},
      {"a//", {"a", "", "", "fail", ""}, "a|"},
      {"//", {"/", "", "", "fail", ""}, "/|"},
      {"///", {"/", "", "", "fail", ""}, "/||"},
      {"//a", {"/", "a", "a", "fail", "a"}, "/||a"},
      {"/\u00e9/\u3042.\U0001F600",
       {"/\u00e9", "\u3042.\U0001F600", "\u3042", ".\U0001F600", "\u3042.\U0001F600"},
       "/|\u00e9|\u3042.\U0001F600"},
      // Equal to the root by the collation, which passes over the soft hyphen.
      {"/\u00ad", {"/", "\u00ad", "\u00ad", "fail", "/"}, "/"},
      {"\u00ad/", {"fail:", "", "", "fail", "/"}, "/"}};
  for (Case const& test : cases) {
    Pointer const path = Make(test.path);
    for (int i = 0; i < 5; ++i) {
      Operation const operation = kOperations[i];
      EXPECT_EQ(Outcome(*path, operation), test.results[i]) << test.path << " operation " << i;
      // With the string itself for the result nothing is different, but that a failure keeps it.
      CUStringMac same(*path);
      (same.*operation)(same);
      std::string const expected = test.results[i] == "fail"    ? test.path
                                   : test.results[i] == "fail:" ? ""
                                                                : test.results[i];
      EXPECT_EQ(Utf8(same), expected) << test.path << " in place, operation " << i;
    }
    EXPECT_EQ(Components(*path), test.components) << test.path;
    EXPECT_EQ(Utf8(path), test.path);
  }
}

TEST(CUStringMacPath, Appends) {
  std::string const cases[][3] = {{"a", "b", "a/b"},
                                  {"a/", "b", "a/b"},
                                  {"a/", "/b", "a//b"},
                                  {"a", "/b", "a//b"},
                                  {"/", "b", "/b"},
                                  {"a", "", "a/"},
                                  {"", "b", "/b"},
                                  {"\u00e9/", "b", "\u00e9/b"},
                                  {"a", "\u00e9", "a/\u00e9"},
                                  {"/\u00ad", "b", "/\u00ad/b"}};  // no matter of collation
  for (auto const& test : cases) {
    CUStringMac result;
    EXPECT_EQ(Make(test[0])->PathAppend(*Make(test[1]), result), CUResult_Success);
    EXPECT_EQ(Utf8(result), test[2]);
  }

  CUStringMac path("a", CUString_CharCode_UTF8);
  CUStringMac component("b", CUString_CharCode_UTF8);
  EXPECT_EQ(path.PathAppend(component, component), CUResult_Success);
  EXPECT_EQ(Utf8(component), "a/b");
  EXPECT_EQ(path.PathAppend(component, path), CUResult_Success);
  EXPECT_EQ(Utf8(path), "a/a/b");
  EXPECT_EQ(path.PathAppend(path, path), CUResult_Success);
  EXPECT_EQ(Utf8(path), "a/a/b/a/a/b");
}

TEST(CUStringMacPath, NullStringKeepsEveryResult) {
  CUStringMac null("\xFF", CUString_CharCode_UTF8);
  for (Operation const operation : kOperations) EXPECT_EQ(Outcome(null, operation), "fail");
  CUStringMac kept("kept", CUString_CharCode_UTF8);
  EXPECT_EQ(null.PathAppend(kept, kept), CUResult_Failed);
  EXPECT_EQ(Utf8(kept), "kept");
  CUSharedPtr<CUArray> const before = new CUArray;
  CUSharedPtr<CUArray> components = before;
  EXPECT_EQ(null.PathComponents(&components), CUResult_Failed);
  EXPECT_EQ(components, before);
  EXPECT_EQ(kept.PathComponents(nullptr), CUResult_Failed);
  EXPECT_EQ(kept.PathComponents(&components), CUResult_Success);
  EXPECT_NE(components, before);
  EXPECT_NE(dynamic_cast<CUMutableArray*>(components.Get()), nullptr);
}

TEST(CUStringMacPath, CallsThroughTheVirtualTable) {
  Overriding path("a/b", CUString_CharCode_UTF8);
  CUStringMac result("kept", CUString_CharCode_UTF8);
  EXPECT_EQ(path.PathGetFileNameNoExtension(result), CUResult_Success);
  EXPECT_EQ(Utf8(result), "x");
  path.fileNameStatus = CUResult_MoveFailed;
  EXPECT_EQ(path.PathGetFileNameNoExtension(result), CUResult_MoveFailed);
  EXPECT_EQ(Utf8(result), "x");
  path.fileNameStatus = static_cast<CUResult>(0x20000);  // only the low 16 bits tell
  EXPECT_EQ(path.PathGetFileNameNoExtension(result), CUResult_Success);

  CountingAssignments counting;
  EXPECT_EQ(Make("a/b.c")->PathGetFileName(counting), CUResult_Success);
  EXPECT_EQ(Make("a/b")->PathGetFileNameNoExtension(counting), CUResult_Success);
  EXPECT_EQ(Make("a")->PathAppend(*Make("b"), counting), CUResult_Success);
  EXPECT_EQ(Utf8(counting), "a/b");
  EXPECT_EQ(counting.count, 3);

  EXPECT_TRUE(path == result);
  EXPECT_EQ(path.PathGetLastComponent(result), CUResult_Success);
  EXPECT_EQ(Utf8(result), "/");
  EXPECT_EQ(static_cast<char const*>(path), nullptr);
  HFSUniStr255 name;
  EXPECT_EQ(CUStringMac::GetUnicodeFileName(new Overriding("a", CUString_CharCode_UTF8), &name),
            CUResult_CopyFailed);
}

TEST(CUStringMacPath, UnicodeFileNames) {
  struct Case {
    std::u16string name;
    CUResult status;
    std::u16string expected;
  } const cases[] = {{u"a:b/c:", CUResult_Success, u"a/b/c/"},
                     {u"\u00e9\U0001F600\xD83D", CUResult_Success, u"\u00e9\U0001F600\xD83D"},
                     {u"", CUResult_Success, u""},
                     {std::u16string(255, u':'), CUResult_Success, std::u16string(255, u'/')},
                     {std::u16string(256, u'a'), CUResult_Failed, u"kept"},
                     {std::u16string(65535, u'a'), CUResult_Failed, u"kept"},
                     {std::u16string(65536, u'a'), CUResult_Success, u""},
                     {std::u16string(65538, u'a'), CUResult_Success, u"aa"}};
  for (Case const& test : cases) {
    HFSUniStr255 result = {4, {'k', 'e', 'p', 't'}};
    EXPECT_EQ(CUStringMac::GetUnicodeFileName(Make(test.name), &result), test.status);
    EXPECT_EQ(std::u16string(result.unicode, result.unicode + result.length), test.expected);
  }
  HFSUniStr255 result = {1, {'k'}};
  EXPECT_EQ(CUStringMac::GetUnicodeFileName(Pointer(), &result), CUResult_Failed);
  EXPECT_EQ(CUStringMac::GetUnicodeFileName(Make("\xFF"), &result), CUResult_Failed);
  EXPECT_EQ(CUStringMac::GetUnicodeFileName(Make("a"), nullptr), CUResult_Failed);
  EXPECT_EQ(result.length, 1);
}

// Quadratic work over a path of a megabyte would show as a test that does not end.
TEST(CUStringMacPath, LongPaths) {
  for (std::string const& piece : {std::string("/abcdefghi"), std::string("/\u00e9bcdefgh")}) {
    std::string text;
    for (int i = 0; i < 100000; ++i) text += piece;
    Pointer const path = Make(text);
    CUSharedPtr<CUArray> components;
    ASSERT_EQ(path->PathComponents(&components), CUResult_Success);
    EXPECT_EQ(components->Count(), 100001u);
    EXPECT_EQ("/" + Utf8(components->LastObject()), piece);
    EXPECT_EQ(Outcome(*path, &CUStringMac::PathRemoveLastComponent).size() + piece.size(),
              text.size());
    EXPECT_EQ("/" + Outcome(*path, &CUStringMac::PathGetLastComponent), piece);
    EXPECT_EQ(Outcome(*path, &CUStringMac::PathGetExtension), "fail");
  }
}
