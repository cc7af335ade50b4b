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

#include "platform/linux/CFDictionaryObject.h"
#include "platform/linux/CFStringObject.h"
#include "platform/linux/CFXMLObjects.h"
#include "platform/linux/Handles.h"
#include "platform/linux/ObjectStore.h"
#include "platform/linux/XmlText.h"

namespace {

constexpr std::size_t kMostLevels = 1024;

// What was made, unless memory ran out.
template <class Object>
Object* Made(Object* object) {
  if (object == nullptr) throw std::bad_alloc();
  return object;
}

// Which of all characters are space, or one of `others`.
template <char... others>
constexpr std::array<bool, 256> kSpaceAnd = [] {
  std::array<bool, 256> found = {};
  for (char const c : {' ', '\t', '\r', '\n', others...}) found[static_cast<UInt8>(c)] = true;
  return found;
}();

// The place of the first character that is space or one of `others`; the length if there is none.
template <char... others>
std::size_t FindSpaceOr(std::string_view text) {
  char const* at = text.data();
  char const* const end = at + text.size();
  while (at != end && !kSpaceAnd<others...>[static_cast<UInt8>(*at)]) ++at;
  return static_cast<std::size_t>(at - text.data());
}

bool IsSpace(char c) { return kSpaceAnd<>[static_cast<UInt8>(c)]; }

// Where the text goes on behind the space at its start; the length if it is all space.
std::size_t SkipSpace(std::string_view text) {
  char const* at = text.data();
  char const* const end = at + text.size();
  while (at != end && IsSpace(*at)) ++at;
  return static_cast<std::size_t>(at - text.data());
}

// Whether the text begins as that of a document does. expat would find another encoding in other
// first bytes, whatever it is told.
bool BeginsPlainly(std::string_view text) {
  return text.size() > 1 && (text[0] == '<' || IsSpace(text[0])) && text[1] != '\0';
}

// Strings of one document, in its store. Throws std::bad_alloc.
class Strings {
 public:
  Strings(std::string_view document, ObjectStore& store)
      : m_store(store), m_hasReturns(document.find('\r') != std::string_view::npos) {}

  CFStringRef Text(std::string_view text) { return Made(CreateFromUtf8(text, &m_store)); }

  // With its line ends as line feeds.
  CFStringRef TextWithLineFeeds(std::string_view text) {
    if (!m_hasReturns || text.find('\r') == std::string_view::npos) return Text(text);
    std::string lines;
    lines.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
      bool const pair = text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n';
      if (!pair) lines += text[i] == '\r' ? '\n' : text[i];
    }
    return Text(lines);
  }

  // Names come again and again: those that came last are at hand, one a place, so that most need
  // not be made anew.
  CFStringRef Name(std::string_view name) {
    CFStringRef& recent = m_names[PlaceOf(name)];
    if (recent == nullptr || !Holds(recent, name)) recent = Text(name);
    return recent;
  }

 private:
  static constexpr int kBitsOfPlace = 10;

  // By its length and three of its characters: no name is empty.
  static std::size_t PlaceOf(std::string_view name) {
    auto const at = [name](std::size_t i) { return std::uint32_t{static_cast<UInt8>(name[i])}; };
    std::size_t const last = name.size() - 1;
    std::uint32_t const mixed =
        at(0) ^ at(last / 2) << 8 ^ at(last) << 16 ^ static_cast<std::uint32_t>(name.size()) << 24;
    return mixed * 0x9E3779B1u >> (32 - kBitsOfPlace);
  }
  static bool Holds(CFStringRef string, std::string_view name) {
    return !string->wide && static_cast<std::size_t>(string->length) == name.size() &&
           std::memcmp(string->Narrow(), name.data(), name.size()) == 0;
  }

  ObjectStore& m_store;
  bool const m_hasReturns;
  std::array<CFStringRef, std::size_t{1} << kBitsOfPlace> m_names = {};
};

// Builds the tree of one document, in a store, while expat reads it.
class TreeBuilder {
 public:
  TreeBuilder(std::string_view text, ObjectStore& store)
      : m_text(text), m_store(store), m_strings(text, store) {}

