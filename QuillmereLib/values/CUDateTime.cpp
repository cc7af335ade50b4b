#include "QuillmereLib/values/CUDateTime.h"

#include <CoreFoundation/CoreFoundation.h>

#include "QuillmereLib/core/CFHolder.h"
#include "QuillmereLib/core/Create.h"
#include "QuillmereLib/core/ThrowErrorCode.h"
#include "QuillmereLib/strings/CUStringMac.h"

namespace {

using DateFormatter = CFHolder<CFDateFormatterRef>;
using TimeZone = CFHolder<CFTimeZoneRef>;

CFGregorianDate PackFields(int year, int month, int day, int hour, int minute, int second) {
  return {year,
          static_cast<SInt8>(month),
          static_cast<SInt8>(day),
          static_cast<SInt8>(hour),
          static_cast<SInt8>(minute),
          static_cast<double>(second)};
}

CFDateRef CopyDate(CFDateRef date) {
  return date == nullptr ? nullptr : CFDateCreate(kCFAllocatorDefault, CFDateGetAbsoluteTime(date));
}

CUSharedPtr<CUStringMac> TextOrNullMark(CFStringRef text) {
  if (text == nullptr) return new CUStringMac("(NULL)", CUString_CharCode_UTF8);
  return new CUStringMac(text);
}

// The fields as they stand, put into a zone of no offset: the formatter's own zone is out of play.
CFStringRef CreateTextOfFields(CFGregorianDate const& fields, CFDateFormatterStyle dateStyle,
                               CFDateFormatterStyle timeStyle) {
  CFHolder<CFLocaleRef> const locale(CFLocaleCopyCurrent());
  TimeZone const zone(CFTimeZoneCreateWithTimeIntervalFromGMT(kCFAllocatorDefault, 0.0));
  if (!locale || !zone) return nullptr;
  CFAbsoluteTime const at = CFGregorianDateGetAbsoluteTime(fields, zone.Get());
  DateFormatter const formatter(
      CFDateFormatterCreate(kCFAllocatorDefault, locale.Get(), dateStyle, timeStyle));
  if (!formatter) return nullptr;
  CFDateFormatterSetProperty(formatter.Get(), kCFDateFormatterTimeZone, zone.Get());
  return CFDateFormatterCreateStringWithAbsoluteTime(kCFAllocatorDefault, formatter.Get(), at);
}

}  // namespace

CUDateTime::CUDateTime() : m_date(nullptr) { Init(CFAbsoluteTimeGetCurrent()); }

CUDateTime::CUDateTime(int year, int month, int day, int hour, int minute, int second)
    : m_date(nullptr) {
  TimeZone const zone(CFTimeZoneCopySystem());
  InitByFields(PackFields(year, month, day, hour, minute, second), zone.Get(), 0.0);
}

CUDateTime::CUDateTime(_DateTimeInfo& info) : m_date(nullptr) {
  TimeZone const zone(
      CFTimeZoneCreateWithTimeIntervalFromGMT(kCFAllocatorDefault, info.timeZoneOffset));
  InitByFields(PackFields(info.year, info.month, info.day, info.hour, info.minute, info.second),
               zone.Get(), info.daylight ? -3600.0 : 0.0);
}

CUDateTime::CUDateTime(double absoluteTime) : m_date(nullptr) { Init(absoluteTime); }

CUDateTime::CUDateTime(CUDateTime const& other) : CUObject(other), m_date(CopyDate(other.m_date)) {}

CUDateTime::~CUDateTime() {
  if (m_date != nullptr) CFRelease(m_date);
}

void CUDateTime::Init(CFAbsoluteTime at) {
  m_date = CFDateCreate(kCFAllocatorDefault, at);
  if (m_date == nullptr) ThrowErrorCode(CUError_InvalidArgument);
}

void CUDateTime::InitByFields(CFGregorianDate const& fields, CFTimeZoneRef zone,
                              CFTimeInterval shift) {
  if (zone == nullptr) ThrowErrorCode(CUError_InvalidArgument);
  Init(CFGregorianDateGetAbsoluteTime(fields, zone) + shift);
}

CUSharedPtr<CUDateTime> CUDateTime::Create() { return CreateOrNull<CUDateTime>(); }

