#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "QuillmereLib/core/CFHolder.h"
#include "tests/support/Strings.h"

namespace {

using Tree = CFHolder<CFXMLTreeRef>;
using namespace std::string_literals;

CFXMLTreeRef Parse(std::string const& bytes, CFOptionFlags options = kCFXMLParserSkipWhitespace) {
  CFHolder<CFDataRef> const data(CFDataCreate(nullptr, reinterpret_cast<UInt8 const*>(bytes.data()),
                                              static_cast<CFIndex>(bytes.size())));
  return CFXMLTreeCreateFromData(nullptr, data.Get(), nullptr, options, 1);
}

// What the tree is written as: every node shows there.
std::string Written(Tree const& tree) {
  CFHolder<CFDataRef> const data(tree ? CFXMLTreeCreateXMLData(nullptr, tree.Get()) : nullptr);
  if (!data) return "none";
  UInt8 const* const bytes = CFDataGetBytePtr(data.Get());
  return std::string(bytes, bytes + CFDataGetLength(data.Get()));
}

std::string Parsed(std::string const& bytes) { return Written(Tree(Parse(bytes))); }

CFTreeRef Retained(CFTreeRef tree) {
  CFRetain(tree);
  return tree;
}

// A tree of one node.
Tree TreeOf(CFXMLNodeTypeCode type, CFStringRef string, void const* info = nullptr) {
  CFHolder<CFXMLNodeRef> const node(CFXMLNodeCreate(nullptr, type, string, info, 1));
  return Tree(CFXMLTreeCreateWithNode(nullptr, node.Get()));
}

}  // namespace

TEST(XmlTree, HoldsWhatTheMarkupSays) {
  std::pair<std::string, std::string> const cases[] = {
      {"<a ></a >", "<a></a>"},
      {"<x:a xmlns:x='u' b = \"2\"\n\ta='1'/>", "<x:a xmlns:x=\"u\" b=\"2\" a=\"1\"/>"},
      {"<a v='&amp;&#65;&unknown;\"\r\n\t' w=\"'>/\"/>",
       "<a v='&amp;&#65;&unknown;\"\r\n\t' w=\"'>/\"/>"},
      {"<a b='\"&apos;' c='&quot;'/>", "<a b='\"&apos;' c=\"&quot;\"/>"},
      {"<a>x&amp;y&#65;&#x41;&unknown;z</a>", "<a>x&amp;y&#65;&#x41;&unknown;z</a>"},
      {"<a> \r\n&lt; &gt;\t<b/> c <b/>\r</a>", "<a>&lt;&gt;<b/> c <b/></a>"},
      {"<a>1\r\n2\r3\n4\r\r\n</a>", "<a>1\n2\n3\n4\n\n</a>"},
      {"<?p  x\r\ny ?>\n<a><?q?><?r  ?></a>\n<?s a?b?>\n",
       "<?p x\ny ?><a><?q ?><?r ?></a><?s a?b?>"},
      {"<a>x<!--c\r\nd-->y<![CDATA[<&\r\n]]>z<![CDATA[]]></a><!---->",
       "<a>x<!--c\nd-->y<![CDATA[<&\n]]>z<![CDATA[]]></a><!---->"},
      {"\xEF\xBB\xBF<\u00E9 \u00E9='\u20AC'>\U0001F600</\u00E9>",
       "<\u00E9 \u00E9=\"\u20AC\">\U0001F600</\u00E9>"},
      {"<a>\uFEFF\u00A0</a>", "<a>\uFEFF\u00A0</a>"},
      // A document type ends the reading, whatever it says and whatever follows.
      {"<?p x?><!DOCTYPE a [<!ENTITY e 'x'>]><a>&e;</a>", "<?p x?><!DOCTYPE a>"},
      {"<!--c--><!DOCTYPE x:a SYSTEM 'file:///etc/passwd'><a></b>", "<!--c--><!DOCTYPE x:a>"},
      {"<!DOCTYPE a PUBLIC 'p' 's' [<!ENTITY % p SYSTEM 'file:///x'> %p; ", "<!DOCTYPE a>"}};
  for (auto const& [input, expected] : cases) EXPECT_EQ(Parsed(input), expected) << input;
}

