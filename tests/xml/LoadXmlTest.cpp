#include <gtest/gtest.h>
#include <pthread.h>

#include <string>
#include <vector>

#include "QuillmereLib/streams/CUFileStream.h"
#include "QuillmereLib/streams/CUMemoryStream.h"
#include "tests/support/FailingAllocation.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/XmlDocuments.h"

namespace {

struct Case {
  std::string input, expected;
};

// Opens what is protected to the tests.
class OpenDocument : public CUXmlDomDocumentNode {
 public:
  using CUXmlDomDocumentNode::CombineCuDomXmlEntityReferenceAndTextNodeMac;
  using CUXmlDomDocumentNode::CreateCFDataFromStreamMac;
  using CUXmlDomDocumentNode::MakeUpChildNodes_OS2CU_Mac;
  using CUXmlDomDocumentNode::MakeUpCuXmlDomElementNodeInstanceMac;
  using CUXmlDomDocumentNode::MakeUpCuXmlDomEntityReferenceNodeInstanceMac;
  using CUXmlDomDocumentNode::MakeUpCuXmlDomNodeInstanceMac;
  using CUXmlDomDocumentNode::MakeUpCuXmlDomProcessingInstructionNodeInstanceMac;
  using CUXmlDomDocumentNode::MakeUpCuXmlDomTextNodeInstanceMac;
};

std::string Repeated(std::string const& text, int count) {
  std::string all;
  for (int i = 0; i < count; ++i) all += text;
  return all;
}

}  // namespace

TEST(LoadXml, MakesTheTreeThatIsTold) {
  Case const cases[] = {
      {"<?note hello?><root b=\"2\" a=\"1\">one &amp; two<child/>three<?pi data?> "
       "&lt;four&gt;</root>",
       "(?note=hello root[a=1 b=2]('one & twothree<four>' child() ?pi=data))"},
      {"<a></a>", "(a())"},
      {"<a>&amp;</a>", "(a('&'))"},
      {"<a>x<b/>y</a>", "(a('xy' b()))"},
      {"<a><b/>x<c/>y</a>", "(a(b() 'xy' c()))"},
      {"<a><b/>&quot;<c/>x&apos;<?p?></a>", "(a(b() '\"x'' c() ?p=))"},
      {"<a> x </a>", "(a(' x '))"},
      {"<a> &lt;b&gt; &amp;amp;</a>", "(a('<b>&amp;'))"},
      {"<?xml version='1.0'?>\n<a>\n\t<b>\r\n x\r\n</b>\n\t<c/> \n</a>\n<?p q?>\n",
       "(?xml=version='1.0' a(b('\n x\n') c()) ?p=q)"},
      {"<a xmlns:x='u' x:b='&lt;&quot;&#65;&e;\r\n'/>",
       "(a[x:b=&lt;&quot;&#65;&e;\r\n xmlns:x=u]())"},
      {"<x:a>\xC3\xA9\xF0\x9F\x98\x80</x:a>", "(x:a('\xC3\xA9\xF0\x9F\x98\x80'))"},
      // Keys in the order of the collation, in which case comes last.
      {"<a B='1' b='2' a='3' _='4'/>", "(a[_=4 a=3 b=2 B=1]())"},
  };
  for (Case const& c : cases) EXPECT_EQ(Loaded(c.input), c.expected) << c.input;
}

TEST(LoadXml, StopsAtWhatItDoesNotTake) {
  Case const cases[] = {
      // What is not well formed changes nothing, whatever stands in front.
      {"", "()"},
      {"<?p x?>", "()"},
      {"<?p x?><a>", "()"},
      {"<?p x?><a/><b/>", "()"},
      {"<?p x?><a b='1' b='2'/>", "()"},
      {"<?p x?><a>\xFF</a>", "()"},
      // Else what is complete in front of it stays.
      {"<?p x?><a>&unknown;</a>", "(?p=x)"},
      {"<?p x?><a>t<b/>&#65;</a>", "(?p=x)"},
      {"<?p x?><a><b>&lt;&Amp;</b>t</a>", "(?p=x)"},
      {"<?p x?><!--c--><a/>", "(?p=x)"},
      {"<?p x?><a/><?q y?><!--c-->", "(?p=x a() ?q=y)"},
      {"<?p x?><a><!--c--></a>", "(?p=x)"},
      {"<?p x?><a><b><![CDATA[x]]></b></a>", "(?p=x)"},
      {"<?p x?><!DOCTYPE a><a/>", "(?p=x)"},
      {"<?p x?><!DOCTYPE a SYSTEM 'file:///etc/passwd' [<!ENTITY e 'x'>]><a>&e;</a>", "(?p=x)"},
  };
  for (Case const& c : cases) EXPECT_EQ(Loaded(c.input), "failed " + c.expected) << c.input;

  // No entity is expanded, and a billion of them cost nothing.
  std::string laughs = "<!DOCTYPE a [<!ENTITY l0 'ha'>";
  for (int i = 1; i < 10; ++i) {
    laughs += "<!ENTITY l" + std::to_string(i) + " '" +
              Repeated("&l" + std::to_string(i - 1) + ";", 10) + "'>";
  }
  EXPECT_EQ(Loaded(laughs + "]><a b='&l9;'>&l9;</a>"), "failed ()");
}

