// A dump has five lines a node and two an attribute, and no more.

#include <algorithm>

#include "fuzz/XmlDocuments.h"

namespace {

std::size_t LinesOf(CUSharedPtr<CUObject> const& object) {
  auto& node = dynamic_cast<CUXmlDomNode&>(*object);
  std::size_t lines = 5;
  auto const breaksIn = [](CUSharedPtr<CUStringMac> const& text) -> std::size_t {
    if (text == nullptr) return 0;
    std::string const utf8 = static_cast<char const*>(*text);
    return static_cast<std::size_t>(std::count(utf8.begin(), utf8.end(), '\n'));
  };
  lines += breaksIn(node.GetNodeValue());
  if (CUSharedPtr<CUDictionary> const attributes = node.GetAttributes(); attributes != nullptr) {
    CUSharedPtr<CUArray> const keys = attributes->AllKeys();
    for (unsigned int i = 0; i < keys->Count(); ++i) {
      CUSharedPtr<CUStringMac> const key(dynamic_cast<CUStringMac*>(keys->ObjectAtIndex(i).Get()));
      lines += 2 + breaksIn(node.GetAttribute(key));
    }
  }
  CUSharedPtr<CUMutableArray> const children = node.GetChildNodes();
  if (children == nullptr) return lines;
  for (unsigned int i = 0; i < children->Count(); ++i) lines += LinesOf(children->ObjectAtIndex(i));
  return lines;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
  CUSharedPtr<CUXmlDomDocumentNode> const document = LoadDocument(bytes, size);
  if (document == nullptr) return 0;
  std::string const dump = DumpDocument(*document);
  auto const lines = static_cast<std::size_t>(std::count(dump.begin(), dump.end(), '\n'));
  if (lines != LinesOf(document)) std::abort();
  return 0;
}