TEST(XmlTree, GivesItsChildrenInAnyOrderOfAsking) {
  Tree const tree(Parse("<a>x&amp;&#65;<!--c--><![CDATA[d]]><e/></a>"));
  CFTreeRef const element = CFTreeGetChildAtIndex(tree.Get(), 0);
  CFXMLNodeTypeCode const kinds[] = {6, 10, 10, 5, 7, 2};
  for (CFIndex const index : {2, 0, 1, 1, 5, 3, 4}) {
    CFXMLNodeRef const node = CFXMLTreeGetNode(CFTreeGetChildAtIndex(element, index));
    EXPECT_EQ(CFXMLNodeGetTypeCode(node), kinds[index]) << index;
    if (kinds[index] != kCFXMLNodeTypeEntityReference) continue;
    auto const& info = *static_cast<CFXMLEntityReferenceInfo const*>(CFXMLNodeGetInfoPtr(node));
    EXPECT_EQ(info.entityType,
              index == 1 ? kCFXMLEntityTypeParsedInternal : kCFXMLEntityTypeCharacter);
  }
  for (CFIndex const index : {-1, 6}) EXPECT_EQ(CFTreeGetChildAtIndex(element, index), nullptr);
}

TEST(XmlTree, IsNotMadeOfWhatIsMalformed) {
  for (std::string const& input :
       {" "s, "x"s, "<"s, "<a"s, "<a/>x"s, "&amp;<a/>"s, "<a b=1/>"s, "<a b='<'/>"s, "<a>&amp</a>"s,
        "<a>&#xD800;</a>"s, "<a>]]></a>"s, " <?xml version='1.0'?><a/>"s, "<?xml?><a/>"s,
        "<a>\0</a>"s, "<a>\xED\xA0\x80</a>"s, "<1/>"s, "<!DOCTYPE a"s, "<a><!DOCTYPE a></a>"s,
        "<a/><!DOCTYPE a>"s,
        // Where nothing may be declared elsewhere, a reference to nothing is a fault.
        "<?xml version='1.0' standalone='yes'?><a>&unknown;</a>"s}) {
    EXPECT_EQ(Parsed(input), "none") << input;
  }
  EXPECT_EQ(Parse("<a/>", 0), nullptr);
}

TEST(XmlTree, IsTheSameInEveryEncoding) {
  auto const wide = [](std::string const& latin, std::size_t width, bool isLittle) {
    std::string bytes(latin.size() * width, '\0');
    for (std::size_t i = 0; i < latin.size(); ++i) {
      bytes[i * width + (isLittle ? 0 : width - 1)] = latin[i];
    }
    return bytes;
  };
  auto const declared = [](std::string const& encoding) {
    return "<?xml version='1.0' encoding=\"" + encoding + "\"?>";
  };
  std::string const body = "<a \xE9='\xFC'>\xE0\r\n</a>";
  std::string const utf8Body = "<a \u00E9='\u00FC'>\u00E0\r\n</a>";
  for (std::string const& bytes :
       {declared("UTF-8") + utf8Body, declared("windows-1252") + body,
        "\xFE\xFF" + wide(declared("UTF-16") + body, 2, false),
        wide(declared("UTF-16LE") + body, 2, true), wide(declared("utf-16be") + body, 2, false),
        "\xFF\xFE\0\0"s + wide(declared("UTF-32") + body, 4, true),
        "\0\0\xFE\xFF"s + wide(declared("UTF-32") + body, 4, false),
        // The mark decides against what is declared.
        "\xEF\xBB\xBF" + declared("ISO-8859-1") + utf8Body,
        "\xFF\xFE" + wide(declared("ISO-8859-1") + body, 2, true)}) {
    EXPECT_EQ(Parsed(bytes), declared("UTF-8") + "<a \u00E9=\"\u00FC\">\u00E0\n</a>") << bytes;
  }
  EXPECT_EQ(Parsed(declared("Shift_JIS") + "<a>\x93\xFA</a>"), declared("UTF-8") + "<a>\u65E5</a>");
  EXPECT_EQ(Parsed(declared("utf-8") + "<a/>"), declared("utf-8") + "<a/>");
  EXPECT_EQ(Parsed("<?xmls encoding='latin1'?><a>\u00E9</a>"),
            "<?xmls encoding='latin1'?><a>\u00E9</a>");

  for (std::string const& bytes :
       {// One mark is one mark, and behind it is no other encoding.
        "\xEF\xBB\xBF\xEF\xBB\xBF<a/>"s, "\xEF\xBB\xBF" + wide("<a/>", 2, true),
        "\xEF\xBB\xBF\xFF\xFE" + wide("<a/>", 2, true), "\xEF\xBB\xBF" + wide("<a/>", 2, false),
        declared("no-such-encoding") + "<a/>", declared("US-ASCII") + utf8Body,
        declared("UTF-16") + "<a/>", declared("Shift_JIS") + "<a>\x93</a>",
        declared("UTF-8") + body, "\xFF\xFE<\0a\0/\0"s, "\xFF\xFE<\0a\0>\0\0\xD8<\0/\0a\0>\0"s,
        "\xFF\xFE" + wide("<a/>", 2, true) + "x"}) {
    EXPECT_EQ(Parsed(bytes), "none") << bytes;
  }
}

