#include "QuillmereLib/xml/CUXmlDomDocumentNode.h"

#include <utility>

#include "QuillmereLib/core/Create.h"
#include "QuillmereLib/xml/NodeText.h"

CUXmlDomDocumentNode::CUXmlDomDocumentNode() {
  nodeType = Node_Document;
  nodeName = NewString(CFSTR("#document"));
  childNodes = Create<CUMutableArray>();
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
  auto node = Create<CUXmlDomElementNode>();
  if (CUFailed(node->SetNodeName(std::move(name)))) return nullptr;
  return node;
}

CUSharedPtr<CUXmlDomTextNode> CUXmlDomDocumentNode::CreateTextNode(CUSharedPtr<CUStringMac> value) {
  if (value == nullptr) return nullptr;
  auto node = Create<CUXmlDomTextNode>();
  if (CUFailed(node->SetNodeValue(std::move(value)))) return nullptr;
  return node;
}

CUSharedPtr<CUXmlDomProcessingInstructionNode>
CUXmlDomDocumentNode::CreateProcessingInstructionNode(CUSharedPtr<CUStringMac> target,
                                                      CUSharedPtr<CUStringMac> data) {
  if (target == nullptr || data == nullptr) return nullptr;
  auto node = Create<CUXmlDomProcessingInstructionNode>();
  if (CUFailed(node->SetNodeName(std::move(target)))) return nullptr;
  if (CUFailed(node->SetNodeValue(std::move(data)))) return nullptr;
  return node;
}

CUSharedPtr<CUXmlDomEntityReferenceNode> CUXmlDomDocumentNode::CreateEntityReferenceNodeNode(
    CUSharedPtr<CUStringMac> name) {
  if (name == nullptr) return nullptr;
  auto node = Create<CUXmlDomEntityReferenceNode>();
  if (CUFailed(node->SetNodeName(std::move(name)))) return nullptr;
  return node;
}