TEST(LoadXml, AppendsToWhatStandsThere) {
  CUSharedPtr<CUXmlDomDocumentNode> const document = new CUXmlDomDocumentNode;
  CUSharedPtr<CUStream> const stream = StreamOf("<a/>");
  EXPECT_EQ(document->LoadXml(stream), 0u);
  EXPECT_EQ(document->LoadXml(stream), 0u);
  EXPECT_EQ(document->LoadXml(StreamOf("<b>")), 0x10001u);
  EXPECT_EQ(document->LoadXml(StreamOf("<?p x?><c>&u;</c>")), 0x10001u);
  EXPECT_EQ(Show(document), "(a() a() ?p=x)");
}

TEST(LoadXml, ReadsTheWholeStreamOrNothing) {
  CUSharedPtr<CUXmlDomDocumentNode> const document = new CUXmlDomDocumentNode;
  auto const load = [&](CUSharedPtr<CUStream> const& stream) {
    document->GetChildNodes()->RemoveAllObjects();
    unsigned int const status = document->LoadXml(stream);
    return (status == 0 ? "" : status == 0x10001 ? "failed " : "? ") + Show(document);
  };
  std::string const text = "<?p x?><a/>";
  EXPECT_EQ(load(nullptr), "failed ()");
  EXPECT_EQ(load(StreamOf(text)), "(?p=x a())");
  EXPECT_EQ(load(StreamOf(text, text.size() - 1)), "failed ()");
  CUSharedPtr<CUStream> const narrow = StreamOf(text);
  ASSERT_EQ(narrow->SetReadaleRange({7, 4}), CUResult_Success);
  EXPECT_EQ(load(narrow), "failed ()");
  EXPECT_EQ(load(new CUMemoryStream), "failed ()");
  try {
    load(new CUStream);
    ADD_FAILURE() << "nothing was thrown";
  } catch (unsigned int code) {
    EXPECT_EQ(code, 5u);
  }

  // Wherever the position stands, and through a window into a greater file.
  TemporaryFolder const folder;
  WriteFile(folder.Path() + "/x", "....<a>t</a>....");
  CUStringMac path((folder.Path() + "/x").c_str(), CUString_CharCode_UTF8);
  CUSharedPtr<CUFileStream> const file =
      new CUFileStream(&path, CUStream_FileMode_Open, CUStream_FileAccess_Read, false);
  _CURange slice = {4, 8};
  CUSharedPtr<CUStream> const memory = CUMemoryStream::CreateMemoryStream(file.Get(), slice);
  EXPECT_EQ(load(memory), "(a('t'))");
  WriteFile(folder.Path() + "/x", "<a>t</a>");
  CUSharedPtr<CUFileStream> const whole =
      new CUFileStream(&path, CUStream_FileMode_Open, CUStream_FileAccess_Read, false);
  whole->Seek(3, CUStream_Seek_Origin_Begin);
  EXPECT_EQ(load(whole), "(a('t'))");
  WriteFile(folder.Path() + "/x", "");
  EXPECT_EQ(load(new CUFileStream(&path, CUStream_FileMode_Open, CUStream_FileAccess_Read, false)),
            "failed ()");
}

TEST(LoadXml, GivesTheSameTreeInEveryEncoding) {
  std::string const latin = "<?xml version='1.0' encoding='iso-8859-1'?><a b='\xE9'>\xFC</a>";
  std::string little = "\xFF\xFE";
  std::string big = "\xFE\xFF";
  for (char const c : latin) {
    little += {c, '\0'};
    big += {'\0', c};
  }
  std::string const expected = "(?xml=version='1.0' encoding='UTF-8' a[b=\xC3\xA9]('\xC3\xBC'))";
  std::string const utf8 = "<?xml version='1.0' encoding='UTF-8'?><a b='\xC3\xA9'>\xC3\xBC</a>";
  for (std::string const& bytes : {latin, little, big, utf8, "\xEF\xBB\xBF" + utf8}) {
    EXPECT_EQ(Loaded(bytes), expected) << bytes;
  }
}

