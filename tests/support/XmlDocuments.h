#pragma once

// Documents in one line of text, to and from trees.

#include <string>

#include "QuillmereLib/xml/CUXmlDomDocumentNode.h"
#include "tests/support/ShortStream.h"
#include "tests/support/Strings.h"

// A node and its subtree: name[key=value](children) of an element, 'text', ?target=data, &entity;
// of other kinds the kind. An object that is no node is "-".
inline std::string Show(CUSharedPtr<CUObject> const& object) {
  auto* const node = dynamic_cast<CUXmlDomNode*>(object.Get());
  if (node == nullptr) return "-";
  std::string shown;
  switch (node->GetNodeType()) {
    case Node_Text:
      return "'" + Utf8(node->GetNodeValue()) + "'";
    case Node_Processing_Instruction:
      return "?" + Utf8(node->GetNodeName()) + "=" + Utf8(node->GetNodeValue());
    case Node_Entity_Reference:
      return "&" + Utf8(node->GetNodeName()) + ";";
    case Node_Element: {
      shown = Utf8(node->GetNodeName());
      CUSharedPtr<CUArray> const keys = node->GetAttributes()->AllKeys();
      for (unsigned int i = 0; i < keys->Count(); ++i) {
        CUSharedPtr<CUStringMac> const key(
            dynamic_cast<CUStringMac*>(keys->ObjectAtIndex(i).Get()));
        shown += (i == 0 ? "[" : " ") + Utf8(key) + "=" + Utf8(node->GetAttribute(key));
      }
      if (keys->Count() != 0) shown += "]";
      break;
    }
    case Node_Document:
      break;
    default:
      return Utf8(node->GetXmlDomNodeTypeString(node->GetNodeType()));
  }
  CUSharedPtr<CUMutableArray> const children = node->GetChildNodes();
  shown += "(";
  for (unsigned int i = 0; i < children->Count(); ++i) {
    shown += (i == 0 ? "" : " ") + Show(children->ObjectAtIndex(i));
  }
  return shown + ")";
}

constexpr unsigned long long kAllAtOnce = ~0ull;

inline CUSharedPtr<CUStream> StreamOf(std::string const& bytes,
                                      unsigned long long most = kAllAtOnce) {
  return new ShortStream(bytes, most);
}

// The tree of the document after loading, and "failed " in front where that failed.
inline std::string Loaded(std::string const& bytes) {
  CUSharedPtr<CUXmlDomDocumentNode> const document = new CUXmlDomDocumentNode;
  unsigned int const status = document->LoadXml(StreamOf(bytes));
  return (status == CUResult_Success ? "" : "failed ") + Show(document);
}

// What the document writes; "failed" where that failed.
inline std::string Written(CUXmlDomDocumentNode& document) {
  CUSharedPtr<ShortStream> const stream = new ShortStream("", kAllAtOnce);
  unsigned int const status = document.WriteXml(stream);
  if (status != CUResult_Success) return status == CUResult_XmlWriteFailed ? "failed" : "?";
  return stream->Bytes();
}
