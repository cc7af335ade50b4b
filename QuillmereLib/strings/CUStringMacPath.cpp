#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>

#include <cstdlib>
#include <memory>

#include "QuillmereLib/core/CFHolder.h"
#include "QuillmereLib/strings/CUStringMac.h"

// PathComponents is defined with the arrays that it returns, in collections/.

namespace {

constexpr UniChar kColon = ':';
constexpr UniChar kSlash = '/';

// Where `wanted`, a single character, last stands in `text`; kCFNotFound where it does not.
CFIndex FindLast(CFStringRef text, CFStringRef wanted) {
  CFRange const found = CFStringFind(text, wanted, kCFCompareBackwards);
  return found.length < 1 ? kCFNotFound : found.location;
}

CFStringRef CreatePart(CFStringRef text, CFIndex start, CFIndex length) {
  return CFStringCreateWithSubstring(kCFAllocatorDefault, text, CFRangeMake(start, length));
}

// Stores the part in `result`; false, with `result` as it was, where there is none.
bool AssignPart(CFStringRef text, CFIndex start, CFIndex length, CUStringMac& result) {
  CFHolder<CFStringRef> const part(CreatePart(text, start, length));
  if (!part) return false;
  result = CUStringMac(part.Get());
  return true;
}

struct FreeUnits {
  void operator()(UniChar* units) const { std::free(units); }
};

}  // namespace

CUResult CUStringMac::PathAppend(CUStringMac const& component, CUStringMac& result) {
  if (m_string == nullptr) return CUResult_Failed;
  CFStringRef const tail = component.m_string != nullptr ? component.m_string : CFSTR("");
  CFStringRef const separator = CFStringHasSuffix(m_string, CFSTR("/")) ? CFSTR("") : CFSTR("/");
  void const* values[] = {m_string, tail};
  CFHolder<CFArrayRef> const both(CFArrayCreate(kCFAllocatorDefault, values, 2, nullptr));
  if (!both) return CUResult_Failed;
  CFHolder<CFStringRef> const path(
      CFStringCreateByCombiningStrings(kCFAllocatorDefault, both.Get(), separator));
  if (!path) return CUResult_Failed;
  result = CUStringMac(path.Get());
  return CUResult_Success;
}

CUResult CUStringMac::PathRemoveLastComponent(CUStringMac& result) {
  if (m_string == nullptr) return CUResult_Failed;
  CFIndex length = CFStringGetLength(m_string);
  if (CFStringHasSuffix(m_string, CFSTR("/"))) {
    if (length == 1) {
      result = CUStringMac(*this);
      return CUResult_Success;
    }
    --length;
  }
  CFHolder<CFStringRef> const working(CreatePart(m_string, 0, length));
  if (!working) return CUResult_Failed;

  CFIndex const slash = FindLast(working.Get(), CFSTR("/"));
  if (slash == kCFNotFound) {
    // Callers that go on after this failure find an empty parent.
    result = CUStringMac();
    return CUResult_Failed;
  }
  return AssignPart(working.Get(), 0, slash == 0 ? 1 : slash, result) ? CUResult_Success
                                                                      : CUResult_Failed;
}

CUResult CUStringMac::PathGetFileName(CUStringMac& result) {
  if (m_string == nullptr) return CUResult_Failed;
  if (CFStringHasSuffix(m_string, CFSTR("/"))) {
    result = CUStringMac();
    return CUResult_Success;
  }
  CFIndex const slash = FindLast(m_string, CFSTR("/"));
  if (slash == kCFNotFound) return CUResult_Failed;
  CFIndex const start = slash + 1;
  return AssignPart(m_string, start, CFStringGetLength(m_string) - start, result) ? CUResult_Success
                                                                                  : CUResult_Failed;
}

CUResult CUStringMac::PathGetFileNameNoExtension(CUStringMac& result) {
  if (m_string == nullptr) return CUResult_Failed;
  CUStringMac name;
  CUResult const got = PathGetFileName(name);
  if (CUFailed(got)) return got;
  if (name.m_string == nullptr) return CUResult_Failed;
  CFIndex const dot = FindLast(name.m_string, CFSTR("."));
  if (dot == kCFNotFound) {
    result = name;
  } else {
    AssignPart(name.m_string, 0, dot, result);
  }
  return CUResult_Success;
}

CUResult CUStringMac::PathGetExtension(CUStringMac& result) {
  if (m_string == nullptr) return CUResult_Failed;
  CFIndex const dot = FindLast(m_string, CFSTR("."));
  if (dot == kCFNotFound) return CUResult_Failed;
  return AssignPart(m_string, dot, CFStringGetLength(m_string) - dot, result) ? CUResult_Success
                                                                              : CUResult_Failed;
}

CUResult CUStringMac::PathGetLastComponent(CUStringMac& result) {
  if (m_string == nullptr) return CUResult_Failed;
  CUStringMac const root("/", CUString_CharCode_UTF8);
  if (*this == root) {
    result = root;
    return CUResult_Success;
  }
  CFIndex const length = CFStringGetLength(m_string);
  CFIndex slash = FindLast(m_string, CFSTR("/"));
  if (slash == kCFNotFound) return CUResult_Failed;
  bool const trailing = slash == length - 1;
  CFHolder<CFStringRef> const working(CreatePart(m_string, 0, trailing ? length - 1 : length));
  if (!working) return CUResult_Failed;
  if (trailing) {
    slash = FindLast(working.Get(), CFSTR("/"));
    if (slash == kCFNotFound) return CUResult_Failed;
  }
  // The length is that of the whole string, so after a trailing slash the part reaches one unit
  // past the end of the working text, where the platform cuts it off.
  return AssignPart(working.Get(), slash + 1, length - slash - 1, result) ? CUResult_Success
                                                                          : CUResult_Failed;
}

CUResult CUStringMac::GetUnicodeFileName(CUSharedPtr<CUStringMac> name, HFSUniStr255* result) {
  if (result == nullptr || name == nullptr) return CUResult_Failed;
  unsigned int size = 0;
  CUResult const measured = name->GetString(nullptr, CUString_CharCode_Unicode, size);
  if (CUFailed(measured)) return measured;

  // Running out of memory reads as success, with `result` as it was: callers know it so.
  std::unique_ptr<UniChar, FreeUnits> const units(static_cast<UniChar*>(std::calloc(1, size)));
  if (!units) return measured;
  CUResult const rendered =
      name->GetString(reinterpret_cast<char*>(units.get()), CUString_CharCode_Unicode, size);
  if (CUFailed(rendered)) return rendered;

  UInt16 const length = static_cast<UInt16>(name->Length());
  if (length > sizeof result->unicode / sizeof *result->unicode) return CUResult_Failed;
  result->length = length;
  for (UInt16 i = 0; i < length; ++i) {
    UniChar const unit = units.get()[i];
    result->unicode[i] = unit == kColon ? kSlash : unit;
  }
  return CUResult_Success;
}
