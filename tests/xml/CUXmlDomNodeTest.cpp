#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "QuillmereLib/xml/CUXmlDomDocumentNode.h"
#include "tests/support/CountedObject.h"
#include "tests/support/FailingAllocation.h"
#include "tests/support/XmlDocuments.h"

namespace {

CUSharedPtr<CUXmlDomElementNode> Element(std::string const& name) {
  CUSharedPtr<CUXmlDomElementNode> element = new CUXmlDomElementNode;
  element->SetNodeName(Make(name));
  return element;
}

std::string Dump(CUXmlDomNode* node, int depth = 0, std::string const& before = "") {
  CUStringMac out(before.c_str(), CUString_CharCode_UTF8);
  CUXmlDomNode().DumpDOMNode(node, depth, out);
  return Utf8(out);
}

// The lines of a text node's dump.
std::string TextLines(std::string const& tabs, std::string const& value) {
  std::string lines;
  for (std::string const& line :
       {std::string("Name:#text"), std::string("Type:Node_Text"), "Value:" + value,
        std::string("Attributes:Invalid"), std::string("ChildNodes:Invalid")}) {
    lines += tabs + line + "\n";
  }
  return lines;
}

}  // namespace

// Kind, name, and whether there are children and attributes; then what the setters of name,
// attribute and value say, and what they leave.
TEST(CUXmlDomNode, KindsDifferInWhatTheyHoldAndRefuse) {
  struct Case {
    CUSharedPtr<CUXmlDomNode> node;
    std::string expected;
  };
  Case const cases[] = {
      {new CUXmlDomNode, "0 <null> -- set refused set: new <null> v"},
      {new CUXmlDomElementNode, "1 <null> ca set set refused: new v <null>"},
      {new CUXmlDomCharacterDataNode, "0 <null> -- refused refused set: <null> <null> v"},
      {new CUXmlDomTextNode, "3 #text -- refused refused set: #text <null> v"},
      {new CUXmlDomProcessingInstructionNode, "7 <null> -- set refused set: new <null> v"},
      {new CUXmlDomEntityReferenceNode, "5 <null> -- set refused refused: new <null> <null>"},
      {new CUXmlDomDocumentNode, "9 #document c- refused refused refused: #document <null> <null>"},
  };
  auto const said = [](unsigned int status) {
    return status == 0 ? std::string(" set") : status == 0x10001 ? " refused" : " ?";
  };
  for (Case const& c : cases) {
    CUXmlDomNode& node = *c.node;
    EXPECT_EQ(node.GetNodeValue(), nullptr);
    std::string text = std::to_string(node.GetNodeType()) + " " + Utf8(node.GetNodeName()) + " " +
                       (node.GetChildNodes() != nullptr ? "c" : "-") +
                       (node.GetAttributes() != nullptr ? "a" : "-");
    text += said(node.SetNodeName(Make("new")));
    text += said(node.SetAttribute(Make("k"), Make("v")));
    text += said(node.SetNodeValue(Make("v")));
    text += ": " + Utf8(node.GetNodeName()) + " " + Utf8(node.GetAttribute(Make("k"))) + " " +
            Utf8(node.GetNodeValue());
    EXPECT_EQ(text, c.expected);
  }
}

TEST(CUXmlDomNode, SharesWhatItIsGivenAndWhatItHolds) {
  CUSharedPtr<CUXmlDomElementNode> const element = Element("e");
  CUSharedPtr<CUStringMac> const value = Make("1");
  EXPECT_EQ(element->SetAttribute(nullptr, value), 0x10001u);
  EXPECT_EQ(element->SetAttribute(Make("b"), Make("old")), 0u);
  EXPECT_EQ(element->SetAttribute(Make("b"), value), 0u);
  EXPECT_EQ(element->SetAttribute(Make("none"), nullptr), 0u);
  EXPECT_EQ(element->GetAttribute(Make("b")), value);
  EXPECT_EQ(element->GetAttribute(Make("B")), nullptr);
  EXPECT_EQ(element->GetAttribute(Make("none")), nullptr);
  EXPECT_EQ(element->GetAttribute(nullptr), nullptr);
  EXPECT_EQ(element->GetAttributes()->Count(), 2u);
  EXPECT_EQ(element->GetAttributes(), element->GetAttributes());
  EXPECT_EQ(element->GetChildNodes(), element->GetChildNodes());
  EXPECT_EQ(element->SetNodeName(nullptr), 0u);
  EXPECT_EQ(element->GetNodeName(), nullptr);
  // The fixed name of one node is not that of another.
  CUXmlDomTextNode text;
  *text.GetNodeName() = *value;
  EXPECT_EQ(Utf8(CUXmlDomTextNode().GetNodeName()), "#text");
}

