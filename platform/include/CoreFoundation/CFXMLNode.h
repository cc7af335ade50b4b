#pragma once

// The nodes of a document. A node knows its kind and its own data; where it stands is told by the
// tree that carries it. Nodes are immutable. Makers return null when memory runs out.

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFString.h>
#include <CoreFoundation/CFTree.h>
#include <CoreFoundation/CFURL.h>

typedef struct __CFXMLNode* CFXMLNodeRef;
typedef CFTreeRef CFXMLTreeRef;

// Kinds of nodes, with what the string of a node is, and its record of further data.
typedef CFIndex CFXMLNodeTypeCode;
enum : CFXMLNodeTypeCode {
  kCFXMLNodeTypeDocument = 1,               // empty; CFXMLDocumentInfo
  kCFXMLNodeTypeElement = 2,                // tag name; CFXMLElementInfo
  kCFXMLNodeTypeProcessingInstruction = 4,  // target; CFXMLProcessingInstructionInfo
  kCFXMLNodeTypeComment = 5,                // what stands in it; none
  kCFXMLNodeTypeText = 6,                   // the text; none
  kCFXMLNodeTypeCDATASection = 7,           // the text; none
  kCFXMLNodeTypeEntityReference = 10,       // name, bare; CFXMLEntityReferenceInfo
  kCFXMLNodeTypeDocumentType = 11           // name of the root element; none
};

struct CFXMLDocumentInfo {
  CFURLRef sourceURL;         // or null
  CFStringEncoding encoding;  // that it is written in
};

struct CFXMLElementInfo {
  CFDictionaryRef attributes;  // names to values, both strings; null for none
  CFArrayRef attributeOrder;   // names in the order of writing; null for that of the dictionary
  Boolean isEmpty;             // without children it is one tag, `<name/>`
  char _reserved[3];
};

struct CFXMLProcessingInstructionInfo {
  CFStringRef dataString;  // or null
};

typedef CFIndex CFXMLEntityTypeCode;
enum : CFXMLEntityTypeCode {
  kCFXMLEntityTypeParsedInternal = 1,
  kCFXMLEntityTypeCharacter = 4  // a character by its number
};

struct CFXMLEntityReferenceInfo {
  CFXMLEntityTypeCode entityType;
};

// A node of the kind `xmlType`, one of those above. `string` may be null. `additionalInfo` points
// at the record of the kind, or is null; what it refers to is retained, and must not be changed
// from then on. `version` is ignored.
CF_INSIDE CFXMLNodeRef CFXMLNodeCreate(CFAllocatorRef allocator, CFXMLNodeTypeCode xmlType,
                                       CFStringRef string, void const* additionalInfo,
                                       CFIndex version);

CF_INSIDE CFXMLNodeTypeCode CFXMLNodeGetTypeCode(CFXMLNodeRef node);

// Lent, or null if the node was made without.
CF_INSIDE CFStringRef CFXMLNodeGetString(CFXMLNodeRef node);

// The record of the node's kind, lent, or null if the node was made without.
CF_INSIDE void const* CFXMLNodeGetInfoPtr(CFXMLNodeRef node);

// A tree of one node, which it retains.
CF_INSIDE CFXMLTreeRef CFXMLTreeCreateWithNode(CFAllocatorRef allocator, CFXMLNodeRef node);

// The node that the top of `tree` carries, lent.
CF_INSIDE CFXMLNodeRef CFXMLTreeGetNode(CFXMLTreeRef tree);
