#pragma once

// CUXmlDomNode, a node of a document's tree, and its kinds. The document itself, which makes nodes,
// loads and writes, is CUXmlDomDocumentNode.

#include "QuillmereLib/collections/CUArray.h"
#include "QuillmereLib/collections/CUDictionary.h"
#include "QuillmereLib/core/CUExport.h"
#include "QuillmereLib/core/CUObject.h"
#include "QuillmereLib/core/CUResult.h"
#include "QuillmereLib/core/CUSharedPtr.h"
#include "QuillmereLib/strings/CUStringMac.h"

// Numbered as the W3C's DOM does. The kinds that no class here sets are for callers' own.
enum _CUXmlDomNodeType : unsigned int {
  Node_Unknown = 0,
  Node_Element = 1,
  Node_Attribute = 2,
  Node_Text = 3,
  Node_Cdata_Section = 4,
  Node_Entity_Reference = 5,
  Node_Entity = 6,
  Node_Processing_Instruction = 7,
  Node_Comment = 8,
  Node_Document = 9,
  Node_Document_Type = 10,
  Node_Document_Fragment = 11,
  Node_Notation = 12
};

// A node knows its children and nothing else: no parent, no siblings, no document. The tree is
// changed through the array that GetChildNodes gives. A node may stand in several arrays; one that
// is its own descendant is never destroyed.
//
// Setters return CUResult_Success, or CUResult_Failed (0x10001) with the node unchanged where the
// kind refuses them: a silent no to every call of that kind. Only std::bad_alloc is ever thrown.
//
// There is no lock: a tree that is being changed must not be read meanwhile. Trees of any depth can
// be built and destroyed; how deep they are dumped and written is told there.
class QUILLMERE_API CUXmlDomNode : public CUObject {
 public:
  // Of no kind, without children and attributes.
  CUXmlDomNode() = default;
  CUXmlDomNode(CUXmlDomNode const&) = delete;
  CUXmlDomNode& operator=(CUXmlDomNode const&) = delete;
  using CUObject::operator=;

  // Subtrees that nothing else holds go one after the other, whatever their depth.
  ~CUXmlDomNode() override;

  // What DumpDOMNode says of this node, not indented.
  CUSharedPtr<CUStringMac> Description() override;

  // The tag name, target or entity name; "#text" and "#document" of those kinds. The string itself,
  // as with all that follows; null if there is none.
  virtual CUSharedPtr<CUStringMac> GetNodeName();

  virtual _CUXmlDomNodeType GetNodeType();

  // Null for a null or unknown key, and on all but elements. The text stands as in the document,
  // between its quotes: references in it are not replaced.
  virtual CUSharedPtr<CUStringMac> GetAttribute(CUSharedPtr<CUStringMac> key);

  // All attributes in the order of their names, of which two that the collation of the locale calls
  // equal are one; null on all but elements.
  virtual CUSharedPtr<CUDictionary> GetAttributes();

  // The text, or the data of a processing instruction.
  virtual CUSharedPtr<CUStringMac> GetNodeValue();

  // Null clears the name.
  virtual unsigned int SetNodeName(CUSharedPtr<CUStringMac> name);

  // Adds an attribute, or replaces its value. Nothing is checked or escaped: a value must be in the
  // form in which it is to stand in the document. A null value makes an attribute that is not
  // written. Fails for a null key and on all but elements.
  virtual unsigned int SetAttribute(CUSharedPtr<CUStringMac> key, CUSharedPtr<CUStringMac> value);

  // Null clears the value. Text is given as it reads: it is escaped when written.
  virtual unsigned int SetNodeValue(CUSharedPtr<CUStringMac> value);

  // The living array of the children, by which they are changed; null on kinds that have none.
  virtual CUSharedPtr<CUMutableArray> GetChildNodes();

  // Appends to `out` some lines on `node`, each behind `depth` tabs, and on its subtree, each level
  // behind one tab more; nothing for null. "Invalid" stands for what a node does not have. What
  // lies more than 1025 levels below is left out (a loaded document has no such nodes), as are the
  // children of a node within its own dump, as its own descendant.
  void DumpDOMNode(CUXmlDomNode* node, int depth, CUStringMac& out);

  // The enumerator's name; "Node_Unknown" for all else.
  CUSharedPtr<CUStringMac> GetXmlDomNodeTypeString(_CUXmlDomNodeType type);

  // So many tabs; none for a negative number.
  CUStringMac IndentString(int depth);

 protected:
  CUSharedPtr<CUStringMac> nodeName;
  _CUXmlDomNodeType nodeType = Node_Unknown;
  CUSharedPtr<CUStringMac> nodeValue;
  CUSharedPtr<CUMutableArray> childNodes;
  CUSharedPtr<CUMutableDictionary> attributes;

 private:
  friend class CUXmlDomLoader;  // which fills the nodes that it makes
};

// Has children and attributes; has no value.
class QUILLMERE_API CUXmlDomElementNode : public CUXmlDomNode {
 public:
  CUXmlDomElementNode();
  ~CUXmlDomElementNode() override;

  unsigned int SetNodeValue(CUSharedPtr<CUStringMac> value) override;
};

// The base of text: a value, and a name that cannot be set.
class QUILLMERE_API CUXmlDomCharacterDataNode : public CUXmlDomNode {
 public:
  CUXmlDomCharacterDataNode() = default;
  ~CUXmlDomCharacterDataNode() override;

  unsigned int SetNodeName(CUSharedPtr<CUStringMac> name) override;
  unsigned int SetAttribute(CUSharedPtr<CUStringMac> key, CUSharedPtr<CUStringMac> value) override;
};

class QUILLMERE_API CUXmlDomTextNode : public CUXmlDomCharacterDataNode {
 public:
  CUXmlDomTextNode();
  ~CUXmlDomTextNode() override;
};

// The target is its name, the data its value.
class QUILLMERE_API CUXmlDomProcessingInstructionNode : public CUXmlDomNode {
 public:
  CUXmlDomProcessingInstructionNode();
  ~CUXmlDomProcessingInstructionNode() override;

  unsigned int SetAttribute(CUSharedPtr<CUStringMac> key, CUSharedPtr<CUStringMac> value) override;
};

// Has a name alone. No document holds one after loading, and none is written.
class QUILLMERE_API CUXmlDomEntityReferenceNode : public CUXmlDomNode {
 public:
  CUXmlDomEntityReferenceNode();
  ~CUXmlDomEntityReferenceNode() override;

  unsigned int SetAttribute(CUSharedPtr<CUStringMac> key, CUSharedPtr<CUStringMac> value) override;
  unsigned int SetNodeValue(CUSharedPtr<CUStringMac> value) override;
};
