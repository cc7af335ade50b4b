// Loading is safe for any bytes, and leaves no node of an element that fails.

#include "fuzz/XmlDocuments.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
  CUSharedPtr<CUStream> const stream =
      new CUMemoryStream(const_cast<std::uint8_t*>(bytes), size, false);
  CUXmlDomDocumentNode document;
  unsigned int const status = document.LoadXml(stream);
  if (status != CUResult_Success && status != CUResult_Failed) std::abort();

  // What stands at the top is the root element and processing instructions.
  unsigned int elements = 0;
  CUSharedPtr<CUMutableArray> const children = document.GetChildNodes();
  for (unsigned int i = 0; i < children->Count(); ++i) {
    CUSharedPtr<CUObject> const child = children->ObjectAtIndex(i);
    auto& node = dynamic_cast<CUXmlDomNode&>(*child);
    if (node.GetNodeType() == Node_Element) {
      ++elements;
    } else if (node.GetNodeType() != Node_Processing_Instruction) {
      std::abort();
    }
  }
  if (elements > 1 || (status == CUResult_Success && elements == 0)) std::abort();
  return 0;
}
