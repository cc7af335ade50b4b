#include "VisibleText.h"

#include <cstdio>
#include <new>

namespace {

// The character that begins at `at`, and how many bytes it takes; 0 bytes where they are not UTF-8.
unsigned int DecodeAt(std::string const& text, std::size_t at, std::size_t& byteCount) {
  auto const byteAt = [&text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  unsigned int const lead = byteAt(at);
  byteCount = 1;
  if (lead < 0x80) return lead;

  byteCount = 0;
  std::size_t const length = lead < 0xC0 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  if (length == 0 || lead > 0xF4 || text.size() - at < length) return 0;
  unsigned int character = lead & (0xFFu >> (length + 1));
  for (std::size_t i = 1; i < length; ++i) {
    unsigned int const next = byteAt(at + i);
    if ((next & 0xC0) != 0x80) return 0;
    character = character << 6 | (next & 0x3F);
  }
  constexpr unsigned int kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
  bool const surrogate = character >= 0xD800 && character <= 0xDFFF;
  if (character < kLeast[length] || surrogate || character > 0x10FFFF) return 0;
  byteCount = length;
  return character;
}

// Characters that steer a terminal, break a line, or show nothing where they stand.
bool IsInvisible(unsigned int character) {
  constexpr unsigned int kRanges[][2] = {
      {0x00, 0x1F},     {0x7F, 0x9F},     {0xAD, 0xAD},     {0x61C, 0x61C},   {0x200B, 0x200F},
      {0x2028, 0x202E}, {0x2060, 0x206F}, {0xFEFF, 0xFEFF}, {0xFFF9, 0xFFFB}, {0xE0000, 0xE007F}};
  for (auto const& range : kRanges) {
    if (character >= range[0] && character <= range[1]) return true;
  }
  return false;
}

std::string Escape(char const* format, unsigned int value) {
  char text[16];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

}  // namespace

std::string Utf8Of(CUStringMac& text) {
  char const* const utf8 = text;
  if (utf8 != nullptr) return utf8;
  unsigned int size = 0;
  if (CUFailed(text.GetString(nullptr, CUString_CharCode_UTF8, size))) return std::string();
  throw std::bad_alloc();
}

CUSharedPtr<CUStringMac> StringOf(std::string const& bytes) {
  CUSharedPtr<CUStringMac> text = new CUStringMac(bytes.c_str(), CUString_CharCode_UTF8);
  if (Utf8Of(*text) != bytes) return nullptr;
  return text;
}

std::string VisibleText(std::string const& text) {
  std::string visible;
  visible.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    std::size_t byteCount = 0;
    unsigned int const character = DecodeAt(text, at, byteCount);
    if (byteCount == 0) {
      visible += Escape("\\x%02x", static_cast<unsigned char>(text[at]));
      byteCount = 1;
    } else if (character == '\\') {
      visible += "\\\\";
    } else if (character == '\n') {
      visible += "\\n";
    } else if (character == '\t') {
      visible += "\\t";
    } else if (IsInvisible(character)) {
      visible += Escape("\\u{%x}", character);
    } else {
      visible.append(text, at, byteCount);
    }
    at += byteCount;
  }
  return visible;
}

unsigned int WidthOf(std::string const& visible) {
  return CUStringMac(visible.c_str(), CUString_CharCode_UTF8).CountOfChars();
}

std::string Padding(std::string const& visible, unsigned int width) {
  unsigned int const taken = WidthOf(visible);
  return std::string(taken < width ? width - taken : 0, ' ');
}
