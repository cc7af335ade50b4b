// Trees from documents. expat says whether a document is well formed, and where its markup stands;
// what the nodes hold is cut from the text itself.

#include <CoreFoundation/CFXMLParser.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/CFStringObject.h"
#include "platform/linux/CFXMLObjects.h"
#include "platform/linux/Handles.h"
#include "platform/linux/XmlText.h"

namespace {

constexpr std::size_t kMostLevels = 1024;
constexpr std::string_view kSpace = " \t\r\n";

// What was made, unless memory ran out.
template <class Object>
Object* Made(Object* object) {
  if (object == nullptr) throw std::bad_alloc();
  return object;
}

CFStringRef CreateString(std::string_view text) {
  return Made(CFStringCreateWithBytes(nullptr, reinterpret_cast<UInt8 const*>(text.data()),
                                      static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8,
                                      false));
}

// The text with its line ends as line feeds.
CFStringRef CreateWithLineFeeds(std::string_view text) {
  if (text.find('\r') == std::string_view::npos) return CreateString(text);
  std::string lines;
  lines.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    bool const pair = text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n';
    if (!pair) lines += text[i] == '\r' ? '\n' : text[i];
  }
  return CreateString(lines);
}

// Whether the text begins as that of a document does. expat would find another encoding in other
// first bytes, whatever it is told.
bool BeginsPlainly(std::string_view text) {
  return text.size() > 1 && (text[0] == '<' || kSpace.find(text[0]) != kSpace.npos) &&
         text[1] != '\0';
}

// Names come again and again: those that came last are kept, one a place, so that most need not be
// made anew.
class NameCache {
 public:
  NameCache() = default;
  NameCache(NameCache const&) = delete;
  NameCache& operator=(NameCache const&) = delete;
  ~NameCache() {
    for (CFStringRef name : m_names) {
      if (name != nullptr) name->Release();
    }
  }

  // A string for the name, with a reference for the caller.
  CFStringRef Create(std::string_view name) {
    CFStringRef& kept = m_names[PlaceOf(name)];
    if (kept == nullptr || !Holds(kept, name)) {
      CFStringRef const made = CreateString(name);
      if (kept != nullptr) kept->Release();
      kept = made;
    }
    kept->Retain();
    return kept;
  }

 private:
  static constexpr std::size_t kPlaces = 256;

  static std::size_t PlaceOf(std::string_view name) {
    std::size_t hash = name.size();
    for (char const c : name) hash = hash * 31 + static_cast<unsigned char>(c);
    return (hash ^ hash >> 8) % kPlaces;
  }
  static bool Holds(CFStringRef string, std::string_view name) {
    return !string->wide && static_cast<std::size_t>(string->length) == name.size() &&
           std::memcmp(string->Narrow(), name.data(), name.size()) == 0;
  }

  std::array<CFStringRef, kPlaces> m_names = {};
};

// Builds the tree of one document while expat reads it.
class TreeBuilder {
 public:
  TreeBuilder(std::string_view text, CFTreeRef document) : m_text(text), m_open{document} {}

  // Whether the document is well formed, up to a document type. Throws std::bad_alloc.
  bool Build();

 private:
  using Handler = void (TreeBuilder::*)();

  // Leads a call of expat to a member; nothing may be thrown through expat.
  template <Handler handler, class... Arguments>
  static void Call(void* builder, Arguments...) {
    auto* const self = static_cast<TreeBuilder*>(builder);
    if (self->m_end != End::None) return;  // expat may finish what it is at
    try {
      (self->*handler)();
    } catch (...) {
      self->Stop(End::OutOfMemory);
    }
  }

  void StartElement();
  void EndElement();
  void ProcessingInstruction();
  void XmlDeclaration();
  void Comment();
  void StartSection();
  void EndSection();
  static void DocumentType(void* builder, XML_Char const* name, XML_Char const*, XML_Char const*,
                           int);

  bool Feed();

  // Where expat is: the markup that it reports.
  std::size_t Here() const {
    return static_cast<std::size_t>(XML_GetCurrentByteIndex(m_parser.Get()));
  }
  std::string_view Markup() const {
    return m_text.substr(Here(), static_cast<std::size_t>(XML_GetCurrentByteCount(m_parser.Get())));
  }

  // The markup that is reported, once the text in front of it has been taken.
  std::string_view NextMarkup() {
    std::string_view const markup = Markup();
    TakeText(Here());
    m_textStart = Here() + markup.size();
    return markup;
  }

  // Adds the nodes of the text from the last markup up to `end`.
  void TakeText(std::size_t end);
  void AddText(std::string_view text);
  void AddReference(std::string_view name);
  void AddInstruction(std::string_view target, std::string_view data);

  CFDictionaryRef CreateAttributes(std::string_view tag);

  // Adds a node to the element that is open. What it holds is made after it, so that all goes with
  // the tree if something fails.
  __CFXMLNode& Add(CFXMLNodeTypeCode type);
  void Add(CFXMLNodeTypeCode type, std::string_view text) {
    __CFXMLNode& node = Add(type);
    node.string = CreateWithLineFeeds(text);
  }

