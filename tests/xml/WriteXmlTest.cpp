#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <string>
#include <utility>

#include "QuillmereLib/streams/CUFileStream.h"
#include "QuillmereLib/streams/CUMemoryStream.h"
#include "tests/support/FailingAllocation.h"
#include "tests/support/Files.h"
#include "tests/support/InChild.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/ThrownCode.h"
#include "tests/support/XmlDocuments.h"

namespace {

class OpenDocument : public CUXmlDomDocumentNode {
 public:
  using CUXmlDomDocumentNode::CreateDocumentTreeMac;
  using CUXmlDomDocumentNode::CreateTextTreeMac;
  using CUXmlDomDocumentNode::MakeUpChildNodes_CU2OS_Mac;
  using CUXmlDomDocumentNode::MakeUpOSXmlDomElementNodeInstanceMac;
  using CUXmlDomDocumentNode::MakeUpOSXmlDomEntityReferenceNodeInstanceMac;
  using CUXmlDomDocumentNode::MakeUpOSXmlDomNodeInstanceMac;
  using CUXmlDomDocumentNode::MakeUpOSXmlDomProcessingInstructionNodeInstanceMac;
  using CUXmlDomDocumentNode::MakeUpOSXmlDomTextNodeInstanceMac;
};

// What is written of a document with these children.
std::string WrittenOf(std::initializer_list<CUSharedPtr<CUObject>> children) {
  CUXmlDomDocumentNode document;
  AddChildren(document, children);
  return Written(document);
}

}  // namespace

// What is loaded, the tree that it makes, and what is written of that, which makes the same tree.
TEST(WriteXml, DocumentsMakeTheRoundTrip) {
  struct {
    std::string source, tree, written;
  } const cases[] = {
      {"<?note hello?><root b=\"2\" a='1'>one &amp; two<child/>three<?pi data?> "
       "&lt;four&gt;</root>",
       "(?note=hello root[a=1 b=2]('one & twothree<four>' child() ?pi=data))",
       "<?note hello?><root a=\"1\" b=\"2\">one &amp; twothree&lt;four&gt;<child></child>"
       "<?pi data?></root>"},
      {"<a/>", "(a())", "<a></a>"},
      {"<a>&amp;</a>", "(a('&'))", "<a>&amp;</a>"},
      {"<a><b/>x<c/>y</a>", "(a(b() 'xy' c()))", "<a><b></b>xy<c></c></a>"},
      {"<a><b/>&quot;<c/>x&apos;<?p?></a>", "(a(b() '\"x'' c() ?p=))",
       "<a><b></b>&quot;x&apos;<c></c><?p ?></a>"},
      {"<a> x </a>", "(a(' x '))", "<a> x </a>"},
      {"<a> &lt;b&gt; &amp;amp;'\"></a>", "(a('<b>&amp;'\">'))",
       "<a>&lt;b&gt;&amp;amp;&apos;&quot;&gt;</a>"},
      // White space that comes to stand alone in front of a reference.
      {"<a>x<b/> &lt;</a>", "(a('x<' b()))", "<a>x&lt;<b></b></a>"},
      {"<?xml version='1.0'?>\n<a>\n\t<b>\r\n x\ry\r\n</b>\n\t<c/> \n</a>\n<?p  q ?>\n",
       "(?xml=version='1.0' a(b('\n x\ny\n') c()) ?p=q )",
       "<?xml version='1.0'?><a><b>\n x\ny\n</b><c></c></a><?p q ?>"},
      {"<a xmlns:x='u' x:b='&lt;&#65;&e;\r\n>' c='\"' d=\"'\"/>",
       "(a[c=\" d=' x:b=&lt;&#65;&e;\r\n> xmlns:x=u]())",
       "<a c='\"' d=\"'\" x:b=\"&lt;&#65;&e;\r\n>\" xmlns:x=\"u\"></a>"},
      {"<x:\u00e9>\u20ac\U0001F600</x:\u00e9>", "(x:\u00e9('\u20ac\U0001F600'))",
       "<x:\u00e9>\u20ac\U0001F600</x:\u00e9>"},
      // Keys in the order of the collation, in which case comes last.
      {"<a B='1' b='2' a='3' _='4'/>", "(a[_=4 a=3 b=2 B=1]())",
       "<a _=\"4\" a=\"3\" b=\"2\" B=\"1\"></a>"},
  };
  for (auto const& [source, tree, written] : cases) {
    CUSharedPtr<CUXmlDomDocumentNode> const document = new CUXmlDomDocumentNode;
    std::string const said = Said(document->LoadXml(StreamOf(source)));
    EXPECT_EQ(said + Show(document), tree) << source;
    EXPECT_EQ(Written(*document), written) << source;
    EXPECT_EQ(Loaded(written), tree) << source;
  }
}

