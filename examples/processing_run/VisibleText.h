#pragma once

// Text on its way from the library to a line of output.

#include <QuillmereLib/QuillmereLib.h>

#include <string>

// The text in UTF-8; empty for the null string. Throws std::bad_alloc when memory runs out.
std::string Utf8Of(CUStringMac& text);

// The string of exactly these bytes. Null when they are not UTF-8, and when they begin with a
// byte-order mark, which would be taken off: a path without it names another entry.
CUSharedPtr<CUStringMac> StringOf(std::string const& bytes);

// `text` as it can be shown on a terminal and kept in a line of a file: control characters, and
// those that turn the direction of writing, stand as "\n" or "\u{1b}", bytes that are not UTF-8 as
// "\xff", a backslash as two. Distinct texts stay distinct.
std::string VisibleText(std::string const& text);

// The columns that a visible text takes, one for each character.
unsigned int WidthOf(std::string const& visible);

// Spaces that fill a column of `width` behind, or before, a visible text.
std::string Padding(std::string const& visible, unsigned int width);
