#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "QuillmereLib/core/CFHolder.h"
#include "tests/support/FailingAllocation.h"

namespace {

using Tree = CFHolder<CFXMLTreeRef>;
using namespace std::string_literals;

CFStringRef Text(std::string const& utf8) {
  return CFStringCreateWithBytes(nullptr, reinterpret_cast<UInt8 const*>(utf8.data()),
                                 static_cast<CFIndex>(utf8.size()), kCFStringEncodingUTF8, false);
}

std::string Utf8(CFStringRef string) {
  if (string == nullptr) return "null";
  CFRange const all = CFRangeMake(0, CFStringGetLength(string));
  std::string text(static_cast<std::size_t>(3 * all.length), '\0');
  CFIndex used = 0;
  CFStringGetBytes(string, all, kCFStringEncodingUTF8, '?', false,
                   reinterpret_cast<UInt8*>(text.data()), 3 * all.length, &used);
  return text.substr(0, static_cast<std::size_t>(used));
}

CFXMLTreeRef Parse(std::string const& bytes) {
  CFHolder<CFDataRef> const data(CFDataCreate(nullptr, reinterpret_cast<UInt8 const*>(bytes.data()),
                                              static_cast<CFIndex>(bytes.size())));
  if (!data) return nullptr;
  return CFXMLTreeCreateFromData(nullptr, data.Get(), nullptr, kCFXMLParserSkipWhitespace, 1);
}

std::string Written(CFXMLTreeRef tree) {
  CFHolder<CFDataRef> const data(CFXMLTreeCreateXMLData(nullptr, tree));
  if (!data) return "none";
  UInt8 const* const bytes = CFDataGetBytePtr(data.Get());
  return std::string(bytes, bytes + CFDataGetLength(data.Get()));
}

std::string Show(CFTreeRef tree);

std::string ShowChildren(CFTreeRef tree) {
  std::string shown;
  for (CFIndex i = 0; i < CFTreeGetChildCount(tree); ++i) {
    shown += (i == 0 ? "" : " ") + Show(CFTreeGetChildAtIndex(tree, i));
  }
  return shown;
}

std::string ShowAttributes(CFDictionaryRef attributes) {
  if (attributes == nullptr) return "";
  auto const count = static_cast<std::size_t>(CFDictionaryGetCount(attributes));
  std::vector<void const*> keys(count), values(count);
  CFDictionaryGetKeysAndValues(attributes, keys.data(), values.data());
  std::string shown;
  for (std::size_t i = 0; i < count; ++i) {
    shown += " " + Utf8(static_cast<CFStringRef>(keys[i])) + "=" +
             Utf8(static_cast<CFStringRef>(values[i]));
  }
  return shown;
}

// One letter for the kind, then what the node holds; children in parentheses.
std::string Show(CFTreeRef tree) {
  CFXMLNodeRef const node = CFXMLTreeGetNode(tree);
  std::string const text = Utf8(CFXMLNodeGetString(node));
  void const* const info = CFXMLNodeGetInfoPtr(node);
  switch (CFXMLNodeGetTypeCode(node)) {
    case kCFXMLNodeTypeDocument:
      return "(" + ShowChildren(tree) + ")" + text;
    case kCFXMLNodeTypeElement: {
      auto const& element = *static_cast<CFXMLElementInfo const*>(info);
      return text + (element.isEmpty ? "/" : "") + ShowAttributes(element.attributes) + "(" +
             ShowChildren(tree) + ")";
    }
    case kCFXMLNodeTypeProcessingInstruction:
      return "?" + text + "=" +
             Utf8(static_cast<CFXMLProcessingInstructionInfo const*>(info)->dataString);
    case kCFXMLNodeTypeEntityReference:
      return "&" + text + ":" +
             std::to_string(static_cast<CFXMLEntityReferenceInfo const*>(info)->entityType);
    case kCFXMLNodeTypeComment:
      return "!" + text;
    case kCFXMLNodeTypeText:
      return "'" + text + "'";
    case kCFXMLNodeTypeCDATASection:
      return "[" + text + "]";
    case kCFXMLNodeTypeDocumentType:
      return "D" + text;
    default:
      return "unknown";
  }
}

std::string Parsed(std::string const& bytes) {
  Tree const tree(Parse(bytes));
  return tree ? Show(tree.Get()) : "none";
}

struct Case {
  std::string input, expected;
};

}  // namespace