TEST(WriteXml, WritesTreesBuiltByHand) {
  EXPECT_EQ(WrittenOf({}), "");
  CUSharedPtr<CUXmlDomElementNode> const element = ElementNode("a");
  for (char const* text : {"x", "a<b", " ", "\u00e9"}) AddChildren(*element, {TextNode(text)});
  EXPECT_EQ(WrittenOf({element}), "<a>xa&lt;b \u00e9</a>");
  element->GetChildNodes()->RemoveAllObjects();

  // Values stand as they were set; what is no text is left out.
  for (auto const& [key, value] :
       {std::pair("c", "'\""), std::pair("b", "&<x>"), std::pair("a", "\"")}) {
    element->SetAttribute(Make(key), Make(value));
  }
  element->SetAttribute(Make("n"), nullptr);
  element->SetAttribute(Make("o"), Make("\xFF"));
  EXPECT_EQ(WrittenOf({element}), "<a a='\"' b=\"&<x>\" c=\"'&quot;\"></a>");
  // Nor is a name looked at.
  EXPECT_EQ(WrittenOf({ElementNode("a b"), TextNode("t")}), "<a b></a b>t");
}

// A child that fails is forgotten unless it is the last.
TEST(WriteXml, OnlyTheLastChildDecides) {
  CUSharedPtr<CUObject> const good = TextNode("t");
  CUSharedPtr<CUObject> const others[] = {EntityNode("amp"),
                                          new CUXmlDomDocumentNode,
                                          new CUXmlDomCharacterDataNode,
                                          new CUXmlDomElementNode,                // without a name
                                          new CUXmlDomTextNode,                   // without a value
                                          new CUXmlDomProcessingInstructionNode,  // without either
                                          TextNode("\xFF"),                       // the null string
                                          ElementNode("\xFF"),
                                          Make("no node"),
                                          nullptr};
  for (CUSharedPtr<CUObject> const& bad : others) {
    auto const outer = ElementNode("a"), inner = ElementNode("b");
    AddChildren(*inner, {good, bad});
    AddChildren(*outer, {inner, bad, good});
    EXPECT_EQ(WrittenOf({bad, outer}), "<a>t</a>");
    EXPECT_EQ(WrittenOf({outer, bad}), "failed");
    AddChildren(*outer, {inner});
    EXPECT_EQ(WrittenOf({outer}), "failed");
  }
}

TEST(WriteXml, GivesUpOnTreesThatDoNotEnd) {
  CUSharedPtr<CUXmlDomElementNode> const first = ElementNode("a");
  CUSharedPtr<CUXmlDomElementNode> last = first;
  for (int i = 1; i < 1024; ++i) {
    CUSharedPtr<CUXmlDomElementNode> const child = ElementNode("a");
    AddChildren(*last, {child, TextNode("x")});
    last = child;
  }
  EXPECT_EQ(WrittenOf({first}).size(), 1024 * 7u + 1023);
  AddChildren(*last, {ElementNode("a"), TextNode("x")});
  EXPECT_EQ(WrittenOf({first}), "failed");

  CUSharedPtr<CUXmlDomElementNode> const itself = ElementNode("b");
  AddChildren(*itself, {itself, itself, TextNode("x")});
  EXPECT_EQ(WrittenOf({itself, ElementNode("c")}), "failed");
  itself->GetChildNodes()->RemoveAllObjects();
  EXPECT_EQ(WrittenOf({itself, ElementNode("c")}), "<b></b><c></c>");
}