  enum class End { None, DocumentType, TooDeep, OutOfMemory };
  void Stop(End end) {
    m_end = end;
    XML_StopParser(m_parser.Get(), XML_FALSE);
  }

  std::string_view const m_text;
  XmlParserHandle m_parser;
  End m_end = End::None;
  std::size_t m_textStart = 0;    // behind the last markup
  std::size_t m_section = 0;      // where the CDATA section that is open begins
  std::vector<CFTreeRef> m_open;  // the document and the elements that are open
  NameCache m_names;
  std::vector<void const*> m_keys;
  std::vector<void const*> m_values;
};

bool TreeBuilder::Build() {
  if (!BeginsPlainly(m_text)) return false;
  m_open.reserve(1 + kMostLevels);
  m_parser = XmlParserHandle(XML_ParserCreate("UTF-8"));
  if (!m_parser) return false;
  XML_Parser const parser = m_parser.Get();
  XML_SetUserData(parser, this);
  // As if declarations might stand elsewhere: so references to what is not declared are in order.
  XML_UseForeignDTD(parser, XML_TRUE);
  XML_SetElementHandler(parser, Call<&TreeBuilder::StartElement, XML_Char const*, XML_Char const**>,
                        Call<&TreeBuilder::EndElement, XML_Char const*>);
  XML_SetProcessingInstructionHandler(
      parser, Call<&TreeBuilder::ProcessingInstruction, XML_Char const*, XML_Char const*>);
  XML_SetXmlDeclHandler(parser,
                        Call<&TreeBuilder::XmlDeclaration, XML_Char const*, XML_Char const*, int>);
  XML_SetCommentHandler(parser, Call<&TreeBuilder::Comment, XML_Char const*>);
  XML_SetCdataSectionHandler(parser, Call<&TreeBuilder::StartSection>,
                             Call<&TreeBuilder::EndSection>);
  XML_SetStartDoctypeDeclHandler(parser, DocumentType);
  return Feed();
}

// A piece that brings no markup to its end is read again with the next one. So pieces grow until
// one does, and the work stays in proportion to the text.
bool TreeBuilder::Feed() {
  constexpr std::size_t kPiece = std::size_t{64} << 10;
  constexpr std::size_t kLargestPiece = std::size_t{1} << 30;  // their size is an int
  std::size_t piece = kPiece;
  XML_Index last = -1;
  std::string_view left = m_text;
  bool final = false;
  while (!final) {
    std::size_t const size = std::min(piece, left.size());
    final = size == left.size();
    XML_Status const status =
        XML_Parse(m_parser.Get(), left.data(), static_cast<int>(size), final ? 1 : 0);
    if (m_end == End::DocumentType) return true;
    if (status != XML_STATUS_OK) return false;
    left.remove_prefix(size);
    XML_Index const now = XML_GetCurrentByteIndex(m_parser.Get());
    piece = now == last ? std::min(2 * piece, kLargestPiece) : kPiece;
    last = now;
  }
  return true;
}

__CFXMLNode& TreeBuilder::Add(CFXMLNodeTypeCode type) {
  CFXMLNodeRef const node = Made(MakeCFObject<__CFXMLNode>(0, type, nullptr));
  CFTreeRef const tree = MakeCFObject<__CFTree>(0, node);
  if (tree == nullptr) {
    CFRelease(node);
    throw std::bad_alloc();
  }
  m_open.back()->Append(tree);
  return *node;
}

void TreeBuilder::TakeText(std::size_t end) {
  std::string_view left = m_text.substr(m_textStart, end - m_textStart);
  while (!left.empty()) {
    std::size_t const reference = std::min(left.find('&'), left.size());
    AddText(left.substr(0, reference));
    left.remove_prefix(reference);
    if (left.empty()) return;
    std::size_t const semicolon = left.find(';');
    AddReference(left.substr(1, semicolon - 1));
    left.remove_prefix(semicolon + 1);
  }
}

void TreeBuilder::AddText(std::string_view text) {
  if (text.find_first_not_of(kSpace) == std::string_view::npos) return;
  Add(kCFXMLNodeTypeText, text);
}

void TreeBuilder::AddReference(std::string_view name) {
  __CFXMLNode& node = Add(kCFXMLNodeTypeEntityReference);
  node.string = m_names.Create(name);
  node.hasInfo = true;
  node.info.entityReference.entityType =
      name.front() == '#' ? kCFXMLEntityTypeCharacter : kCFXMLEntityTypeParsedInternal;
}

void TreeBuilder::StartElement() {
  std::string_view const tag = NextMarkup();
  if (m_open.size() > kMostLevels) return Stop(End::TooDeep);
  std::string_view const name = tag.substr(1, tag.find_first_of(" \t\r\n/>") - 1);
  __CFXMLNode& node = Add(kCFXMLNodeTypeElement);
  node.string = m_names.Create(name);
  node.hasInfo = true;
  node.info.element.isEmpty = tag[tag.size() - 2] == '/';
  node.info.element.attributes = CreateAttributes(tag.substr(1 + name.size()));
  m_open.push_back(m_open.back()->lastChild);
}