TEST(LoadXml, CombinesWhatACallerGives) {
  OpenDocument document;
  auto const text = [&](char const* value) -> CUSharedPtr<CUObject> {
    return document.CreateTextNode(Make(value));
  };
  auto const entity = [&](char const* name) -> CUSharedPtr<CUObject> {
    return document.CreateEntityReferenceNodeNode(Make(name));
  };
  CUSharedPtr<CUObject> const noNode = Make("x");
  CUSharedPtr<CUObject> const empty = new CUXmlDomTextNode;
  CUSharedPtr<CUObject> const element = document.CreateElementNode(Make("e"));
  struct {
    std::vector<CUSharedPtr<CUObject>> children;
    std::string expected;
  } const cases[] = {
      {{}, "0 "},
      {{noNode, element, nullptr}, "0 - e() - "},
      {{text("a")}, "0 'a' "},
      {{noNode, text("a"), element, entity("amp"), empty, noNode, text("b"), element},
       "0 - 'a&b' e() - e() "},
      {{element, empty}, "0 e() '' "},
      {{entity("lt"), entity("gt"), entity("quot"), entity("apos")}, "0 '<>\"'' "},
      // The text goes, the unknown stays.
      {{text("a"), entity("AMP"), element, text("b"), entity("amp")}, "failed &AMP; e() "},
      {{entity("#60"), text("b")}, "failed &#60; "},
  };
  for (auto const& c : cases) {
    CUSharedPtr<CUMutableArray> const children = new CUMutableArray;
    for (auto const& child : c.children) children->AddObject(child);
    unsigned int const status = document.CombineCuDomXmlEntityReferenceAndTextNodeMac(children);
    std::string shown = status == 0 ? "0 " : status == 0x10001 ? "failed " : "? ";
    for (unsigned int i = 0; i < children->Count(); ++i)
      shown += Show(children->ObjectAtIndex(i)) + " ";
    EXPECT_EQ(shown, c.expected);
  }
  // The text node is always a new one.
  CUSharedPtr<CUMutableArray> const children = new CUMutableArray;
  CUSharedPtr<CUObject> const mine = text("mine");
  children->AddObject(mine);
  document.CombineCuDomXmlEntityReferenceAndTextNodeMac(children);
  EXPECT_NE(children->ObjectAtIndex(0), mine);
  EXPECT_EQ(document.CombineCuDomXmlEntityReferenceAndTextNodeMac(nullptr), 0x10001u);
}

TEST(LoadXml, RefusesWhatIsMissing) {
  OpenDocument document;
  CUSharedPtr<CUMutableArray> const children = new CUMutableArray;
  EXPECT_EQ(document.CreateElementNode(nullptr), nullptr);
  EXPECT_EQ(document.CreateTextNode(nullptr), nullptr);
  EXPECT_EQ(document.CreateEntityReferenceNodeNode(nullptr), nullptr);
  EXPECT_EQ(document.CreateProcessingInstructionNode(Make("p"), nullptr), nullptr);
  EXPECT_EQ(document.CreateProcessingInstructionNode(nullptr, Make("d")), nullptr);
  EXPECT_EQ(document.CreateCFDataFromStreamMac(nullptr), nullptr);
  EXPECT_EQ(document.MakeUpCuXmlDomNodeInstanceMac(nullptr, children), 0x10001u);

  // A node whose string or record is missing, by its kind; then what each makes of it.
  auto const make = [](CFXMLNodeTypeCode type, CFStringRef string, void const* info) {
    CFXMLNodeRef const node = CFXMLNodeCreate(nullptr, type, string, info, 1);
    CFXMLTreeRef const tree = CFXMLTreeCreateWithNode(nullptr, node);
    CFRelease(node);
    return tree;
  };
  CFXMLElementInfo const element = {};
  CFXMLProcessingInstructionInfo const noData = {};
  struct {
    CFXMLTreeRef tree;
    unsigned int status;
  } const trees[] = {
      {make(2, nullptr, &element), 0x10001},   {make(2, CFSTR("e"), nullptr), 0x10001},
      {make(4, nullptr, &noData), 0x10001},    {make(4, CFSTR("p"), nullptr), 0x10001},
      {make(6, nullptr, nullptr), 0x10001},    {make(10, nullptr, nullptr), 0x10001},
      {make(3, CFSTR("a"), nullptr), 0x10001}, {make(12, CFSTR(" "), nullptr), 0x10001},
      {make(2, CFSTR("e"), &element), 0},      {make(4, CFSTR("p"), &noData), 0},
      {make(6, CFSTR("t"), nullptr), 0},       {make(10, CFSTR("u"), nullptr), 0}};
  for (auto const& t : trees) {
    EXPECT_EQ(document.MakeUpCuXmlDomNodeInstanceMac(t.tree, nullptr), 0x10001u);
    EXPECT_EQ(document.MakeUpCuXmlDomNodeInstanceMac(t.tree, children), t.status);
    EXPECT_EQ(document.MakeUpChildNodes_OS2CU_Mac(t.tree, nullptr), 0x10001u);
    EXPECT_EQ(document.MakeUpChildNodes_OS2CU_Mac(t.tree, &document), 0u);
    CFRelease(t.tree);
  }
  std::string shown;
  for (unsigned int i = 0; i < children->Count(); ++i)
    shown += Show(children->ObjectAtIndex(i)) + " ";
  EXPECT_EQ(shown, "e() ?p=<null> 't' &u; ");
}

