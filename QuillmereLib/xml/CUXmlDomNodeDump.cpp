// The dump of a tree.

#include <algorithm>
#include <climits>
#include <cstdio>
#include <new>
#include <string>
#include <vector>

#include "QuillmereLib/strings/CUNewline.h"
#include "QuillmereLib/strings/TextBuilder.h"
#include "QuillmereLib/xml/CUXmlDomNode.h"
#include "QuillmereLib/xml/NodeText.h"

namespace {

// Below the node that is dumped; a document that was loaded has no more.
constexpr std::size_t kMostLevels = 1025;

class Dump {
 public:
  // Goes on behind what `out` says already.
  explicit Dump(CUStringMac const& out) { m_text.Append(PlatformString(&out)); }

  // With the nodes that are open on a stack of its own, so that the depth of the tree does not
  // matter.
  void Add(CUSharedPtr<CUObject> const& object, CUXmlDomNode& node, int depth);

  CUSharedPtr<CUStringMac> Text() const { return m_text.Text(); }

 private:
  // A node whose children are being dumped.
  struct Level {
    CUSharedPtr<CUObject> object;  // keeps the node alive; null for the first
    CUXmlDomNode* node;
    CUSharedPtr<CUMutableArray> children;
    unsigned int count;
    unsigned int next;
  };

  void AddLines(CUSharedPtr<CUObject> const& object, CUXmlDomNode& node);
  void AddAttributes(CUDictionary& attributes);
  void Open(CUSharedPtr<CUObject> const& object, CUXmlDomNode& node,
            CUSharedPtr<CUMutableArray> const& children, unsigned int count);

  // A line of a label and a text, or of a label and a number.
  void AddLine(CFStringRef label, CFStringRef text);
  void AddLine(CFStringRef label, CUStringMac const* text) {
    AddLine(label, text != nullptr ? PlatformString(text) : CFSTR("Invalid"));
  }
  void AddCount(CFStringRef label, unsigned int count);
  // The indentation of the level below the present one.
  void PushIndent(CUXmlDomNode& node) {
    long long const depth = m_depth + static_cast<long long>(m_indents.size());
    CUStringMac const indent =
        node.IndentString(static_cast<int>(std::min<long long>(depth, INT_MAX)));
    m_indents.push_back(NewString(indent));
  }
  void Indent() { m_text.Append(PlatformString(m_indents.back().Get())); }
  void EndLine() { m_text.Append(CU_NEWLINE_CHAR); }

