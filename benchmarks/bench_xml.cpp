// Documents to trees and back, beside other libraries' trees and the parser underneath alone. The
// document has 10 MB: indented, with attributes, references and text of several languages.

#include <Poco/DOM/AutoPtr.h>
#include <Poco/DOM/DOMParser.h>
#include <Poco/DOM/DOMWriter.h>
#include <Poco/DOM/Document.h>
#include <expat.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <QDomDocument>
#include <cstdlib>
#include <memory>
#include <sstream>

#include "QuillmereLib/streams/CUMemoryStream.h"
#include "QuillmereLib/xml/CUXmlDomDocumentNode.h"
#include "benchmarks/Cases.h"

namespace {

constexpr std::size_t kDocumentSize = 10'000'000;

std::string const& Source() {
  static std::string const source = [] {
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<project version=\"3\">\n";
    for (int clip = 0; text.size() < kDocumentSize; ++clip) {
      std::string const number = std::to_string(clip);
      text += "  <clip id=\"clip-" + number + "\" start=\"" + std::to_string(clip * 1440) +
              "\" enabled=\"true\">\n    <name>Reel " + number +
              " &amp; its sound</name>\n    <source path=\"/media/reel-" + number +
              ".mov\" rate=\"24000/1001\"/>\n    <note lang=\"cs\">Zvuk byl o\u0161et\u0159en "
              "&lt;1998&gt;</note>\n    <filter kind=\"stabilise\">\n      <value>0.25</value>\n"
              "      <value>0.75</value>\n    </filter>\n  </clip>\n";
    }
    return text + "</project>\n";
  }();
  return source;
}

// Takes what is written, and keeps its size.
class CountingStream : public CUStream {
 public:
  bool CanWrite() override { return true; }
  unsigned long long Write(unsigned char*, unsigned long long size, long long,
                           CUStream_Seek_Origin) override {
    written += size;
    return size;
  }
  unsigned long long written = 0;
};

CUSharedPtr<CUXmlDomDocumentNode> Load() {
  CUSharedPtr<CUStream> const stream =
      new CUMemoryStream(const_cast<char*>(Source().data()), Source().size(), true);
  CUSharedPtr<CUXmlDomDocumentNode> document = new CUXmlDomDocumentNode;
  if (document->LoadXml(stream) != CUResult_Success) std::abort();
  return document;
}

QDomDocument LoadQt() {
  QDomDocument document;
  if (!document.setContent(
          QByteArray::fromRawData(Source().data(), static_cast<qsizetype>(Source().size())))) {
    std::abort();
  }
  return document;
}

Poco::XML::AutoPtr<Poco::XML::Document> LoadPoco() {
  Poco::XML::DOMParser parser;
  parser.setFeature(Poco::XML::DOMParser::FEATURE_FILTER_WHITESPACE, true);
  return parser.parseMemory(Source().data(), Source().size());
}

struct FreeTree {
  void operator()(xmlDoc* document) const { xmlFreeDoc(document); }
};
using LibxmlTree = std::unique_ptr<xmlDoc, FreeTree>;

LibxmlTree LoadLibxml() {
  return LibxmlTree(xmlReadMemory(Source().data(), static_cast<int>(Source().size()), nullptr,
                                  nullptr, XML_PARSE_NOBLANKS | XML_PARSE_NONET));
}

// Elements and bytes of text, without a tree.
std::size_t ParseWithExpat() {
  std::size_t counts[2] = {};
  XML_Parser const parser = XML_ParserCreate(nullptr);
  XML_SetUserData(parser, counts);
  XML_SetElementHandler(
      parser, [](void* data, char const*, char const**) { ++static_cast<std::size_t*>(data)[0]; },
      [](void*, char const*) {});
  XML_SetCharacterDataHandler(parser, [](void* data, char const*, int size) {
    static_cast<std::size_t*>(data)[1] += static_cast<std::size_t>(size);
  });
  constexpr std::size_t kPiece = std::size_t{64} << 10;
  for (std::size_t at = 0; at < Source().size(); at += kPiece) {
    std::size_t const size = std::min(kPiece, Source().size() - at);
    if (XML_Parse(parser, Source().data() + at, static_cast<int>(size),
                  at + size == Source().size()) != XML_STATUS_OK) {
      std::abort();
    }
  }
  XML_ParserFree(parser);
  return counts[0];
}

// A case that writes what is loaded before the measurement.
template <class Load, class Write>
void MeasureWriting(char const* name, Load load, Write write) {
  benchmark::RegisterBenchmark(name, [load, write](benchmark::State& state) {
    auto document = load();
    for (auto _ : state) {
      auto size = write(document);
      benchmark::DoNotOptimize(size);
    }
  });
}

// Several documents, one behind the other: a single one can find the memory that another library
// has just left, and takes half the time then.
template <class Load>
void MeasureLoading(char const* name, Load load) {
  constexpr double kSeconds = 0.5;
  Measure(name, load)->MinTime(kSeconds);
}

void RegisterAll() {
  MeasureLoading("xml/load/quillmere", Load);
  MeasureLoading("xml/load/qdomdocument", LoadQt);
  MeasureLoading("xml/load/poco_dom", LoadPoco);
  MeasureLoading("xml/load/libxml2_tree", LoadLibxml);
  MeasureLoading("xml/load/expat_alone", ParseWithExpat);

  MeasureWriting("xml/write/quillmere", Load, [](auto& document) {
    CUSharedPtr<CountingStream> const stream = new CountingStream;
    if (document->WriteXml(stream) != CUResult_Success) std::abort();
    return stream->written;
  });
  MeasureWriting("xml/write/qdomdocument", LoadQt,
                 [](auto& document) { return document.toByteArray(-1).size(); });
  MeasureWriting("xml/write/poco_dom", LoadPoco, [](auto& document) {
    std::ostringstream stream;
    Poco::XML::DOMWriter().writeNode(stream, document);
    return stream.str().size();
  });
  MeasureWriting("xml/write/libxml2_tree", LoadLibxml, [](auto& document) {
    xmlChar* text = nullptr;
    int size = 0;
    xmlDocDumpMemory(document.get(), &text, &size);
    xmlFree(text);
    return size;
  });
}

}  // namespace

int main(int argc, char** argv) { return RunCases(argc, argv, RegisterAll); }
