#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>

#include <string>

#include "QuillmereLib/core/CFHolder.h"

namespace {

using Tree = CFHolder<CFXMLTreeRef>;
using namespace std::string_literals;

// What the tree is written as: every node shows there.
std::string Written(Tree const& tree) {
  CFHolder<CFDataRef> const data(tree ? CFXMLTreeCreateXMLData(nullptr, tree.Get()) : nullptr);
  if (!data) return "none";
  UInt8 const* const bytes = CFDataGetBytePtr(data.Get());
  return std::string(bytes, bytes + CFDataGetLength(data.Get()));
}

std::string Parsed(std::string const& bytes) {
  CFHolder<CFDataRef> const data(CFDataCreate(nullptr, reinterpret_cast<UInt8 const*>(bytes.data()),
                                              static_cast<CFIndex>(bytes.size())));
  return Written(
      Tree(CFXMLTreeCreateFromData(nullptr, data.Get(), nullptr, kCFXMLParserSkipWhitespace, 1)));
}

}  // namespace

TEST(XmlTree, IsNotMadeOfWhatIsMalformed) {
  for (std::string const& input :
       {" "s, "<"s, "<a"s, "<a/>x"s, "&amp;<a/>"s, "<a>&amp</a>"s, "<a>&#xD800;</a>"s,
        " <?xml version='1.0'?><a/>"s, "<?xml?><a/>"s, "<a>\0</a>"s, "<a>\xED\xA0\x80</a>"s,
        "<!DOCTYPE a"s, "<a/><!DOCTYPE a>"s,
        // Where nothing may be declared elsewhere, a reference to nothing is a fault.
        "<?xml version='1.0' standalone='yes'?><a>&unknown;</a>"s}) {
    EXPECT_EQ(Parsed(input), "none") << input;
  }
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
  for (std::string const& bytes : {declared("UTF-8") + utf8Body, declared("windows-1252") + body,
                                   "\xFE\xFF" + wide(declared("UTF-16") + body, 2, false),
                                   wide(declared("UTF-16LE") + body, 2, true),
                                   "\0\0\xFE\xFF"s + wide(declared("UTF-32") + body, 4, false),
                                   // The mark decides against what is declared.
                                   "\xEF\xBB\xBF" + declared("ISO-8859-1") + utf8Body,
                                   "\xFF\xFE" + wide(declared("ISO-8859-1") + body, 2, true)}) {
    EXPECT_EQ(Parsed(bytes), declared("UTF-8") + "<a \u00E9=\"\u00FC\">\u00E0\n</a>") << bytes;
  }
  EXPECT_EQ(Parsed(declared("Shift_JIS") + "<a>\x93\xFA</a>"), declared("UTF-8") + "<a>\u65E5</a>");

  for (std::string const& bytes :
       {// One mark is one mark, and behind it is no other encoding.
        "\xEF\xBB\xBF\xEF\xBB\xBF<a/>"s, "\xEF\xBB\xBF" + wide("<a/>", 2, true),
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
}

TEST(XmlTree, IsReleasedWhateverItsDepth) {
  CFHolder<CFXMLNodeRef> const node(
      CFXMLNodeCreate(nullptr, kCFXMLNodeTypeText, CFSTR("x"), nullptr, 1));
  Tree const top(CFXMLTreeCreateWithNode(nullptr, node.Get()));
  Tree kept(nullptr);
  CFXMLTreeRef last = top.Get();
  for (int i = 0; i < 1000000; ++i) {
    Tree const first(CFXMLTreeCreateWithNode(nullptr, node.Get()));
    Tree second(CFXMLTreeCreateWithNode(nullptr, node.Get()));
    CFTreeAppendChild(last, first.Get());
    CFTreeAppendChild(last, second.Get());
    last = second.Get();
    if (i == 500000) kept.Reset(second.Release());
  }
  EXPECT_EQ(Written(top).size(), 2000001u);
}
