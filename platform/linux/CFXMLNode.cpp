#include <CoreFoundation/CFXMLNode.h>

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
  if (node.type == kCFXMLNodeTypeElement) {
    change(node.info.element.attributes);
    change(node.info.element.attributeOrder);
  } else if (node.type == kCFXMLNodeTypeProcessingInstruction) {
    change(node.info.processingInstruction.dataString);
  } else if (node.type == kCFXMLNodeTypeDocument) {
    change(node.info.document.sourceURL);
  }
}

// Copies the record that a caller gave; false for a kind that has none.
bool CopyInfo(CFXMLNodeTypeCode type, void const* given, XmlNodeInfo& info) {
  switch (type) {
    case kCFXMLNodeTypeDocument:
      info.document = *static_cast<CFXMLDocumentInfo const*>(given);
      return true;
    case kCFXMLNodeTypeElement:
      info.element = *static_cast<CFXMLElementInfo const*>(given);
      return true;
    case kCFXMLNodeTypeProcessingInstruction:
      info.processingInstruction = *static_cast<CFXMLProcessingInstructionInfo const*>(given);
      return true;
    case kCFXMLNodeTypeEntityReference:
      info.entityReference = *static_cast<CFXMLEntityReferenceInfo const*>(given);
      return true;
    default:
      return false;
  }
}

}  // namespace

__CFXMLNode::~__CFXMLNode() {
  ReleaseIfAny(string);
  ForEachObject(*this, ReleaseIfAny);
}

CFXMLNodeRef CFXMLNodeCreate(CFAllocatorRef, CFXMLNodeTypeCode xmlType, CFStringRef string,
                             void const* additionalInfo, CFIndex) {
  CFXMLNodeRef const node = MakeCFObject<__CFXMLNode>(0, xmlType, string);
  if (node == nullptr) return nullptr;
  node->hasInfo = additionalInfo != nullptr && CopyInfo(xmlType, additionalInfo, node->info);
  RetainIfAny(string);
  ForEachObject(*node, RetainIfAny);
  return node;
}

CFXMLNodeTypeCode CFXMLNodeGetTypeCode(CFXMLNodeRef node) { return node->type; }

CFStringRef CFXMLNodeGetString(CFXMLNodeRef node) { return node->string; }

void const* CFXMLNodeGetInfoPtr(CFXMLNodeRef node) { return node->hasInfo ? &node->info : nullptr; }

CFXMLTreeRef CFXMLTreeCreateWithNode(CFAllocatorRef, CFXMLNodeRef node) {
  CFXMLTreeRef const tree = MakeCFObject<__CFTree>(0, node);
  if (tree != nullptr) node->Retain();
  return tree;
}

CFXMLNodeRef CFXMLTreeGetNode(CFXMLTreeRef tree) { return tree->node; }
