#pragma once

// CUStringMac, the one string class, and the path arithmetic on it.

#include <cstdarg>

#include "QuillmereLib/core/CUExport.h"
#include "QuillmereLib/core/CUObject.h"
#include "QuillmereLib/core/CURange.h"
#include "QuillmereLib/core/CUResult.h"
#include "QuillmereLib/core/CUSharedPtr.h"

class CUArray;
struct HFSUniStr255;
struct __CFString;

// The encodings of text that enters or leaves a string. Any other value means UTF-8.
enum _CUString_CharCode : unsigned int {
  CUString_CharCode_UTF8 = 0,
  CUString_CharCode_Unicode = 1,  // 16-bit units
  CUString_CharCode_ASCII = 2
};

// How text is compared, by the collation of the user's locale in both cases. With any other value
// nothing is ever equal or found.
enum _CUStringComparison : unsigned int {
  CUStringComparison_CaseSensitive = 0,
  CUStringComparison_IgnoreCase = 1
};

// Text of UTF-16 units, changed only by assignment. A string is null, empty or text; the null
// string (from bytes that do not decode, from a null source) differs from the empty one, is equal
// to nothing, and makes operations fail as each tells. Strings share no platform string but that of
// a constant, such as the empty one.
//
// There is no lock, and `operator char const*` changes the object: threads must not share a string
// that one of them converts. Only `std::bad_alloc` is ever thrown.
class QUILLMERE_API CUStringMac : public virtual CUObject {
 public:
  // The empty string.
  CUStringMac();

  // Text up to its first zero byte, which for Unicode falls within the first Latin character: give
  // 16-bit text to the next forms. Bytes that do not decode give the null string. A byte-order mark
  // at the start is taken off. `text` must not be null.
  CUStringMac(char const* text, _CUString_CharCode code);

  // The same of `byteCount` bytes; up to the first zero byte among them, but for Unicode all.
  CUStringMac(char const* text, unsigned int byteCount, _CUString_CharCode code);

  // Units in host order. The size is in bytes; an odd last byte is ignored.
  CUStringMac(unsigned short* chars, unsigned int byteCount);

  // A copy of the platform string's text; `string` must not be null.
  CUStringMac(__CFString const* string);

  // A copy of the text; a null pointer, or the null string, gives the null string.
  CUStringMac(CUSharedPtr<CUStringMac> other);
  CUStringMac(CUStringMac const& other);

  ~CUStringMac() override;

  // The platform's number of an encoding.
  static unsigned int ConvertCharCode(_CUString_CharCode code);

  // A new string with this text.
  CUSharedPtr<CUStringMac> Description() override;

  // Renders the text in two steps: with a null `buffer`, `size` receives the bytes to allocate;
  // with a buffer of `size` bytes, the whole of it is filled with the text and zeroes behind it.
  // The text is cut, with success, before the first character that the encoding cannot hold or that
  // does not fit. Fails for the null string and for a buffer of size 0.
  virtual CUResult GetString(char* buffer, _CUString_CharCode code, unsigned int& size);

  // Paths. The separator is the slash; nothing here touches the file system. The operations fail
  // for the null string, and leave `result` alone on failure unless told otherwise. Their rules
  // differ from each other in how they take bare names and trailing slashes, and callers depend
  // on the differences.

  // This path, a slash unless it ends with one, and `component` as it stands.
  virtual CUResult PathAppend(CUStringMac const& component, CUStringMac& result);

  // The path without its last component, after one trailing slash is taken off. Without any other
  // slash it fails AND sets `result` to the empty string.
  virtual CUResult PathRemoveLastComponent(CUStringMac& result);

  // What follows the last slash, which is nothing after a trailing one. Fails without a slash.
  virtual CUResult PathGetFileName(CUStringMac& result);

  // The file name up to its last dot, so that ".a" gives the empty string. Fails without a slash.
  virtual CUResult PathGetFileNameNoExtension(CUStringMac& result);

