#include "QuillmereLib/strings/CUStringMac.h"

#include <CoreFoundation/CoreFoundation.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "QuillmereLib/core/CFHolder.h"
#include "QuillmereLib/core/Create.h"

namespace {

struct FreeBlock {
  void operator()(char* block) const { std::free(block); }
};

// A platform string with the text of `source`; null for null. The format makes it independent of
// the source, unless that is a constant, where the platform's own copy would only share it.
CFStringRef CopyText(CFStringRef source) {
  if (source == nullptr) return nullptr;
  return CFStringCreateWithFormat(nullptr, nullptr, CFSTR("%@"), source);
}

CFStringRef CreateFromBytes(char const* text, std::size_t byteCount, _CUString_CharCode code) {
  return CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<UInt8 const*>(text),
                                 static_cast<CFIndex>(byteCount),
                                 CUStringMac::ConvertCharCode(code), true);
}

// Gives the flags of a comparison; false for a value that is no comparison.
bool GetCompareFlags(_CUStringComparison comparison, CFStringCompareFlags& flags) {
  if (comparison == CUStringComparison_CaseSensitive) {
    flags = kCFCompareLocalized;
  } else if (comparison == CUStringComparison_IgnoreCase) {
    flags = kCFCompareCaseInsensitive | kCFCompareLocalized;
  } else {
    return false;
  }
  return true;
}

CFRange WholeOf(CFStringRef string) { return CFRangeMake(0, CFStringGetLength(string)); }

}  // namespace

CUStringMac::CUStringMac()
    : m_string(static_cast<CFStringRef>(CFRetain(CFSTR("")))), m_utf8Buffer(nullptr) {}

CUStringMac::CUStringMac(char const* text, _CUString_CharCode code)
    : m_string(CreateFromBytes(text, std::strlen(text), code)), m_utf8Buffer(nullptr) {}

CUStringMac::CUStringMac(char const* text, unsigned int byteCount, _CUString_CharCode code)
    : m_string(CreateFromBytes(
          text, code == CUString_CharCode_Unicode ? byteCount : strnlen(text, byteCount), code)),
      m_utf8Buffer(nullptr) {}

CUStringMac::CUStringMac(unsigned short* chars, unsigned int byteCount)
    : m_string(CFStringCreateWithCharacters(kCFAllocatorDefault, chars, byteCount >> 1)),
      m_utf8Buffer(nullptr) {}

CUStringMac::CUStringMac(__CFString const* string)
    : m_string(CopyText(string)), m_utf8Buffer(nullptr) {}

CUStringMac::CUStringMac(CUSharedPtr<CUStringMac> other)
    : m_string(other ? CopyText(*other) : nullptr), m_utf8Buffer(nullptr) {}

CUStringMac::CUStringMac(CUStringMac const& other)
    : CUObject(other), m_string(CopyText(other.m_string)), m_utf8Buffer(nullptr) {}

CUStringMac::~CUStringMac() {
  if (m_string != nullptr) CFRelease(m_string);
  if (m_utf8Buffer != nullptr) std::free(m_utf8Buffer);
}

unsigned int CUStringMac::ConvertCharCode(_CUString_CharCode code) {
  if (code == CUString_CharCode_Unicode) return kCFStringEncodingUnicode;
  if (code == CUString_CharCode_ASCII) return kCFStringEncodingASCII;
  return kCFStringEncodingUTF8;
}

CUSharedPtr<CUStringMac> CUStringMac::Description() {
  auto copy = Create<CUStringMac>(*this);
  if (m_string != nullptr && copy->m_string == nullptr) throw std::bad_alloc();
  return copy;
}

CUResult CUStringMac::GetString(char* buffer, _CUString_CharCode code, unsigned int& size) {
  if (m_string == nullptr) return CUResult_Failed;
  if (buffer != nullptr && size == 0) return CUResult_Failed;

  CFStringEncoding const encoding = ConvertCharCode(code);
  if (buffer == nullptr) {
    CFIndex const units = static_cast<CFIndex>(Length()) + 1;
    size = static_cast<unsigned int>(CFStringGetMaximumSizeForEncoding(units, encoding));
    return CUResult_Success;
  }

  // One character's room stays free, so that the zeroes behind the text end it in any encoding.
  CFIndex const room = static_cast<CFIndex>(size) - CFStringGetMaximumSizeForEncoding(1, encoding);
  CFIndex used = 0;
  if (room > 0) {
    CFStringGetBytes(m_string, WholeOf(m_string), encoding, 0, false,
                     reinterpret_cast<UInt8*>(buffer), room, &used);
  }
  std::memset(buffer + used, 0, size - static_cast<std::size_t>(used));
  return CUResult_Success;
}

unsigned int CUStringMac::Length() {
  return m_string == nullptr ? 0 : static_cast<unsigned int>(CFStringGetLength(m_string));
}

unsigned int CUStringMac::CountOfChars() {
  if (m_string == nullptr) return 0;
  CFIndex needed = 0;
  CFStringGetBytes(m_string, WholeOf(m_string), kCFStringEncodingUTF32LE, 0, false, nullptr, 0,
                   &needed);
  return static_cast<unsigned int>(needed / 4);
}

bool CUStringMac::Equals(CUStringMac const& other, _CUStringComparison comparison) {
  if (m_string == nullptr || other.m_string == nullptr) return false;
  CFStringCompareFlags flags = 0;
  if (!GetCompareFlags(comparison, flags)) return false;
  return CFStringCompare(m_string, other.m_string, flags) == kCFCompareEqualTo;
}

