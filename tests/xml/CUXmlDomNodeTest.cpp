#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <utility>

#include "tests/support/CountedObject.h"
#include "tests/support/FailingAllocation.h"
#include "tests/support/XmlDocuments.h"

namespace {

std::string Dump(CUXmlDomNode* node, int depth = 0, std::string const& before = "") {
  CUStringMac out(before.c_str(), CUString_CharCode_UTF8);
  CUXmlDomNode().DumpDOMNode(node, depth, out);
  return Utf8(out);
}

}  // namespace

// Kind, name, and whether there are children and attributes; then what the setters of name,
// attribute and value say, a comma behind each, and what they leave.
TEST(CUXmlDomNode, KindsDifferInWhatTheyHoldAndRefuse) {
  std::pair<CUSharedPtr<CUXmlDomNode>, char const*> const cases[] = {
      {new CUXmlDomNode, "0 <null> -- ,failed ,, new <null> v"},
      {new CUXmlDomElementNode, "1 <null> ca ,,failed , new v <null>"},
      {new CUXmlDomTextNode, "3 #text -- failed ,failed ,, #text <null> v"},
      {new CUXmlDomProcessingInstructionNode, "7 <null> -- ,failed ,, new <null> v"},
      {new CUXmlDomEntityReferenceNode, "5 <null> -- ,failed ,failed , new <null> <null>"},
      {new CUXmlDomDocumentNode, "9 #document c- failed ,failed ,failed , #document <null> <null>"},
  };
  for (auto const& [node, expected] : cases) {
    EXPECT_EQ(node->GetNodeValue(), nullptr);
    std::string text = std::to_string(node->GetNodeType()) + " " + Utf8(node->GetNodeName()) + " ";
    text += node->GetChildNodes() != nullptr ? "c" : "-";
    text += node->GetAttributes() != nullptr ? "a " : "- ";
    text += Said(node->SetNodeName(Make("new"))) + ",";
    text += Said(node->SetAttribute(Make("k"), Make("v"))) + ",";
    text += Said(node->SetNodeValue(Make("v"))) + ", ";
    text += Utf8(node->GetNodeName()) + " " + Utf8(node->GetAttribute(Make("k"))) + " ";
    EXPECT_EQ(text + Utf8(node->GetNodeValue()), expected);
  }
}

TEST(CUXmlDomNode, DumpsWhatItHoldsLineByLine) {
  CUSharedPtr<CUXmlDomDocumentNode> const document = new CUXmlDomDocumentNode;
  ASSERT_EQ(document->LoadXml(StreamOf("<root b='2' a='1'>x</root>")), 0u);
  std::string const expected =
      "Name:#document\nType:Node_Document\nValue:Invalid\nAttributes:Invalid\nChildNodes:Num=1\n"
      "\tName:root\n\tType:Node_Element\n\tValue:Invalid\n\tAttributes:Num=2\n\t[0]Key:a\n"
      "\t[0]Attribute:1\n\t[1]Key:b\n\t[1]Attribute:2\n\tChildNodes:Num=1\n"
      "\t\tName:#text\n\t\tType:Node_Text\n\t\tValue:x\n\t\tAttributes:Invalid\n\t\tChildNodes:"
      "Invalid\n";
  EXPECT_EQ(Utf8(document->Description()), expected);
  EXPECT_EQ(Dump(document.Get(), 0, "\u00e9 "), "\u00e9 " + expected);
  EXPECT_EQ(Dump(nullptr, 3, "as it was"), "as it was");
}

// The stack of a thread is small beside what recursion through such trees would take.
TEST(CUXmlDomNode, TreesOfAnyDepthAreDestroyedAndDumped) {
  CUSharedPtr<CUXmlDomElementNode> top = ElementNode("top");
  CUSharedPtr<CUXmlDomElementNode> kept;
  int const before = CountedObject::Live;
  CUSharedPtr<CUXmlDomElementNode> last = top;
  for (int i = 0; i < 1000000; ++i) {
    CUSharedPtr<CUXmlDomElementNode> const child = new CUXmlDomElementNode;
    AddChildren(*last, {child});
    if (i % 100000 == 0) AddChildren(*last, {new CountedObject});
    if (i == 500000) kept = child;
    last = child;
  }
  AddChildren(*last, {new CountedObject});
  last = nullptr;
  std::string const dump = Dump(top.Get());
  EXPECT_NE(dump.find("\n" + std::string(1025, '\t') + "Name:"), std::string::npos);
  EXPECT_EQ(dump.find("\n" + std::string(1026, '\t')), std::string::npos);
  EXPECT_EQ(CountedObject::Live, before + 11);
  top = nullptr;
  EXPECT_EQ(CountedObject::Live, before + 5);  // those below the one that is kept
  std::thread([&kept] { kept = nullptr; }).join();
  EXPECT_EQ(CountedObject::Live, before);

  // Without memory to put them in order, the children go all the same.
  top = ElementNode("innermost");
  AddChildren(*top, {new CountedObject});
  for (int i = 0; i < 100; ++i) {
    CUSharedPtr<CUXmlDomElementNode> const child = std::exchange(top, ElementNode("parent"));
    AddChildren(*top, {child});
  }
  FailingAllocation const failing(1);
  top = nullptr;
  EXPECT_EQ(CountedObject::Live, before);
}

TEST(CUXmlDomNode, DumpsOfTreesThatHoldThemselvesEnd) {
  auto const outer = ElementNode("outer"), inner = ElementNode("inner");
  AddChildren(*outer, {inner, nullptr, inner, Make("no node")});
  AddChildren(*inner, {outer});
  std::string const dump = Utf8(outer->Description());
  std::size_t names = 0;
  for (std::size_t at = 0; (at = dump.find("Name:", at)) != std::string::npos; ++at) ++names;
  EXPECT_EQ(names, 5u);  // the outer, and twice the inner with the outer's lines alone
  inner->GetChildNodes()->RemoveAllObjects();
}
