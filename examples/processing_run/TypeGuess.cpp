#include "TypeGuess.h"

#include <cstring>

namespace {

struct Signature {
  std::size_t offset;
  char const* bytes;
  std::size_t length;
  char const* type;
};

// The length is told apart from the bytes, of which some are zero.
constexpr Signature kSignatures[] = {
    {0,
     "\x7f"
     "ELF",
     4, "ELF"},
    {0, "\x1f\x8b", 2, "gzip"},
    {0,
     "\xfd"
     "7zXZ\0",
     6, "xz"},
    {0, "\x28\xb5\x2f\xfd", 4, "zstd"},
    {0, "BZh", 3, "bzip2"},
    {0, "PK\x03\x04", 4, "ZIP"},
    {0, "!<arch>\n", 8, "ar"},
    {0, "\x89PNG\r\n\x1a\n", 8, "PNG"},
    {0, "\xff\xd8\xff", 3, "JPEG"},
    {0, "GIF8", 4, "GIF"},
    {0, "%PDF-", 5, "PDF"},
    {4, "ftyp", 4, "MP4"},
    {0, "\x1a\x45\xdf\xa3", 4, "Matroska"},
    {8, "AVI ", 4, "AVI"},
    {8, "WAVE", 4, "WAV"},
    {0, "SQLite format 3\0", 16, "SQLite"},
    {0, "\xff\xfe", 2, "UTF-16"},
    {0, "\xfe\xff", 2, "UTF-16"},
    {0, "<?xml", 5, "XML"},
    {0, "#!", 2, "script"},
};

bool HasControlCharacter(char const* bytes, unsigned int count) {
  for (unsigned int i = 0; i < count; ++i) {
    auto const byte = static_cast<unsigned char>(bytes[i]);
    bool const common = byte == '\t' || byte == '\n' || byte == '\r' || byte == '\f';
    if ((byte < 0x20 && !common) || byte == 0x7F) return true;
  }
  return false;
}

// UTF-8 without control characters. The head may end inside a character, so that up to three bytes
// at its end need not decode.
bool IsText(char const* bytes, unsigned int count, bool mayBeCut) {
  if (HasControlCharacter(bytes, count)) return false;
  unsigned int const most = mayBeCut ? 3 : 0;
  for (unsigned int cut = 0; cut <= most && cut < count; ++cut) {
    CUStringMac text(bytes, count - cut, CUString_CharCode_UTF8);
    unsigned int size = 0;
    if (!CUFailed(text.GetString(nullptr, CUString_CharCode_UTF8, size))) return true;
  }
  return false;
}

}  // namespace

std::string GuessType(CUMemoryStream& head) {
  unsigned char bytes[kTypeGuessSize];
  auto const count =
      static_cast<unsigned int>(head.Read(bytes, sizeof bytes, 0, CUStream_Seek_Origin_Begin));
  if (count == 0) return "empty";
  for (Signature const& signature : kSignatures) {
    if (signature.offset + signature.length <= count &&
        std::memcmp(bytes + signature.offset, signature.bytes, signature.length) == 0) {
      return signature.type;
    }
  }
  auto const* const text = reinterpret_cast<char const*>(bytes);
  return IsText(text, count, count == kTypeGuessSize) ? "text" : "data";
}
