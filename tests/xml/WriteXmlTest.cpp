#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <string>

#include "QuillmereLib/streams/CUFileStream.h"
#include "QuillmereLib/streams/CUMemoryStream.h"
#include "tests/support/FailingAllocation.h"
#include "tests/support/Files.h"
#include "tests/support/InChild.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/XmlDocuments.h"

namespace {

class OpenDocument : public CUXmlDomDocumentNode {
 public:
  using CUXmlDomDocumentNode::CreateDocumentTreeMac;
  using CUXmlDomDocumentNode::CreateElementTreeMac;
  using CUXmlDomDocumentNode::CreateEntityReferenceTreeMac;
  using CUXmlDomDocumentNode::CreateProcessingInstructionTreeMac;
  using CUXmlDomDocumentNode::CreateTextTreeMac;
  using CUXmlDomDocumentNode::MakeUpChildNodes_CU2OS_Mac;
  using CUXmlDomDocumentNode::MakeUpOSXmlDomElementNodeInstanceMac;
  using CUXmlDomDocumentNode::MakeUpOSXmlDomEntityReferenceNodeInstanceMac;
  using CUXmlDomDocumentNode::MakeUpOSXmlDomNodeInstanceMac;
  using CUXmlDomDocumentNode::MakeUpOSXmlDomProcessingInstructionNodeInstanceMac;
  using CUXmlDomDocumentNode::MakeUpOSXmlDomTextNodeInstanceMac;

  CUSharedPtr<CUXmlDomElementNode> Element(std::string const& name) {
    return CreateElementNode(Make(name));
  }
  CUSharedPtr<CUXmlDomTextNode> Text(std::string const& value) {
    return CreateTextNode(Make(value));
  }
  void Add(CUSharedPtr<CUObject> const& child) { GetChildNodes()->AddObject(child); }
};

void Add(CUSharedPtr<CUXmlDomElementNode> const& parent, CUSharedPtr<CUObject> const& child) {
  parent->GetChildNodes()->AddObject(child);
}

}  // namespace

// What is loaded, what is written of it, and what the tree is after loading that.
TEST(WriteXml, RoundTripsAsTheTableSays) {
  struct {
    std::string source, written, reloaded;
  } const cases[] = {
      {"<?note hello?><root b=\"2\" a=\"1\">one &amp; two<child/>three<?pi data?> "
       "&lt;four&gt;</root>",
       "<?note hello?><root a=\"1\" b=\"2\">one &amp; twothree&lt;four&gt;<child></child><?pi "
       "data?></root>",
       "same"},
      {"<a b='2' A='1'/>", "<a A=\"1\" b=\"2\"></a>", "same"},
      {"<a>&lt;&gt;&amp;&apos;&quot;'\"></a>", "<a>&lt;&gt;&amp;&apos;&quot;&apos;&quot;&gt;</a>",
       "same"},
      {"<a/>", "<a></a>", "same"},
      {"<a>x<b/>y<c/>z</a>", "<a>xyz<b></b><c></c></a>", "same"},
      // White space that comes to stand alone in front of a reference.
      {"<a>x<b/> &lt;</a>", "<a>x&lt;<b></b></a>", "same"},
      {"<a><b/> y&lt;</a>", "<a><b></b> y&lt;</a>", "same"},
      {"<?xml version='1.0'?>\n<a>\n  <b>\n  </b>\n</a>\n", "<?xml version='1.0'?><a><b></b></a>",
       "same"},
      {"<?p  d ?><a>x<?q?><b/></a><?r s?>", "<?p d ?><a>x<?q ?><b></b></a><?r s?>", "same"},
      {"<a b='&lt;&#65;&e;\r\n\t>' c='\"' d=\"'\" e='&quot;'/>",
       "<a b=\"&lt;&#65;&e;\r\n\t>\" c='\"' d=\"'\" e=\"&quot;\"></a>", "same"},
      {"<?xml version='1.0' encoding='latin1'?><a>\xE9</a>",
       "<?xml version='1.0' encoding='UTF-8'?><a>\xC3\xA9</a>", "same"},
      {"<a>1\r\n2\r3</a>", "<a>1\n2\n3</a>", "same"},
      {"<x:\xC3\xA9 x:b='\xF0\x9F\x98\x80'>\xE2\x82\xAC</x:\xC3\xA9>",
       "<x:\xC3\xA9 x:b=\"\xF0\x9F\x98\x80\">\xE2\x82\xAC</x:\xC3\xA9>", "same"},
  };
  for (auto const& c : cases) {
    CUSharedPtr<CUXmlDomDocumentNode> const document = new CUXmlDomDocumentNode;
    ASSERT_EQ(document->LoadXml(StreamOf(c.source)), 0u) << c.source;
    std::string const written = Written(*document);
    EXPECT_EQ(written, c.written);
    EXPECT_EQ(Loaded(written), Show(document));
  }
}

