#include <CoreFoundation/CFDateFormatter.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "platform/linux/CFLocaleObject.h"
#include "platform/linux/CFStringObject.h"
#include "platform/linux/CFTimeZoneObject.h"
#include "platform/linux/Handles.h"

CFStringRef const kCFDateFormatterTimeZone = CFSTR("kCFDateFormatterTimeZone");

struct __CFDateFormatter final : CFObject {
  __CFDateFormatter(CFLocaleRef itsLocale, CFDateFormatterStyle itsDateStyle,
                    CFDateFormatterStyle itsTimeStyle)
      : locale(itsLocale), dateStyle(itsDateStyle), timeStyle(itsTimeStyle) {
    if (locale != nullptr) CFRetain(locale);
  }
  ~__CFDateFormatter() override {
    if (locale != nullptr) CFRelease(locale);
    if (format != nullptr) CFRelease(format);
    if (zone != nullptr) CFRelease(zone);
  }

  CFLocaleRef const locale;
  CFDateFormatterStyle const dateStyle;
  CFDateFormatterStyle const timeStyle;
  CFTimeZoneRef zone = nullptr;  // null for the system's
  CFStringRef format = nullptr;  // null while the styles hold
};

namespace {

// In seconds from 1970, 100 million days: what ICU keeps proleptic.
constexpr double kFarthest = 8.64e12;
constexpr std::size_t kMostFormats = 16;  // unless more are lent at once

// What tells the formats of ICU apart.
struct FormatKey {
  CFLocaleRef locale;
  CFDateFormatterStyle dateStyle;
  CFDateFormatterStyle timeStyle;
  CFStringRef pattern;  // null where the styles hold

  bool operator==(FormatKey const& other) const {
    if (locale != other.locale) return false;
    if (pattern == nullptr || other.pattern == nullptr) {
      return pattern == other.pattern && dateStyle == other.dateStyle &&
             timeStyle == other.timeStyle;
    }
    return CFStringCompare(pattern, other.pattern, 0) == kCFCompareEqualTo;
  }
};

CFTimeZoneRef CopyZone(CFDateFormatterRef formatter) {
  if (formatter->zone == nullptr) return CFTimeZoneCopySystem();
  return static_cast<CFTimeZoneRef>(CFRetain(formatter->zone));
}

bool IsStyle(CFDateFormatterStyle style) {
  return style >= kCFDateFormatterNoStyle && style <= kCFDateFormatterFullStyle;
}

UDateFormatStyle StyleOfIcu(CFDateFormatterStyle style) {
  switch (style) {
    case kCFDateFormatterShortStyle:
      return UDAT_SHORT;
    case kCFDateFormatterMediumStyle:
      return UDAT_MEDIUM;
    case kCFDateFormatterLongStyle:
      return UDAT_LONG;
    case kCFDateFormatterFullStyle:
      return UDAT_FULL;
    default:
      return UDAT_NONE;
  }
}

std::u16string UnitsOf(CFStringRef string) {
  auto const length = static_cast<std::size_t>(string->length);
  if (!string->wide) return std::u16string(string->Narrow(), string->Narrow() + length);
  return std::u16string(string->Wide(), string->Wide() + length);
}

// Calendars of other peoples have no change to the Gregorian one, and stay as they are.
void MakeProleptic(UDateFormat* format) {
  UErrorCode status = U_ZERO_ERROR;
  CalendarHandle const calendar(ucal_clone(udat_getCalendar(format), &status));
  ucal_setGregorianChange(calendar.Get(), -kFarthest * 1000, &status);
  if (U_SUCCESS(status)) udat_setCalendar(format, calendar.Get());
}

// A format in a zone of offset 0: moments are shifted before they are formatted. Null when memory
// runs out.
DateFormatHandle OpenFormat(FormatKey const& key) {
  bool const styled = key.pattern == nullptr && (key.dateStyle != kCFDateFormatterNoStyle ||
                                                 key.timeStyle != kCFDateFormatterNoStyle);
  std::u16string const pattern = key.pattern == nullptr ? u"" : UnitsOf(key.pattern);
  UErrorCode status = U_ZERO_ERROR;
  DateFormatHandle format(
      udat_open(styled ? StyleOfIcu(key.timeStyle) : UDAT_PATTERN,
                styled ? StyleOfIcu(key.dateStyle) : UDAT_PATTERN,
                key.locale == nullptr ? "en_US_POSIX" : key.locale->identifier.c_str(), u"GMT", -1,
                pattern.c_str(), static_cast<int32_t>(pattern.size()), &status));
  if (U_FAILURE(status)) return DateFormatHandle();
  MakeProleptic(format.Get());
  return format;
}

// A format of ICU and what it was opened for.
struct Format {
  explicit Format(FormatKey const& itsKey) : key(itsKey), handle(OpenFormat(itsKey)) {
    if (key.locale != nullptr) CFRetain(key.locale);
    if (key.pattern != nullptr) CFRetain(key.pattern);
  }
  Format(Format const&) = delete;
  Format& operator=(Format const&) = delete;
  ~Format() {
    if (key.locale != nullptr) CFRelease(key.locale);
    if (key.pattern != nullptr) CFRelease(key.pattern);
  }

