// Documents from trees.

#include <CoreFoundation/CFXMLParser.h>

#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/CFStringObject.h"
#include "platform/linux/CFXMLObjects.h"

namespace {

// Writes a tree as text. False where a string cannot be written; throws std::bad_alloc.
class TreeWriter {
 public:
  bool Write(CFTreeRef tree);
  std::string const& Text() const { return m_text; }

 private:
  bool Open(CFTreeRef tree);
  bool Close(CFTreeRef tree);
  bool OpenElement(CFTreeRef tree);
  bool PutInstruction(CFXMLNodeRef node);
  bool PutValue(CFStringRef value);

  // Null is nothing.
  bool Put(CFStringRef string);
  bool Put(std::string_view text) {
    m_text += text;
    return true;
  }
  template <class... Parts>
  bool PutAll(Parts... parts) {
    return (Put(parts) && ...);
  }

  std::string m_text;
};

bool IsEmptyElement(CFTreeRef tree) {
  XmlNodeInfo const* const info = tree->node->Info();
  return info != nullptr && info->element.isEmpty && tree->FirstChild() == nullptr;
}

// With the trees that are open on a stack of its own, so that their depth does not matter.
bool TreeWriter::Write(CFTreeRef tree) {
  std::vector<CFTreeRef> open;
  for (CFTreeRef next = tree; next != nullptr;) {
    if (!Open(next)) return false;
    if (next->FirstChild() != nullptr) {
      open.push_back(next);
      next = next->FirstChild();
      continue;
    }
    if (!Close(next)) return false;
    while (next != tree && next->nextSibling == nullptr) {
      next = open.back();
      open.pop_back();
      if (!Close(next)) return false;
    }
    next = next == tree ? nullptr : next->nextSibling;
  }
  return true;
}

bool TreeWriter::Open(CFTreeRef tree) {
  CFXMLNodeRef const node = tree->node;
  switch (node->type) {
    case kCFXMLNodeTypeDocument:
      return true;
    case kCFXMLNodeTypeElement:
      return OpenElement(tree);
    case kCFXMLNodeTypeText:
      return Put(node->string);
    case kCFXMLNodeTypeProcessingInstruction:
      return PutInstruction(node);
    case kCFXMLNodeTypeEntityReference:
      return PutAll("&", node->string, ";");
    case kCFXMLNodeTypeComment:
      return PutAll("<!--", node->string, "-->");
    case kCFXMLNodeTypeCDATASection:
      return PutAll("<![CDATA[", node->string, "]]>");
    case kCFXMLNodeTypeDocumentType:
      return PutAll("<!DOCTYPE ", node->string, ">");
    default:
      return false;
  }
}

bool TreeWriter::PutInstruction(CFXMLNodeRef node) {
  XmlNodeInfo const* const info = node->Info();
  CFStringRef const data = info != nullptr ? info->processingInstruction.dataString : nullptr;
  return PutAll("<?", node->string, " ", data, "?>");
}

bool TreeWriter::Close(CFTreeRef tree) {
  if (tree->node->type != kCFXMLNodeTypeElement || IsEmptyElement(tree)) return true;
  return PutAll("</", tree->node->string, ">");
}

bool TreeWriter::OpenElement(CFTreeRef tree) {
  CFXMLNodeRef const node = tree->node;
  if (!PutAll("<", node->string)) return false;
  XmlNodeInfo const* const info = node->Info();
  CFDictionaryRef const attributes = info != nullptr ? info->element.attributes : nullptr;
  if (attributes != nullptr) {
    std::vector<void const*> names;
    if (CFArrayRef const order = info->element.attributeOrder) {
      for (CFIndex i = 0; i < CFArrayGetCount(order); ++i) {
        names.push_back(CFArrayGetValueAtIndex(order, i));
      }
    } else {
      names.resize(static_cast<std::size_t>(CFDictionaryGetCount(attributes)));
      CFDictionaryGetKeysAndValues(attributes, names.data(), nullptr);
    }
    for (void const* name : names) {
      auto const value = static_cast<CFStringRef>(CFDictionaryGetValue(attributes, name));
      if (!PutAll(" ", static_cast<CFStringRef>(name), "=") || !PutValue(value)) return false;
    }
  }
  return Put(IsEmptyElement(tree) ? "/>" : ">");
}

bool TreeWriter::PutValue(CFStringRef value) {
  std::size_t const start = m_text.size();
  m_text += '"';
  if (!Put(value)) return false;
  if (m_text.find('"', start + 1) == std::string::npos) return Put("\"");
  if (m_text.find('\'', start + 1) == std::string::npos) {
    m_text[start] = '\'';
    return Put("'");
  }
  std::string const both = m_text.substr(start + 1);
  m_text.resize(start + 1);
  for (char const c : both) c == '"' ? m_text += "&quot;" : m_text += c;
  return Put("\"");
}

bool TreeWriter::Put(CFStringRef string) {
  if (string == nullptr) return true;
  if (!string->wide) return Put({string->Narrow(), static_cast<std::size_t>(string->length)});
  std::size_t const start = m_text.size();
  CFIndex const room = CFStringGetMaximumSizeForEncoding(string->length, kCFStringEncodingUTF8);
  m_text.resize(start + static_cast<std::size_t>(room));
  CFIndex used = 0;
  CFIndex const converted =
      CFStringGetBytes(string, CFRangeMake(0, string->length), kCFStringEncodingUTF8, 0, false,
                       reinterpret_cast<UInt8*>(&m_text[start]), room, &used);
  m_text.resize(start + static_cast<std::size_t>(used));
  return converted == string->length;
}

// The reference for a character that has one, else nothing.
std::string_view ReferenceFor(UniChar unit) {
  switch (unit) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    case '\'':
      return "&apos;";
    case '"':
      return "&quot;";
    default:
      return {};
  }
}

// The string itself where there is nothing to escape; `units` are its own.
template <class Unit>
CFStringRef CreateEscaped(CFStringRef string, Unit const* units) {
  CFIndex added = 0;
  for (CFIndex i = 0; i < string->length; ++i) {
    std::string_view const reference = ReferenceFor(UnitOf(units[i]));
    if (!reference.empty()) added += static_cast<CFIndex>(reference.size()) - 1;
  }
  if (added == 0) {
    string->Retain();
    return string;
  }
  __CFString* const escaped = AllocateString(string->length + added, string->wide);
  if (escaped == nullptr) return nullptr;
  auto* out = reinterpret_cast<Unit*>(escaped->Narrow());
  for (CFIndex i = 0; i < string->length; ++i) {
    std::string_view const reference = ReferenceFor(UnitOf(units[i]));
    if (reference.empty()) *out++ = units[i];
    for (char const c : reference) *out++ = static_cast<Unit>(static_cast<UInt8>(c));
  }
  return escaped;
}

}  // namespace

CFDataRef CFXMLTreeCreateXMLData(CFAllocatorRef allocator, CFXMLTreeRef tree) {
  try {
    TreeWriter writer;
    if (!writer.Write(tree)) return nullptr;
    return CFDataCreate(allocator, reinterpret_cast<UInt8 const*>(writer.Text().data()),
                        static_cast<CFIndex>(writer.Text().size()));
  } catch (...) {
    return nullptr;
  }
}

CFStringRef CFXMLCreateStringByEscapingEntities(CFAllocatorRef, CFStringRef string,
                                                CFDictionaryRef entities) {
  if (entities != nullptr) return nullptr;
  return string->wide ? CreateEscaped(string, string->Wide())
                      : CreateEscaped(string, string->Narrow());
}