TEST(XmlTree, HoldsWhatTheMarkupSays) {
  std::string const mark = "\xEF\xBB\xBF";
  Case const cases[] = {
      {"<a/>", "(a/())"},
      {"<a ></a >", "(a())"},
      {"<x:a xmlns:x='u' b = \"2\"\n\ta='1'/>", "(x:a/ xmlns:x=u b=2 a=1())"},
      {"<a v='&amp;&#65;&unknown;\"\r\n\t' w=\"'>/\"/>",
       "(a/ v=&amp;&#65;&unknown;\"\r\n\t w='>/())"},
      {"<a>x&amp;y&#65;&#x41;&unknown;z</a>", "(a('x' &amp:1 'y' &#65:4 &#x41:4 &unknown:1 'z'))"},
      {"<a> \r\n&lt; &gt;\t<b/> c <b/>\r</a>", "(a(&lt:1 &gt:1 b/() ' c ' b/()))"},
      {"<a>1\r\n2\r3\n4\r\r\n</a>", "(a('1\n2\n3\n4\n\n'))"},
      {"<?p  x\r\ny ?>\n<a><?q?><?r  ?></a>\n<?s a?b?>\n", "(?p=x\ny  a(?q= ?r=) ?s=a?b)"},
      {"<?xml version='1.0' ?><a/>", "(?xml=version='1.0'  a/())"},
      {"<a>x<!--c\r\nd-->y<![CDATA[<&\r\n]]>z<![CDATA[]]></a><!---->",
       "(a('x' !c\nd 'y' [<&\n] 'z' []) !)"},
      {mark + "<\xC3\xA9 \xC3\xA9='\xE2\x82\xAC'>\xF0\x9F\x98\x80</\xC3\xA9>",
       "(\xC3\xA9 \xC3\xA9=\xE2\x82\xAC('\xF0\x9F\x98\x80'))"},
      {"<a>\xEF\xBB\xBF\xC2\xA0</a>", "(a('\xEF\xBB\xBF\xC2\xA0'))"},
      // A document type ends the reading, whatever it says and whatever follows.
      {"<?p x?><!DOCTYPE a [<!ENTITY e 'x'>]><a>&e;</a>", "(?p=x Da)"},
      {"<!--c--><!DOCTYPE x:a SYSTEM 'file:///etc/passwd'><a></b>", "(!c Dx:a)"},
      {"<!DOCTYPE a PUBLIC 'p' 's' [<!ENTITY % p SYSTEM 'file:///x'> %p; ", "(Da)"},
  };
  for (Case const& c : cases) EXPECT_EQ(Parsed(c.input), c.expected) << c.input;
}

