#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>

#include <cstdlib>
#include <memory>
#include <typeinfo>
#include <utility>

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

// The text that an operation goes on with: a path as it is, or less its last character.
class WorkingText {
 public:
  void Lend(CFStringRef text) { m_text = text; }

  // False when memory runs out.
  bool CutLast(CFStringRef text) {
    m_cut.Reset(CFStringCreateWithSubstring(kCFAllocatorDefault, text,
                                            CFRangeMake(0, CFStringGetLength(text) - 1)));
    m_text = m_cut.Get();
    return m_text != nullptr;
  }

  CFStringRef Get() const { return m_text; }

 private:
  CFStringRef m_text = nullptr;
  CFHolder<CFStringRef> m_cut{nullptr};
};

struct FreeUnits {
  void operator()(UniChar* units) const { std::free(units); }
};

}  // namespace

bool CUStringMac::Assign(CFStringRef text, CUStringMac& result) {
  if (text == nullptr) return false;
  // The assignment of this class would only copy the text; a derived class may have one of its own.
  if (typeid(result) != typeid(CUStringMac)) {
    result = CUStringMac(text, Adopted::yes);
    return true;
  }
  if (result.m_string != nullptr) CFRelease(result.m_string);
  result.m_string = text;
  return true;
}

bool CUStringMac::AssignPart(CFStringRef text, CFIndex start, CFIndex length, CUStringMac& result) {
  return Assign(CFStringCreateWithSubstring(kCFAllocatorDefault, text, CFRangeMake(start, length)),
                result);
}

CUResult CUStringMac::PathAppend(CUStringMac const& component, CUStringMac& result) {
  if (m_string == nullptr) return CUResult_Failed;
  CFStringRef const tail = component.m_string != nullptr ? component.m_string : CFSTR("");
  CFStringRef const separator = CFStringHasSuffix(m_string, CFSTR("/")) ? CFSTR("") : CFSTR("/");
  void const* values[] = {m_string, tail};
  CFHolder<CFArrayRef> const both(CFArrayCreate(kCFAllocatorDefault, values, 2, nullptr));
  if (!both) return CUResult_Failed;
  CFStringRef const path =
      CFStringCreateByCombiningStrings(kCFAllocatorDefault, both.Get(), separator);
  return Assign(path, result) ? CUResult_Success : CUResult_Failed;
}

CUResult CUStringMac::PathRemoveLastComponent(CUStringMac& result) {
  if (m_string == nullptr) return CUResult_Failed;
  WorkingText working;
  if (CFStringHasSuffix(m_string, CFSTR("/"))) {
    if (CFStringGetLength(m_string) == 1) {
      result = CUStringMac(*this);
      return CUResult_Success;
    }
    if (!working.CutLast(m_string)) return CUResult_Failed;
  } else {
    working.Lend(m_string);
  }

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
  CFIndex const slash = FindLast(m_string, CFSTR("/"));
  if (slash == kCFNotFound) return CUResult_Failed;
  CFIndex const start = slash + 1;
  CFIndex const length = CFStringGetLength(m_string) - start;
  if (length == 0) {
    result = CUStringMac();
    return CUResult_Success;
  }
  return AssignPart(m_string, start, length, result) ? CUResult_Success : CUResult_Failed;
}

CUResult CUStringMac::PathGetFileNameNoExtension(CUStringMac& result) {
  if (m_string == nullptr) return CUResult_Failed;
  // A name with an extension, as this class finds it, is not made only to be cut.
  CFIndex const last = FindLast(m_string, CFSTR("."));
  CFIndex const slash = FindLast(m_string, CFSTR("/"));
  if (slash != kCFNotFound && slash < last && typeid(*this) == typeid(CUStringMac)) {
    AssignPart(m_string, slash + 1, last - slash - 1, result);
    return CUResult_Success;
  }
  CUStringMac name;
  CUResult const got = PathGetFileName(name);
  if (CUFailed(got)) return got;
  if (name.m_string == nullptr) return CUResult_Failed;
  CFIndex const dot = FindLast(name.m_string, CFSTR("."));
  if (dot == kCFNotFound) {
    Assign(std::exchange(name.m_string, nullptr), result);
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
  CUStringMac const root(CFSTR("/"), Adopted::yes);  // constants are not counted
  if (*this == root) {
    result = root;
    return CUResult_Success;
  }
  CFIndex const length = CFStringGetLength(m_string);
  CFIndex slash = FindLast(m_string, CFSTR("/"));
  if (slash == kCFNotFound) return CUResult_Failed;
  WorkingText working;
  if (slash == length - 1) {
    if (!working.CutLast(m_string)) return CUResult_Failed;
    slash = FindLast(working.Get(), CFSTR("/"));
    if (slash == kCFNotFound) return CUResult_Failed;
  } else {
    working.Lend(m_string);
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
