#include <CoreFoundation/CFDate.h>
#include <time.h>

#include <algorithm>
#include <cmath>

#include "platform/linux/CFTimeZoneObject.h"

struct __CFDate final : CFObject {
  explicit __CFDate(CFAbsoluteTime at) : time(at) {}

  CFAbsoluteTime const time;
};

namespace {

constexpr auto kReferenceDate = static_cast<std::int64_t>(kCFAbsoluteTimeIntervalSince1970);
constexpr std::int64_t kSecondsOfDay = 86400;
// The year of every moment within this fits in 32 bits.
constexpr CFAbsoluteTime kFarthest = 6.7e16;
constexpr double kLastOfMinute = 59.99999999999999;

constexpr std::int64_t kDaysOf400Years = 146097;
constexpr std::int64_t kDaysTo1970 = 719468;  // from 0000-03-01

// Rounds down, where the language rounds to zero.
constexpr std::int64_t Quotient(std::int64_t number, std::int64_t divisor) {
  return number / divisor - (number % divisor < 0 ? 1 : 0);
}

struct Day {
  std::int64_t year;
  int month;
  int day;
};

// Days since 1970 of a day of the month, 1 to 12. Years are counted from March, so that the leap
// day is the last of a year; (153 * month + 2) / 5 is the number of days before a month of such a
// year.
std::int64_t DaysOf(Day date) {
  std::int64_t const year = date.month > 2 ? date.year : date.year - 1;
  std::int64_t const cycle = Quotient(year, 400);
  std::int64_t const yearOfCycle = year - cycle * 400;
  int const month = (date.month + 9) % 12;
  return cycle * kDaysOf400Years + yearOfCycle * 365 + yearOfCycle / 4 - yearOfCycle / 100 +
         (153 * month + 2) / 5 + date.day - 1 - kDaysTo1970;
}

// The reverse of it.
Day DayOf(std::int64_t days) {
  std::int64_t const fromMarch = days + kDaysTo1970;
  std::int64_t const cycle = Quotient(fromMarch, kDaysOf400Years);
  int const dayOfCycle = static_cast<int>(fromMarch - cycle * kDaysOf400Years);
  // Leap days taken out, every year has 365 days.
  int const yearOfCycle =
      (dayOfCycle - dayOfCycle / 1460 + dayOfCycle / 36524 - dayOfCycle / 146096) / 365;
  int const dayOfYear = dayOfCycle - (365 * yearOfCycle + yearOfCycle / 4 - yearOfCycle / 100);
  int const month = (5 * dayOfYear + 2) / 153;
  int const day = dayOfYear - (153 * month + 2) / 5 + 1;
  return {cycle * 400 + yearOfCycle + (month >= 10 ? 1 : 0), month < 10 ? month + 3 : month - 9,
          day};
}

// Rounding makes no second of 60.
double SecondOf(std::int64_t seconds, double fraction) {
  std::int64_t const ofMinute = seconds - Quotient(seconds, 60) * 60;
  return std::min(static_cast<double>(ofMinute) + fraction, kLastOfMinute);
}

}  // namespace

CFAbsoluteTime CFAbsoluteTimeGetCurrent() {
  timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<double>(now.tv_sec - kReferenceDate) + static_cast<double>(now.tv_nsec) * 1e-9;
}

CFDateRef CFDateCreate(CFAllocatorRef, CFAbsoluteTime at) { return MakeCFObject<__CFDate>(0, at); }

CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef date) { return date->time; }

CFComparisonResult CFDateCompare(CFDateRef first, CFDateRef second, void*) {
  if (std::isnan(first->time) || std::isnan(second->time)) {
    return static_cast<CFComparisonResult>(int{std::isnan(second->time)} -
                                           int{std::isnan(first->time)});
  }
  if (first->time < second->time) return kCFCompareLessThan;
  return first->time > second->time ? kCFCompareGreaterThan : kCFCompareEqualTo;
}

CFGregorianDate CFAbsoluteTimeGetGregorianDate(CFAbsoluteTime at, CFTimeZoneRef zone) {
  if (std::isnan(at)) return CFGregorianDate{};
  CFAbsoluteTime const near = std::clamp(at, -kFarthest, kFarthest);
  auto whole = static_cast<std::int64_t>(near);
  if (static_cast<double>(whole) > near) --whole;
  double const fraction = near - static_cast<double>(whole);  // 1 just before a second
  std::int64_t seconds = whole + kReferenceDate;
  if (zone != nullptr) seconds += zone->OffsetAt(seconds);
  // The fields of a moment are asked for one after another.
  thread_local std::int64_t lastSeconds = 0;
  thread_local CFGregorianDate lastDate = {1970, 1, 1, 0, 0, 0};
  if (seconds == lastSeconds) {
    lastDate.second = SecondOf(seconds, fraction);
    return lastDate;
  }
  std::int64_t const days = Quotient(seconds, kSecondsOfDay);
  int const ofDay = static_cast<int>(seconds - days * kSecondsOfDay);
  Day const date = DayOf(days);
  lastSeconds = seconds;
  lastDate = {static_cast<SInt32>(date.year),      static_cast<SInt8>(date.month),
              static_cast<SInt8>(date.day),        static_cast<SInt8>(ofDay / 3600),
              static_cast<SInt8>(ofDay / 60 % 60), SecondOf(seconds, fraction)};
  return lastDate;
}

CFAbsoluteTime CFGregorianDateGetAbsoluteTime(CFGregorianDate date, CFTimeZoneRef zone) {
  std::int64_t const carried = Quotient(date.month - 1, 12);
  Day const first = {date.year + carried, static_cast<int>(date.month - carried * 12), 1};
  std::int64_t const whole =
      (DaysOf(first) + date.day - 1) * kSecondsOfDay + date.hour * 3600 + date.minute * 60;
  std::int64_t offset = 0;
  if (zone != nullptr && std::isfinite(date.second)) {
    // Seconds may carry to the other side of a change.
    double const shift = std::floor(std::clamp(date.second, -kFarthest, kFarthest));
    std::int64_t const local = whole + static_cast<std::int64_t>(shift);
    offset = local - zone->ToUtc(local);
  }
  return static_cast<double>(whole - offset - kReferenceDate) + date.second;
}
