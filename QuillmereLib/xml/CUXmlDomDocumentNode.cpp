#include "QuillmereLib/xml/CUXmlDomDocumentNode.h"

#include <utility>

#include "QuillmereLib/xml/NodeText.h"

CUXmlDomDocumentNode::CUXmlDomDocumentNode() {
  nodeType = Node_Document;
  nodeName = NewString(CFSTR("#document"));
  childNodes = new CUMutableArray;
}

CUXmlDomDocumentNode::~CUXmlDomDocumentNode() = default;

unsigned int CUXmlDomDocumentNode::SetNodeName(CUSharedPtr<CUStringMac>) { return CUResult_Failed; }

unsigned int CUXmlDomDocumentNode::SetAttribute(CUSharedPtr<CUStringMac>,
                                                CUSharedPtr<CUStringMac>) {
  return CUResult_Failed;
}

unsigned int CUXmlDomDocumentNode::SetNodeValue(CUSharedPtr<CUStringMac>) {
  return CUResult_Failed;
}

CUSharedPtr<CUXmlDomElementNode> CUXmlDomDocumentNode::CreateElementNode(
    CUSharedPtr<CUStringMac> name) {
  if (name == nullptr) return nullptr;
  CUSharedPtr<CUXmlDomElementNode> node = new CUXmlDomElementNode;
  return CUFailed(node->SetNodeName(std::move(name))) ? nullptr : node;
}

CUSharedPtr<CUXmlDomTextNode> CUXmlDomDocumentNode::CreateTextNode(CUSharedPtr<CUStringMac> value) {
  if (value == nullptr) return nullptr;
  CUSharedPtr<CUXmlDomTextNode> node = new CUXmlDomTextNode;
  return CUFailed(node->SetNodeValue(std::move(value))) ? nullptr : node;
}

CUSharedPtr<CUXmlDomProcessingInstructionNode>
CUXmlDomDocumentNode::CreateProcessingInstructionNode(CUSharedPtr<CUStringMac> target,
                                                      CUSharedPtr<CUStringMac> data) {
  if (target == nullptr || data == nullptr) return nullptr;
  CUSharedPtr<CUXmlDomProcessingInstructionNode> node = new CUXmlDomProcessingInstructionNode;
  bool const failed = CUFailed(node->SetNodeName(std::move(target))) ||
                      CUFailed(node->SetNodeValue(std::move(data)));
  return failed ? nullptr : node;
}

CUSharedPtr<CUXmlDomEntityReferenceNode> CUXmlDomDocumentNode::CreateEntityReferenceNodeNode(
    CUSharedPtr<CUStringMac> name) {
  if (name == nullptr) return nullptr;
  CUSharedPtr<CUXmlDomEntityReferenceNode> node = new CUXmlDomEntityReferenceNode;
  return CUFailed(node->SetNodeName(std::move(name))) ? nullptr : node;
}
