#pragma once

// Moments in time, and their fields in the Gregorian calendar.
//
// A moment is a number of seconds since the reference date, 2001-01-01 00:00:00 in Greenwich; leap
// seconds do not count. The calendar is proleptic: the Gregorian rules hold for all years, and the
// year before 1 is 0. All functions may be called from any thread.

#include <CoreFoundation/CFBase.h>

typedef double CFTimeInterval;
typedef CFTimeInterval CFAbsoluteTime;
typedef struct __CFDate const* CFDateRef;
typedef struct __CFTimeZone const* CFTimeZoneRef;

// From the first moment of 1970 in Greenwich to the reference date.
constexpr CFTimeInterval kCFAbsoluteTimeIntervalSince1970 = 978307200.0;

struct CFGregorianDate {
  SInt32 year;
  SInt8 month;
  SInt8 day;
  SInt8 hour;
  SInt8 minute;
  double second;
};

// The present moment by the system's clock, which somebody may set back.
CF_EXPORT CFAbsoluteTime CFAbsoluteTimeGetCurrent(void);

// A date object of a moment, any double, taken as it is; null when memory runs out.
CF_EXPORT CFDateRef CFDateCreate(CFAllocatorRef allocator, CFAbsoluteTime at);

// The moment that the object was made of.
CF_EXPORT CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef date);

// Whether `first` is earlier than, the same as or later than `second`. A moment that is not a
// number equals its like and comes before all others. `context` is ignored.
CF_INSIDE CFComparisonResult CFDateCompare(CFDateRef first, CFDateRef second, void* context);

// The fields of a moment in a zone; a null zone is Greenwich. Months and days count from 1, and
// seconds are at least 0 and less than 60, with their fraction. Infinities, and moments more than
// 2123 million years from the reference date, are drawn in to that distance, so that every year
// fits. Of what is not a number all fields are 0.
CF_INSIDE CFGregorianDate CFAbsoluteTimeGetGregorianDate(CFAbsoluteTime at, CFTimeZoneRef zone);

// The moment of fields in a zone; a null zone is Greenwich. Fields out of their range are no
// failure, but plain arithmetic: a month beyond 1 to 12 carries into the year, a day of 0 is the
// one before the first, an hour of 25 is 01:00 of the next day, and so for negative fields. Seconds
// that are not finite give a moment that is not. Of fields that the zone shows twice, as clocks go
// back, the first moment is meant; fields that it leaves out, as clocks go forward, are read by the
// offset before the change, which puts them as far behind it.
CF_INSIDE CFAbsoluteTime CFGregorianDateGetAbsoluteTime(CFGregorianDate date, CFTimeZoneRef zone);
