#pragma once

// Documents between bytes and trees.

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFString.h>
#include <CoreFoundation/CFURL.h>
#include <CoreFoundation/CFXMLNode.h>

// White space that stands alone between markup or references gives no node. White space among other
// characters of a run of text stays.
enum : CFOptionFlags { kCFXMLParserSkipWhitespace = 8 };

// The tree of a document, under a node of the kind document; or null if the document is not well
// formed, nests elements deeper than 1024 levels, is in no encoding that is known, or if memory
// runs out. The only options that are known are kCFXMLParserSkipWhitespace; with any other the
// result is null. `dataSource` and `version` are ignored: nothing outside the data is ever looked
// at.
//
// Encodings: a byte-order mark decides (UTF-8, UTF-16, UTF-32), whatever is declared; UTF-16 is
// known without one too. Else it is the declared one, if it writes the declaration as ASCII does
// and the system knows it, and UTF-8 where none is declared. Bytes that the encoding does not allow
// make the document not well formed.
//
// What the nodes hold:
// - Names as they stand, with their prefixes. Of an element without attributes the record holds no
//   dictionary. Values of attributes as between their quotes: neither references nor line ends are
//   replaced. Order is kept in the dictionary, and not given apart.
// - All other text with line ends as line feeds. Each reference among the children of an element is
//   a node of its own, with its name alone: "amp", "#65", "unknown"; none is replaced. References
//   that stand beside each other, and runs of text between them, are nodes each.
// - The XML declaration as a processing instruction with the target "xml". As the tree is free of
//   its bytes, a declared encoding other than UTF-8 is told as UTF-8, which trees are written in.
// - A processing instruction without data has the empty string for it.
// - A document type declaration ends the reading: the tree holds what stands in front, and a node
//   for it. What follows is not looked at, so that nothing is ever declared or expanded.
CF_INSIDE CFXMLTreeRef CFXMLTreeCreateFromData(CFAllocatorRef allocator, CFDataRef data,
                                               CFURLRef dataSource, CFOptionFlags options,
                                               CFIndex version);

// The text of a tree in UTF-8, without a byte-order mark; or null if a string in it cannot be
// written in UTF-8 (an unpaired surrogate), or memory runs out. Nodes follow each other with
// nothing between. Nothing is checked or escaped: text, names, data and values stand as they are,
// so that what is written need not be well formed. A value is enclosed in double quotes, or in
// single ones if it holds a double quote; if it holds both, its double quotes are written as
// &quot;. An element without children has both its tags unless its record says that it is empty; a
// reference is its name between "&" and ";".
CF_INSIDE CFDataRef CFXMLTreeCreateXMLData(CFAllocatorRef allocator, CFXMLTreeRef tree);

// A string like `string` in which &amp; &lt; &gt; &apos; and &quot; stand for their characters; it
// may be `string` itself. `entities` must be null. Null when memory runs out.
CF_INSIDE CFStringRef CFXMLCreateStringByEscapingEntities(CFAllocatorRef allocator,
                                                          CFStringRef string,
                                                          CFDictionaryRef entities);
