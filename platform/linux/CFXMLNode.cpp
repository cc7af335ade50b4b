#include <CoreFoundation/CFXMLNode.h>

#include <cstring>

#include "platform/linux/CFXMLObjects.h"

namespace {

void RetainIfAny(CFTypeRef object) {
  if (object != nullptr) CFRetain(object);
}

void ReleaseIfAny(CFTypeRef object) {
  if (object != nullptr) CFRelease(object);
}

// Calls `change` with each object that the record of a node refers to.
template <class Change>
void ForEachObject(__CFXMLNode const& node, Change change) {
  XmlNodeInfo const* const info = node.Info();
  if (info == nullptr) return;
  if (node.type == kCFXMLNodeTypeElement) {
    change(info->element.attributes);
    change(info->element.attributeOrder);
  } else if (node.type == kCFXMLNodeTypeProcessingInstruction) {
    change(info->processingInstruction.dataString);
  } else if (node.type == kCFXMLNodeTypeDocument) {
    change(info->document.sourceURL);
  }
}

// The size of the record that a kind of node has; 0 for a kind that has none.
std::size_t InfoSize(CFXMLNodeTypeCode type) {
  switch (type) {
    case kCFXMLNodeTypeDocument:
      return sizeof(CFXMLDocumentInfo);
    case kCFXMLNodeTypeElement:
      return sizeof(CFXMLElementInfo);
    case kCFXMLNodeTypeProcessingInstruction:
      return sizeof(CFXMLProcessingInstructionInfo);
    case kCFXMLNodeTypeEntityReference:
      return sizeof(CFXMLEntityReferenceInfo);
    default:
      return 0;
  }
}

}  // namespace

__CFXMLNode::~__CFXMLNode() {
  ReleaseIfAny(string);
  ForEachObject(*this, ReleaseIfAny);
}

CFXMLNodeRef CFXMLNodeCreate(CFAllocatorRef, CFXMLNodeTypeCode xmlType, CFStringRef string,
                             void const* additionalInfo, CFIndex) {
  std::size_t const infoSize = additionalInfo != nullptr ? InfoSize(xmlType) : 0;
  CFXMLNodeRef const node =
      MakeCFObject<__CFXMLNode>(infoSize != 0 ? sizeof(XmlNodeInfo) : 0, xmlType, string);
  if (node == nullptr) return nullptr;
  if (infoSize != 0) std::memcpy(&node->AddInfo(), additionalInfo, infoSize);
  RetainIfAny(string);
  ForEachObject(*node, RetainIfAny);
  return node;
}

CFXMLNodeTypeCode CFXMLNodeGetTypeCode(CFXMLNodeRef node) { return node->type; }

CFStringRef CFXMLNodeGetString(CFXMLNodeRef node) { return node->string; }

void const* CFXMLNodeGetInfoPtr(CFXMLNodeRef node) { return node->Info(); }

CFXMLTreeRef CFXMLTreeCreateWithNode(CFAllocatorRef, CFXMLNodeRef node) {
  CFXMLTreeRef const tree = MakeCFObject<__CFTree>(sizeof(__CFTree::Children), node, true);
  if (tree != nullptr) node->Retain();
  return tree;
}

CFXMLNodeRef CFXMLTreeGetNode(CFXMLTreeRef tree) { return tree->node; }