CUSharedPtr<CUDateTime> CUDateTime::Create(int year, int month, int day, int hour, int minute,
                                           int second) {
  return CreateOrNull<CUDateTime>(year, month, day, hour, minute, second);
}

CUSharedPtr<CUDateTime> CUDateTime::Create(_DateTimeInfo& info) {
  return CreateOrNull<CUDateTime>(info);
}

CUSharedPtr<CUStringMac> CUDateTime::Description() {
  if (m_date == nullptr) return TextOrNullMark(nullptr);
  DateFormatter const formatter(CFDateFormatterCreate(
      kCFAllocatorDefault, nullptr, kCFDateFormatterNoStyle, kCFDateFormatterNoStyle));
  if (!formatter) return TextOrNullMark(nullptr);
  CFDateFormatterSetFormat(formatter.Get(), CFSTR("yyyy/MM/dd HH:mm:ss"));
  CFHolder<CFStringRef> const text(
      CFDateFormatterCreateStringWithDate(kCFAllocatorDefault, formatter.Get(), m_date));
  return TextOrNullMark(text.Get());
}

// The own date goes before the other's is read, so that self-assignment ends with no value.
CUDateTime& CUDateTime::operator=(CUDateTime const& other) {
  if (m_date != nullptr) CFRelease(m_date);
  m_date = nullptr;
  m_date = CopyDate(other.m_date);
  return *this;
}

bool CUDateTime::operator==(CUDateTime const& other) {
  if (m_date == nullptr || other.m_date == nullptr) return false;
  return CFDateCompare(m_date, other.m_date, nullptr) == kCFCompareEqualTo;
}

bool CUDateTime::operator<(CUDateTime const& other) const {
  if (m_date == nullptr || other.m_date == nullptr) return false;
  return CFDateCompare(m_date, other.m_date, nullptr) == kCFCompareLessThan;
}

CFGregorianDate CUDateTime::GregorianDate(bool local) {
  if (m_date == nullptr) return CFGregorianDate{};
  TimeZone const zone(local ? CFTimeZoneCopySystem() : nullptr);
  return CFAbsoluteTimeGetGregorianDate(CFDateGetAbsoluteTime(m_date), zone.Get());
}

int CUDateTime::GetYear(bool local) { return GregorianDate(local).year; }
int CUDateTime::GetMonth(bool local) { return GregorianDate(local).month; }
int CUDateTime::GetDay(bool local) { return GregorianDate(local).day; }
int CUDateTime::GetHour(bool local) { return GregorianDate(local).hour; }
int CUDateTime::GetMinute(bool local) { return GregorianDate(local).minute; }
int CUDateTime::GetSecond(bool local) { return static_cast<int>(GregorianDate(local).second); }

CUSharedPtr<CUStringMac> CUDateTime::GetString(bool local, CFDateFormatterStyle dateStyle,
                                               CFDateFormatterStyle timeStyle) {
  CFHolder<CFStringRef> const text(
      m_date == nullptr ? nullptr : CreateTextOfFields(GregorianDate(local), dateStyle, timeStyle));
  return TextOrNullMark(text.Get());
}

CUSharedPtr<CUStringMac> CUDateTime::GetString(bool local) {
  return GetString(local, kCFDateFormatterMediumStyle, kCFDateFormatterMediumStyle);
}

CUSharedPtr<CUStringMac> CUDateTime::GetDateString(bool local) {
  return GetString(local, kCFDateFormatterMediumStyle, kCFDateFormatterNoStyle);
}

CUSharedPtr<CUStringMac> CUDateTime::GetTimeString(bool local) {
  return GetString(local, kCFDateFormatterNoStyle, kCFDateFormatterMediumStyle);
}

CUSharedPtr<CUDateTime> CUDateTime::AddSeconds(double seconds) {
  if (m_date == nullptr) return nullptr;
  return CreateOrNull<CUDateTime>(CFDateGetAbsoluteTime(m_date) + seconds);
}

CUSharedPtr<CUDateTime> CUDateTime::AddMinutes(double minutes) {
  return AddSeconds(minutes * 60.0);
}

CUSharedPtr<CUDateTime> CUDateTime::AddHours(double hours) {
  return AddSeconds(hours * 60.0 * 60.0);
}

CUSharedPtr<CUDateTime> CUDateTime::AddDays(double days) {
  return AddSeconds(days * 24.0 * 60.0 * 60.0);
}
