// The way from a stream to the tree of a document.

#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

#include "QuillmereLib/core/CFHolder.h"
#include "QuillmereLib/strings/TextBuilder.h"
#include "QuillmereLib/xml/CUXmlDomDocumentNode.h"
#include "QuillmereLib/xml/NodeText.h"

namespace {

struct FreeBlock {
  void operator()(void* block) const { std::free(block); }
};

using Objects = std::vector<CUSharedPtr<CUObject>>;

// The character that a reference with this name stands for; null for a name that is none of the
// five. Names are compared as CUStringMac does.
CFStringRef CharacterOf(CFStringRef name) {
  static struct {
    CFStringRef name;
    CFStringRef character;
  } const kPredefined[] = {{CFSTR("lt"), CFSTR("<")},
                           {CFSTR("gt"), CFSTR(">")},
                           {CFSTR("amp"), CFSTR("&")},
                           {CFSTR("quot"), CFSTR("\"")},
                           {CFSTR("apos"), CFSTR("'")}};
  if (name == nullptr) return nullptr;
  for (auto const& entity : kPredefined) {
    if (CFStringCompare(name, entity.name, kCFCompareLocalized) == kCFCompareEqualTo) {
      return entity.character;
    }
  }
  return nullptr;
}

CFXMLNodeRef ChildNode(CFTreeRef tree, CFIndex index) {
  return CFXMLTreeGetNode(CFTreeGetChildAtIndex(tree, index));
}

// Whether an element holds text and references alone, as most with text do.
bool IsText(CFTreeRef tree) {
  CFIndex const count = CFTreeGetChildCount(tree);
  for (CFIndex i = 0; i < count; ++i) {
    CFXMLNodeTypeCode const type = CFXMLNodeGetTypeCode(ChildNode(tree, i));
    if (type != kCFXMLNodeTypeText && type != kCFXMLNodeTypeEntityReference) return false;
  }
  return count != 0;
}

// What was made of the platform's strings. A document has few names, and the platform hands out one
// string many times: what was made last is kept, one a place, for as long as its tree lives.
template <class Made>
class RecentlyMade {
 public:
  // What `make` makes of a string, or made of it before; the default for null.
  template <class Make>
  Made const& Of(CFStringRef string, Make make) {
    Place& place = m_places[reinterpret_cast<std::uintptr_t>(string) / 16 % std::size(m_places)];
    if (place.string != string) {
      place.made = make(string);
      place.string = string;
    }
    return place.made;
  }

 private:
  struct Place {
    CFStringRef string = nullptr;
    Made made = {};
  };
  Place m_places[64];
};

// Looks at all children first and then moves those that stay in one pass, so that the work is in
// proportion to their number, and nothing has changed when memory runs out.
unsigned int CombineText(CUXmlDomDocumentNode& document, CUMutableArray& children) {
  Objects& objects = *children.GetInternalArray();
  std::vector<bool> goes(objects.size());
  TextBuilder mergedText;
  std::size_t firstIndex = 0;
  bool sawTextLike = false;
  bool sawUnknownEntity = false;

  for (std::size_t i = 0; i < goes.size() && i < objects.size(); ++i) {
    auto* const node = dynamic_cast<CUXmlDomNode*>(objects[i].Get());
    if (node == nullptr) continue;
    _CUXmlDomNodeType const type = node->GetNodeType();
    if (type != Node_Text && type != Node_Entity_Reference) continue;
    if (!sawTextLike) firstIndex = i;
    sawTextLike = true;
    CUSharedPtr<CUStringMac> const text =
        type == Node_Text ? node->GetNodeValue() : node->GetNodeName();
    CFStringRef piece = PlatformString(text.Get());
    if (type == Node_Entity_Reference) piece = CharacterOf(piece);
    if (type == Node_Entity_Reference && piece == nullptr) {
      sawUnknownEntity = true;
      continue;
    }
    mergedText.Append(piece);
    goes[i] = true;
  }
  if (!sawTextLike) return CUResult_Success;

  CUSharedPtr<CUObject> merged;
  if (!sawUnknownEntity) {
    merged = document.CreateTextNode(mergedText.Text());
    if (merged == nullptr) return CUResult_Failed;
  }
  std::size_t kept = firstIndex;
  if (merged != nullptr) objects[kept++] = std::move(merged);
  for (std::size_t i = kept; i < objects.size(); ++i) {
    if (i < goes.size() && goes[i]) continue;
    if (kept != i) objects[kept] = std::move(objects[i]);
    ++kept;
  }
  objects.resize(kept);
  return sawUnknownEntity ? CUResult_Failed : CUResult_Success;
}

}  // namespace