TEST(XmlTree, IsNotMadeOfWhatIsMalformed) {
  std::string const cases[] = {
      "", " ", "x", "<", "<a", "<a>", "<a></b>", "</a>", "<a/><b/>", "<a/>x", "x<a/>", "&amp;<a/>",
      "<a b='1' b='2'/>", "<a b=1/>", "<a b/>", "<a b='<'/>", "<a b='&'/>", "<a b='1'c='2'/>",
      "<a>&</a>", "<a>&amp</a>", "<a>& amp;</a>", "<a>&#0;</a>", "<a>&#xD800;</a>", "<a>&#x;</a>",
      "<a>&#1114112;</a>", "<a>]]></a>", "<a><!-- -- --></a>", "<a><![CDATA[x]]</a>",
      "<![CDATA[x]]><a/>", "<a><?xml x?></a>", " <?xml version='1.0'?><a/>", "<?xml?><a/>",
      "<a>\x01</a>", "<a>\0</a>"s, "<a>\xEF\xBF\xBE</a>", "<a>\xED\xA0\x80</a>", "<a>\xC0\x80</a>",
      "<a>\xE2\x82</a>", "<a>\xFF</a>", "<a b='\xF5\x80\x80\x80'/>", "<1/>", "<a:/ >x",
      "<!DOCTYPE>", "<!DOCTYPE a", "<a><!DOCTYPE a></a>", "<a/><!DOCTYPE a>",
      // Where nothing may be declared elsewhere, a reference to nothing is a fault.
      "<?xml version='1.0' standalone='yes'?><a>&unknown;</a>"};
  for (std::string const& input : cases) EXPECT_EQ(Parsed(input), "none") << input;
  EXPECT_EQ(
      CFXMLTreeCreateFromData(
          nullptr,
          CFHolder<CFDataRef>(CFDataCreate(nullptr, reinterpret_cast<UInt8 const*>("<a/>"), 4))
              .Get(),
          nullptr, 0, 1),
      nullptr);
}

TEST(XmlTree, IsTheSameInEveryEncoding) {
  auto const utf16 = [](std::string const& latin, bool little, bool marked) {
    std::string bytes = !marked ? "" : little ? "\xFF\xFE" : "\xFE\xFF";
    for (char const c : latin) bytes += little ? std::string{c, '\0'} : std::string{'\0', c};
    return bytes;
  };
  auto const utf32 = [](std::string const& latin, bool little) {
    std::string bytes = little ? "\xFF\xFE\0\0"s : "\0\0\xFE\xFF"s;
    for (char const c : latin) bytes += little ? c + "\0\0\0"s : "\0\0\0"s + c;
    return bytes;
  };
  auto const declared = [](std::string const& encoding) {
    return "<?xml version='1.0' encoding=\"" + encoding + "\"?>";
  };
  std::string const body = "<a \xE9='\xFC'>\xE0\r\n</a>";
  std::string const utf8Body = "<a \xC3\xA9='\xC3\xBC'>\xC3\xA0\r\n</a>";
  std::string const expected =
      "(?xml=version='1.0' encoding=\"UTF-8\" a \xC3\xA9=\xC3\xBC('\xC3\xA0\n'))";
  std::string const cases[] = {
      declared("UTF-8") + utf8Body, "\xEF\xBB\xBF" + declared("UTF-8") + utf8Body,
      declared("ISO-8859-1") + body, declared("latin1") + body, declared("windows-1252") + body,
      utf16(declared("UTF-16") + body, true, true), utf16(declared("UTF-16") + body, false, true),
      utf16(declared("UTF-16LE") + body, true, false),
      utf16(declared("utf-16be") + body, false, false), utf32(declared("UTF-32") + body, true),
      utf32(declared("UTF-32") + body, false),
      // The mark decides against what is declared.
      "\xEF\xBB\xBF" + declared("ISO-8859-1") + utf8Body,
      utf16(declared("ISO-8859-1") + body, true, true)};
  for (std::string const& bytes : cases) EXPECT_EQ(Parsed(bytes), expected) << bytes;
  EXPECT_EQ(Parsed(declared("Shift_JIS") + "<a>\x93\xFA</a>"),
            "(?xml=version='1.0' encoding=\"UTF-8\" a('\xE6\x97\xA5'))");
  EXPECT_EQ(Parsed(declared("utf-8") + "<a/>"), "(?xml=version='1.0' encoding=\"utf-8\" a/())");

  // Of another processing instruction nothing is taken.
  EXPECT_EQ(Parsed("<?xmls encoding='latin1'?><a>\xC3\xA9</a>"),
            "(?xmls=encoding='latin1' a('\xC3\xA9'))");

  std::string const refused[] = {// One mark is one mark, and behind it is no other encoding.
                                 "\xEF\xBB\xBF\xEF\xBB\xBF<a/>",
                                 "\xEF\xBB\xBF<\0a\0/\0>\0"s,
                                 "\xEF\xBB\xBF\xFF\xFE<\0a\0/\0>\0"s,
                                 "\xEF\xBB\xBF\0<\0a\0/\0>"s,
                                 declared("no-such-encoding") + "<a/>",
                                 declared("US-ASCII") + utf8Body,
                                 declared("UTF-16") + "<a/>",
                                 declared("Shift_JIS") + "<a>\x93</a>",
                                 declared("UTF-8") + body,
                                 "\xFF\xFE<\0a\0/\0"s,
                                 "\xFF\xFE<\0a\0>\0\0\xD8<\0/\0a\0>\0"s,
                                 utf16("<a>", true, true) + "x"};
  for (std::string const& bytes : refused) EXPECT_EQ(Parsed(bytes), "none") << bytes;
}