bool CUStringMac::operator==(CUStringMac const& other) {
  return Equals(other, CUStringComparison_CaseSensitive);
}

bool CUStringMac::operator<(CUStringMac const& other) const {
  if (m_string == nullptr || other.m_string == nullptr) return false;
  return CFStringCompare(m_string, other.m_string, kCFCompareLocalized) == kCFCompareLessThan;
}

_CURange CUStringMac::Find(CUSharedPtr<CUStringMac> needle, _CUStringComparison comparison) {
  _CURange const notFound = {CURange_NoLocation, 0};
  if (m_string == nullptr || needle == nullptr || needle->m_string == nullptr) return notFound;
  CFStringCompareFlags flags = 0;
  if (!GetCompareFlags(comparison, flags)) return notFound;
  CFRange const found = CFStringFind(m_string, needle->m_string, flags);
  if (found.location == kCFNotFound || found.length == 0) return notFound;
  return {static_cast<unsigned long long>(found.location),
          static_cast<unsigned long long>(found.length)};
}

CUSharedPtr<CUStringMac> CUStringMac::SubString(int start, int length) {
  if (start < 0 || length < 0 || m_string == nullptr) return nullptr;
  // As unsigned numbers the sum of two positive ints cannot wrap.
  if (Length() < static_cast<unsigned int>(start) + static_cast<unsigned int>(length)) {
    return nullptr;
  }
  CFHolder<CFStringRef> part(
      CFStringCreateWithSubstring(kCFAllocatorDefault, m_string, CFRangeMake(start, length)));
  if (!part) return nullptr;
  auto result = CUSharedPtr<CUStringMac>::OfNew(new CUStringMac(nullptr, Adopted::yes));
  result->m_string = part.Release();
  return result;
}

CUSharedPtr<CUStringMac> CUStringMac::SubString(int start) {
  return SubString(start, static_cast<int>(Length() - static_cast<unsigned int>(start)));
}

CUStringMac CUStringMac::operator+(CUStringMac const& other) {
  if (m_string == nullptr) return CUStringMac();
  CFStringRef const right = other.m_string != nullptr ? other.m_string : CFSTR("");
  void const* values[] = {m_string, right};
  CFHolder<CFArrayRef> const both(
      CFArrayCreate(kCFAllocatorDefault, values, 2, &kCFTypeArrayCallBacks));
  if (!both) return CUStringMac();
  CFStringRef const combined =
      CFStringCreateByCombiningStrings(kCFAllocatorDefault, both.Get(), CFSTR(""));
  if (combined == nullptr) return CUStringMac();
  return CUStringMac(combined, Adopted::yes);
}

// Letting go comes first and stays first: a string that is assigned to itself becomes null.
CUStringMac& CUStringMac::operator=(CUStringMac const& other) {
  if (m_string != nullptr) {
    CFRelease(m_string);
    m_string = nullptr;
  }
  m_string = CopyText(other.m_string);
  return *this;
}

CUStringMac::operator char const*() {
  std::free(m_utf8Buffer);
  m_utf8Buffer = nullptr;
  unsigned int size = 0;
  if (CUFailed(GetString(nullptr, CUString_CharCode_UTF8, size))) return nullptr;
  m_utf8Buffer = static_cast<char*>(std::malloc(size));
  if (m_utf8Buffer == nullptr) return nullptr;
  if (CUFailed(GetString(m_utf8Buffer, CUString_CharCode_UTF8, size))) {
    std::free(m_utf8Buffer);
    m_utf8Buffer = nullptr;
  }
  return m_utf8Buffer;
}

CUStringMac::operator __CFString const*() const { return m_string; }

CUSharedPtr<CUStringMac> CUStringMac::CreateWithFormat(CUSharedPtr<CUStringMac> format, ...) {
  va_list arguments;
  va_start(arguments, format);
  CUSharedPtr<CUStringMac> result;
  try {
    result = CreateWithFormatV(std::move(format), arguments);
  } catch (...) {
    va_end(arguments);
    throw;
  }
  va_end(arguments);
  return result;
}

CUSharedPtr<CUStringMac> CUStringMac::CreateWithFormatV(CUSharedPtr<CUStringMac> format,
                                                        va_list arguments) {
  if (format == nullptr) return nullptr;
  // A copy: the conversion below changes the string, and the caller's may be shared.
  CUSharedPtr<CUStringMac> const copy = new CUStringMac(*format);
  char const* const pattern = *copy;
  if (pattern == nullptr) return nullptr;

  char brief[256];
  va_list measured;
  va_copy(measured, arguments);
  int const length = std::vsnprintf(brief, sizeof brief, pattern, measured);
  va_end(measured);
  if (length < 0) return nullptr;

  std::size_t const size = static_cast<std::size_t>(length) + 1;
  if (size <= sizeof brief) return new CUStringMac(brief, CUString_CharCode_UTF8);
  std::unique_ptr<char, FreeBlock> const text(static_cast<char*>(std::malloc(size)));
  if (!text) return nullptr;
  va_list written;
  va_copy(written, arguments);
  std::vsnprintf(text.get(), size, pattern, written);
  va_end(written);
  return new CUStringMac(text.get(), CUString_CharCode_UTF8);
}
