#include "QuillmereLib/xml/CUXmlDomNode.h"

#include <utility>
#include <vector>

#include "QuillmereLib/core/Create.h"
#include "QuillmereLib/xml/NodeText.h"

namespace {

using ChildArrays = std::vector<CUSharedPtr<CUMutableArray>>;

// How deep within each other the nodes are that this thread is destroying, and the arrays that are
// to be let go by the outermost.
constexpr int kMostLevels = 64;
thread_local int levels = 0;
thread_local ChildArrays* waitingArrays = nullptr;

}  // namespace

// From some level on a node leaves its children to the outermost of those that are being destroyed,
// so that the stack does not grow with the depth of the tree. Only if there is no memory to do so,
// it does.
CUXmlDomNode::~CUXmlDomNode() {
  if (childNodes == nullptr || childNodes->Count() == 0) return;
  if (levels == kMostLevels) {
    try {
      waitingArrays->push_back(std::move(childNodes));
    } catch (...) {
    }
    return;
  }
  if (levels > 0) {
    ++levels;
    childNodes = nullptr;
    --levels;
    return;
  }
  ChildArrays waiting;
  waitingArrays = &waiting;
  levels = 1;
  childNodes = nullptr;
  while (!waiting.empty()) {
    CUSharedPtr<CUMutableArray> const next = std::move(waiting.back());
    waiting.pop_back();
  }
  levels = 0;
  waitingArrays = nullptr;
}

CUSharedPtr<CUStringMac> CUXmlDomNode::GetNodeName() { return nodeName; }

_CUXmlDomNodeType CUXmlDomNode::GetNodeType() { return nodeType; }

CUSharedPtr<CUStringMac> CUXmlDomNode::GetAttribute(CUSharedPtr<CUStringMac> key) {
  if (attributes == nullptr) return nullptr;
  return dynamic_cast<CUStringMac*>(attributes->ObjectForKey(std::move(key)).Get());
}

CUSharedPtr<CUDictionary> CUXmlDomNode::GetAttributes() { return attributes; }

CUSharedPtr<CUStringMac> CUXmlDomNode::GetNodeValue() { return nodeValue; }

unsigned int CUXmlDomNode::SetNodeName(CUSharedPtr<CUStringMac> name) {
  nodeName = std::move(name);
  return CUResult_Success;
}

unsigned int CUXmlDomNode::SetAttribute(CUSharedPtr<CUStringMac> key,
                                        CUSharedPtr<CUStringMac> value) {
  if (key == nullptr || attributes == nullptr) return CUResult_Failed;
  attributes->SetObjectForKey(std::move(value), std::move(key));
  return CUResult_Success;
}

unsigned int CUXmlDomNode::SetNodeValue(CUSharedPtr<CUStringMac> value) {
  nodeValue = std::move(value);
  return CUResult_Success;
}

CUSharedPtr<CUMutableArray> CUXmlDomNode::GetChildNodes() { return childNodes; }

CUXmlDomElementNode::CUXmlDomElementNode() {
  nodeType = Node_Element;
  childNodes = Create<CUMutableArray>();
  attributes = Create<CUMutableDictionary>();
}

CUXmlDomElementNode::~CUXmlDomElementNode() = default;

unsigned int CUXmlDomElementNode::SetNodeValue(CUSharedPtr<CUStringMac>) { return CUResult_Failed; }

CUXmlDomCharacterDataNode::~CUXmlDomCharacterDataNode() = default;

unsigned int CUXmlDomCharacterDataNode::SetNodeName(CUSharedPtr<CUStringMac>) {
  return CUResult_Failed;
}

unsigned int CUXmlDomCharacterDataNode::SetAttribute(CUSharedPtr<CUStringMac>,
                                                     CUSharedPtr<CUStringMac>) {
  return CUResult_Failed;
}

CUXmlDomTextNode::CUXmlDomTextNode() {
  nodeType = Node_Text;
  nodeName = NewString(CFSTR("#text"));
}

CUXmlDomTextNode::~CUXmlDomTextNode() = default;

CUXmlDomProcessingInstructionNode::CUXmlDomProcessingInstructionNode() {
  nodeType = Node_Processing_Instruction;
}

CUXmlDomProcessingInstructionNode::~CUXmlDomProcessingInstructionNode() = default;

unsigned int CUXmlDomProcessingInstructionNode::SetAttribute(CUSharedPtr<CUStringMac>,
                                                             CUSharedPtr<CUStringMac>) {
  return CUResult_Failed;
}

CUXmlDomEntityReferenceNode::CUXmlDomEntityReferenceNode() { nodeType = Node_Entity_Reference; }

CUXmlDomEntityReferenceNode::~CUXmlDomEntityReferenceNode() = default;

unsigned int CUXmlDomEntityReferenceNode::SetAttribute(CUSharedPtr<CUStringMac>,
                                                       CUSharedPtr<CUStringMac>) {
  return CUResult_Failed;
}

unsigned int CUXmlDomEntityReferenceNode::SetNodeValue(CUSharedPtr<CUStringMac>) {
  return CUResult_Failed;
}
