#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "QuillmereLib/streams/CUFileStream.h"
#include "QuillmereLib/streams/CUMemoryStream.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/ThrownCode.h"
#include "tests/support/XmlDocuments.h"

namespace {

// Opens what is protected to the tests.
class OpenDocument : public CUXmlDomDocumentNode {
 public:
  using CUXmlDomDocumentNode::CombineCuDomXmlEntityReferenceAndTextNodeMac;
  using CUXmlDomDocumentNode::CreateCFDataFromStreamMac;
  using CUXmlDomDocumentNode::MakeUpChildNodes_OS2CU_Mac;
  using CUXmlDomDocumentNode::MakeUpCuXmlDomNodeInstanceMac;
};

std::string Repeated(std::string const& text, int count) {
  std::string all;
  for (int i = 0; i < count; ++i) all += text;
  return all;
}

// Runs `work` on a thread with a stack of four megabytes.
void OnSmallStack(std::function<void()> work) {
  auto const run = [](void* given) -> void* {
    (*static_cast<std::function<void()>*>(given))();
    return nullptr;
  };
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, std::size_t{4} << 20);
  pthread_t thread;
  ASSERT_EQ(pthread_create(&thread, &attributes, run, &work), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

}  // namespace

TEST(LoadXml, StopsAtWhatItDoesNotTake) {
  std::pair<char const*, char const*> const cases[] = {
      // What is not well formed changes nothing, whatever stands in front.
      {"", "()"},
      {"<?p x?><a>", "()"},
      {"<?p x?><a/><b/>", "()"},
      // Else what is complete in front of it stays.
      {"<?p x?><a>&unknown;</a>", "(?p=x)"},
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
  std::string const text = "<?p x?><a/>";
  CUSharedPtr<CUStream> const narrow = StreamOf(text);
  ASSERT_EQ(narrow->SetReadaleRange({7, 4}), CUResult_Success);
  for (auto const& stream : {CUSharedPtr<CUStream>(), StreamOf(text, text.size() - 1), narrow,
                             CUSharedPtr<CUStream>(new CUMemoryStream)}) {
    EXPECT_EQ(LoadedFrom(stream), "failed ()");
  }
  EXPECT_EQ(ThrownCode([] { LoadedFrom(new CUStream); }), 5u);

  // Wherever the position stands.
  TemporaryFolder const folder;
  WriteFile(folder.Path() + "/x", text);
  CUSharedPtr<CUFileStream> const file = new CUFileStream(
      Make(folder.Path() + "/x").Get(), CUStream_FileMode_Open, CUStream_FileAccess_Read, false);
  file->Seek(3, CUStream_Seek_Origin_Begin);
  EXPECT_EQ(LoadedFrom(file), "(?p=x a())");
}

TEST(LoadXml, GivesTheSameTreeInEveryEncoding) {
  std::string const latin = "<?xml version='1.0' encoding='iso-8859-1'?><a b='\xE9'>\xFC</a>";
  std::string const utf8 = "<?xml version='1.0' encoding='UTF-8'?><a b='\xC3\xA9'>\xC3\xBC</a>";
  std::string little = "\xFF\xFE", big = "\xFE\xFF";
  for (char const c : latin) {
    little += {c, '\0'};
    big += {'\0', c};
  }
  for (std::string const& bytes : {latin, little, big, utf8, "\xEF\xBB\xBF" + utf8}) {
    EXPECT_EQ(Loaded(bytes), "(?xml=version='1.0' encoding='UTF-8' a[b=\u00e9]('\u00fc'))");
  }
}

TEST(LoadXml, CombinesWhatACallerGives) {
  OpenDocument document;
  CUSharedPtr<CUObject> const noNode = Make("x"), empty = new CUXmlDomTextNode;
  CUSharedPtr<CUObject> const e = ElementNode("e"), a = TextNode("a"), b = TextNode("b");
  CUSharedPtr<CUObject> const amp = EntityNode("amp");
  std::pair<std::vector<CUSharedPtr<CUObject>>, char const*> const cases[] = {
      {{noNode, e, nullptr}, "- e() -"},
      {{noNode, a, e, amp, empty, noNode, b, e}, "- 'a&b' e() - e()"},
      {{e, empty}, "e() ''"},
      // The text goes, the unknown stays.
      {{a, EntityNode("AMP"), e, b, amp}, "failed &AMP; e()"},
      {{EntityNode("#60"), b}, "failed &#60;"},
  };
  for (auto const& [children, expected] : cases) {
    CUSharedPtr<CUMutableArray> const array = new CUMutableArray;
    *array->GetInternalArray() = children;
    std::string const said = Said(document.CombineCuDomXmlEntityReferenceAndTextNodeMac(array));
    EXPECT_EQ(said + ShowAll(*array), expected);
  }
  CUSharedPtr<CUMutableArray> const array = new CUMutableArray;
  array->AddObject(a);
  document.CombineCuDomXmlEntityReferenceAndTextNodeMac(array);
  EXPECT_EQ(ShowAll(*array), "'a'");
  EXPECT_NE(array->ObjectAtIndex(0), a) << "the text node is always a new one";
  EXPECT_EQ(document.CombineCuDomXmlEntityReferenceAndTextNodeMac(nullptr), 0x10001u);
}

TEST(LoadXml, RefusesWhatIsMissing) {
  OpenDocument document;
  EXPECT_EQ(document.CreateElementNode(nullptr), nullptr);
  EXPECT_EQ(document.CreateTextNode(nullptr), nullptr);
  EXPECT_EQ(document.CreateEntityReferenceNodeNode(nullptr), nullptr);
  EXPECT_EQ(document.CreateProcessingInstructionNode(Make("p"), nullptr), nullptr);
  EXPECT_EQ(document.CreateProcessingInstructionNode(nullptr, Make("d")), nullptr);
  EXPECT_EQ(document.CreateCFDataFromStreamMac(nullptr), nullptr);
  EXPECT_EQ(document.MakeUpCuXmlDomNodeInstanceMac(nullptr, new CUMutableArray), 0x10001u);

  auto const made = [&](CFXMLNodeTypeCode type, CFStringRef string, void const* info) {
    CFXMLNodeRef const node = CFXMLNodeCreate(nullptr, type, string, info, 1);
    CFXMLTreeRef const tree = CFXMLTreeCreateWithNode(nullptr, node);
    CUSharedPtr<CUMutableArray> const children = new CUMutableArray;
    EXPECT_EQ(document.MakeUpCuXmlDomNodeInstanceMac(tree, nullptr), 0x10001u);
    EXPECT_EQ(document.MakeUpChildNodes_OS2CU_Mac(tree, nullptr), 0x10001u);
    EXPECT_EQ(document.MakeUpChildNodes_OS2CU_Mac(tree, &document), 0u);
    std::string const said = Said(document.MakeUpCuXmlDomNodeInstanceMac(tree, children));
    CFRelease(node);
    CFRelease(tree);
    return said + ShowAll(*children);
  };
  CFXMLElementInfo const element = {};
  CFXMLProcessingInstructionInfo const noData = {};
  EXPECT_EQ(made(kCFXMLNodeTypeElement, nullptr, &element), "failed ");
  EXPECT_EQ(made(kCFXMLNodeTypeElement, CFSTR("e"), nullptr), "failed ");
  EXPECT_EQ(made(kCFXMLNodeTypeElement, CFSTR("e"), &element), "e()");
  EXPECT_EQ(made(kCFXMLNodeTypeProcessingInstruction, nullptr, &noData), "failed ");
  EXPECT_EQ(made(kCFXMLNodeTypeProcessingInstruction, CFSTR("p"), nullptr), "failed ");
  EXPECT_EQ(made(kCFXMLNodeTypeProcessingInstruction, CFSTR("p"), &noData), "?p=<null>");
  EXPECT_EQ(made(kCFXMLNodeTypeText, nullptr, nullptr), "failed ");
  EXPECT_EQ(made(kCFXMLNodeTypeText, CFSTR("t"), nullptr), "'t'");
  EXPECT_EQ(made(kCFXMLNodeTypeEntityReference, nullptr, nullptr), "failed ");
  EXPECT_EQ(made(kCFXMLNodeTypeEntityReference, CFSTR("u"), nullptr), "&u;");
  EXPECT_EQ(made(kCFXMLNodeTypeComment, CFSTR("c"), nullptr), "failed ");
}

// The work is in proportion to the document. A square of it would take longer than a test may.
TEST(LoadXml, TakesDocumentsOfManyPieces) {
  std::string attributes;
  for (int i = 0; i < 100000; ++i) attributes += " b" + std::to_string(i) + "='1'";
  std::pair<std::string, std::string> const cases[] = {
      {"<a>" + Repeated("&amp;", 300000) + "</a>", "(a('" + Repeated("&", 300000) + "'))"},
      {"<a>" + Repeated("x<b/>", 60000) + "</a>", "(a('" + Repeated("x", 60000) + "' b() b()"},
      {"<a>" + Repeated("<?p?>&lt;", 60000) + "</a>", "(a(?p= '" + Repeated("<", 60000) + "' ?p="},
      {"<a" + attributes + "/>", "(a[b0=1 b1=1 b10=1 "}};
  for (auto const& [bytes, start] : cases) {
    CUSharedPtr<CUXmlDomDocumentNode> const document = new CUXmlDomDocumentNode;
    ASSERT_EQ(document->LoadXml(StreamOf(bytes)), 0u);
    EXPECT_EQ(Show(document).substr(0, start.size()), start);
    EXPECT_GT(Utf8(document->Description()).size(), 100u);
    EXPECT_GT(Written(*document).size(), start.size() - 4);
  }
}

TEST(LoadXml, DeepDocumentsNeedLittleStack) {
  auto const nested = [](int levels) {
    return Repeated("<a>", levels) + "x" + Repeated("</a>", levels);
  };
  OnSmallStack([&] {
    CUXmlDomDocumentNode document;
    EXPECT_EQ(document.LoadXml(StreamOf(nested(1024))), 0u);
    EXPECT_EQ(Written(document), nested(1024));
    EXPECT_EQ(Loaded(nested(1025)), "failed ()");
    EXPECT_EQ(Loaded(nested(2000000)), "failed ()");
  });
}