TEST(WriteXml, WritesTreesBuiltByHand) {
  OpenDocument document;
  auto const written = [&](std::initializer_list<CUSharedPtr<CUObject>> children) {
    document.GetChildNodes()->RemoveAllObjects();
    for (auto const& child : children) document.Add(child);
    return Written(document);
  };
  EXPECT_EQ(written({}), "");
  EXPECT_EQ(Loaded(""), "failed ()");
  CUSharedPtr<CUXmlDomElementNode> const element = document.Element("a");
  EXPECT_EQ(written({element}), "<a></a>");
  for (char const* text : {"x", "a<b", " ", "\xC3\xA9"}) Add(element, document.Text(text));
  EXPECT_EQ(written({element}), "<a>xa&lt;b \xC3\xA9</a>");
  EXPECT_EQ(Loaded("<a>xa&lt;b \xC3\xA9</a>"), "(a('xa<b \xC3\xA9'))");
  element->GetChildNodes()->RemoveAllObjects();
  Add(element, document.Text("\t"));
  EXPECT_EQ(Loaded(written({element})), "(a())");
  element->GetChildNodes()->SetArray(nullptr);
  Add(element, document.Text(" <x"));
  EXPECT_EQ(Loaded(written({element})), "(a('<x'))");
  element->GetChildNodes()->RemoveAllObjects();

  // Values stand as they were set; what is no text is left out.
  for (auto const& [key, value] :
       {std::pair("c", "'\""), std::pair("b", "&<x>"), std::pair("a", "\"")}) {
    element->SetAttribute(Make(key), Make(value));
  }
  element->SetAttribute(Make("n"), nullptr);
  element->SetAttribute(Make("o"), Make("\xFF"));
  EXPECT_EQ(written({element}), "<a a='\"' b=\"&<x>\" c=\"'&quot;\"></a>");
  // Nor is a name looked at.
  EXPECT_EQ(written({document.Element("a b"), document.Text("t")}), "<a b></a b>t");
  EXPECT_EQ(Loaded("<a b></a b>t"), "failed ()");
}

// A child that fails is forgotten unless it is the last.
TEST(WriteXml, OnlyTheLastChildDecides) {
  OpenDocument document;
  CUSharedPtr<CUObject> const good = document.Text("t");
  CUSharedPtr<CUObject> const nothing;
  CUSharedPtr<CUObject> const others[] = {document.CreateEntityReferenceNodeNode(Make("amp")),
                                          new CUXmlDomDocumentNode,
                                          new CUXmlDomNode,
                                          new CUXmlDomCharacterDataNode,
                                          new CUXmlDomElementNode,                // without a name
                                          new CUXmlDomTextNode,                   // without a value
                                          new CUXmlDomProcessingInstructionNode,  // without either
                                          document.Text("\xFF"),                  // the null string
                                          document.Element("\xFF"),
                                          Make("no node"),
                                          nothing};
  for (CUSharedPtr<CUObject> const& bad : others) {
    CUSharedPtr<CUXmlDomElementNode> const outer = document.Element("a");
    CUSharedPtr<CUXmlDomElementNode> const inner = document.Element("b");
    for (auto const& child : {good, bad}) Add(inner, child);
    for (auto const& child : {CUSharedPtr<CUObject>(inner), bad, good}) Add(outer, child);
    document.GetChildNodes()->RemoveAllObjects();
    document.Add(bad);
    document.Add(outer);
    EXPECT_EQ(Written(document), "<a>t</a>");
    document.Add(bad);
    EXPECT_EQ(Written(document), "failed");
    document.Add(outer);
    Add(outer, inner);
    EXPECT_EQ(Written(document), "failed");
  }
}

