#pragma once

#include <string>
#include <string_view>

// The text of a document in UTF-8, without a byte-order mark.
class XmlText {
 public:
  // Reads a document's bytes, which must outlive this object. False if the bytes do not decode, or
  // their encoding is not known. Bytes that are in UTF-8 already are not looked at. Throws
  // std::bad_alloc.
  bool Read(std::string_view bytes);

  std::string_view Text() const { return m_text; }

 private:
  std::string_view m_text;
  std::string m_converted;
};

// The name of the encoding in the XML declaration that `text` begins with, in place; empty if there
// is none. The declaration is not checked.
std::string_view DeclaredEncoding(std::string_view text);

// Whether the name is that of UTF-8, in whatever case.
bool IsUtf8Name(std::string_view encoding);