TEST(CUXmlDomNode, DumpsWhatItHoldsLineByLine) {
  CUSharedPtr<CUXmlDomDocumentNode> const document = new CUXmlDomDocumentNode;
  ASSERT_EQ(document->LoadXml(StreamOf("<root b='2' a='1'>x</root>")), 0u);
  std::string const expected =
      "Name:#document\nType:Node_Document\nValue:Invalid\nAttributes:Invalid\nChildNodes:Num=1\n"
      "\tName:root\n\tType:Node_Element\n\tValue:Invalid\n\tAttributes:Num=2\n\t[0]Key:a\n"
      "\t[0]Attribute:1\n\t[1]Key:b\n\t[1]Attribute:2\n\tChildNodes:Num=1\n" +
      TextLines("\t\t", "x");
  EXPECT_EQ(Utf8(document->Description()), expected);
  EXPECT_EQ(Dump(document.Get(), 0, "\xC3\xA9 "), "\xC3\xA9 " + expected);

  CUXmlDomNode plain;
  EXPECT_EQ(Dump(&plain, 2),
            "\t\tName:Invalid\n\t\tType:Node_Unknown\n\t\tValue:Invalid\n\t\tAttributes:Invalid\n"
            "\t\tChildNodes:Invalid\n");
  EXPECT_EQ(Dump(nullptr, 3, "as it was"), "as it was");
  // What is no node counts, and adds nothing; both children stand behind one tab.
  CUSharedPtr<CUXmlDomElementNode> const element = Element("e");
  CUSharedPtr<CUXmlDomTextNode> const text = new CUXmlDomTextNode;
  text->SetNodeValue(Make("t"));
  element->SetAttribute(Make("k"), nullptr);
  for (CUSharedPtr<CUObject> const& child :
       {CUSharedPtr<CUObject>(text), CUSharedPtr<CUObject>(), CUSharedPtr<CUObject>(Make("x")),
        CUSharedPtr<CUObject>(text)}) {
    element->GetChildNodes()->AddObject(child);
  }
  EXPECT_EQ(Dump(element.Get()),
            "Name:e\nType:Node_Element\nValue:Invalid\nAttributes:Num=1\n[0]Key:k\n[0]Attribute:\n"
            "ChildNodes:Num=4\n" +
                TextLines("\t", "t") + TextLines("\t", "t"));
}

TEST(CUXmlDomNode, NamesItsKindsAndIndents) {
  char const* const names[] = {
      "Unknown",       "Element",          "Attribute",     "Text",
      "Cdata_Section", "Entity_Reference", "Entity",        "Processing_Instruction",
      "Comment",       "Document",         "Document_Type", "Document_Fragment",
      "Notation",      "Unknown"};
  CUXmlDomNode node;
  for (unsigned int type = 0; type < 14; ++type) {
    EXPECT_EQ(Utf8(node.GetXmlDomNodeTypeString(static_cast<_CUXmlDomNodeType>(type))),
              std::string("Node_") + names[type]);
  }
  EXPECT_EQ(Utf8(node.GetXmlDomNodeTypeString(static_cast<_CUXmlDomNodeType>(~0u))),
            "Node_Unknown");
  for (auto const& [depth, tabs] : {std::pair(-1, ""), std::pair(0, ""), std::pair(3, "\t\t\t")}) {
    CUStringMac indent = node.IndentString(depth);
    EXPECT_EQ(Utf8(indent), tabs);
  }
}

