// Documents from streams and to them.

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <initializer_list>
#include <string>
#include <utility>

#include "QuillmereLib/streams/CUMemoryStream.h"
#include "tests/support/InChild.h"
#include "tests/support/ThrownCode.h"
#include "tests/support/XmlDocuments.h"

namespace {

std::string Repeated(std::string const& text, int count) {
  std::string all;
  for (int i = 0; i < count; ++i) all += text;
  return all;
}

// What is written of a document with these children.
std::string WrittenOf(std::initializer_list<CUSharedPtr<CUObject>> children) {
  CUXmlDomDocumentNode document;
  AddChildren(document, children);
  return Written(document);
}

}  // namespace

TEST(LoadXml, StopsAtWhatItDoesNotTake) {
  std::pair<char const*, char const*> const cases[] = {
      // What is not well formed changes nothing, whatever stands in front.
      {"", "()"},
      {"<?p x?><a/><b/>", "()"},
      // Else what is complete in front of it stays.
      {"<?p x?><a>t<b/>&#65;</a>", "(?p=x)"},
      {"<?p x?><a><b>&lt;&Amp;</b>t</a>", "(?p=x)"},
      {"<?p x?><a/><?q y?><!--c-->", "(?p=x a() ?q=y)"},
      {"<?p x?><a><b><![CDATA[x]]></b></a>", "(?p=x)"},
      {"<?p x?><!DOCTYPE a SYSTEM 'file:///etc/passwd' [<!ENTITY e 'x'>]><a>&e;</a>", "(?p=x)"},
  };
  for (auto const& [input, left] : cases) {
    EXPECT_EQ(Loaded(input), std::string("failed ") + left) << input;
  }

  // No entity is expanded, and a billion of them cost nothing.
  std::string laughs = "<!DOCTYPE a [<!ENTITY l0 'ha'>";
  for (int i = 1; i < 10; ++i) {
    std::string const before = "&l" + std::to_string(i - 1) + ";";
    laughs += "<!ENTITY l" + std::to_string(i) + " '" + Repeated(before, 10) + "'>";
  }
  EXPECT_EQ(Loaded(laughs + "]><a b='&l9;'>&l9;</a>"), "failed ()");

  // What is taken comes behind what stands there.
  CUSharedPtr<CUXmlDomDocumentNode> const document = new CUXmlDomDocumentNode;
  for (char const* const bytes : {"<a/>", "<a/>", "<b>", "<?p x?><c>&u;</c>"}) {
    document->LoadXml(StreamOf(bytes));
  }
  EXPECT_EQ(Show(document), "(a() a() ?p=x)");
}

TEST(LoadXml, ReadsTheWholeStreamOrNothing) {
  std::string const text = "<?p x?><a/>";
  CUSharedPtr<CUStream> const narrow = StreamOf(text);
  ASSERT_EQ(narrow->SetReadaleRange({7, 4}), CUResult_Success);
  for (auto const& stream : {CUSharedPtr<CUStream>(), StreamOf(text, text.size() - 1), narrow,
                             CUSharedPtr<CUStream>(new CUMemoryStream)}) {
    EXPECT_EQ(LoadedFrom(stream), "failed ()");
  }
  EXPECT_EQ(ThrownCode([] { LoadedFrom(new CUStream); }), 5u);
}

// The work is in proportion to the document. A square of it would take longer than a test may.
TEST(LoadXml, TakesDocumentsOfManyPieces) {
  std::string attributes;
  for (int i = 0; i < 100000; ++i) attributes += " b" + std::to_string(i) + "='1'";
  std::pair<std::string, std::string> const cases[] = {
      {"<a>" + Repeated("&amp;", 300000) + "</a>", "(a('" + Repeated("&", 300000) + "'))"},
      {"<a>" + Repeated("<?p?>&lt;", 60000) + "</a>", "(a(?p= '" + Repeated("<", 60000) + "' ?p="},
      {"<a" + attributes + "/>", "(a[b0=1 b1=1 b10=1 "}};
  for (auto const& [bytes, start] : cases) {
    CUSharedPtr<CUXmlDomDocumentNode> const document = new CUXmlDomDocumentNode;
    ASSERT_EQ(document->LoadXml(StreamOf(bytes)), 0u);
    EXPECT_EQ(Show(document).substr(0, start.size()), start);
    EXPECT_GT(Utf8(document->Description()).size(), 100u);
    EXPECT_GE(Written(*document).size(), bytes.size());
  }
}

TEST(LoadXml, DeepDocumentsNeedLittleStack) {
  auto const nested = [](int levels) {
    return Repeated("<a>", levels) + "x" + Repeated("</a>", levels);
  };
  EXPECT_EQ(InChild([&] {
              rlimit const small = {4 << 20, 4 << 20};
              setrlimit(RLIMIT_STACK, &small);
              CUXmlDomDocumentNode document;
              document.LoadXml(StreamOf(nested(1024)));
              std::string const same = Written(document) == nested(1024) ? "same" : "other";
              return same + Loaded(nested(1025)) + Loaded(nested(2000000));
            }),
            "samefailed ()failed ()");
}

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
      {"<a> &lt;b&gt; &amp;amp;'\"></a>", "(a('<b>&amp;'\">'))",
       "<a>&lt;b&gt;&amp;amp;&apos;&quot;&gt;</a>"},
      // White space that comes to stand alone in front of a reference.
      {"<a>x<b/> &lt;</a>", "(a('x<' b()))", "<a>x&lt;<b></b></a>"},
      // Two texts, each around an element that has its own to merge.
      {"<a>x<b>1<c>2</c>3</b>y</a>", "(a('xy' b('13' c('2'))))", "<a>xy<b>13<c>2</c></b></a>"},
      {"<?xml version='1.0'?>\n<a>\n\t<b>\r\n x\ry\r\n</b>\n\t<c/> \n</a>\n<?p  q ?>\n",
       "(?xml=version='1.0' a(b('\n x\ny\n') c()) ?p=q )",
       "<?xml version='1.0'?><a><b>\n x\ny\n</b><c></c></a><?p q ?>"},
      {"<a xmlns:x='u' x:b='&lt;&#65;&e;\r\n>' c='\"' d=\"'\"/>",
       "(a[c=\" d=' x:b=&lt;&#65;&e;\r\n> xmlns:x=u]())",
       "<a c='\"' d=\"'\" x:b=\"&lt;&#65;&e;\r\n>\" xmlns:x=\"u\"></a>"},
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
  CUXmlDomDocumentNode document;
  EXPECT_TRUE(document.CreateElementNode(nullptr) == nullptr &&
              document.CreateTextNode(nullptr) == nullptr &&
              document.CreateEntityReferenceNodeNode(nullptr) == nullptr &&
              document.CreateProcessingInstructionNode(Make("p"), nullptr) == nullptr &&
              document.CreateProcessingInstructionNode(nullptr, Make("d")) == nullptr);
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

  // Text that cannot be written is not cut short.
  CUSharedPtr<CUXmlDomTextNode> const broken = TextNode("");
  broken->SetNodeValue(Make(u"a\xD83D\u0062"));
  AddChildren(*element, {broken, TextNode("x")});
  EXPECT_EQ(WrittenOf({element, ElementNode("b")}), "failed");
}

// A child that fails is forgotten unless it is the last.
TEST(WriteXml, OnlyTheLastChildDecides) {
  CUSharedPtr<CUObject> const good = TextNode("t");
  CUSharedPtr<CUObject> const others[] = {
      CUXmlDomDocumentNode().CreateEntityReferenceNodeNode(Make("amp")),
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
}