// Makes nodes of the platform's trees. Each operation appends the node of `tree`, with its subtree,
// to `children`, and tells whether it could.
class CUXmlDomLoader {
 public:
  explicit CUXmlDomLoader(CUXmlDomDocumentNode& document) : m_document(document) {}

  // All of the children of `tree`, up to the first that fails.
  unsigned int AddChildren(CFTreeRef tree, CUMutableArray& children);

  unsigned int Add(CFTreeRef tree, CUMutableArray& children);
  unsigned int AddElement(CFTreeRef tree, CUMutableArray& children);
  unsigned int AddText(CFTreeRef tree, CUMutableArray& children);
  unsigned int AddInstruction(CFTreeRef tree, CUMutableArray& children);
  unsigned int AddReference(CFTreeRef tree, CUMutableArray& children);

  // One of them by itself, which fails where there is nothing to work on.
  using Operation = unsigned int (CUXmlDomLoader::*)(CFTreeRef, CUMutableArray&);
  static unsigned int Do(Operation operation, CUXmlDomDocumentNode& document, CFTreeRef tree,
                         CUSharedPtr<CUMutableArray> const& children) {
    if (tree == nullptr || children == nullptr) return CUResult_Failed;
    return (CUXmlDomLoader(document).*operation)(tree, *children);
  }

 private:
  unsigned int SetAttributes(CUXmlDomElementNode& element, CFDictionaryRef attributes);
  unsigned int AddContent(CFTreeRef tree, CUMutableArray& children);
  CUSharedPtr<CUStringMac> MergedText(CFTreeRef tree);

  // The end of each: `node` is null where it could not be made.
  template <class Node>
  static unsigned int Append(CUSharedPtr<Node> node, CUMutableArray& children) {
    if (node == nullptr) return CUResult_Failed;
    children.AddObject(std::move(node));
    return CUResult_Success;
  }

  // What of an element's children calls for a merge.
  struct Pieces {
    bool CanStay() const { return texts <= 1 && references == 0; }
    std::size_t texts = 0;
    std::size_t references = 0;
  };

  CUXmlDomDocumentNode& m_document;
  RecentlyMade<CUSharedPtr<CUStringMac>> m_keys;
  RecentlyMade<CFStringRef> m_characters;
  Pieces m_pieces;                    // of the element that is being filled
  std::vector<void const*> m_merged;  // texts, lent
};

unsigned int CUXmlDomLoader::AddChildren(CFTreeRef tree, CUMutableArray& children) {
  CFIndex const count = CFTreeGetChildCount(tree);
  if (count < 1) return CUResult_Success;
  // Only at first: a document that is loaded into again and again must not grow by exact steps.
  Objects& objects = *children.GetInternalArray();
  if (objects.empty()) objects.reserve(static_cast<std::size_t>(count));
  unsigned int status = CUResult_Failed;
  for (CFIndex i = 0; i < count; ++i) {
    CFTreeRef const child = CFTreeGetChildAtIndex(tree, i);
    if (child == nullptr) continue;
    status = Add(child, children);
    if (CUFailed(status)) return status;
  }
  return status;
}

unsigned int CUXmlDomLoader::Add(CFTreeRef tree, CUMutableArray& children) {
  CFXMLNodeRef const node = CFXMLTreeGetNode(tree);
  if (node == nullptr) return CUResult_Failed;
  switch (CFXMLNodeGetTypeCode(node)) {
    case kCFXMLNodeTypeElement:
      return AddElement(tree, children);
    case kCFXMLNodeTypeProcessingInstruction:
      return AddInstruction(tree, children);
    case kCFXMLNodeTypeText:
      return AddText(tree, children);
    case kCFXMLNodeTypeEntityReference:
      return AddReference(tree, children);
    default:
      return CUResult_Failed;
  }
}