  // The tree, which holds the reference that the store begins with; null if the document is not
  // well formed, up to a document type. Throws std::bad_alloc.
  CFTreeRef Build();

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
  std::string_view Markup() const {
    return m_text.substr(static_cast<std::size_t>(XML_GetCurrentByteIndex(m_parser.Get())),
                         static_cast<std::size_t>(XML_GetCurrentByteCount(m_parser.Get())));
  }
  std::size_t PlaceOf(std::string_view markup) const {
    return static_cast<std::size_t>(markup.data() - m_text.data());
  }

  // The markup that is reported, once the text in front of it has been taken.
  std::string_view NextMarkup() {
    std::string_view const markup = Markup();
    std::size_t const place = PlaceOf(markup);
    TakeText(place);
    m_textStart = place + markup.size();
    return markup;
  }

  // Adds the nodes of the text from the last markup up to `end`.
  void TakeText(std::size_t end);
  void AddText(std::string_view text);
  void AddInstruction(std::string_view target, std::string_view data);

  CFDictionaryRef CreateAttributes(std::string_view tag);

  // A node that may get a record, and one of text without.
  CFXMLNodeRef MakeWithRoom(CFXMLNodeTypeCode type, CFStringRef string) {
    return Made(m_store.Make<__CFXMLNode>(sizeof(XmlNodeInfo), type, string));
  }
  CFXMLNodeRef MakeText(CFXMLNodeTypeCode type, std::string_view text) {
    return Made(m_store.Make<__CFXMLNode>(0, type, m_strings.TextWithLineFeeds(text)));
  }
  CFXMLNodeRef Reference(std::string_view name);

  CFTreeRef MakeParent(CFXMLNodeRef node) {
    return Made(m_store.Make<__CFTree>(sizeof(__CFTree::Children), node, true));
  }

  // Adds a node without children to the element that is open.
  void Add(CFXMLNodeRef node) {
    m_open.back()->Append(Made(m_store.Make<__CFTree>(0, node, false)));
  }

  enum class End { None, DocumentType, TooDeep, OutOfMemory };
  void Stop(End end) {
    m_end = end;
    XML_StopParser(m_parser.Get(), XML_FALSE);
  }

  std::string_view const m_text;
  ObjectStore& m_store;
  Strings m_strings;
  XmlParserHandle m_parser;
  End m_end = End::None;
  std::size_t m_textStart = 0;    // behind the last markup
  std::size_t m_section = 0;      // where the CDATA section that is open begins
  std::vector<CFTreeRef> m_open;  // the document and the elements that are open
  std::array<CFXMLNodeRef, 16> m_references = {};
  std::vector<void const*> m_keys;
  std::vector<void const*> m_values;
};