  FormatKey const key;
  DateFormatHandle const handle;
  bool lent = true;
};

// Opening a format takes ten times as long as using it, and it serves a single thread at a time: so
// they are lent, and kept when they come back.
class FormatPool {
 public:
  // To be given back.
  Format& Take(FormatKey const& key) {
    {
      std::lock_guard<std::mutex> const guard(m_mutex);
      for (auto const& format : m_formats) {
        if (format->lent || !(format->key == key)) continue;
        format->lent = true;
        return *format;
      }
    }
    auto opened = std::make_unique<Format>(key);
    if (!opened->handle) throw std::bad_alloc();
    std::lock_guard<std::mutex> const guard(m_mutex);
    if (m_formats.size() >= kMostFormats) DropTheFirstIdle();
    m_formats.push_back(std::move(opened));
    return *m_formats.back();
  }

  void Give(Format& format) {
    std::lock_guard<std::mutex> const guard(m_mutex);
    format.lent = false;
  }

 private:
  void DropTheFirstIdle() {
    auto const idle = std::find_if(m_formats.begin(), m_formats.end(),
                                   [](auto const& format) { return !format->lent; });
    if (idle != m_formats.end()) m_formats.erase(idle);
  }

  std::mutex m_mutex;
  std::vector<std::unique_ptr<Format>> m_formats;
};

// Never destroyed, so that texts can be made to the very end.
FormatPool& Pool() {
  static FormatPool& pool = *new FormatPool;
  return pool;
}

CFStringRef CreateText(UDateFormat* format, UDate date) {
  UErrorCode status = U_ZERO_ERROR;
  std::array<UChar, 128> buffer;
  int32_t const length = udat_format(format, date, buffer.data(),
                                     static_cast<int32_t>(buffer.size()), nullptr, &status);
  if (U_SUCCESS(status)) {
    return CreateFromUnits(reinterpret_cast<UniChar const*>(buffer.data()), length);
  }
  if (status != U_BUFFER_OVERFLOW_ERROR) return nullptr;
  status = U_ZERO_ERROR;
  std::unique_ptr<UChar[]> const large(new (std::nothrow) UChar[static_cast<std::size_t>(length)]);
  if (large == nullptr) return nullptr;
  udat_format(format, date, large.get(), length, nullptr, &status);
  if (U_FAILURE(status)) return nullptr;
  return CreateFromUnits(reinterpret_cast<UniChar const*>(large.get()), length);
}

CFStringRef CreateTextByIcu(CFDateFormatterRef formatter, CFTimeZoneRef zone, CFAbsoluteTime at) {
  FormatKey const key = {formatter->locale, formatter->dateStyle, formatter->timeStyle,
                         formatter->format};
  double const whole = std::floor(at);
  double const utc = whole + kCFAbsoluteTimeIntervalSince1970;
  auto const offset = static_cast<double>(zone->OffsetAt(static_cast<std::int64_t>(utc)));
  UDate const date = (utc + offset) * 1000 + std::floor((at - whole) * 1000);
  try {
    Format& format = Pool().Take(key);
    CFStringRef const text = CreateText(format.handle.Get(), date);
    Pool().Give(format);
    return text;
  } catch (std::bad_alloc const&) {
    return nullptr;
  }
}

// The one pattern that is used all the time does not need ICU.
bool IsPlain(CFDateFormatterRef formatter) {
  static constexpr char kPlain[] = "yyyy/MM/dd HH:mm:ss";
  CFStringRef const format = formatter->format;
  return formatter->locale == nullptr && format != nullptr && !format->wide &&
         static_cast<std::size_t>(format->length) == sizeof kPlain - 1 &&
         std::memcmp(format->Narrow(), kPlain, sizeof kPlain - 1) == 0;
}

char* AppendTwo(char* text, int number) {
  text[0] = static_cast<char>('0' + number / 10);
  text[1] = static_cast<char>('0' + number % 10);
  return text + 2;
}

CFStringRef CreatePlainText(CFTimeZoneRef zone, CFAbsoluteTime at) {
  CFGregorianDate const date = CFAbsoluteTimeGetGregorianDate(at, zone);
  int const year = date.year > 0 ? date.year : 1 - date.year;
  char text[32];
  char* end = text;
  if (year > 9999) {
    end += std::snprintf(text, sizeof text, "%d", year);
  } else {
    end = AppendTwo(AppendTwo(end, year / 100), year % 100);
  }
  struct Part {
    char before;
    int number;
  };
  for (Part const part : {Part{'/', date.month}, Part{'/', date.day}, Part{' ', date.hour},
                          Part{':', date.minute}, Part{':', static_cast<int>(date.second)}}) {
    *end++ = part.before;
    end = AppendTwo(end, part.number);
  }
  return CreateNarrow(text, end - text);
}

}  // namespace

