#include "platform/linux/XmlText.h"

#include <strings.h>
#include <unicode/ucnv.h>

#include <algorithm>
#include <climits>
#include <new>

#include "platform/linux/Handles.h"

namespace {

constexpr std::string_view kSpace = " \t\r\n";

std::string_view BehindSpace(std::string_view text) {
  std::size_t const at = text.find_first_not_of(kSpace);
  return at == std::string_view::npos ? std::string_view() : text.substr(at);
}

bool StartsWith(std::string_view text, std::string_view start) {
  return text.substr(0, start.size()) == start;
}

bool StartsWithSpace(std::string_view text) {
  return !text.empty() && kSpace.find(text.front()) != std::string_view::npos;
}

// The Unicode encoding that the first bytes tell of, by a mark or by the zeroes beside a "<"; the
// mark is taken off the bytes. Null if they tell nothing.
char const* UnicodeEncoding(std::string_view& bytes) {
  struct Signature {
    std::string_view bytes;
    bool isMark;
    char const* encoding;
  };
  using namespace std::string_view_literals;
  static constexpr Signature kSignatures[] = {
      {"\xEF\xBB\xBF"sv, true, "UTF-8"},    {"\xFF\xFE\0\0"sv, true, "UTF-32LE"},
      {"\0\0\xFE\xFF"sv, true, "UTF-32BE"}, {"\xFF\xFE"sv, true, "UTF-16LE"},
      {"\xFE\xFF"sv, true, "UTF-16BE"},     {"<\0"sv, false, "UTF-16LE"},
      {"\0<"sv, false, "UTF-16BE"},
  };
  for (Signature const& signature : kSignatures) {
    if (!StartsWith(bytes, signature.bytes)) continue;
    if (signature.isMark) bytes.remove_prefix(signature.bytes.size());
    return signature.encoding;
  }
  return nullptr;
}

// Converts to UTF-8; false for bytes that the encoding does not allow.
bool Convert(std::string_view bytes, std::string const& encoding, std::string& converted) {
  if (bytes.size() > INT_MAX) return false;
  UErrorCode status = U_ZERO_ERROR;
  ConverterHandle const converter(ucnv_open(encoding.c_str(), &status));
  ucnv_setToUCallBack(converter.Get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
  int32_t const size = static_cast<int32_t>(bytes.size());
  int32_t const needed =
      ucnv_toAlgorithmic(UCNV_UTF8, converter.Get(), nullptr, 0, bytes.data(), size, &status);
  if (status != U_BUFFER_OVERFLOW_ERROR) return U_SUCCESS(status);
  status = U_ZERO_ERROR;
  converted.resize(static_cast<std::size_t>(needed));
  ucnv_toAlgorithmic(UCNV_UTF8, converter.Get(), converted.data(), needed, bytes.data(), size,
                     &status);
  return U_SUCCESS(status);
}

// Such as XML allows. ICU looks for others in files.
bool IsEncodingName(std::string const& name) {
  auto const isLetter = [](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); };
  return isLetter(name.front()) && std::all_of(name.begin(), name.end(), [&](char c) {
           return isLetter(c) || (c >= '0' && c <= '9') || c == '.' || c == '_' || c == '-';
         });
}

}  // namespace

bool XmlText::Read(std::string_view bytes) {
  std::string encoding;
  if (char const* const known = UnicodeEncoding(bytes)) {
    encoding = known;
  } else {
    encoding = DeclaredEncoding(bytes);
  }
  if (encoding.empty() || IsUtf8Name(encoding)) {
    m_text = bytes;
    return true;
  }
  if (!IsEncodingName(encoding) || !Convert(bytes, encoding, m_converted)) return false;
  m_text = m_converted;
  return true;
}

std::string_view DeclaredEncoding(std::string_view text) {
  constexpr std::string_view kStart = "<?xml";
  constexpr std::string_view kName = "encoding";
  if (!StartsWith(text, kStart)) return {};
  text = text.substr(kStart.size(), text.find("?>") - kStart.size());
  std::size_t const at = text.find(kName);
  if (!StartsWithSpace(text) || at == std::string_view::npos) return {};
  text = BehindSpace(text.substr(at + kName.size()));
  if (!StartsWith(text, "=")) return {};
  text = BehindSpace(text.substr(1));
  if (!StartsWith(text, "\"") && !StartsWith(text, "'")) return {};
  std::size_t const end = text.find(text.front(), 1);
  return end != std::string_view::npos ? text.substr(1, end - 1) : std::string_view();
}

bool IsUtf8Name(std::string_view encoding) {
  return encoding.size() == 5 && strncasecmp(encoding.data(), "UTF-8", 5) == 0;
}