// Sets the attributes of the platform's dictionary.
unsigned int CUXmlDomLoader::SetAttributes(CUXmlDomElementNode& element,
                                           CFDictionaryRef attributes) {
  constexpr std::size_t kFew = 16;
  void const* few[2 * kFew];
  std::vector<void const*> many;
  auto const count = static_cast<std::size_t>(CFDictionaryGetCount(attributes));
  if (count > kFew) many.resize(2 * count);
  void const** const keys = count > kFew ? many.data() : few;
  void const** const values = keys + count;
  CFDictionaryGetKeysAndValues(attributes, keys, values);
  for (std::size_t i = 0; i < count; ++i) {
    auto const& key = m_keys.Of(static_cast<CFStringRef>(keys[i]), NewString);
    if (key == nullptr) return CUResult_Failed;
    element.attributes->Set(*key, NewString(static_cast<CFStringRef>(values[i])));
  }
  return CUResult_Success;
}

unsigned int CUXmlDomLoader::AddElement(CFTreeRef tree, CUMutableArray& children) {
  CFXMLNodeRef const node = CFXMLTreeGetNode(tree);
  if (node == nullptr) return CUResult_Failed;
  CFStringRef const name = CFXMLNodeGetString(node);
  auto const* const info = static_cast<CFXMLElementInfo const*>(CFXMLNodeGetInfoPtr(node));
  if (name == nullptr || info == nullptr) return CUResult_Failed;

  CUSharedPtr<CUXmlDomElementNode> element = m_document.CreateElementNode(NewString(name));
  if (element == nullptr) return CUResult_Failed;
  unsigned int status = CUResult_Success;
  if (info->attributes != nullptr) status = SetAttributes(*element, info->attributes);
  if (!CUFailed(status)) status = AddContent(tree, *element->childNodes);
  if (CUFailed(status)) return status;
  return Append(std::move(element), children);
}

// The children of an element, with their text merged.
unsigned int CUXmlDomLoader::AddContent(CFTreeRef tree, CUMutableArray& children) {
  if (IsText(tree)) return Append(m_document.CreateTextNode(MergedText(tree)), children);
  Pieces const outer = std::exchange(m_pieces, {});
  unsigned int const status = AddChildren(tree, children);
  Pieces const pieces = std::exchange(m_pieces, outer);
  return CUFailed(status) || pieces.CanStay() ? status : CombineText(m_document, children);
}

// The text of an element that holds text and references alone; null if one of these is not
// predefined.
CUSharedPtr<CUStringMac> CUXmlDomLoader::MergedText(CFTreeRef tree) {
  CFIndex const count = CFTreeGetChildCount(tree);
  m_merged.clear();
  for (CFIndex i = 0; i < count; ++i) {
    CFXMLNodeRef const node = ChildNode(tree, i);
    CFStringRef text = CFXMLNodeGetString(node);
    if (CFXMLNodeGetTypeCode(node) == kCFXMLNodeTypeEntityReference) {
      text = m_characters.Of(text, CharacterOf);
    } else if (count == 1) {
      return NewString(text);
    }
    if (text == nullptr) return nullptr;
    m_merged.push_back(text);
  }
  return TextBuilder::Join(m_merged.data(), count);
}

unsigned int CUXmlDomLoader::AddText(CFTreeRef tree, CUMutableArray& children) {
  CFXMLNodeRef const node = CFXMLTreeGetNode(tree);
  CFStringRef const text = node != nullptr ? CFXMLNodeGetString(node) : nullptr;
  if (text == nullptr) return CUResult_Failed;
  ++m_pieces.texts;
  return Append(m_document.CreateTextNode(NewString(text)), children);
}

unsigned int CUXmlDomLoader::AddInstruction(CFTreeRef tree, CUMutableArray& children) {
  CFXMLNodeRef const node = CFXMLTreeGetNode(tree);
  if (node == nullptr) return CUResult_Failed;
  CFStringRef const target = CFXMLNodeGetString(node);
  auto const* const info =
      static_cast<CFXMLProcessingInstructionInfo const*>(CFXMLNodeGetInfoPtr(node));
  if (target == nullptr || info == nullptr) return CUResult_Failed;
  return Append(
      m_document.CreateProcessingInstructionNode(NewString(target), NewString(info->dataString)),
      children);
}

