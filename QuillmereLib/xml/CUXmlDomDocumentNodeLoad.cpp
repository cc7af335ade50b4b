// The way from a stream to the tree of a document.

#include <CoreFoundation/CoreFoundation.h>

#include <cstdlib>
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

// The references that are replaced in text. Never destroyed, as documents may be loaded to the end
// of the process.
struct PredefinedEntity {
  CUSharedPtr<CUStringMac> name;
  CFStringRef character;
};

std::vector<PredefinedEntity> const& PredefinedEntities() {
  static auto const* const entities =
      new std::vector<PredefinedEntity>{{NewString(CFSTR("lt")), CFSTR("<")},
                                        {NewString(CFSTR("gt")), CFSTR(">")},
                                        {NewString(CFSTR("amp")), CFSTR("&")},
                                        {NewString(CFSTR("quot")), CFSTR("\"")},
                                        {NewString(CFSTR("apos")), CFSTR("'")}};
  return *entities;
}

// Null for a name that is none of them.
CFStringRef CharacterOf(CUStringMac* name) {
  if (name == nullptr) return nullptr;
  for (PredefinedEntity const& entity : PredefinedEntities()) {
    if (*name == *entity.name) return entity.character;
  }
  return nullptr;
}

// Whether the merge would leave the children of an element as they are but for a copy in place of
// their one text node, as is most often the case.
bool IsMerged(CFTreeRef tree) {
  bool hasText = false;
  CFIndex const count = CFTreeGetChildCount(tree);
  for (CFIndex i = 0; i < count; ++i) {
    switch (CFXMLNodeGetTypeCode(CFXMLTreeGetNode(CFTreeGetChildAtIndex(tree, i)))) {
      case kCFXMLNodeTypeEntityReference:
        return false;
      case kCFXMLNodeTypeText:
        if (hasText) return false;
        hasText = true;
        break;
      default:
        break;
    }
  }
  return true;
}

}  // namespace

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
  CFIndex const count = CFTreeGetChildCount(tree);
  if (count < 1) return CUResult_Success;
  unsigned int status = CUResult_Failed;
  for (CFIndex i = 0; i < count; ++i) {
    CFTreeRef const child = CFTreeGetChildAtIndex(tree, i);
    if (child == nullptr) continue;
    status = MakeUpCuXmlDomNodeInstanceMac(child, parent->GetChildNodes());
    if (Failed(status)) return status;
  }
  return status;
}

unsigned int CUXmlDomDocumentNode::MakeUpCuXmlDomNodeInstanceMac(
    __CFTree* tree, CUSharedPtr<CUMutableArray> children) {
  if (tree == nullptr || children == nullptr) return CUResult_Failed;
  CFXMLNodeRef const node = CFXMLTreeGetNode(tree);
  if (node == nullptr) return CUResult_Failed;
  switch (CFXMLNodeGetTypeCode(node)) {
    case kCFXMLNodeTypeElement:
      return MakeUpCuXmlDomElementNodeInstanceMac(tree, std::move(children));
    case kCFXMLNodeTypeProcessingInstruction:
      return MakeUpCuXmlDomProcessingInstructionNodeInstanceMac(tree, std::move(children));
    case kCFXMLNodeTypeText:
      return MakeUpCuXmlDomTextNodeInstanceMac(tree, std::move(children));
    case kCFXMLNodeTypeEntityReference:
      return MakeUpCuXmlDomEntityReferenceNodeInstanceMac(tree, std::move(children));
    default:
      return CUResult_Failed;
  }
}

namespace {

// Sets the attributes of the platform's dictionary.
unsigned int SetAttributes(CUXmlDomElementNode& element, CFDictionaryRef attributes) {
  constexpr std::size_t kFew = 16;
  void const* few[2 * kFew] = {};
  std::vector<void const*> many;
  auto const count = static_cast<std::size_t>(CFDictionaryGetCount(attributes));
  if (count > kFew) many.resize(2 * count);
  void const** const keys = count > kFew ? many.data() : few;
  void const** const values = keys + count;
  CFDictionaryGetKeysAndValues(attributes, keys, values);
  for (std::size_t i = 0; i < count; ++i) {
    unsigned int const status =
        element.SetAttribute(NewString(static_cast<CFStringRef>(keys[i])),
                             NewString(static_cast<CFStringRef>(values[i])));
    if (Failed(status)) return status;
  }
  return CUResult_Success;
}

}  // namespace

