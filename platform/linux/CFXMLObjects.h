#pragma once

#include <CoreFoundation/CFTree.h>
#include <CoreFoundation/CFXMLNode.h>

#include <new>

#include "platform/linux/CFObject.h"

// The record of a node, of the member that its kind has. The largest stands first, so that a new
// record is zeroes throughout.
union XmlNodeInfo {
  CFXMLElementInfo element;
  CFXMLDocumentInfo document;
  CFXMLProcessingInstructionInfo processingInstruction;
  CFXMLEntityReferenceInfo entityReference;
};

// There are many nodes and trees, and going through them costs what reading their memory does. So
// each is no larger than its kind calls for: what only some kinds have lies behind the object.
struct __CFXMLNode final : CFObject {
  // Takes over one reference on the string, as on all that is put in later. The block must have
  // room for a record behind the node if it is to get one.
  __CFXMLNode(CFXMLNodeTypeCode kind, CFStringRef text)
      : type(static_cast<unsigned char>(kind)), string(text) {}
  ~__CFXMLNode() override;

  XmlNodeInfo const* Info() const {
    return hasInfo ? reinterpret_cast<XmlNodeInfo const*>(this + 1) : nullptr;
  }
  // From now on the node has a record: zeroes, for the caller to fill in.
  XmlNodeInfo& AddInfo() {
    hasInfo = true;
    return *new (static_cast<void*>(this + 1)) XmlNodeInfo{};
  }

  // One byte each, which have room within the head of the object.
  unsigned char const type;  // a CFXMLNodeTypeCode
  bool hasInfo = false;
  CFStringRef const string;  // or null
};

struct __CFTree final : CFObject {
  // The children are linked from the first to the last. The one that was asked for last is kept at
  // hand, so that going through them all takes one step each.
  struct Children {
    CFTreeRef first = nullptr;
    CFTreeRef last = nullptr;
    CFTreeRef recent = nullptr;
    CFIndex recentIndex = 0;
    CFIndex count = 0;
  };

  // Takes over one reference on the node. The block must have room for children behind the tree if
  // it may get any.
  __CFTree(CFXMLNodeRef carried, bool mayHaveChildren) : hasRoom(mayHaveChildren), node(carried) {
    if (hasRoom) new (static_cast<void*>(this + 1)) Children;
  }
  ~__CFTree() override;

  // Takes over one reference on the child. The tree must be one that may have children.
  void Append(CFTreeRef child) {
    Children& children = *ChildrenIfAny();
    (children.last != nullptr ? children.last->nextSibling : children.first) = child;
    children.last = child;
    ++children.count;
  }

  // Null where there can be none.
  Children* ChildrenIfAny() { return hasRoom ? reinterpret_cast<Children*>(this + 1) : nullptr; }
  CFTreeRef FirstChild() { return hasRoom ? ChildrenIfAny()->first : nullptr; }

  bool const hasRoom;
  CFXMLNodeRef const node;
  CFTreeRef nextSibling = nullptr;
};
