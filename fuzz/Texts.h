#pragma once

// Strings of the library from bytes, and the units in them.

#include <cstring>
#include <memory>
#include <string>

#include "QuillmereLib/strings/CUStringMac.h"
#include "fuzz/Input.h"

// Beside the encodings of the library: units in host order.
constexpr unsigned int kUnits = 3;

inline std::u16string UnitsIn(std::string const& bytes) {
  std::u16string units(bytes.size() / 2, 0);
  std::memcpy(units.data(), bytes.data(), units.size() * 2);
  return units;
}

inline CUSharedPtr<CUStringMac> MakeText(std::u16string units) {
  return new CUStringMac(reinterpret_cast<unsigned short*>(units.data()),
                         static_cast<unsigned int>(units.size() * 2));
}

// The null string for bytes that do not decode.
inline CUSharedPtr<CUStringMac> MakeText(std::string const& bytes, unsigned int code) {
  if (code == kUnits) return MakeText(UnitsIn(bytes));
  // In a block that nothing follows, unlike the string's zero.
  std::unique_ptr<char[]> const block(new char[bytes.size()]);
  std::memcpy(block.get(), bytes.data(), bytes.size());
  return new CUStringMac(block.get(), static_cast<unsigned int>(bytes.size()),
                         static_cast<_CUString_CharCode>(code));
}

// The units of a text, which must be no null string.
inline std::u16string UnitsOf(CUStringMac& text) {
  std::u16string units(text.Length() + 1, u'?');
  auto size = static_cast<unsigned int>(units.size() * 2);
  CUResult const status =
      text.GetString(reinterpret_cast<char*>(units.data()), CUString_CharCode_Unicode, size);
  Require(status == CUResult_Success && units.back() == 0);
  units.pop_back();
  return units;
}
