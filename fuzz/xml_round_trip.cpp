// What is loaded can be written, and loads again to the same tree, but for white space.

#include <algorithm>

#include "fuzz/XmlDocuments.h"

namespace {

std::string WithoutSpace(std::string text) {
  auto const isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
  text.erase(std::remove_if(text.begin(), text.end(), isSpace), text.end());
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
  CUSharedPtr<CUXmlDomDocumentNode> const first = LoadDocument(bytes, size);
  if (first == nullptr) return 0;
  std::string const written = WriteDocument(*first);
  CUSharedPtr<CUXmlDomDocumentNode> const second =
      LoadDocument(reinterpret_cast<std::uint8_t const*>(written.data()), written.size());
  if (second == nullptr) std::abort();

  // White space among characters that are escaped stands alone in what is written, and goes with
  // the second load; nothing else does, and nothing goes with the third.
  if (DumpDocument(*first) == DumpDocument(*second)) return 0;
  std::string const rewritten = WriteDocument(*second);
  if (WithoutSpace(rewritten) != WithoutSpace(written) || rewritten == written) std::abort();
  CUSharedPtr<CUXmlDomDocumentNode> const third =
      LoadDocument(reinterpret_cast<std::uint8_t const*>(rewritten.data()), rewritten.size());
  if (third == nullptr || DumpDocument(*second) != DumpDocument(*third)) std::abort();
  return 0;
}