TEST(WriteXml, GivesUpOnTreesThatDoNotEnd) {
  OpenDocument document;
  CUSharedPtr<CUXmlDomElementNode> last = document.Element("a");
  document.Add(last);
  for (int i = 1; i < 1024; ++i) {
    CUSharedPtr<CUXmlDomElementNode> const child = document.Element("a");
    Add(last, child);
    Add(last, document.Text("x"));
    last = child;
  }
  std::string const whole = Written(document);
  EXPECT_EQ(
      Loaded(whole),
      Show(CUSharedPtr<CUObject>(document.GetChildNodes()->ObjectAtIndex(0))).insert(0, "(") + ")");
  Add(last, document.Element("a"));
  Add(last, document.Text("x"));
  EXPECT_EQ(Written(document), "failed");

  CUSharedPtr<CUXmlDomElementNode> const itself = document.Element("b");
  for (int i = 0; i < 2; ++i) Add(itself, itself);
  Add(itself, document.Text("x"));
  document.GetChildNodes()->RemoveAllObjects();
  document.Add(itself);
  document.Add(document.Element("c"));
  EXPECT_EQ(Written(document), "failed");
  itself->GetChildNodes()->RemoveAllObjects();
  EXPECT_EQ(Written(document), "<b></b><c></c>");
}

TEST(WriteXml, SaysWhatTheStreamDoes) {
  CUSharedPtr<CUXmlDomDocumentNode> const document = new CUXmlDomDocumentNode;
  CUSharedPtr<ShortStream> stream = new ShortStream("", kAllAtOnce);
  EXPECT_EQ(document->WriteXml(nullptr), 0x10001u);
  EXPECT_EQ(document->WriteXml(stream), 0u);
  document->GetChildNodes()->AddObject(document->CreateElementNode(Make("a")));
  stream = new ShortStream("", 6);
  EXPECT_EQ(document->WriteXml(stream), 0x10005u);
  EXPECT_EQ(stream->Bytes(), "<a></a");
  try {
    document->WriteXml(new CUMemoryStream(16));
    ADD_FAILURE() << "nothing was thrown";
  } catch (unsigned int code) {
    EXPECT_EQ(code, 5u);
  }

  TemporaryFolder const folder;
  std::string const path = folder.Path() + "/x";
  CUStringMac text(path.c_str(), CUString_CharCode_UTF8);
  {
    CUSharedPtr<CUFileStream> const file =
        new CUFileStream(&text, CUStream_FileMode_Create, CUStream_FileAccess_ReadWrite, false);
    EXPECT_EQ(document->WriteXml(file), 0u);
    EXPECT_EQ(document->WriteXml(file), 0u);
    file->Close();
    EXPECT_EQ(document->WriteXml(file), 0x10005u);
  }
  EXPECT_EQ(ReadFile(path), "<a></a><a></a>");

  // A full disk.
  document->GetChildNodes()->AddObject(document->CreateTextNode(Make(std::string(1 << 20, 'x'))));
  EXPECT_EQ(InChild([&] {
              signal(SIGXFSZ, SIG_IGN);
              rlimit const limit = {1 << 19, 1 << 19};
              setrlimit(RLIMIT_FSIZE, &limit);
              CUSharedPtr<CUFileStream> const file = new CUFileStream(
                  &text, CUStream_FileMode_Create, CUStream_FileAccess_ReadWrite, false);
              return std::to_string(document->WriteXml(file));
            }),
            "65541");
}