TEST(WriteXml, SaysWhatTheStreamDoes) {
  CUXmlDomDocumentNode document;
  CUSharedPtr<ShortStream> stream = new ShortStream("", 6);
  EXPECT_EQ(document.WriteXml(nullptr), 0x10001u);
  EXPECT_EQ(document.WriteXml(stream), 0u);
  AddChildren(document, {ElementNode("a")});
  EXPECT_EQ(document.WriteXml(stream), 0x10005u);
  EXPECT_EQ(stream->Bytes(), "<a></a");
  EXPECT_EQ(ThrownCode([&] { document.WriteXml(new CUMemoryStream(16)); }), 5u);

  TemporaryFolder const folder;
  std::string const path = folder.Path() + "/x";
  auto const create = [&]() -> CUSharedPtr<CUFileStream> {
    return new CUFileStream(Make(path).Get(), CUStream_FileMode_Create,
                            CUStream_FileAccess_ReadWrite, false);
  };
  CUSharedPtr<CUFileStream> const file = create();
  EXPECT_EQ(document.WriteXml(file), 0u);
  EXPECT_EQ(document.WriteXml(file), 0u);
  file->Close();
  EXPECT_EQ(document.WriteXml(file), 0x10005u);
  EXPECT_EQ(ReadFile(path), "<a></a><a></a>");

  // A full disk.
  AddChildren(document, {TextNode(std::string(1 << 20, 'x'))});
  EXPECT_EQ(InChild([&] {
              signal(SIGXFSZ, SIG_IGN);
              rlimit const limit = {1 << 19, 1 << 19};
              setrlimit(RLIMIT_FSIZE, &limit);
              return std::to_string(document.WriteXml(create()));
            }),
            "65541");
}

TEST(WriteXml, MembersMakeTreesOfTheirKinds) {
  OpenDocument document;
  CFXMLDocumentInfo const info = {nullptr, kCFStringEncodingUTF8};
  CFXMLTreeRef const tree = document.CreateDocumentTreeMac(&info);
  CUSharedPtr<CUXmlDomNode> const entity = EntityNode("amp"), none;
  EXPECT_EQ(document.MakeUpOSXmlDomEntityReferenceNodeInstanceMac(entity, tree), 0u);
  EXPECT_EQ(document.MakeUpOSXmlDomNodeInstanceMac(entity, tree), 0x10001u);
  EXPECT_EQ(document.MakeUpOSXmlDomEntityReferenceNodeInstanceMac(new CUXmlDomNode, tree),
            0x10001u);
  for (auto const member : {&OpenDocument::MakeUpOSXmlDomNodeInstanceMac,
                            &OpenDocument::MakeUpOSXmlDomElementNodeInstanceMac,
                            &OpenDocument::MakeUpOSXmlDomTextNodeInstanceMac,
                            &OpenDocument::MakeUpOSXmlDomProcessingInstructionNodeInstanceMac,
                            &OpenDocument::MakeUpOSXmlDomEntityReferenceNodeInstanceMac}) {
    EXPECT_EQ((document.*member)(none, tree), 0x10001u);
    EXPECT_EQ((document.*member)(entity, nullptr), 0x10001u);
  }
  EXPECT_EQ(document.MakeUpChildNodes_CU2OS_Mac(entity.Get(), tree), 0u);
  EXPECT_EQ(document.MakeUpChildNodes_CU2OS_Mac(nullptr, tree), 0x10001u);
  EXPECT_EQ(document.MakeUpChildNodes_CU2OS_Mac(&document, nullptr), 0x10001u);
  EXPECT_EQ(document.CreateTextTreeMac(nullptr), nullptr);
  CFDataRef const data = CFXMLTreeCreateXMLData(nullptr, tree);
  EXPECT_EQ(std::string(CFDataGetBytePtr(data), CFDataGetBytePtr(data) + CFDataGetLength(data)),
            "&amp;");
  CFRelease(data);
  CFRelease(tree);
}

// Text that cannot be written is not cut short, and no part of a document goes missing for lack of
// memory.
TEST(WriteXml, FailsRatherThanWriteLess) {
  CUSharedPtr<CUXmlDomElementNode> const element = ElementNode("a");
  CUSharedPtr<CUXmlDomTextNode> const broken = TextNode("");
  broken->SetNodeValue(Make(u"a\xD83D\u0062"));
  AddChildren(*element, {broken, TextNode("x")});
  EXPECT_EQ(WrittenOf({element, ElementNode("b")}), "failed");

  CUXmlDomDocumentNode document;
  ASSERT_EQ(document.LoadXml(StreamOf("<a b='1' c='\u00e9'><d>\u00e9&lt;</d><?p d?></a>")), 0u);
  std::string const whole = Written(document);
  std::string written;
  auto const write = [&] {
    written = "thrown";
    written = Written(document);
  };
  int const failures = FailEachAllocation(write, [&] {
    EXPECT_TRUE(written == whole || written == "failed" || written == "thrown") << written;
  });
  EXPECT_GT(failures, 25);
}
