// The way from the tree of a document to a stream.

#include <CoreFoundation/CoreFoundation.h>

#include <utility>

#include "QuillmereLib/core/CFHolder.h"
#include "QuillmereLib/xml/CUXmlDomDocumentNode.h"
#include "QuillmereLib/xml/NodeText.h"

namespace {

constexpr int kMostLevels = 1024;
constexpr CFIndex kNodeVersion = 1;

// What this thread is converting. A child that fails is passed over as long as others follow it;
// but where memory runs out, or the tree does not end, the whole has failed.
struct Conversion {
  int levels = 0;
  bool isAbandoned = false;
};
thread_local Conversion conversion;

// Within the life of one the conversion goes one level down. The first begins it afresh.
class Level {
 public:
  Level() {
    if (conversion.levels++ == 0) conversion.isAbandoned = false;
    if (conversion.levels > kMostLevels + 1) conversion.isAbandoned = true;
  }
  Level(Level const&) = delete;
  Level& operator=(Level const&) = delete;
  ~Level() { --conversion.levels; }
};

unsigned int Abandon() {
  conversion.isAbandoned = true;
  return CUResult_Failed;
}

// Appends a new tree, which is let go here; null is one for which there was no memory.
unsigned int Append(CFTreeRef parent, CFTreeRef made) {
  if (made == nullptr) return Abandon();
  CFHolder<CFTreeRef> const child(made);
  CFTreeAppendChild(parent, child.Get());
  return CUResult_Success;
}

CFTreeRef CreateTree(CFXMLNodeTypeCode type, CFStringRef string, void const* info) {
  if (string == nullptr) return nullptr;
  CFHolder<CFXMLNodeRef> const node(
      CFXMLNodeCreate(kCFAllocatorDefault, type, string, info, kNodeVersion));
  return node ? CFXMLTreeCreateWithNode(kCFAllocatorDefault, node.Get()) : nullptr;
}

// Reaches the entries of a dictionary where they stand, so that no key is copied or looked up.
struct DictionaryEntries : CUDictionary {
  static Entries const& Of(CUDictionary const& dictionary) {
    return dictionary.*(&DictionaryEntries::m_map);
  }
};

// The attributes of an element as the platform takes them.
class Attributes {
 public:
  explicit Attributes(CFIndex count)
      : m_values(CFDictionaryCreateMutable(kCFAllocatorDefault, count,
                                           &kCFTypeDictionaryKeyCallBacks,
                                           &kCFTypeDictionaryValueCallBacks)),
        m_order(CFArrayCreateMutable(kCFAllocatorDefault, count, &kCFTypeArrayCallBacks)) {}

  // Takes all whose key and value are text, in the order of the keys. False when memory runs out.
  bool Take(CUDictionary& attributes) {
    if (!m_values || !m_order) return false;
    for (auto const& [key, object] : DictionaryEntries::Of(attributes)) {
      CFStringRef const name = key;
      CFStringRef const value = PlatformString(dynamic_cast<CUStringMac*>(object.Get()));
      if (name != nullptr && value != nullptr && !Add(name, value)) return false;
    }
    return true;
  }

  CFXMLElementInfo Info() const { return {m_values.Get(), m_order.Get(), false, {}}; }

 private:
  bool Add(CFStringRef key, CFStringRef value) {
    CFIndex const count = CFArrayGetCount(m_order.Get());
    CFDictionaryAddValue(m_values.Get(), key, value);
    CFArrayAppendValue(m_order.Get(), key);
    return CFDictionaryGetCount(m_values.Get()) == count + 1 &&
           CFArrayGetCount(m_order.Get()) == count + 1;
  }

  CFHolder<CFMutableDictionaryRef> m_values;
  CFHolder<CFMutableArrayRef> m_order;
};

}  // namespace

unsigned int CUXmlDomDocumentNode::WriteXml(CUSharedPtr<CUStream> stream) {
  return WriteXmlMac(std::move(stream));
}

unsigned int CUXmlDomDocumentNode::WriteXmlMac(CUSharedPtr<CUStream> stream) {
  if (stream == nullptr) return CUResult_Failed;
  CFXMLDocumentInfo const info = {nullptr, kCFStringEncodingUTF8};
  CFHolder<CFXMLTreeRef> const tree(CreateDocumentTreeMac(&info));
  if (!tree) return CUResult_XmlWriteFailed;
  if (CUFailed(MakeUpChildNodes_CU2OS_Mac(this, tree.Get()))) return CUResult_XmlWriteFailed;
  CFHolder<CFDataRef> const data(CFXMLTreeCreateXMLData(kCFAllocatorDefault, tree.Get()));
  if (!data) return CUResult_XmlWriteFailed;
  unsigned long long const written =
      stream->WriteCFData(data.Get(), 0, CUStream_Seek_Origin_Current);
  return written == static_cast<unsigned long long>(CFDataGetLength(data.Get()))
             ? CUResult_Success
             : CUResult_XmlWriteFailed;
}

unsigned int CUXmlDomDocumentNode::MakeUpChildNodes_CU2OS_Mac(CUXmlDomNode* node, __CFTree* tree) {
  if (node == nullptr || tree == nullptr) return CUResult_Failed;
  Level const level;
  if (conversion.isAbandoned) return CUResult_Failed;
  CUSharedPtr<CUMutableArray> const children = node->GetChildNodes();
  if (children == nullptr) return CUResult_Success;
  unsigned int status = CUResult_Success;
  unsigned int const count = children->Count();
  for (unsigned int i = 0; i < count; ++i) {
    CUSharedPtr<CUObject> const child = children->ObjectAtIndex(i);
    status = MakeUpOSXmlDomNodeInstanceMac(dynamic_cast<CUXmlDomNode*>(child.Get()), tree);
    if (conversion.isAbandoned) return CUResult_Failed;
  }
  return status;
}