TEST(WriteXml, MembersMakeTreesOfTheirKinds) {
  OpenDocument document;
  CFXMLDocumentInfo const info = {nullptr, kCFStringEncodingUTF8};
  CFXMLTreeRef const tree = document.CreateDocumentTreeMac(&info);
  ASSERT_NE(tree, nullptr);
  CUSharedPtr<CUXmlDomNode> const entity = document.CreateEntityReferenceNodeNode(Make("amp"));
  CUSharedPtr<CUXmlDomNode> const none;
  EXPECT_EQ(document.MakeUpOSXmlDomEntityReferenceNodeInstanceMac(entity, tree), 0u);
  EXPECT_EQ(document.MakeUpOSXmlDomNodeInstanceMac(entity, tree), 0x10001u);
  EXPECT_EQ(document.MakeUpOSXmlDomEntityReferenceNodeInstanceMac(new CUXmlDomNode, tree),
            0x10001u);
  EXPECT_EQ(document.MakeUpChildNodes_CU2OS_Mac(entity.Get(), tree), 0u);
  for (auto const member : {&OpenDocument::MakeUpOSXmlDomNodeInstanceMac,
                            &OpenDocument::MakeUpOSXmlDomElementNodeInstanceMac,
                            &OpenDocument::MakeUpOSXmlDomTextNodeInstanceMac,
                            &OpenDocument::MakeUpOSXmlDomProcessingInstructionNodeInstanceMac,
                            &OpenDocument::MakeUpOSXmlDomEntityReferenceNodeInstanceMac}) {
    EXPECT_EQ((document.*member)(none, tree), 0x10001u);
    EXPECT_EQ((document.*member)(entity, nullptr), 0x10001u);
  }
  EXPECT_EQ(document.MakeUpChildNodes_CU2OS_Mac(nullptr, tree), 0x10001u);
  EXPECT_EQ(document.MakeUpChildNodes_CU2OS_Mac(&document, nullptr), 0x10001u);
  EXPECT_EQ(document.CreateTextTreeMac(nullptr), nullptr);
  CFDataRef const data = CFXMLTreeCreateXMLData(nullptr, tree);
  EXPECT_EQ(std::string(reinterpret_cast<char const*>(CFDataGetBytePtr(data)),
                        static_cast<std::size_t>(CFDataGetLength(data))),
            "&amp;");
  CFRelease(data);
  CFRelease(tree);
}

// Text that cannot be written is not cut short, and no part of a document goes missing for lack of
// memory.
TEST(WriteXml, FailsRatherThanWriteLess) {
  OpenDocument document;
  unsigned short broken[] = {'a', 0xD83D, 'b'};
  CUSharedPtr<CUXmlDomElementNode> const element = document.Element("a");
  document.Add(element);
  document.Add(document.Element("b"));
  Add(element, document.CreateTextNode(new CUStringMac(broken, sizeof broken)));
  Add(element, document.Text("x"));
  EXPECT_EQ(Written(document), "failed");

  CUSharedPtr<CUXmlDomDocumentNode> const loaded = new CUXmlDomDocumentNode;
  ASSERT_EQ(
      loaded->LoadXml(StreamOf("<a b='1' c='\xC3\xA9'><d>\xC3\xA9&lt;</d><?p d?></a><?q r?>")), 0u);
  std::string const whole = Written(*loaded);
  std::string written;
  int failed = 0;
  int const failures = FailEachAllocation(
      [&] {
        written = "thrown";
        written = Written(*loaded);
      },
      [&] {
        EXPECT_TRUE(written == whole || written == "failed" || written == "thrown") << written;
        failed += written != whole;
      });
  EXPECT_GT(failures, 25);
  EXPECT_GE(failed, failures - 2);  // the test's own text may be what fails
  EXPECT_EQ(written, whole);
}
