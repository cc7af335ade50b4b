#pragma once

// CUXmlDomDocumentNode, an XML document: the root of its tree, the maker of nodes, and the way from
// and to streams.

#include <CoreFoundation/CFXMLNode.h>

#include "QuillmereLib/core/CUExport.h"
#include "QuillmereLib/core/CUSharedPtr.h"
#include "QuillmereLib/streams/CUStream.h"
#include "QuillmereLib/xml/CUXmlDomNode.h"

struct __CFData;
struct __CFString;
struct __CFTree;

// Its children are the root element and the processing instructions around it, in document order.
// It has no value, no attributes, and a name that cannot be set.
//
//   CUSharedPtr<CUXmlDomDocumentNode> document = new CUXmlDomDocumentNode;
//   if (document->LoadXml(stream) == CUResult_Success) {
//     CUSharedPtr<CUXmlDomElementNode> note = document->CreateElementNode(name);
//     document->GetChildNodes()->LastObject() ...
//   }
class QUILLMERE_API CUXmlDomDocumentNode : public CUXmlDomNode {
 public:
  CUXmlDomDocumentNode();
  ~CUXmlDomDocumentNode() override;

  unsigned int SetNodeName(CUSharedPtr<CUStringMac> name) override;
  unsigned int SetAttribute(CUSharedPtr<CUStringMac> key, CUSharedPtr<CUStringMac> value) override;
  unsigned int SetNodeValue(CUSharedPtr<CUStringMac> value) override;

  // Appends the nodes of the document that the stream holds from its first byte to its last,
  // wherever its position stands, to the children. Returns CUResult_Success, or CUResult_Failed
  // with the children as they were; but what could be loaded in front of a top-level node that
  // cannot be, stays.
  //
  // What is in the tree differs from the source on purpose: all text directly inside an element
  // is one text node, where the first of it stood; attributes are in the order of their names;
  // white space that stands alone is left out, a reference being its neighbour too. Line ends in
  // text are line feeds. The five predefined references are replaced in text, and stay as they are
  // in attributes. The XML declaration is a processing instruction "xml", and tells UTF-8 if it
  // told another encoding, since that is what WriteXml writes.
  //
  // Not loaded are: what is not well formed; comments, CDATA sections and document types;
  // references other than the five; elements nested more than 1024 levels deep; a null stream, and
  // one that does not give all its bytes, by a narrower readable range for one. A byte-order mark
  // decides the encoding (UTF-8, UTF-16, UTF-32) against what is declared; else it is the one
  // declared, if the system knows it, or UTF-8.
  //
  // What the stream throws passes through; std::bad_alloc may be thrown.
  virtual unsigned int LoadXml(CUSharedPtr<CUStream> stream);

  // Writes the document in UTF-8, without a byte-order mark, at the stream's position, in one
  // write. Returns CUResult_Success, CUResult_Failed for a null stream, or CUResult_XmlWriteFailed
  // if the tree could not be written in whole or the stream took less than all. What was written
  // then stays.
  //
  // Text is escaped; names, attribute values and data stand as they were set, unchecked. A value is
  // enclosed in double quotes, or in single ones if it holds a double quote; one that holds both
  // gets its double quotes as &quot;. Elements always have both tags. Nothing stands between nodes,
  // and no declaration is added: one that tells another encoding than UTF-8 tells wrong.
  //
  // Nodes that cannot be written (of other kinds than element, text and processing instruction, or
  // lacking a name, attributes or value that their kind has) are left out silently; but the LAST
  // child of an element takes the element with it, and that of the document makes the call fail. A
  // tree that nests elements more than 1024 levels deep, such as one that holds itself, is not
  // written at all, nor is text with an unpaired surrogate, or a tree for which memory runs out:
  // the call fails and writes nothing.
  //
  // What the stream throws passes through: error code 5 of one that does not write.
  virtual unsigned int WriteXml(CUSharedPtr<CUStream> stream);