  TextBuilder m_text;
  long long m_depth = 0;
  std::vector<CUSharedPtr<CUStringMac>> m_indents;  // of the levels down to the present one
  std::vector<Level> m_open;
};

std::string Number(unsigned int number) {
  char text[24];
  std::snprintf(text, sizeof text, "%lld", static_cast<long long>(number));
  return text;
}

CUStringMac const* AsString(CUSharedPtr<CUObject> const& object) {
  return dynamic_cast<CUStringMac const*>(object.Get());
}

void Dump::Add(CUSharedPtr<CUObject> const& object, CUXmlDomNode& node, int depth) {
  m_depth = depth;
  PushIndent(node);
  AddLines(object, node);
  while (!m_open.empty()) {
    Level& level = m_open.back();
    if (level.next == level.count) {
      m_open.pop_back();
      m_indents.pop_back();
      continue;
    }
    CUSharedPtr<CUObject> const child = level.children->ObjectAtIndex(level.next++);
    auto* const childNode = dynamic_cast<CUXmlDomNode*>(child.Get());
    if (childNode != nullptr) AddLines(child, *childNode);
  }
}

void Dump::AddLines(CUSharedPtr<CUObject> const& object, CUXmlDomNode& node) {
  CUSharedPtr<CUStringMac> const name = node.GetNodeName();
  CUSharedPtr<CUStringMac> const type = node.GetXmlDomNodeTypeString(node.GetNodeType());
  CUSharedPtr<CUStringMac> const value = node.GetNodeValue();
  CUSharedPtr<CUDictionary> const attributes = node.GetAttributes();
  CUSharedPtr<CUMutableArray> const children = node.GetChildNodes();

  AddLine(CFSTR("Name:"), name.Get());
  AddLine(CFSTR("Type:"), type.Get());
  AddLine(CFSTR("Value:"), value.Get());
  if (attributes == nullptr) {
    AddLine(CFSTR("Attributes:"), CFSTR("Invalid"));
  } else {
    AddAttributes(*attributes);
  }
  if (children == nullptr) {
    AddLine(CFSTR("ChildNodes:"), CFSTR("Invalid"));
  } else {
    unsigned int const count = children->Count();
    AddCount(CFSTR("ChildNodes:Num="), count);
    if (count > 0) Open(object, node, children, count);
  }
}

// Those below the last level are left out, as are those of a node that is open already.
void Dump::Open(CUSharedPtr<CUObject> const& object, CUXmlDomNode& node,
                CUSharedPtr<CUMutableArray> const& children, unsigned int count) {
  if (m_open.size() == kMostLevels) return;
  bool const isOpen = std::any_of(m_open.begin(), m_open.end(),
                                  [&node](Level const& level) { return level.node == &node; });
  if (isOpen) return;
  PushIndent(node);
  m_open.push_back({object, &node, children, count, 0});
}

void Dump::AddAttributes(CUDictionary& attributes) {
  unsigned int const count = attributes.Count();
  CUSharedPtr<CUArray> const keys = attributes.AllKeys();
  AddCount(CFSTR("Attributes:Num="), count);
  for (unsigned int i = 0; i < keys->Count(); ++i) {
    CUSharedPtr<CUStringMac> const key(dynamic_cast<CUStringMac*>(keys->ObjectAtIndex(i).Get()));
    CUSharedPtr<CUObject> const value = attributes.ObjectForKey(key);
    std::string const number = "[" + Number(i) + "]";
    Indent();
    m_text.Append(number.c_str());
    m_text.Append(CFSTR("Key:"));
    m_text.Append(PlatformString(key.Get()));
    EndLine();
    Indent();
    m_text.Append(number.c_str());
    m_text.Append(CFSTR("Attribute:"));
    m_text.Append(PlatformString(AsString(value)));
    EndLine();
  }
}

void Dump::AddLine(CFStringRef label, CFStringRef text) {
  Indent();
  m_text.Append(label);
  m_text.Append(text);
  EndLine();
}

void Dump::AddCount(CFStringRef label, unsigned int count) {
  Indent();
  m_text.Append(label);
  m_text.Append(Number(count).c_str());
  EndLine();
}

}  // namespace

CUSharedPtr<CUStringMac> CUXmlDomNode::Description() {
  CUStringMac text;
  DumpDOMNode(this, 0, text);
  return NewString(text);
}

void CUXmlDomNode::DumpDOMNode(CUXmlDomNode* node, int depth, CUStringMac& out) {
  if (node == nullptr) return;
  Dump dump(out);
  dump.Add(nullptr, *node, depth);
  CUSharedPtr<CUStringMac> const text = dump.Text();
  out = *text;
  if (static_cast<CFStringRef>(out) == nullptr) throw std::bad_alloc();
}

CUSharedPtr<CUStringMac> CUXmlDomNode::GetXmlDomNodeTypeString(_CUXmlDomNodeType type) {
  static char const* const kNames[] = {"Node_Unknown",       "Node_Element",
                                       "Node_Attribute",     "Node_Text",
                                       "Node_Cdata_Section", "Node_Entity_Reference",
                                       "Node_Entity",        "Node_Processing_Instruction",
                                       "Node_Comment",       "Node_Document",
                                       "Node_Document_Type", "Node_Document_Fragment",
                                       "Node_Notation"};
  char const* const name = kNames[type <= Node_Notation ? type : Node_Unknown];
  CUSharedPtr<CUStringMac> text = new CUStringMac(name, CUString_CharCode_ASCII);
  if (PlatformString(text.Get()) == nullptr) throw std::bad_alloc();
  return text;
}

CUStringMac CUXmlDomNode::IndentString(int depth) {
  std::string const tabs(static_cast<std::size_t>(std::max(depth, 0)), '\t');
  CUStringMac indent(tabs.c_str(), CUString_CharCode_ASCII);
  if (PlatformString(&indent) == nullptr) throw std::bad_alloc();
  return indent;
}
