#pragma once

// Documents in one line of text, to and from trees, and streams in memory.

#include <algorithm>
#include <initializer_list>
#include <string>
#include <utility>

#include "QuillmereLib/xml/CUXmlDomDocumentNode.h"
#include "tests/support/Strings.h"

inline CUSharedPtr<CUXmlDomElementNode> ElementNode(std::string const& name) {
  return CUXmlDomDocumentNode().CreateElementNode(Make(name));
}
inline CUSharedPtr<CUXmlDomTextNode> TextNode(std::string const& value) {
  return CUXmlDomDocumentNode().CreateTextNode(Make(value));
}

inline void AddChildren(CUXmlDomNode& parent,
                        std::initializer_list<CUSharedPtr<CUObject>> children) {
  for (auto const& child : children) parent.GetChildNodes()->AddObject(child);
}

std::string ShowAll(CUArray& objects);

// A node and its subtree: name[key=value](children) of an element, 'text', ?target=data, &entity;
// of other kinds the kind. An object that is no node is "-".
inline std::string Show(CUSharedPtr<CUObject> const& object) {
  auto* const node = dynamic_cast<CUXmlDomNode*>(object.Get());
  if (node == nullptr) return "-";
  std::string attributes;
  switch (node->GetNodeType()) {
    case Node_Text:
      return "'" + Utf8(node->GetNodeValue()) + "'";
    case Node_Processing_Instruction:
      return "?" + Utf8(node->GetNodeName()) + "=" + Utf8(node->GetNodeValue());
    case Node_Entity_Reference:
      return "&" + Utf8(node->GetNodeName()) + ";";
    case Node_Document:
      return "(" + ShowAll(*node->GetChildNodes()) + ")";
    case Node_Element: {
      CUSharedPtr<CUArray> const keys = node->GetAttributes()->AllKeys();
      for (auto const& key : *keys->GetInternalArray()) {
        CUSharedPtr<CUStringMac> const text(dynamic_cast<CUStringMac*>(key.Get()));
        attributes += (attributes.empty() ? "[" : " ") + Utf8(text) + "=";
        attributes += Utf8(node->GetAttribute(text));
      }
      return Utf8(node->GetNodeName()) + attributes + (attributes.empty() ? "(" : "](") +
             ShowAll(*node->GetChildNodes()) + ")";
    }
    default:
      return Utf8(node->GetXmlDomNodeTypeString(node->GetNodeType()));
  }
}

// The objects of an array, with blanks between.
inline std::string ShowAll(CUArray& objects) {
  std::string shown;
  for (auto const& object : *objects.GetInternalArray()) {
    shown += (shown.empty() ? "" : " ") + Show(object);
  }
  return shown;
}

// Over bytes in memory, of which it moves at most so many a call, in either direction.
class ShortStream : public CUStream {
 public:
  ShortStream(std::string bytes, unsigned long long most)
      : m_bytes(std::move(bytes)), m_most(most) {
    streamLength = m_bytes.size();
    readableRange = {0, streamLength};
    streamPosition = 1;  // which must not matter
  }

  bool CanRead() override { return true; }
  bool CanWrite() override { return true; }

  unsigned long long Read(unsigned char* buffer, unsigned long long size, long long offset,
                          CUStream_Seek_Origin origin) override {
    _CURange const range = CalcReadRange(std::min(size, m_most), offset, origin);
    if (buffer == nullptr || range.length == 0) return 0;
    std::copy_n(m_bytes.begin() + static_cast<std::ptrdiff_t>(range.location), range.length,
                buffer);
    return range.length;
  }

  // Appends, wherever the call says.
  unsigned long long Write(unsigned char* buffer, unsigned long long size, long long,
                           CUStream_Seek_Origin) override {
    unsigned long long const count = std::min(size, m_most);
    m_bytes.append(buffer, buffer + count);
    streamLength = m_bytes.size();
    return count;
  }
  std::string const& Bytes() const { return m_bytes; }

 private:
  std::string m_bytes;
  unsigned long long m_most;
};

constexpr unsigned long long kAllAtOnce = ~0ull;

inline CUSharedPtr<CUStream> StreamOf(std::string const& bytes,
                                      unsigned long long most = kAllAtOnce) {
  return new ShortStream(bytes, most);
}

// The mark of a status in front of what it left: nothing for success.
inline std::string Said(unsigned int status) {
  return status == CUResult_Success ? "" : status == CUResult_Failed ? "failed " : "? ";
}

// The tree of the document after loading, and "failed " in front where that failed.
inline std::string LoadedFrom(CUSharedPtr<CUStream> const& stream) {
  CUSharedPtr<CUXmlDomDocumentNode> const document = new CUXmlDomDocumentNode;
  std::string const said = Said(document->LoadXml(stream));
  return said + Show(document);
}
inline std::string Loaded(std::string const& bytes) { return LoadedFrom(StreamOf(bytes)); }

// What the document writes; "failed" where that failed.
inline std::string Written(CUXmlDomDocumentNode& document) {
  CUSharedPtr<ShortStream> const stream = new ShortStream("", kAllAtOnce);
  unsigned int const status = document.WriteXml(stream);
  if (status != CUResult_Success) return status == CUResult_XmlWriteFailed ? "failed" : "?";
  return stream->Bytes();
}