CFDateFormatterRef CFDateFormatterCreate(CFAllocatorRef, CFLocaleRef locale,
                                         CFDateFormatterStyle dateStyle,
                                         CFDateFormatterStyle timeStyle) {
  if (!IsStyle(dateStyle) || !IsStyle(timeStyle)) return nullptr;
  return MakeCFObject<__CFDateFormatter>(0, locale, dateStyle, timeStyle);
}

void CFDateFormatterSetFormat(CFDateFormatterRef formatter, CFStringRef format) {
  CFRetain(format);
  if (formatter->format != nullptr) CFRelease(formatter->format);
  formatter->format = format;
}

void CFDateFormatterSetProperty(CFDateFormatterRef formatter, CFStringRef key, CFTypeRef value) {
  if (CFStringCompare(key, kCFDateFormatterTimeZone, 0) != kCFCompareEqualTo) return;
  CFRetain(value);
  if (formatter->zone != nullptr) CFRelease(formatter->zone);
  formatter->zone = static_cast<CFTimeZoneRef>(value);
}

CFStringRef CFDateFormatterCreateStringWithAbsoluteTime(CFAllocatorRef,
                                                        CFDateFormatterRef formatter,
                                                        CFAbsoluteTime at) {
  double const utc = at + kCFAbsoluteTimeIntervalSince1970;
  if (!(utc >= -kFarthest && utc <= kFarthest)) return nullptr;
  CFTimeZoneRef const zone = CopyZone(formatter);
  if (zone == nullptr) return nullptr;
  CFStringRef const text =
      IsPlain(formatter) ? CreatePlainText(zone, at) : CreateTextByIcu(formatter, zone, at);
  CFRelease(zone);
  return text;
}

CFStringRef CFDateFormatterCreateStringWithDate(CFAllocatorRef allocator,
                                                CFDateFormatterRef formatter, CFDateRef date) {
  return CFDateFormatterCreateStringWithAbsoluteTime(allocator, formatter,
                                                     CFDateGetAbsoluteTime(date));
}