// The stack and the time must not depend on what a document says.
TEST(XmlTree, ReadsHostileDocumentsInProportionToTheirSize) {
  auto const repeated = [](std::string const& text, int count) {
    std::string all;
    for (int i = 0; i < count; ++i) all += text;
    return all;
  };
  auto const nested = [&](int levels) {
    return repeated("<a>", levels) + repeated("</a>", levels);
  };
  EXPECT_NE(Parsed(nested(1024)), "none");
  EXPECT_EQ(Parsed(nested(1025)), "none");
  EXPECT_EQ(Parsed(nested(1000000)), "none");

  Tree const references(Parse("<a>" + repeated("&amp;", 1000000) + "</a>"));
  ASSERT_TRUE(references);
  EXPECT_EQ(CFTreeGetChildCount(CFTreeGetChildAtIndex(references.Get(), 0)), 1000000);
  // One token of many megabytes comes in many pieces.
  std::string const large(std::size_t{48} << 20, 'x');
  EXPECT_EQ(Parsed("<a v='" + large + "'/>").size(), large.size() + 9);
  EXPECT_EQ(Parsed("<!--" + large + "--><a/>").size(), large.size() + 8);

  std::string attributes = "<a";
  for (int i = 0; i < 100000; ++i) attributes += " b" + std::to_string(i) + "=''";
  EXPECT_EQ(Written(Tree(Parse(attributes + "/>")).Get()).size(), attributes.size() + 2);
}

TEST(XmlTree, IsReleasedWhateverItsDepth) {
  CFHolder<CFXMLNodeRef> const node(
      CFXMLNodeCreate(nullptr, kCFXMLNodeTypeText, CFSTR("x"), nullptr, 1));
  Tree const top(CFXMLTreeCreateWithNode(nullptr, node.Get()));
  Tree kept(nullptr);
  CFXMLTreeRef last = top.Get();
  for (int i = 0; i < 1000000; ++i) {
    for (int branch = 0; branch < 2; ++branch) {
      Tree const child(CFXMLTreeCreateWithNode(nullptr, node.Get()));
      CFTreeAppendChild(last, child.Get());
      if (i == 500000)
        kept.Reset(static_cast<CFXMLTreeRef>(const_cast<void*>(CFRetain(child.Get()))));
    }
    last = CFTreeGetChildAtIndex(last, 1);
  }
  EXPECT_EQ(Written(top.Get()).size(), 2000001u);
}

TEST(XmlTree, GivesItsChildrenInAnyOrderOfAsking) {
  Tree const tree(Parse("<a><b/><c/><d/></a>"));
  CFTreeRef const element = CFTreeGetChildAtIndex(tree.Get(), 0);
  std::string shown;
  for (CFIndex const index : {2, 0, 1, 1, 3, -1, 2}) {
    CFTreeRef const child = CFTreeGetChildAtIndex(element, index);
    shown += child != nullptr ? Utf8(CFXMLNodeGetString(CFXMLTreeGetNode(child))) : "-";
  }
  EXPECT_EQ(shown, "dbcc--d");
}

