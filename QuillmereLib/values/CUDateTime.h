#pragma once

// CUDateTime, a moment in time.

#include <CoreFoundation/CFDate.h>

#include <cstdint>

#include "QuillmereLib/core/CUExport.h"
#include "QuillmereLib/core/CUObject.h"
#include "QuillmereLib/core/CUSharedPtr.h"

class CUStringMac;
// From <CoreFoundation/CFDateFormatter.h>: 0 none, 1 short, 2 medium, 3 long, 4 full.
enum CFDateFormatterStyle : CFIndex;

// The fields of a moment in a zone of a fixed distance from Greenwich.
struct _DateTimeInfo {
  std::int32_t year;            // in full
  std::int32_t month;           // 1 to 12; the low eight bits, signed, as of the next three
  std::int32_t day;             // of the month
  std::int32_t hour;            //
  std::int32_t minute;          //
  std::int32_t second;          //
  std::int32_t timeZoneOffset;  // seconds east of Greenwich
  bool daylight;                // the fields show daylight-saving time, an hour more than the zone
};

// A moment, in seconds from 2001-01-01 00:00:00 in Greenwich; or no value, where the platform could
// not make a date as this one was copied or assigned. Only assignment changes an object: threads
// may read one together, but nothing may run beside an assignment to it.
//
// Fields are those of the Gregorian calendar, which holds for all years. Out of their range they
// are no failure: they carry over into the greater ones, so that day 0 is the one before the first.
// A day of arithmetic has 86400 seconds, whatever the clocks of the zone do.
class QUILLMERE_API CUDateTime : public CUObject {
 public:
  // The present moment. This and the next three throw CUError_InvalidArgument where the platform
  // makes no date, or no zone.
  CUDateTime();

  // The moment at which the clocks of the system's zone show the fields. But for year and second
  // only their low eight bits count, signed: a month of 300 is one of 44, an hour of 200 one of
  // -56.
  CUDateTime(int year, int month, int day, int hour, int minute, int second);

  // The same by the zone in `info`. There is none beyond 18 hours from Greenwich.
  CUDateTime(_DateTimeInfo& info);

  // The given seconds from the reference date, as they are.
  CUDateTime(double absoluteTime);

  // The same moment, or no value if `other` has none. Throws nothing.
  CUDateTime(CUDateTime const& other);

  ~CUDateTime() override;

  // The constructors, with a null pointer for every failure.
  static CUSharedPtr<CUDateTime> Create();
  static CUSharedPtr<CUDateTime> Create(int year, int month, int day, int hour, int minute,
                                        int second);
  static CUSharedPtr<CUDateTime> Create(_DateTimeInfo& info);

  // "yyyy/MM/dd HH:mm:ss" in the system's zone, the same in every locale; "(NULL)" with no value.
  CUSharedPtr<CUStringMac> Description() override;

  // Takes the moment of `other`, or no value. An object must not be assigned to itself: it would
  // lose its value.
  virtual CUDateTime& operator=(CUDateTime const& other);
  using CUObject::operator=;

  // Whether both are the same moment. False if either has no value, even for one object.
  virtual bool operator==(CUDateTime const& other);

  // Whether this moment is the earlier one. False if either has no value.
  virtual bool operator<(CUDateTime const& other) const;

  // The fields, by the system's zone if `local`, else by Greenwich; all 0 with no value. Moments
  // that are not finite are told in <CoreFoundation/CFDate.h>.
  CFGregorianDate GregorianDate(bool local);
  int GetYear(bool local);
  int GetMonth(bool local);
  int GetDay(bool local);
  int GetHour(bool local);
  int GetMinute(bool local);
  int GetSecond(bool local);  // without its fraction

  // The fields as a text in the user's locale. "(NULL)" with no value, and where the platform makes
  // no text; never a null pointer.
  CUSharedPtr<CUStringMac> GetString(bool local, CFDateFormatterStyle dateStyle,
                                     CFDateFormatterStyle timeStyle);
  CUSharedPtr<CUStringMac> GetString(bool local);      // date and time in medium style
  CUSharedPtr<CUStringMac> GetDateString(bool local);  // the date alone
  CUSharedPtr<CUStringMac> GetTimeString(bool local);  // the time alone

  // A new moment so much later, or earlier for numbers below 0; null with no value.
  CUSharedPtr<CUDateTime> AddSeconds(double seconds);
  CUSharedPtr<CUDateTime> AddMinutes(double minutes);
  CUSharedPtr<CUDateTime> AddHours(double hours);
  CUSharedPtr<CUDateTime> AddDays(double days);

 private:
  void Init(CFAbsoluteTime at);
  void InitByFields(CFGregorianDate const& fields, CFTimeZoneRef zone, CFTimeInterval shift);

  CFDateRef m_date;  // owned, or null
};
