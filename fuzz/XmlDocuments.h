#pragma once

// Documents from bytes, for the targets.

#include <cstdint>
#include <cstdlib>
#include <string>

#include "QuillmereLib/streams/CUMemoryStream.h"
#include "QuillmereLib/xml/CUXmlDomDocumentNode.h"

// The document that the bytes make; null if it does not load.
inline CUSharedPtr<CUXmlDomDocumentNode> LoadDocument(std::uint8_t const* bytes, std::size_t size) {
  CUSharedPtr<CUStream> const stream =
      new CUMemoryStream(const_cast<std::uint8_t*>(bytes), size, false);
  CUSharedPtr<CUXmlDomDocumentNode> document = new CUXmlDomDocumentNode;
  return document->LoadXml(stream) == CUResult_Success ? document : nullptr;
}

// Keeps what is written.
class KeepingStream : public CUStream {
 public:
  bool CanWrite() override { return true; }
  unsigned long long Write(unsigned char* buffer, unsigned long long size, long long,
                           CUStream_Seek_Origin) override {
    bytes.append(buffer, buffer + size);
    return size;
  }
  std::string bytes;
};

inline std::string WriteDocument(CUXmlDomDocumentNode& document) {
  CUSharedPtr<KeepingStream> const stream = new KeepingStream;
  if (document.WriteXml(stream) != CUResult_Success) std::abort();
  return stream->bytes;
}

inline std::string DumpDocument(CUXmlDomDocumentNode& document) {
  CUSharedPtr<CUStringMac> const dump = document.Description();
  char const* const text = *dump;
  if (text == nullptr) std::abort();
  return text;
}
