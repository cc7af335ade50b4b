#include "XmlNodes.h"

#include "VisibleText.h"

CUSharedPtr<CUXmlDomDocumentNode> LoadDocument(CUSharedPtr<CUStringMac> path) {
  CUSharedPtr<CUFileStream> const file =
      new CUFileStream(path, CUStream_FileMode_Open, CUStream_FileAccess_Read, true);
  CUSharedPtr<CUXmlDomDocumentNode> document = new CUXmlDomDocumentNode;
  return file->CanRead() && document->LoadXml(file) == 0 ? document : nullptr;
}

CUSharedPtr<CUXmlDomNode> RootElement(CUXmlDomDocumentNode& document, std::string const& name) {
  CUSharedPtr<CUMutableArray> const nodes = document.GetChildNodes();
  for (unsigned int i = 0; i < nodes->Count(); ++i) {
    CUSharedPtr<CUXmlDomNode> const node = NodeAt(*nodes, i);
    if (node == nullptr || node->GetNodeType() != Node_Element) continue;
    return Utf8Of(*node->GetNodeName()) == name ? node : nullptr;
  }
  return nullptr;
}

CUSharedPtr<CUXmlDomNode> NodeAt(CUArray& nodes, unsigned int index) {
  return dynamic_cast<CUXmlDomNode*>(nodes.ObjectAtIndex(index).Get());
}

std::string AttributeText(std::string const& text) {
  std::string escaped;
  for (char const unit : text) {
    switch (unit) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      default:
        escaped += unit;
    }
  }
  return escaped;
}

void SetText(CUXmlDomNode& element, char const* name, std::string const& text) {
  element.SetAttribute(StringOf(name), StringOf(AttributeText(text)));
}

std::string TextOf(CUXmlDomNode& element, char const* name) {
  CUSharedPtr<CUStringMac> const text = element.GetAttribute(StringOf(name));
  return text != nullptr ? Utf8Of(*text) : "";
}
