#pragma once

// Texts of dates, in the user's language or by a pattern.
//
// A formatter may be used by one thread at a time. Making one costs little: what is expensive about
// it is kept by the process and used again.

#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFLocale.h>
#include <CoreFoundation/CFString.h>

typedef struct __CFDateFormatter* CFDateFormatterRef;

enum CFDateFormatterStyle : CFIndex {
  kCFDateFormatterNoStyle = 0,
  kCFDateFormatterShortStyle = 1,
  kCFDateFormatterMediumStyle = 2,
  kCFDateFormatterLongStyle = 3,
  kCFDateFormatterFullStyle = 4
};

// The property that holds the zone of the texts, a CFTimeZoneRef.
CF_INSIDE CFStringRef const kCFDateFormatterTimeZone;

// A formatter for a locale and a style each of date and time; "no style" leaves that part out, and
// twice it gives empty texts. A null locale is that of computers: American English, and for
// patterns the digits 0 to 9. The zone is the system's, as it is when a text is made. Null for a
// style that is not one of the five, and when memory runs out.
CF_INSIDE CFDateFormatterRef CFDateFormatterCreate(CFAllocatorRef allocator, CFLocaleRef locale,
                                                   CFDateFormatterStyle dateStyle,
                                                   CFDateFormatterStyle timeStyle);

// From now on texts follow `format`, a pattern of Unicode TR 35 such as "yyyy/MM/dd HH:mm:ss", and
// no style. An open quote lasts to the end; what a letter without a meaning prints is not laid
// down.
CF_INSIDE void CFDateFormatterSetFormat(CFDateFormatterRef formatter, CFStringRef format);

// Sets a property. The one that is known is kCFDateFormatterTimeZone; any other is ignored.
CF_INSIDE void CFDateFormatterSetProperty(CFDateFormatterRef formatter, CFStringRef key,
                                          CFTypeRef value);

// The text of a moment. The calendar is that of the locale; the Gregorian one is proleptic, and its
// "y" counts years before 1 backwards, beginning with 1. Parts of a style or pattern that name the
// zone always say Greenwich, whatever the zone. Null for moments more than 100 million days from
// 1970, for what is not a number, and when memory runs out.
CF_INSIDE CFStringRef CFDateFormatterCreateStringWithAbsoluteTime(CFAllocatorRef allocator,
                                                                  CFDateFormatterRef formatter,
                                                                  CFAbsoluteTime at);
CF_INSIDE CFStringRef CFDateFormatterCreateStringWithDate(CFAllocatorRef allocator,
                                                          CFDateFormatterRef formatter,
                                                          CFDateRef date);
