#include <CoreServices/CoreServices.h>
#include <gtest/gtest.h>

#include <string>

#include "QuillmereLib/collections/CUArray.h"
#include "QuillmereLib/strings/CUStringMac.h"
#include "tests/support/FailingAllocation.h"
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
  for (auto const& component : *components->GetInternalArray()) text += "|" + Utf8(component);
  return text.substr(1);
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
  struct {
    std::string path;
    std::string results[5];  // in the order of kOperations
    std::string components;
  } const cases[] = {{"/", {"/", "", "", "fail", "/"}, "/"},
                     {"", {"fail:", "fail", "fail", "fail", "fail"}, ""},
                     {"\xFF", {"fail", "fail", "fail", "fail", "fail"}, "fail"},
                     {"a", {"fail:", "fail", "fail", "fail", "fail"}, "a"},
                     {"a/", {"fail:", "", "", "fail", "fail"}, "a"},
                     {"a.b", {"fail:", "fail", "fail", ".b", "fail"}, "a.b"},
                     {"/a", {"/", "a", "a", "fail", "a"}, "/|a"},
                     {"/a/", {"/", "", "", "fail", "a"}, "/|a"},
                     {"/a/b", {"/a", "b", "b", "fail", "b"}, "/|a|b"},
                     {"a.d/b", {"a.d", "b", "b", ".d/b", "b"}, "a.d|b"},
                     {"a/b.c.d", {"a", "b.c.d", "b.c", ".d", "b.c.d"}, "a|b.c.d"},
                     {"a/b.", {"a", "b.", "b", ".", "b."}, "a|b."},
                     {"/.a", {"/", ".a", "", ".a", ".a"}, "/|.a"},
                     {"a.b/", {"fail:", "", "", ".b/", "fail"}, "a.b"},
                     {"a//b", {"a/", "b", "b", "fail", "b"}, "a||b"},
                     {"a//", {"a", "", "", "fail", ""}, "a|"},
                     {"//", {"/", "", "", "fail", ""}, "/|"},
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
}

TEST(CUStringMacPath, Appends) {
  std::string const cases[][3] = {{"a", "b", "a/b"},
                                  {"a/", "/b", "a//b"},
                                  {"a", "/b", "a//b"},
                                  {"a", "", "a/"},
                                  {"", "b", "/b"},
                                  {"\u00e9/", "b", "\u00e9/b"},
                                  {"/\u00ad", "b", "/\u00ad/b"}};  // no matter of collation
  for (auto const& [path, component, expected] : cases) {
    CUStringMac result;
    EXPECT_EQ(Make(path)->PathAppend(*Make(component), result), CUResult_Success);
    EXPECT_EQ(Utf8(result), expected);
  }
  CUStringMac path = *Make("a"), component = *Make("b"), null = *Make("\xFF");
  EXPECT_EQ(null.PathAppend(component, component), CUResult_Failed);
  EXPECT_EQ(path.PathAppend(component, component), CUResult_Success);
  EXPECT_EQ(Utf8(component), "a/b");
  EXPECT_EQ(path.PathAppend(component, path), CUResult_Success);
  EXPECT_EQ(path.PathAppend(path, path), CUResult_Success);
  EXPECT_EQ(Utf8(path), "a/a/b/a/a/b");
}

TEST(CUStringMacPath, ComponentsAreANewArrayOrNone) {
  CUSharedPtr<CUArray> const before = new CUArray;
  CUSharedPtr<CUArray> components = before;
  EXPECT_EQ(Make("\xFF")->PathComponents(&components), CUResult_Failed);
  EXPECT_EQ(components, before);
  EXPECT_EQ(Make("a")->PathComponents(nullptr), CUResult_Failed);
  EXPECT_EQ(Make("a")->PathComponents(&components), CUResult_Success);
  EXPECT_NE(dynamic_cast<CUMutableArray*>(components.Get()), nullptr);

  Pointer const path = Make("/a/b");
  auto const takeApart = [&] {
    components = before;
    path->PathComponents(&components);
  };
  FailEachAllocation(takeApart, [&] {
    EXPECT_TRUE(components == before || components->Count() == 3) << "some without memory";
  });
  EXPECT_EQ(components->Count(), 3u);
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
  struct {
    std::u16string name;
    CUResult status;
    std::u16string expected;
  } const cases[] = {{u"a:b/c:", CUResult_Success, u"a/b/c/"},
                     {u"\u00e9\U0001F600\xD83D", CUResult_Success, u"\u00e9\U0001F600\xD83D"},
                     {u"", CUResult_Success, u""},
                     {std::u16string(255, u':'), CUResult_Success, std::u16string(255, u'/')},
                     {std::u16string(256, u'a'), CUResult_Failed, u"kept"},
                     {std::u16string(65535, u'a'), CUResult_Failed, u"kept"},
                     {std::u16string(65538, u'a'), CUResult_Success, u"aa"}};
  for (auto const& [name, status, expected] : cases) {
    HFSUniStr255 result = {4, {'k', 'e', 'p', 't'}};
    EXPECT_EQ(CUStringMac::GetUnicodeFileName(Make(name), &result), status);
    EXPECT_EQ(std::u16string(result.unicode, result.unicode + result.length), expected);
  }
  HFSUniStr255 result = {1, {'k'}};
  EXPECT_EQ(CUStringMac::GetUnicodeFileName(Pointer(), &result), CUResult_Failed);
  EXPECT_EQ(CUStringMac::GetUnicodeFileName(Make("\xFF"), &result), CUResult_Failed);
  EXPECT_EQ(CUStringMac::GetUnicodeFileName(Make("a"), nullptr), CUResult_Failed);
  EXPECT_EQ(result.length, 1);
}

// Quadratic work over a path of a megabyte would show as a test that does not end.
TEST(CUStringMacPath, LongPaths) {
  for (std::string const piece : {"/abcdefghi", "/\u00e9bcdefgh"}) {
    std::string text;
    for (int i = 0; i < 100000; ++i) text += piece;
    Pointer const path = Make(text);
    CUSharedPtr<CUArray> components;
    ASSERT_EQ(path->PathComponents(&components), CUResult_Success);
    EXPECT_EQ(components->Count(), 100001u);
    EXPECT_EQ("/" + Utf8(components->LastObject()), piece);
    EXPECT_EQ(Outcome(*path, kOperations[0]).size() + piece.size(), text.size());
    EXPECT_EQ("/" + Outcome(*path, kOperations[4]), piece);
    EXPECT_EQ(Outcome(*path, kOperations[3]), "fail");
  }
}