TEST(XmlTree, IsWrittenAsItStands) {
  Case const cases[] = {
      {"<?xml version='1.0'?>\n<a  b = '1'\tc=\"2\" ><d></d> &amp; "
       "<e/><!--x--><![CDATA[<]]>&u;&#65;</a >",
       "<?xml version='1.0'?><a b=\"1\" c=\"2\"><d></d>&amp;<e/><!--x--><![CDATA[<]]>&u;&#65;</a>"},
      {"<a b='\"' c=\"'\" d='&quot;' e='\"&apos;'/>",
       "<a b='\"' c=\"'\" d=\"&quot;\" e='\"&apos;'/>"},
      {"<?p?><\xC3\xA9>\xF0\x9F\x98\x80</\xC3\xA9><!DOCTYPE x>", "none"},
      {"<?p?><!DOCTYPE x>", "<?p ?><!DOCTYPE x>"},
      {"<\xC3\xA9>\xF0\x9F\x98\x80</\xC3\xA9>", "<\xC3\xA9>\xF0\x9F\x98\x80</\xC3\xA9>"},
  };
  for (Case const& c : cases) {
    Tree const tree(Parse(c.input));
    EXPECT_EQ(tree ? Written(tree.Get()) : "none", c.expected) << c.input;
  }
}