// The work is in proportion to the document. A square of it would take longer than a test may.
TEST(LoadXml, TakesDocumentsOfManyPieces) {
  std::string attributes = "<a";
  for (int i = 0; i < 100000; ++i)
    attributes += " b" + std::to_string(i) + "='" + std::to_string(i) + "'";
  struct {
    std::string bytes;
    std::string start;
  } const cases[] = {
      {"<a>" + Repeated("&amp;", 300000) + "</a>", "(a('" + Repeated("&", 300000) + "'))"},
      {"<a>" + Repeated("x<b/>", 60000) + "</a>", "(a('" + Repeated("x", 60000) + "' b() b()"},
      {"<a>" + Repeated("<?p?>&lt;", 60000) + "</a>", "(a(?p= '" + Repeated("<", 60000) + "' ?p="},
      {attributes + "/>", "(a[b0=0 b1=1 b10=10 "}};
  for (auto const& c : cases) {
    CUSharedPtr<CUXmlDomDocumentNode> document = new CUXmlDomDocumentNode;
    ASSERT_EQ(document->LoadXml(StreamOf(c.bytes)), 0u);
    EXPECT_EQ(Show(document).substr(0, c.start.size()), c.start);
    EXPECT_GT(Utf8(document->Description()).size(), 100u);
    EXPECT_GT(Written(*document).size(), c.start.size() - 4);
  }
}

TEST(LoadXml, DeepDocumentsNeedLittleStack) {
  struct Work {
    std::string bytes;
    std::string result;
  } work;
  auto const run = [](void* argument) -> void* {
    auto& given = *static_cast<Work*>(argument);
    CUSharedPtr<CUXmlDomDocumentNode> const document = new CUXmlDomDocumentNode;
    given.result = std::to_string(document->LoadXml(StreamOf(given.bytes)));
    if (given.result == "0") given.result = Written(*document);
    return nullptr;
  };
  auto const inSmallThread = [&](std::string const& bytes) {
    work.bytes = bytes;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, std::size_t{4} << 20);
    pthread_t thread;
    if (pthread_create(&thread, &attributes, run, &work) != 0) return std::string("no thread");
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    return work.result;
  };
  auto const nested = [](int levels) {
    return Repeated("<a>", levels) + "x" + Repeated("</a>", levels);
  };
  EXPECT_EQ(inSmallThread(nested(1024)), nested(1024));
  EXPECT_EQ(inSmallThread(nested(1025)), "65537");
  EXPECT_EQ(inSmallThread(nested(2000000)), "65537");
}

TEST(LoadXml, RunsOutOfMemoryWithoutHarm) {
  std::string const bytes = "<?p x?><a b='1' c='2'>t<d/>&amp;<?q?></a>";
  std::string const whole = "(?p=x a[b=1 c=2]('t&' d() ?q=))";
  Loaded(bytes);  // the names of the entities are made once
  CUSharedPtr<CUStream> const stream = StreamOf(bytes);
  CUSharedPtr<CUXmlDomDocumentNode> document;
  unsigned int status = 0;
  int const failures = FailEachAllocation(
      [&] {
        document = nullptr;
        document = new CUXmlDomDocumentNode;
        status = 1;
        status = document->LoadXml(stream);
      },
      [&] {
        if (document == nullptr) return;
        std::string const shown = Show(document);
        EXPECT_TRUE(status == 0 ? shown == whole : shown == "()" || shown == "(?p=x)") << shown;
      });
  EXPECT_GT(failures, 60);
  EXPECT_EQ(status, 0u);
}
