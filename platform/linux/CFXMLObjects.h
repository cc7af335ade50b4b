#pragma once

#include <CoreFoundation/CFTree.h>
#include <CoreFoundation/CFXMLNode.h>

#include "platform/linux/CFObject.h"

// The record of a node, of the member that its kind has.
union XmlNodeInfo {
  CFXMLDocumentInfo document;
  CFXMLElementInfo element;
  CFXMLProcessingInstructionInfo processingInstruction;
  CFXMLEntityReferenceInfo entityReference;
};

struct __CFXMLNode final : CFObject {
  // Takes over one reference on the string, as on all that is put in later.
  __CFXMLNode(CFXMLNodeTypeCode kind, CFStringRef text)
      : type(static_cast<unsigned char>(kind)), string(text) {
    info.element = {};
  }
  ~__CFXMLNode() override;

  // One byte each, which have room within the head of the object: there are many nodes.
  unsigned char const type;  // a CFXMLNodeTypeCode
  bool hasInfo = false;
  CFStringRef const string;  // or null
  XmlNodeInfo info;          // zeroes if not `hasInfo`
};

// Children are linked from the first to the last. The one that was asked for last is kept at hand,
// so that going through them all takes one step each.
struct __CFTree final : CFObject {
  // Takes over one reference on the node.
  explicit __CFTree(CFXMLNodeRef carried) : node(carried) {}
  ~__CFTree() override;

  // Takes over one reference on the child.
  void Append(CFTreeRef child) {
    (lastChild != nullptr ? lastChild->nextSibling : firstChild) = child;
    lastChild = child;
    ++childCount;
  }

  CFXMLNodeRef const node;
  CFTreeRef firstChild = nullptr;
  CFTreeRef lastChild = nullptr;
  CFTreeRef nextSibling = nullptr;
  CFTreeRef recentChild = nullptr;
  CFIndex recentIndex = 0;
  CFIndex childCount = 0;
};