// Of an element, in the order that its record gives, not in that of the dictionary.
TEST(XmlTree, IsWrittenFromRecordsThatItKeeps) {
  auto const element = [](std::vector<Case> const& attributes, bool isEmpty) {
    CFHolder<CFMutableDictionaryRef> const values(CFDictionaryCreateMutable(
        nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    CFHolder<CFMutableArrayRef> const order(
        CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
    for (std::size_t i = attributes.size(); i-- > 0;) {
      CFHolder<CFStringRef> const key(Text(attributes[i].input));
      CFHolder<CFStringRef> const value(Text(attributes[i].expected));
      CFDictionaryAddValue(values.Get(), key.Get(), value.Get());
    }
    for (Case const& attribute : attributes) {
      CFHolder<CFStringRef> const key(Text(attribute.input));
      CFArrayAppendValue(order.Get(), key.Get());
    }
    CFXMLElementInfo const info = {values.Get(), order.Get(), isEmpty, {}};
    CFHolder<CFXMLNodeRef> const node(
        CFXMLNodeCreate(nullptr, kCFXMLNodeTypeElement, CFSTR("a b"), &info, 1));
    Tree const tree(CFXMLTreeCreateWithNode(nullptr, node.Get()));
    return Written(tree.Get());
  };
  EXPECT_EQ(element({}, false), "<a b></a b>");
  EXPECT_EQ(element({}, true), "<a b/>");
  EXPECT_EQ(element({{"z", "<&"}, {"b", "'\"&quot;"}, {"a", "\xC3\xA9"}}, false),
            "<a b z=\"<&\" b=\"'&quot;&quot;\" a=\"\xC3\xA9\"></a b>");

  auto const alone = [](CFXMLNodeTypeCode type, CFStringRef string, void const* info) {
    CFHolder<CFXMLNodeRef> const node(CFXMLNodeCreate(nullptr, type, string, info, 1));
    return Written(Tree(CFXMLTreeCreateWithNode(nullptr, node.Get())).Get());
  };
  UniChar const broken[] = {'a', 0xD83D, 'b'};
  CFHolder<CFStringRef> const unwritable(CFStringCreateWithCharacters(nullptr, broken, 3));
  CFXMLProcessingInstructionInfo const data = {CFSTR("a>b")};
  CFXMLProcessingInstructionInfo const noData = {nullptr};
  EXPECT_EQ(alone(kCFXMLNodeTypeProcessingInstruction, CFSTR("p"), &data), "<?p a>b?>");
  EXPECT_EQ(alone(kCFXMLNodeTypeProcessingInstruction, CFSTR("p"), &noData), "<?p ?>");
  EXPECT_EQ(alone(kCFXMLNodeTypeDocument, CFSTR(""), nullptr), "");
  EXPECT_EQ(alone(kCFXMLNodeTypeText, CFSTR("<"), nullptr), "<");
  EXPECT_EQ(alone(kCFXMLNodeTypeText, unwritable.Get(), nullptr), "none");
  EXPECT_EQ(alone(3, CFSTR("x"), nullptr), "none");
}

TEST(XmlTree, EscapesTheFiveCharacters) {
  Case const cases[] = {{"", ""},
                        {"a&b<c>d'e\"f", "a&amp;b&lt;c&gt;d&apos;e&quot;f"},
                        {"\xC3\xA9&\xF0\x9F\x98\x80<", "\xC3\xA9&amp;\xF0\x9F\x98\x80&lt;"},
                        {"&amp;\n", "&amp;amp;\n"}};
  for (Case const& c : cases) {
    CFHolder<CFStringRef> const source(Text(c.input));
    CFHolder<CFStringRef> const escaped(
        CFXMLCreateStringByEscapingEntities(nullptr, source.Get(), nullptr));
    EXPECT_EQ(Utf8(escaped.Get()), c.expected);
  }
}

TEST(XmlTree, PartsOutliveTheTreeThatTheyWereFoundIn) {
  std::string many;
  for (int i = 0; i < 100; ++i) {
    many += " k" + std::to_string(i) + "='v\u00E9" + std::to_string(i) + "'";
  }
  Tree whole(Parse("<a><b" + many + ">text \u00E9</b></a>"));
  ASSERT_TRUE(whole);
  CFTreeRef const element = CFTreeGetChildAtIndex(CFTreeGetChildAtIndex(whole.Get(), 0), 0);
  Tree const child(static_cast<CFTreeRef>(const_cast<void*>(CFRetain(element))));
  CFHolder<CFStringRef> const text(static_cast<CFStringRef>(
      CFRetain(CFXMLNodeGetString(CFXMLTreeGetNode(CFTreeGetChildAtIndex(element, 0))))));

  whole.Reset(nullptr);

  EXPECT_EQ(Utf8(text.Get()), "text \u00E9");
  EXPECT_EQ(Written(child.Get()),
            "<b" + std::regex_replace(many, std::regex("'"), "\"") + ">text \u00E9</b>");
}

TEST(XmlTree, SurvivesEveryFailureOfAllocation) {
  std::string const document =
      "<?xml version='1.0' encoding='latin1'?><?p x?><a b='1' c='\xE9'>t\r\n&amp;<!--c-->"
      "<![CDATA[x]]></a>";
  std::string const expected = Written(Tree(Parse(document)).Get());
  int complete = 0;
  std::string written;
  int const failures = FailEachAllocation(
      [&] {
        Tree const tree(Parse(document));
        CFHolder<CFDataRef> const data(tree ? CFXMLTreeCreateXMLData(nullptr, tree.Get())
                                            : nullptr);
        written.clear();
        if (data) {
          written.assign(reinterpret_cast<char const*>(CFDataGetBytePtr(data.Get())),
                         static_cast<std::size_t>(CFDataGetLength(data.Get())));
        }
      },
      [&] {
        EXPECT_TRUE(written.empty() || written == expected) << written;
        if (!written.empty()) ++complete;
      });
  EXPECT_GT(failures, 15);
  EXPECT_EQ(complete, 1);
  CFHolder<CFXMLNodeRef> const node(
      CFXMLNodeCreate(nullptr, kCFXMLNodeTypeText, CFSTR("<"), nullptr, 1));
  FailingAllocation const failing(1);
  EXPECT_EQ(CFXMLTreeCreateWithNode(nullptr, node.Get()), nullptr);
}