unsigned int CUXmlDomDocumentNode::MakeUpOSXmlDomNodeInstanceMac(CUSharedPtr<CUXmlDomNode> node,
                                                                 __CFTree* tree) {
  if (tree == nullptr || node == nullptr) return CUResult_Failed;
  switch (node->GetNodeType()) {
    case Node_Processing_Instruction:
      return MakeUpOSXmlDomProcessingInstructionNodeInstanceMac(std::move(node), tree);
    case Node_Text:
      return MakeUpOSXmlDomTextNodeInstanceMac(std::move(node), tree);
    case Node_Element:
      return MakeUpOSXmlDomElementNodeInstanceMac(std::move(node), tree);
    default:
      return CUResult_Failed;
  }
}

unsigned int CUXmlDomDocumentNode::MakeUpOSXmlDomElementNodeInstanceMac(
    CUSharedPtr<CUXmlDomNode> node, __CFTree* tree) {
  if (tree == nullptr || node == nullptr) return CUResult_Failed;
  CUSharedPtr<CUStringMac> const name = node->GetNodeName();
  CUSharedPtr<CUDictionary> const attributes = node->GetAttributes();
  if (PlatformString(name.Get()) == nullptr || attributes == nullptr) return CUResult_Failed;

  CFHolder<CFXMLTreeRef> element(nullptr);
  {
    Attributes taken(static_cast<CFIndex>(attributes->Count()));
    if (!taken.Take(*attributes)) return Abandon();
    CFXMLElementInfo const info = taken.Info();
    element.Reset(CreateElementTreeMac(PlatformString(name.Get()), &info));
  }
  if (!element) return Abandon();
  unsigned int const status = MakeUpChildNodes_CU2OS_Mac(node.Get(), element.Get());
  if (!CUFailed(status)) CFTreeAppendChild(tree, element.Get());
  return status;
}

unsigned int CUXmlDomDocumentNode::MakeUpOSXmlDomTextNodeInstanceMac(CUSharedPtr<CUXmlDomNode> node,
                                                                     __CFTree* tree) {
  if (tree == nullptr || node == nullptr) return CUResult_Failed;
  CUSharedPtr<CUStringMac> const value = node->GetNodeValue();
  CFStringRef const text = PlatformString(value.Get());
  return text != nullptr ? Append(tree, CreateTextTreeMac(text)) : CUResult_Failed;
}

unsigned int CUXmlDomDocumentNode::MakeUpOSXmlDomProcessingInstructionNodeInstanceMac(
    CUSharedPtr<CUXmlDomNode> node, __CFTree* tree) {
  if (tree == nullptr || node == nullptr) return CUResult_Failed;
  CUSharedPtr<CUStringMac> const name = node->GetNodeName();
  CUSharedPtr<CUStringMac> const value = node->GetNodeValue();
  CFStringRef const target = PlatformString(name.Get());
  if (target == nullptr || value == nullptr) return CUResult_Failed;
  CFXMLProcessingInstructionInfo const info = {PlatformString(value.Get())};
  return Append(tree, CreateProcessingInstructionTreeMac(target, &info));
}

unsigned int CUXmlDomDocumentNode::MakeUpOSXmlDomEntityReferenceNodeInstanceMac(
    CUSharedPtr<CUXmlDomNode> node, __CFTree* tree) {
  if (tree == nullptr || node == nullptr) return CUResult_Failed;
  CUSharedPtr<CUStringMac> const name = node->GetNodeName();
  CFStringRef const entity = PlatformString(name.Get());
  if (entity == nullptr) return CUResult_Failed;
  CFXMLEntityReferenceInfo const info = {kCFXMLEntityTypeParsedInternal};
  return Append(tree, CreateEntityReferenceTreeMac(entity, &info));
}

__CFTree* CUXmlDomDocumentNode::CreateDocumentTreeMac(CFXMLDocumentInfo const* info) {
  return CreateTree(kCFXMLNodeTypeDocument, CFSTR(""), info);
}

__CFTree* CUXmlDomDocumentNode::CreateElementTreeMac(__CFString const* name,
                                                     CFXMLElementInfo const* info) {
  return CreateTree(kCFXMLNodeTypeElement, name, info);
}

__CFTree* CUXmlDomDocumentNode::CreateTextTreeMac(__CFString const* text) {
  if (text == nullptr) return nullptr;
  CFHolder<CFStringRef> const escaped(
      CFXMLCreateStringByEscapingEntities(kCFAllocatorDefault, text, nullptr));
  return CreateTree(kCFXMLNodeTypeText, escaped.Get(), nullptr);
}

__CFTree* CUXmlDomDocumentNode::CreateProcessingInstructionTreeMac(
    __CFString const* target, CFXMLProcessingInstructionInfo const* info) {
  return CreateTree(kCFXMLNodeTypeProcessingInstruction, target, info);
}

__CFTree* CUXmlDomDocumentNode::CreateEntityReferenceTreeMac(__CFString const* name,
                                                             CFXMLEntityReferenceInfo const* info) {
  return CreateTree(kCFXMLNodeTypeEntityReference, name, info);
}