unsigned int CUXmlDomDocumentNode::MakeUpCuXmlDomElementNodeInstanceMac(
    __CFTree* tree, CUSharedPtr<CUMutableArray> children) {
  if (tree == nullptr || children == nullptr) return CUResult_Failed;
  CFXMLNodeRef const node = CFXMLTreeGetNode(tree);
  if (node == nullptr) return CUResult_Failed;
  CFStringRef const name = CFXMLNodeGetString(node);
  auto const* const info = static_cast<CFXMLElementInfo const*>(CFXMLNodeGetInfoPtr(node));
  if (name == nullptr || info == nullptr) return CUResult_Failed;

  CUSharedPtr<CUXmlDomElementNode> const element = CreateElementNode(NewString(name));
  if (element == nullptr) return CUResult_Failed;
  unsigned int status = CUResult_Success;
  if (info->attributes != nullptr) status = SetAttributes(*element, info->attributes);
  if (!Failed(status)) status = MakeUpChildNodes_OS2CU_Mac(tree, element.Get());
  if (!Failed(status) && !IsMerged(tree)) {
    status = CombineCuDomXmlEntityReferenceAndTextNodeMac(element->GetChildNodes());
  }
  if (Failed(status)) return status;
  children->AddObject(element);
  return CUResult_Success;
}

unsigned int CUXmlDomDocumentNode::MakeUpCuXmlDomTextNodeInstanceMac(
    __CFTree* tree, CUSharedPtr<CUMutableArray> children) {
  if (tree == nullptr || children == nullptr) return CUResult_Failed;
  CFXMLNodeRef const node = CFXMLTreeGetNode(tree);
  CFStringRef const text = node != nullptr ? CFXMLNodeGetString(node) : nullptr;
  if (text == nullptr) return CUResult_Failed;
  CUSharedPtr<CUXmlDomTextNode> made = CreateTextNode(NewString(text));
  if (made == nullptr) return CUResult_Failed;
  children->AddObject(std::move(made));
  return CUResult_Success;
}

unsigned int CUXmlDomDocumentNode::MakeUpCuXmlDomProcessingInstructionNodeInstanceMac(
    __CFTree* tree, CUSharedPtr<CUMutableArray> children) {
  if (tree == nullptr || children == nullptr) return CUResult_Failed;
  CFXMLNodeRef const node = CFXMLTreeGetNode(tree);
  if (node == nullptr) return CUResult_Failed;
  CFStringRef const target = CFXMLNodeGetString(node);
  auto const* const info =
      static_cast<CFXMLProcessingInstructionInfo const*>(CFXMLNodeGetInfoPtr(node));
  if (target == nullptr || info == nullptr) return CUResult_Failed;
  CUSharedPtr<CUXmlDomProcessingInstructionNode> made =
      CreateProcessingInstructionNode(NewString(target), NewString(info->dataString));
  if (made == nullptr) return CUResult_Failed;
  children->AddObject(std::move(made));
  return CUResult_Success;
}

unsigned int CUXmlDomDocumentNode::MakeUpCuXmlDomEntityReferenceNodeInstanceMac(
    __CFTree* tree, CUSharedPtr<CUMutableArray> children) {
  if (tree == nullptr || children == nullptr) return CUResult_Failed;
  CFXMLNodeRef const node = CFXMLTreeGetNode(tree);
  CFStringRef const name = node != nullptr ? CFXMLNodeGetString(node) : nullptr;
  if (name == nullptr) return CUResult_Failed;
  CUSharedPtr<CUXmlDomEntityReferenceNode> made = CreateEntityReferenceNodeNode(NewString(name));
  if (made == nullptr) return CUResult_Failed;
  children->AddObject(std::move(made));
  return CUResult_Success;
}

// Looks at all children first and then moves those that stay in one pass, so that the work is in
// proportion to their number, and nothing has changed when memory runs out.
unsigned int CUXmlDomDocumentNode::CombineCuDomXmlEntityReferenceAndTextNodeMac(
    CUSharedPtr<CUMutableArray> children) {
  if (children == nullptr) return CUResult_Failed;
  Objects& objects = *children->GetInternalArray();
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
    CFStringRef const piece =
        type == Node_Text ? PlatformString(text.Get()) : CharacterOf(text.Get());
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
    merged = CreateTextNode(mergedText.Text());
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
