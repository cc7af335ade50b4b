// xml_round_trip FROM TO: loads an XML file, writes its tree to a new file, loads that again and
// says whether the two trees are the same. With --dump FROM it prints the tree instead.

#include <QuillmereLib/QuillmereLib.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

using Document = CUSharedPtr<CUXmlDomDocumentNode>;

CUSharedPtr<CUStringMac> Text(char const* text) {
  return new CUStringMac(text, CUString_CharCode_UTF8);
}

std::string Utf8(CUSharedPtr<CUStringMac> const& text) {
  char const* const bytes = *text;
  return bytes != nullptr ? bytes : "";
}

// Null where the file cannot be read or holds what the tree cannot: comments, CDATA sections,
// document types, references other than the five of XML.
Document Load(char const* path) {
  CUSharedPtr<CUStringMac> file = Text(path);
  CUSharedPtr<CUStream> const stream =
      new CUFileStream(file, CUStream_FileMode_Open, CUStream_FileAccess_Read, true);
  Document document = new CUXmlDomDocumentNode;
  bool const loads = stream->CanRead() && document->LoadXml(stream) == CUResult_Success;
  if (!loads) std::fprintf(stderr, "xml_round_trip: %s: does not load\n", path);
  return loads ? document : nullptr;
}

// Fails where the file is there already.
bool Save(Document const& document, char const* path) {
  // A file is made in a folder, and a bare name has none.
  bool const isBare = std::strchr(path, '/') == nullptr;
  CUSharedPtr<CUStringMac> file = Text(((isBare ? "./" : "") + std::string(path)).c_str());
  CUSharedPtr<CUStream> const stream =
      new CUFileStream(file, CUStream_FileMode_CreateNew, CUStream_FileAccess_ReadWrite, true);
  bool const isWritten = stream->CanWrite() && document->WriteXml(stream) == CUResult_Success;
  if (!isWritten) std::fprintf(stderr, "xml_round_trip: %s: cannot be written\n", path);
  return isWritten;
}

int RoundTrip(char const* from, char const* to) {
  Document const first = Load(from);
  if (first == nullptr || !Save(first, to)) return 1;
  Document const second = Load(to);
  if (second == nullptr) return 1;
  bool const isSame = Utf8(first->Description()) == Utf8(second->Description());
  std::puts(isSame ? "the trees are the same" : "the trees differ");
  return isSame ? 0 : 3;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fputs("usage: xml_round_trip FROM TO, or xml_round_trip --dump FROM\n", stderr);
    return 2;
  }
  if (std::strcmp(argv[1], "--dump") != 0) return RoundTrip(argv[1], argv[2]);
  Document const document = Load(argv[2]);
  if (document == nullptr) return 1;
  std::fputs(Utf8(document->Description()).c_str(), stdout);
  return 0;
}