  // From the last dot of the whole path to its end: ".b/c" of "a.b/c". Fails without a dot.
  virtual CUResult PathGetExtension(CUStringMac& result);

  // What follows the last slash, after one trailing slash is taken off; "/" of "/". Fails without a
  // slash before the component, as for "a" and "a/".
  virtual CUResult PathGetLastComponent(CUStringMac& result);

  // A new CUMutableArray of strings: "/" for a leading slash, then the pieces between slashes, with
  // the empty ones between doubled slashes. One trailing slash is taken off. The array replaces
  // what `components` held; fails if that is null.
  virtual CUResult PathComponents(CUSharedPtr<CUArray>* components);

  // Whether both are text that the collation calls equal. False if either is the null string.
  virtual bool Equals(CUStringMac const& other, _CUStringComparison comparison);

  // UTF-16 units; 0 for the null string.
  virtual unsigned int Length();

  // Unicode characters, up to the first unpaired surrogate; 0 for the null string.
  virtual unsigned int CountOfChars();

  // This text followed by `other`'s. A null left side gives the empty string, whatever the right
  // side holds; a null right side is taken for the empty string.
  virtual CUStringMac operator+(CUStringMac const& other);

  // Takes over a copy of the text. Assigning a string to itself leaves the null string. A pointer
  // from an earlier `operator char const*` stays valid and shows the old text.
  virtual CUStringMac& operator=(CUStringMac const& other);
  using CUObject::operator=;

  // Equals, with regard to case.
  virtual bool operator==(CUStringMac const& other);

  // Whether this text sorts before `other`'s in the collation. False if either is the null string.
  virtual bool operator<(CUStringMac const& other) const;

  // The text in UTF-8, in a buffer of this object that lives until the next such conversion or the
  // destructor. Null for the null string, or when memory runs out.
  virtual operator char const*();

  // The platform string, lent; null for the null string.
  virtual operator __CFString const*() const;

  // Where `needle` first occurs. The length is that of the text found, which may differ from the
  // needle's. {CURange_NoLocation, 0} where it does not occur, and for a null or empty needle.
  _CURange Find(CUSharedPtr<CUStringMac> needle, _CUStringComparison comparison);

  // `length` units from `start`, or the rest from there. A null pointer if the range is negative or
  // does not lie inside the text; a length of 0 inside it gives an empty string.
  CUSharedPtr<CUStringMac> SubString(int start, int length);
  CUSharedPtr<CUStringMac> SubString(int start);

  // A string from a format by the rules of printf, in UTF-8. Text arguments are `char const*`. Null
  // for a null format, one that cannot be rendered, or when memory runs out. The second form does
  // not consume `arguments`.
  static CUSharedPtr<CUStringMac> CreateWithFormat(CUSharedPtr<CUStringMac> format, ...);
  static CUSharedPtr<CUStringMac> CreateWithFormatV(CUSharedPtr<CUStringMac> format,
                                                    va_list arguments);

  // `name` in the form that the platform's calls take names in: colons become slashes. Its length
  // goes in cut to 16 bits. Fails for a null or null-string name and a null `result`, and where the
  // length so cut is above 255, which does not fit.
  static CUResult GetUnicodeFileName(CUSharedPtr<CUStringMac> name, HFSUniStr255* result);

 private:
  friend class TextBuilder;

  // Takes over `string`, a platform string that nothing else refers to, with its reference.
  enum class Adopted { yes };
  CUStringMac(__CFString const* string, Adopted) : m_string(string), m_utf8Buffer(nullptr) {}

  // Stores `text` in `result` and takes it over, as the constructor above; false for null, with
  // `result` as it was.
  static bool Assign(__CFString const* text, CUStringMac& result);

  // Stores units of `text` in `result`; false, with `result` as it was, where there are none.
  static bool AssignPart(__CFString const* text, long start, long length, CUStringMac& result);

  __CFString const* m_string;  // owned reference, or null
  char* m_utf8Buffer;          // owned, from malloc, or null
};