CFTreeRef TreeBuilder::Build() {
  if (!BeginsPlainly(m_text)) return nullptr;
  CFXMLNodeRef const node = MakeWithRoom(kCFXMLNodeTypeDocument, CFSTR(""));
  node->AddInfo().document.encoding = kCFStringEncodingUTF8;
  CFTreeRef const document = MakeParent(node);
  m_open.reserve(1 + kMostLevels);
  m_open.push_back(document);
  m_parser = XmlParserHandle(XML_ParserCreate("UTF-8"));
  if (!m_parser) return nullptr;
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
  return Feed() ? document : nullptr;
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

void TreeBuilder::TakeText(std::size_t end) {
  std::string_view left = m_text.substr(m_textStart, end - m_textStart);
  if (SkipSpace(left) == left.size()) return;  // as most are
  while (!left.empty()) {
    std::size_t const reference = std::min(left.find('&'), left.size());
    AddText(left.substr(0, reference));
    left.remove_prefix(reference);
    if (left.empty()) return;
    std::size_t const semicolon = left.find(';');
    Add(Reference(left.substr(1, semicolon - 1)));
    left.remove_prefix(semicolon + 1);
  }
}

void TreeBuilder::AddText(std::string_view text) {
  if (SkipSpace(text) == text.size()) return;
  Add(MakeText(kCFXMLNodeTypeText, text));
}

// One node serves all references with a name that come together.
CFXMLNodeRef TreeBuilder::Reference(std::string_view name) {
  CFStringRef const string = m_strings.Name(name);
  CFXMLNodeRef& recent =
      m_references[(name.size() + static_cast<unsigned char>(name.front())) % m_references.size()];
  if (recent == nullptr || recent->string != string) {
    recent = MakeWithRoom(kCFXMLNodeTypeEntityReference, string);
    recent->AddInfo().entityReference.entityType =
        name.front() == '#' ? kCFXMLEntityTypeCharacter : kCFXMLEntityTypeParsedInternal;
  }
  return recent;
}

void TreeBuilder::StartElement() {
  std::string_view const tag = NextMarkup();
  if (m_open.size() > kMostLevels) return Stop(End::TooDeep);
  std::string_view const name = tag.substr(1, FindSpaceOr<'/', '>'>(tag.substr(1)));
  CFXMLNodeRef const node = MakeWithRoom(kCFXMLNodeTypeElement, m_strings.Name(name));
  CFXMLElementInfo& info = node->AddInfo().element;
  info.isEmpty = tag[tag.size() - 2] == '/';
  info.attributes = CreateAttributes(tag.substr(1 + name.size()));
  CFTreeRef const element = MakeParent(node);
  m_open.back()->Append(element);
  m_open.push_back(element);
}

void TreeBuilder::EndElement() {
  NextMarkup();
  m_open.pop_back();
}

// Of what follows the name in a tag: null if there are no attributes.
CFDictionaryRef TreeBuilder::CreateAttributes(std::string_view tag) {
  m_keys.clear();
  m_values.clear();
  for (;;) {
    tag.remove_prefix(SkipSpace(tag));
    if (tag.front() == '/' || tag.front() == '>') break;
    std::string_view const name = tag.substr(0, FindSpaceOr<'='>(tag));
    std::size_t quote = name.size();
    while (tag[quote] != '"' && tag[quote] != '\'') ++quote;
    std::size_t const end = tag.find(tag[quote], quote + 1);
    m_keys.push_back(m_strings.Name(name));
    m_values.push_back(m_strings.Text(tag.substr(quote + 1, end - quote - 1)));
    tag.remove_prefix(end + 1);
  }
  if (m_keys.empty()) return nullptr;
  return Made(CreateStoredDictionary(m_store, m_keys.data(), m_values.data(), m_keys.size()));
}

void TreeBuilder::AddInstruction(std::string_view target, std::string_view data) {
  CFXMLNodeRef const node =
      MakeWithRoom(kCFXMLNodeTypeProcessingInstruction, m_strings.Name(target));
  node->AddInfo().processingInstruction.dataString = m_strings.TextWithLineFeeds(data);
  Add(node);
}

// What stands between "<?" and "?>", in its two parts.
struct Instruction {
  explicit Instruction(std::string_view markup) {
    markup = markup.substr(2, markup.size() - 4);
    target = markup.substr(0, FindSpaceOr<>(markup));
    markup.remove_prefix(target.size());
    data = markup.substr(SkipSpace(markup));
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
  Add(MakeText(kCFXMLNodeTypeComment, markup.substr(4, markup.size() - 7)));
}

void TreeBuilder::StartSection() {
  NextMarkup();
  m_section = m_textStart;
}

void TreeBuilder::EndSection() {
  std::string_view const markup = Markup();
  std::size_t const end = PlaceOf(markup);
  m_textStart = end + markup.size();
  Add(MakeText(kCFXMLNodeTypeCDATASection, m_text.substr(m_section, end - m_section)));
}

// expat reports one without a name where it looks for declarations elsewhere.
void TreeBuilder::DocumentType(void* builder, XML_Char const* name, XML_Char const*,
                               XML_Char const*, int) {
  auto* const self = static_cast<TreeBuilder*>(builder);
  if (name == nullptr || self->m_end != End::None) return;
  try {
    self->Add(self->MakeText(kCFXMLNodeTypeDocumentType, name));
    self->Stop(End::DocumentType);
  } catch (...) {
    self->Stop(End::OutOfMemory);
  }
}

}  // namespace

CFXMLTreeRef CFXMLTreeCreateFromData(CFAllocatorRef, CFDataRef data, CFURLRef,
                                     CFOptionFlags options, CFIndex) {
  if (options != kCFXMLParserSkipWhitespace) return nullptr;
  auto* const store = MakeCFObject<ObjectStore>(0);
  if (store == nullptr) return nullptr;
  try {
    XmlText text;
    if (text.Read({reinterpret_cast<char const*>(CFDataGetBytePtr(data)),
                   static_cast<std::size_t>(CFDataGetLength(data))})) {
      if (CFTreeRef const document = TreeBuilder(text.Text(), *store).Build()) return document;
    }
  } catch (...) {
  }
  store->Release();
  return nullptr;
}