void TreeBuilder::EndElement() {
  NextMarkup();
  m_open.pop_back();
}

// Of what follows the name in a tag: null if there are no attributes.
CFDictionaryRef TreeBuilder::CreateAttributes(std::string_view tag) {
  struct ReleaseAll {
    std::vector<void const*>& objects;
    ~ReleaseAll() {
      for (void const* object : objects) {
        if (object != nullptr) CFRelease(object);
      }
      objects.clear();
    }
  };
  ReleaseAll const keys{m_keys};
  ReleaseAll const values{m_values};

  for (;;) {
    std::size_t const start = tag.find_first_not_of(kSpace);
    if (tag[start] == '/' || tag[start] == '>') break;
    tag.remove_prefix(start);
    std::string_view const name = tag.substr(0, tag.find_first_of(" \t\r\n="));
    std::size_t const quote = tag.find_first_of("\"'", name.size());
    std::size_t const end = tag.find(tag[quote], quote + 1);
    m_keys.push_back(nullptr);
    m_keys.back() = m_names.Create(name);
    m_values.push_back(nullptr);
    m_values.back() = CreateString(tag.substr(quote + 1, end - quote - 1));
    tag.remove_prefix(end + 1);
  }
  if (m_keys.empty()) return nullptr;
  return Made(CFDictionaryCreate(nullptr, m_keys.data(), m_values.data(),
                                 static_cast<CFIndex>(m_keys.size()),
                                 &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
}

void TreeBuilder::AddInstruction(std::string_view target, std::string_view data) {
  __CFXMLNode& node = Add(kCFXMLNodeTypeProcessingInstruction);
  node.string = m_names.Create(target);
  node.hasInfo = true;
  node.info.processingInstruction.dataString = CreateWithLineFeeds(data);
}

// What stands between "<?" and "?>", in its two parts.
struct Instruction {
  explicit Instruction(std::string_view markup) {
    markup = markup.substr(2, markup.size() - 4);
    target = markup.substr(0, markup.find_first_of(kSpace));
    markup.remove_prefix(target.size());
    data = markup.substr(std::min(markup.find_first_not_of(kSpace), markup.size()));
  }
  std::string_view target;
  std::string_view data;
};

void TreeBuilder::ProcessingInstruction() {
  Instruction const instruction(NextMarkup());
  AddInstruction(instruction.target, instruction.data);
}

void TreeBuilder::XmlDeclaration() {
  std::string_view const markup = NextMarkup();
  Instruction const instruction(markup);
  std::string_view const encoding = DeclaredEncoding(markup);
  if (encoding.empty() || IsUtf8Name(encoding)) {
    return AddInstruction(instruction.target, instruction.data);
  }
  std::string data(instruction.data);
  data.replace(static_cast<std::size_t>(encoding.data() - instruction.data.data()), encoding.size(),
               "UTF-8");
  AddInstruction(instruction.target, data);
}

void TreeBuilder::Comment() {
  std::string_view const markup = NextMarkup();
  Add(kCFXMLNodeTypeComment, markup.substr(4, markup.size() - 7));
}

void TreeBuilder::StartSection() {
  NextMarkup();
  m_section = m_textStart;
}

void TreeBuilder::EndSection() {
  std::size_t const end = Here();
  m_textStart = end + Markup().size();
  Add(kCFXMLNodeTypeCDATASection, m_text.substr(m_section, end - m_section));
}

// expat reports one without a name where it looks for declarations elsewhere.
void TreeBuilder::DocumentType(void* builder, XML_Char const* name, XML_Char const*,
                               XML_Char const*, int) {
  auto* const self = static_cast<TreeBuilder*>(builder);
  if (name == nullptr || self->m_end != End::None) return;
  try {
    self->Add(kCFXMLNodeTypeDocumentType, name);
    self->Stop(End::DocumentType);
  } catch (...) {
    self->Stop(End::OutOfMemory);
  }
}

CFXMLTreeRef CreateDocument() {
  CFXMLDocumentInfo const info = {nullptr, kCFStringEncodingUTF8};
  CFXMLNodeRef const node = CFXMLNodeCreate(nullptr, kCFXMLNodeTypeDocument, CFSTR(""), &info, 1);
  if (node == nullptr) return nullptr;
  CFXMLTreeRef const document = CFXMLTreeCreateWithNode(nullptr, node);
  CFRelease(node);
  return document;
}

}  // namespace

CFXMLTreeRef CFXMLTreeCreateFromData(CFAllocatorRef, CFDataRef data, CFURLRef,
                                     CFOptionFlags options, CFIndex) {
  if (options != kCFXMLParserSkipWhitespace) return nullptr;
  CFXMLTreeRef const document = CreateDocument();
  if (document == nullptr) return nullptr;
  try {
    XmlText text;
    if (text.Read({reinterpret_cast<char const*>(CFDataGetBytePtr(data)),
                   static_cast<std::size_t>(CFDataGetLength(data))}) &&
        TreeBuilder(text.Text(), document).Build()) {
      return document;
    }
  } catch (...) {
  }
  CFRelease(document);
  return nullptr;
}
