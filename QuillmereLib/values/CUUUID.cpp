#include "QuillmereLib/values/CUUUID.h"

#include <CoreFoundation/CoreFoundation.h>

#include <algorithm>
#include <cstring>

#include "QuillmereLib/core/CFHolder.h"
#include "QuillmereLib/core/Create.h"
#include "QuillmereLib/core/ThrowErrorCode.h"
#include "QuillmereLib/strings/CUStringMac.h"
#include "QuillmereLib/strings/TextBuilder.h"

namespace {

constexpr int kSize = 16;
constexpr int kSerialStart = 11;
constexpr int kSerialSize = kSize - kSerialStart;

CFUUIDRef OrThrow(CFUUIDRef uuid) {
  if (uuid == nullptr) ThrowErrorCode(CUError_NullArgument);
  return uuid;
}

}  // namespace

CUUUID::CUUUID() : m_uuid(OrThrow(CFUUIDCreate(kCFAllocatorDefault))) {}

CUUUID::CUUUID(unsigned char const* bytes)
    : m_uuid(OrThrow(CFUUIDCreateWithBytes(kCFAllocatorDefault, bytes[0], bytes[1], bytes[2],
                                           bytes[3], bytes[4], bytes[5], bytes[6], bytes[7],
                                           bytes[8], bytes[9], bytes[10], bytes[11], bytes[12],
                                           bytes[13], bytes[14], bytes[15]))) {}

CUUUID::CUUUID(CFUUIDBytes const& bytes) : m_uuid(nullptr) { CUUUID::SetUUIDBytes(bytes); }

CUUUID::CUUUID(__CFUUID const* uuid) : m_uuid(nullptr) {
  if (uuid != nullptr) CUUUID::SetUUIDBytes(CFUUIDGetUUIDBytes(uuid));
}

CUUUID::CUUUID(CUUUID const& other) : CUUUID(other.m_uuid) {}

CUUUID::~CUUUID() {
  if (m_uuid != nullptr) CFRelease(m_uuid);
}

CUSharedPtr<CUUUID> CUUUID::Create() { return CreateOrNull<CUUUID>(); }
CUSharedPtr<CUUUID> CUUUID::Create(unsigned char const* bytes) {
  return CreateOrNull<CUUUID>(bytes);
}
CUSharedPtr<CUUUID> CUUUID::Create(CFUUIDBytes const& bytes) { return CreateOrNull<CUUUID>(bytes); }
CUSharedPtr<CUUUID> CUUUID::Create(__CFUUID const* uuid) { return CreateOrNull<CUUUID>(uuid); }
CUSharedPtr<CUUUID> CUUUID::Create(CUUUID const& other) { return CreateOrNull<CUUUID>(other); }

CUSharedPtr<CUUUID> CUUUID::CreateNull() {
  static unsigned char const zero[kSize] = {};
  return Create(zero);
}

CUSharedPtr<CUStringMac> CUUUID::Description() {
  CUSharedPtr<CUStringMac> object = CUObject::Description();
  if (m_uuid == nullptr) return object;
  CFHolder<CFStringRef> const identifier(CFUUIDCreateString(kCFAllocatorDefault, m_uuid));
  if (!identifier) return object;
  TextBuilder text;
  text.Append(static_cast<CFStringRef>(*object));
  text.Append(" ");
  text.Append(identifier.Get());
  return text.Text();
}

CUUUID::operator __CFUUID const*() const { return m_uuid; }

CUUUID::operator CFUUIDBytes() const { return CFUUIDGetUUIDBytes(m_uuid); }

bool CUUUID::operator==(CUUUID const& other) const {
  return *this == static_cast<CFUUIDBytes>(other);
}

bool CUUUID::operator==(__CFUUID const* uuid) const { return *this == CFUUIDGetUUIDBytes(uuid); }

bool CUUUID::operator==(CFUUIDBytes const& bytes) const {
  CFUUIDBytes const own = CFUUIDGetUUIDBytes(m_uuid);
  return std::memcmp(&own, &bytes, sizeof own) == 0;
}

CUUUID& CUUUID::operator=(CUUUID const& other) {
  SetUUIDRef(other.m_uuid);
  return *this;
}

void CUUUID::GetBytes(unsigned char* bytes) {
  CFUUIDBytes const own = m_uuid == nullptr ? CFUUIDBytes{} : CFUUIDGetUUIDBytes(m_uuid);
  std::memcpy(bytes, &own, sizeof own);
}

__CFUUID const* CUUUID::GetUUIDRef() { return m_uuid; }

void CUUUID::SetUUIDRef(__CFUUID const* uuid) {
  if (uuid != m_uuid) SetUUIDBytes(CFUUIDGetUUIDBytes(uuid));
}

CFUUIDBytes CUUUID::GetUUIDBytes() { return CFUUIDGetUUIDBytes(m_uuid); }

void CUUUID::SetUUIDBytes(CFUUIDBytes const& bytes) {
  if (m_uuid != nullptr) CFRelease(m_uuid);
  m_uuid = nullptr;
  m_uuid = OrThrow(CFUUIDCreateFromUUIDBytes(kCFAllocatorDefault, bytes));
}

bool CUUUID::IsNotFillSerialArea() {
  unsigned char bytes[kSize];
  GetBytes(bytes);
  return std::all_of(bytes + kSerialStart, bytes + kSize, [](int byte) { return byte == 0; });
}

void CUUUID::CorrectSerialArea(unsigned char* serial) {
  if (serial == nullptr) return;
  CFUUIDBytes bytes = GetUUIDBytes();
  std::memcpy(reinterpret_cast<unsigned char*>(&bytes) + kSerialStart, serial, kSerialSize);
  try {
    SetUUIDBytes(bytes);
  } catch (...) {
  }
}
