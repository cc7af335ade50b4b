// Strings hold what ICU makes of the same bytes, give it back in each encoding and buffer, and are
// cut and joined by units.

#include <CoreServices/CoreServices.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <optional>
#include <vector>

#include "fuzz/Texts.h"

namespace {

// What the bytes stand for; nothing where they do not decode.
std::optional<std::u16string> Decoded(std::string bytes, unsigned int code) {
  if (code == kUnits) return UnitsIn(bytes);
  if (code == CUString_CharCode_Unicode) {
    if (bytes.size() % 2 != 0) return std::nullopt;
    std::u16string units = UnitsIn(bytes);
    char16_t const mark = units[0];
    if (mark == 0xFEFF || mark == 0xFFFE) units.erase(0, 1);
    if (mark == 0xFFFE) {
      for (char16_t& unit : units) unit = static_cast<char16_t>(unit >> 8 | unit << 8);
    }
    return units;
  }
  bytes = std::string(bytes.c_str());
  if (code == CUString_CharCode_ASCII) {
    if (std::any_of(bytes.begin(), bytes.end(), [](char c) { return c < 0; })) return std::nullopt;
  } else if (bytes.compare(0, 3, "\xEF\xBB\xBF") == 0) {
    bytes.erase(0, 3);
  }
  std::u16string units(bytes.size(), 0);
  int32_t length = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strFromUTF8(units.data(), static_cast<int32_t>(units.size()), &length, bytes.data(),
                static_cast<int32_t>(bytes.size()), &status);
  if (U_FAILURE(status)) return std::nullopt;
  units.resize(static_cast<std::size_t>(length));
  return units;
}

// The first characters, as long as the encoding holds them and they fit.
std::string Encoded(std::u16string const& units, unsigned int code, std::size_t room) {
  std::string bytes;
  for (std::size_t i = 0; i < units.size();) {
    std::size_t const start = i;
    UChar32 character;
    U16_NEXT(units.data(), i, units.size(), character);
    char encoded[4];
    std::size_t size = 0;
    if (code == CUString_CharCode_Unicode) {
      size = (i - start) * 2;
      std::memcpy(encoded, &units[start], size);
    } else if (code == CUString_CharCode_ASCII ? character < 0x80 : !U_IS_SURROGATE(character)) {
      U8_APPEND_UNSAFE(encoded, size, character);
    }
    if (size == 0 || size > room - bytes.size()) break;
    bytes.append(encoded, size);
  }
  return bytes;
}

void CheckEncoding(CUStringMac& text, std::u16string const& units, unsigned int code,
                   std::size_t capacity) {
  // Zeroes always keep the room of one more unit, of 3, 2 and 1 bytes at most.
  std::size_t const kept = 3 - code;
  std::string expected = capacity > kept ? Encoded(units, code, capacity - kept) : "";
  expected.resize(capacity);
  std::unique_ptr<char[]> const buffer(new char[capacity]);
  auto size = static_cast<unsigned int>(capacity);
  CUResult const status = text.GetString(buffer.get(), static_cast<_CUString_CharCode>(code), size);
  Require(status == (capacity == 0 ? CUResult_Failed : CUResult_Success) && size == capacity);
  Require(std::equal(expected.begin(), expected.end(), buffer.get()));
}

// A part, and the text again from what stands before and behind its start.
void CheckParts(CUStringMac& text, std::u16string const& units, int start, int length) {
  auto const size = static_cast<std::int64_t>(units.size());
  bool const startsInside = start >= 0 && start <= size;
  CUSharedPtr<CUStringMac> const part = text.SubString(start, length);
  CUSharedPtr<CUStringMac> const rest = text.SubString(start);
  Require((part != nullptr) == (startsInside && length >= 0 && length <= size - start));
  Require((rest != nullptr) == startsInside);
  auto const from = static_cast<std::size_t>(start);
  if (part) Require(UnitsOf(*part) == units.substr(from, static_cast<std::size_t>(length)));
  if (!rest) return;
  CUStringMac sum = *text.SubString(0, start) + *rest;
  Require(UnitsOf(*rest) == units.substr(from) && UnitsOf(sum) == units);
}

void CheckFileName(CUSharedPtr<CUStringMac> const& text, std::u16string units) {
  HFSUniStr255 name = {};
  CUResult const status = CUStringMac::GetUnicodeFileName(text, &name);
  Require(status == (units.size() > 255 ? CUResult_Failed : CUResult_Success));
  if (status != CUResult_Success) return;
  std::replace(units.begin(), units.end(), u':', u'/');
  Require(std::u16string(name.unicode, name.unicode + name.length) == units);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
  Input input(bytes, size);
  unsigned int const code = input.TakeByte() % 4;
  std::size_t const capacity = input.TakeNumber() % 1024;
  int const start = static_cast<int>(input.TakeNumber());
  int const length = static_cast<int>(input.TakeNumber());
  std::string const source = input.TakeText(1024);

  CUSharedPtr<CUStringMac> const text = MakeText(source, code);
  std::optional<std::u16string> const units = Decoded(source, code);
  Require((static_cast<CFStringRef>(*text) != nullptr) == units.has_value());
  if (!units) return 0;
  std::string const utf8 = Encoded(*units, CUString_CharCode_UTF8, std::string::npos);
  auto const characters = std::count_if(utf8.begin(), utf8.end(), [](char c) { return c >= -64; });
  Require(UnitsOf(*text) == *units && UnitsOf(*text->Description()) == *units);
  Require(text->CountOfChars() == characters && text->CountOfChars() <= text->Length());
  Require(std::strcmp(*text, utf8.c_str()) == 0);
  for (unsigned int to = 0; to < kUnits; ++to) CheckEncoding(*text, *units, to, capacity);
  CheckParts(*text, *units, start, length);
  CheckFileName(text, *units);
  return 0;
}