  // New nodes, attached to nothing: add them to an array of children. Null for a null argument.
  CUSharedPtr<CUXmlDomElementNode> CreateElementNode(CUSharedPtr<CUStringMac> name);
  CUSharedPtr<CUXmlDomTextNode> CreateTextNode(CUSharedPtr<CUStringMac> value);
  CUSharedPtr<CUXmlDomProcessingInstructionNode> CreateProcessingInstructionNode(
      CUSharedPtr<CUStringMac> target, CUSharedPtr<CUStringMac> data);
  CUSharedPtr<CUXmlDomEntityReferenceNode> CreateEntityReferenceNodeNode(
      CUSharedPtr<CUStringMac> name);

 protected:
  // What follows works on the platform's tree. All return CUResult_Success or CUResult_Failed, the
  // first of loading and of writing what the public operations do.

  unsigned int LoadXmlMac(CUSharedPtr<CUStream> stream);

  // A new data object with all bytes of the stream, for the caller to release; null on failure.
  __CFData const* CreateCFDataFromStreamMac(CUSharedPtr<CUStream> stream);

  // Makes the children of `tree` children of `parent`, up to the first that fails.
  unsigned int MakeUpChildNodes_OS2CU_Mac(__CFTree* tree, CUXmlDomNode* parent);

  // Each makes the node of `tree`, with its subtree, and appends it to `children`.
  unsigned int MakeUpCuXmlDomNodeInstanceMac(__CFTree* tree, CUSharedPtr<CUMutableArray> children);
  unsigned int MakeUpCuXmlDomElementNodeInstanceMac(__CFTree* tree,
                                                    CUSharedPtr<CUMutableArray> children);
  unsigned int MakeUpCuXmlDomTextNodeInstanceMac(__CFTree* tree,
                                                 CUSharedPtr<CUMutableArray> children);
  unsigned int MakeUpCuXmlDomProcessingInstructionNodeInstanceMac(
      __CFTree* tree, CUSharedPtr<CUMutableArray> children);
  unsigned int MakeUpCuXmlDomEntityReferenceNodeInstanceMac(__CFTree* tree,
                                                            CUSharedPtr<CUMutableArray> children);

  // Puts one text node in the place of all text and predefined references among `children`, where
  // the first of them stood. Fails if there are other references: then these stay and all text is
  // gone.
  unsigned int CombineCuDomXmlEntityReferenceAndTextNodeMac(CUSharedPtr<CUMutableArray> children);

  unsigned int WriteXmlMac(CUSharedPtr<CUStream> stream);

  // Makes the children of `node` children of `tree`. Those that fail are left out; the status is
  // that of the last.
  unsigned int MakeUpChildNodes_CU2OS_Mac(CUXmlDomNode* node, __CFTree* tree);

  // Each makes the tree of `node` and appends it to `tree`. The first finds the one for the node's
  // kind, which is never the one for entity references.
  unsigned int MakeUpOSXmlDomNodeInstanceMac(CUSharedPtr<CUXmlDomNode> node, __CFTree* tree);
  unsigned int MakeUpOSXmlDomElementNodeInstanceMac(CUSharedPtr<CUXmlDomNode> node, __CFTree* tree);
  unsigned int MakeUpOSXmlDomTextNodeInstanceMac(CUSharedPtr<CUXmlDomNode> node, __CFTree* tree);
  unsigned int MakeUpOSXmlDomProcessingInstructionNodeInstanceMac(CUSharedPtr<CUXmlDomNode> node,
                                                                  __CFTree* tree);
  unsigned int MakeUpOSXmlDomEntityReferenceNodeInstanceMac(CUSharedPtr<CUXmlDomNode> node,
                                                            __CFTree* tree);

  // New trees of one node, for the caller to release; null for a null string, and when memory runs
  // out.
  __CFTree* CreateDocumentTreeMac(CFXMLDocumentInfo const* info);
  __CFTree* CreateElementTreeMac(__CFString const* name, CFXMLElementInfo const* info);
  __CFTree* CreateTextTreeMac(__CFString const* text);
  __CFTree* CreateProcessingInstructionTreeMac(__CFString const* target,
                                               CFXMLProcessingInstructionInfo const* info);
  __CFTree* CreateEntityReferenceTreeMac(__CFString const* name,
                                         CFXMLEntityReferenceInfo const* info);
};