// The stack of a thread is small beside what recursion through such trees would take.
TEST(CUXmlDomNode, TreesOfAnyDepthAreDestroyedAndDumped) {
  CUSharedPtr<CUXmlDomElementNode> top = Element("top");
  CUSharedPtr<CUXmlDomElementNode> kept;
  int const before = CountedObject::Live;
  CUSharedPtr<CUXmlDomElementNode> last = top;
  for (int i = 0; i < 1000000; ++i) {
    CUSharedPtr<CUXmlDomElementNode> const child = new CUXmlDomElementNode;
    last->GetChildNodes()->AddObject(child);
    if (i % 100000 == 0) last->GetChildNodes()->AddObject(new CountedObject);
    if (i == 500000) kept = child;
    last = child;
  }
  last->GetChildNodes()->AddObject(new CountedObject);
  last = nullptr;
  std::string const dump = Dump(top.Get());
  EXPECT_NE(dump.find("\n" + std::string(1025, '\t') + "Name:"), std::string::npos);
  EXPECT_EQ(dump.find("\n" + std::string(1026, '\t')), std::string::npos);
  EXPECT_EQ(CountedObject::Live, before + 11);
  top = nullptr;
  EXPECT_EQ(CountedObject::Live, before + 5);  // those below the one that is kept
  std::thread([&kept] { kept = nullptr; }).join();
  EXPECT_EQ(CountedObject::Live, before);
}

TEST(CUXmlDomNode, DumpsOfTreesThatHoldThemselvesEnd) {
  CUSharedPtr<CUXmlDomElementNode> const outer = Element("outer");
  CUSharedPtr<CUXmlDomElementNode> const inner = Element("inner");
  for (int i = 0; i < 2; ++i) outer->GetChildNodes()->AddObject(inner);
  inner->GetChildNodes()->AddObject(outer);
  std::string const dump = Utf8(outer->Description());
  std::size_t names = 0;
  for (std::size_t at = 0; (at = dump.find("Name:", at)) != std::string::npos; ++at) ++names;
  EXPECT_EQ(names, 5u);  // the outer, and twice the inner with the outer's lines alone
  inner->GetChildNodes()->RemoveAllObjects();
}

TEST(CUXmlDomNode, RunsOutOfMemoryWithoutHarm) {
  CUSharedPtr<CUXmlDomDocumentNode> const document = new CUXmlDomDocumentNode;
  ASSERT_EQ(document->LoadXml(StreamOf("<a b='1'>x<c/><?p d?></a>")), 0u);
  std::string const whole = Dump(document.Get());
  CUSharedPtr<CUStringMac> const key = Make("k");
  CUSharedPtr<CUStringMac> text;
  int const dumped = FailEachAllocation(
      [&] {
        text = nullptr;
        text = document->Description();
      },
      [&] { EXPECT_TRUE(text == nullptr || Utf8(text) == whole); });
  EXPECT_GT(dumped, 50);
  EXPECT_EQ(Utf8(text), whole);

  std::vector<std::function<void()>> const makers = {
      [] { CUSharedPtr<CUXmlDomNode>(new CUXmlDomElementNode); },
      [] { CUSharedPtr<CUXmlDomNode>(new CUXmlDomTextNode); },
      [] { CUSharedPtr<CUXmlDomNode>(new CUXmlDomDocumentNode); },
      [&] { CUXmlDomElementNode().SetAttribute(key, key); }};
  for (auto const& make : makers) EXPECT_GE(FailEachAllocation(make, [] {}), 3);
  // Without memory to put them in order, the children go all the same.
  CUSharedPtr<CUXmlDomElementNode> top = Element("a");
  top->GetChildNodes()->AddObject(Element("b"));
  CUSharedPtr<CUObject> const child = top->GetChildNodes()->ObjectAtIndex(0);
  dynamic_cast<CUXmlDomNode&>(*child).GetChildNodes()->AddObject(Element("c"));
  FailingAllocation const failing(1);
  top = nullptr;
}