unsigned int CUXmlDomLoader::AddReference(CFTreeRef tree, CUMutableArray& children) {
  CFXMLNodeRef const node = CFXMLTreeGetNode(tree);
  CFStringRef const name = node != nullptr ? CFXMLNodeGetString(node) : nullptr;
  if (name == nullptr) return CUResult_Failed;
  ++m_pieces.references;
  return Append(m_document.CreateEntityReferenceNodeNode(NewString(name)), children);
}

unsigned int CUXmlDomDocumentNode::LoadXml(CUSharedPtr<CUStream> stream) {
  return LoadXmlMac(std::move(stream));
}

unsigned int CUXmlDomDocumentNode::LoadXmlMac(CUSharedPtr<CUStream> stream) {
  if (stream == nullptr) return CUResult_Failed;
  CFHolder<CFDataRef> const data(CreateCFDataFromStreamMac(std::move(stream)));
  if (!data) return CUResult_Failed;
  constexpr CFIndex kNodeVersion = 1;
  CFHolder<CFXMLTreeRef> const tree(CFXMLTreeCreateFromData(
      kCFAllocatorDefault, data.Get(), nullptr, kCFXMLParserSkipWhitespace, kNodeVersion));
  if (!tree) return CUResult_Failed;
  return MakeUpChildNodes_OS2CU_Mac(tree.Get(), this);
}

__CFData const* CUXmlDomDocumentNode::CreateCFDataFromStreamMac(CUSharedPtr<CUStream> stream) {
  if (stream == nullptr) return nullptr;
  unsigned long long const length = stream->Length();
  std::unique_ptr<unsigned char, FreeBlock> const buffer(
      static_cast<unsigned char*>(std::malloc(length)));
  if (!buffer) return nullptr;
  if (stream->Read(buffer.get(), length, 0, CUStream_Seek_Origin_Begin) != length) return nullptr;
  return CFDataCreate(kCFAllocatorDefault, buffer.get(), static_cast<CFIndex>(length));
}

unsigned int CUXmlDomDocumentNode::MakeUpChildNodes_OS2CU_Mac(__CFTree* tree,
                                                              CUXmlDomNode* parent) {
  if (tree == nullptr || parent == nullptr) return CUResult_Failed;
  if (CFTreeGetChildCount(tree) < 1) return CUResult_Success;
  return CUXmlDomLoader::Do(&CUXmlDomLoader::AddChildren, *this, tree, parent->GetChildNodes());
}

unsigned int CUXmlDomDocumentNode::MakeUpCuXmlDomNodeInstanceMac(
    __CFTree* tree, CUSharedPtr<CUMutableArray> children) {
  return CUXmlDomLoader::Do(&CUXmlDomLoader::Add, *this, tree, children);
}

unsigned int CUXmlDomDocumentNode::MakeUpCuXmlDomElementNodeInstanceMac(
    __CFTree* tree, CUSharedPtr<CUMutableArray> children) {
  return CUXmlDomLoader::Do(&CUXmlDomLoader::AddElement, *this, tree, children);
}

unsigned int CUXmlDomDocumentNode::MakeUpCuXmlDomTextNodeInstanceMac(
    __CFTree* tree, CUSharedPtr<CUMutableArray> children) {
  return CUXmlDomLoader::Do(&CUXmlDomLoader::AddText, *this, tree, children);
}

unsigned int CUXmlDomDocumentNode::MakeUpCuXmlDomProcessingInstructionNodeInstanceMac(
    __CFTree* tree, CUSharedPtr<CUMutableArray> children) {
  return CUXmlDomLoader::Do(&CUXmlDomLoader::AddInstruction, *this, tree, children);
}

unsigned int CUXmlDomDocumentNode::MakeUpCuXmlDomEntityReferenceNodeInstanceMac(
    __CFTree* tree, CUSharedPtr<CUMutableArray> children) {
  return CUXmlDomLoader::Do(&CUXmlDomLoader::AddReference, *this, tree, children);
}

unsigned int CUXmlDomDocumentNode::CombineCuDomXmlEntityReferenceAndTextNodeMac(
    CUSharedPtr<CUMutableArray> children) {
  return children != nullptr ? CombineText(*this, *children) : CUResult_Failed;
}