// It comes in many pieces, and the time must not grow with their square.
TEST(XmlTree, ReadsATokenOfManyMegabytes) {
  std::string const large(std::size_t{48} << 20, 'x');
  EXPECT_EQ(Parsed("<a v='" + large + "'/>").size(), large.size() + 9);
  EXPECT_EQ(Parsed("<!--" + large + "--><a/>").size(), large.size() + 11);
}

TEST(XmlTree, IsReleasedWhateverItsDepth) {
  Tree const top = TreeOf(kCFXMLNodeTypeText, CFSTR("x"));
  CFXMLNodeRef const node = CFXMLTreeGetNode(top.Get());
  Tree kept(nullptr);
  CFXMLTreeRef last = top.Get();
  for (int i = 0; i < 1000000; ++i) {
    for (int branch = 0; branch < 2; ++branch) {
      Tree const child(CFXMLTreeCreateWithNode(nullptr, node));
      CFTreeAppendChild(last, child.Get());
      if (i == 500000) kept.Reset(Retained(child.Get()));
    }
    last = CFTreeGetChildAtIndex(last, 1);
  }
  EXPECT_EQ(Written(top).size(), 2000001u);
}

// The records of a caller are kept, and nothing of them is looked at.
TEST(XmlTree, IsWrittenAsItStands) {
  void const* names[] = {CFSTR("a"), CFSTR("b")};
  void const* others[] = {CFSTR("b"), CFSTR("a")};
  CFHolder<CFArrayRef> const order(CFArrayCreate(nullptr, names, 2, &kCFTypeArrayCallBacks));
  CFHolder<CFDictionaryRef> const values(CFDictionaryCreate(
      nullptr, others, names, 2, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  CFXMLElementInfo const ordered = {values.Get(), order.Get(), false, {}};
  CFXMLElementInfo const full = {nullptr, nullptr, false, {}}, empty = {nullptr, nullptr, true, {}};
  CFXMLProcessingInstructionInfo const data = {CFSTR("a>b")}, noData = {nullptr};
  CFHolder<CFStringRef> const unwritable(CreateString(u"a\xD83D\u0062"));
  struct {
    CFXMLNodeTypeCode type;
    CFStringRef string;
    void const* info;
    std::string written;
  } const cases[] = {{kCFXMLNodeTypeElement, CFSTR("a"), &ordered, "<a a=\"b\" b=\"a\"></a>"},
                     {kCFXMLNodeTypeElement, CFSTR("a b"), &full, "<a b></a b>"},
                     {kCFXMLNodeTypeElement, CFSTR("a"), &empty, "<a/>"},
                     {kCFXMLNodeTypeProcessingInstruction, CFSTR("p"), &data, "<?p a>b?>"},
                     {kCFXMLNodeTypeProcessingInstruction, CFSTR("p"), &noData, "<?p ?>"},
                     {kCFXMLNodeTypeDocument, CFSTR(""), nullptr, ""},
                     {kCFXMLNodeTypeText, CFSTR("<"), nullptr, "<"},
                     {kCFXMLNodeTypeText, unwritable.Get(), nullptr, "none"},
                     {3, CFSTR("x"), nullptr, "none"}};
  for (auto const& c : cases) EXPECT_EQ(Written(TreeOf(c.type, c.string, c.info)), c.written);
}

TEST(XmlTree, EscapesTheFiveCharacters) {
  for (std::string const letter : {"", "x", "\u00E9\U0001F600"}) {
    CFHolder<CFStringRef> const escaped(CFXMLCreateStringByEscapingEntities(
        nullptr, *Make(letter + "&b<c>d'e\"\n" + letter + "&amp;"), nullptr));
    EXPECT_EQ(Utf8(escaped.Get()),
              letter + "&amp;b&lt;c&gt;d&apos;e&quot;\n" + letter + "&amp;amp;");
  }
}

TEST(XmlTree, PartsOutliveTheTreeThatTheyWereFoundIn) {
  std::string part = "<b";
  for (int i = 0; i < 100; ++i) part += " k" + std::to_string(i) + "=\"v\u00E9\"";
  part += ">text \u00E9</b>";
  Tree whole(Parse("<a>" + part + "</a>"));
  CFTreeRef const element = CFTreeGetChildAtIndex(CFTreeGetChildAtIndex(whole.Get(), 0), 0);
  Tree const kept(Retained(element));
  CFHolder<CFStringRef> const text(static_cast<CFStringRef>(
      CFRetain(CFXMLNodeGetString(CFXMLTreeGetNode(CFTreeGetChildAtIndex(element, 0))))));
  whole.Reset(nullptr);
  EXPECT_EQ(Utf8(text.Get()), "text \u00E9");
  EXPECT_EQ(Written(kept), part);
}
