#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>
#include <gtest/gtest.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "QuillmereLib/core/CFHolder.h"
#include "tests/support/InChild.h"
#include "tests/support/Mounts.h"
#include "tests/support/Strings.h"
#include "tests/support/Threads.h"
#include "tests/support/TimeZoneVariable.h"

namespace {

using Formatter = CFHolder<CFDateFormatterRef>;
using Text = CFHolder<CFStringRef>;
using Zone = CFHolder<CFTimeZoneRef>;

constexpr time_t kEpoch = 978307200;
constexpr time_t kYear1 = -62135596800;
constexpr time_t kYear1971 = 31536000;
constexpr time_t kYear10000 = 253402300800;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

std::string Show(CFGregorianDate const& date) {
  char text[128];
  std::snprintf(text, sizeof text, "%d-%02d-%02d %02d:%02d:%.17g", date.year, date.month, date.day,
                date.hour, date.minute, date.second);
  return text;
}

std::string Show(tm const& date) {
  return Show(CFGregorianDate{date.tm_year + 1900, static_cast<SInt8>(date.tm_mon + 1),
                              static_cast<SInt8>(date.tm_mday), static_cast<SInt8>(date.tm_hour),
                              static_cast<SInt8>(date.tm_min), static_cast<double>(date.tm_sec)});
}

CFGregorianDate FieldsAt(time_t utc, CFTimeZoneRef zone) {
  return CFAbsoluteTimeGetGregorianDate(static_cast<double>(utc - kEpoch), zone);
}

time_t MomentOf(CFGregorianDate const& fields, CFTimeZoneRef zone) {
  return static_cast<time_t>(CFGregorianDateGetAbsoluteTime(fields, zone)) + kEpoch;
}

// By a pattern, in a zone.
std::string Format(CFStringRef pattern, CFTimeZoneRef zone, CFAbsoluteTime at) {
  Formatter const formatter(
      CFDateFormatterCreate(nullptr, nullptr, kCFDateFormatterNoStyle, kCFDateFormatterNoStyle));
  CFDateFormatterSetFormat(formatter.Get(), pattern);
  CFDateFormatterSetProperty(formatter.Get(), kCFDateFormatterTimeZone, zone);
  return Utf8(
      Text(CFDateFormatterCreateStringWithAbsoluteTime(nullptr, formatter.Get(), at)).Get());
}

// Moments of a zone from `first` to the year 9999: the fields are the C library's, and lead back to
// the first moment that has them.
void ExpectTheSystemsFields(CFTimeZoneRef zone, time_t first, int count) {
  std::mt19937_64 random(7);
  std::uniform_int_distribution<time_t> anywhere(first, kYear10000 - 86401);
  std::uniform_int_distribution<time_t> nearby(kYear1971, kYear1971 * 130);
  for (int i = 0; i < count; ++i) {
    time_t const utc = i % 2 == 0 ? anywhere(random) : nearby(random);
    tm expected = {};
    localtime_r(&utc, &expected);
    CFGregorianDate const fields = FieldsAt(utc, zone);
    ASSERT_EQ(Show(fields), Show(expected)) << utc;
    time_t const back = MomentOf(fields, zone);
    ASSERT_LE(back, utc);
    ASSERT_EQ(Show(FieldsAt(back, zone)), Show(fields)) << utc;
  }
}

}  // namespace

TEST(Dates, InGreenwichAgreeWithTheSystem) {
  std::mt19937_64 random(3);
  std::uniform_int_distribution<time_t> any(-1000 * kYear10000, 1000 * kYear10000);
  std::uniform_int_distribution<time_t> usual(kYear1, kYear10000);
  std::vector<time_t> moments = {
      kYear1, kYear1 - 1, kYear10000 - 1, 951782400 /* leap 2000 */, -2203891200 /* none in 1900 */,
      -1,     0,          -62162121600};
  for (int i = 0; i < 50000; ++i) moments.push_back(i % 4 == 0 ? any(random) : usual(random));
  for (time_t const utc : moments) {
    tm expected = {};
    gmtime_r(&utc, &expected);
    CFGregorianDate const fields = FieldsAt(utc, nullptr);
    ASSERT_EQ(Show(fields), Show(expected)) << utc;
    ASSERT_EQ(MomentOf(fields, nullptr), utc);
  }
}

TEST(Dates, FieldsOutOfRangeCarry) {
  std::pair<CFGregorianDate, char const*> const cases[] = {
      {{2001, 1, 0, 0, 0, 0}, "2000-12-31 00:00:0"},
      {{2001, 1, 1, 25, 0, 0}, "2001-01-02 01:00:0"},
      {{2001, 1, 1, -56, 0, 0}, "2000-12-29 16:00:0"},
      {{2001, 44, 1, 0, 0, 0}, "2004-08-01 00:00:0"},
      {{2001, 0, 1, 0, 0, 0}, "2000-12-01 00:00:0"},
      {{2001, -128, 1, 0, 0, 0}, "1990-04-01 00:00:0"},
      {{2001, 2, 29, 0, -1, 3600.5}, "2001-03-01 00:59:0.5"},
      {{0, 3, 0, 0, 0, 0}, "0-02-29 00:00:0"},
      {{-1, 127, 127, 127, 127, 127}, "9-11-09 09:09:7"}};
  for (auto const& [fields, expected] : cases) {
    double const at = CFGregorianDateGetAbsoluteTime(fields, nullptr);
    EXPECT_EQ(Show(CFAbsoluteTimeGetGregorianDate(at, nullptr)), expected);
  }
}

TEST(Dates, SurviveExtremeNumbers) {
  TimeZoneVariable const variable("America/New_York");
  Zone const newYork(CFTimeZoneCopySystem());
  for (CFTimeZoneRef const zone : {CFTimeZoneRef{nullptr}, newYork.Get()}) {
    EXPECT_EQ(Show(CFAbsoluteTimeGetGregorianDate(kNaN, zone)), "0-00-00 00:00:0");
    for (double const far : {1e17, 1e300, kInfinity}) {
      EXPECT_GT(CFAbsoluteTimeGetGregorianDate(far, zone).year, 2123000000);
      EXPECT_LT(CFAbsoluteTimeGetGregorianDate(-far, zone).year, -2123000000);
    }
    SInt32 const most = std::numeric_limits<SInt32>::max();
    for (double const second : {0.0, 1e300, kInfinity, kNaN}) {
      for (SInt32 const year : {most, -most - 1}) {
        double const at = CFGregorianDateGetAbsoluteTime({year, 127, -128, 0, 0, second}, zone);
        EXPECT_EQ(std::isfinite(at), std::isfinite(second));
      }
    }
  }
  // No rounding makes a 60th second, nor loses one.
  EXPECT_EQ(Show(CFAbsoluteTimeGetGregorianDate(-1e-20, nullptr)),
            "2000-12-31 23:59:59.999999999999993");
  EXPECT_EQ(Show(CFAbsoluteTimeGetGregorianDate(std::nextafter(60.0, 0.0), nullptr)),
            "2001-01-01 00:00:59.999999999999993");
  EXPECT_EQ(Show(CFAbsoluteTimeGetGregorianDate(-0.25, nullptr)), "2000-12-31 23:59:59.75");
}

TEST(Dates, CompareInOneOrder) {
  double const ascending[] = {kNaN, -kInfinity, -1.5, 0.0, 1e-300, kInfinity};
  for (std::size_t i = 0; i < std::size(ascending); ++i) {
    for (std::size_t j = 0; j < std::size(ascending); ++j) {
      CFHolder<CFDateRef> const first(CFDateCreate(nullptr, ascending[i]));
      CFHolder<CFDateRef> const second(CFDateCreate(nullptr, ascending[j]));
      EXPECT_EQ(CFDateCompare(first.Get(), second.Get(), nullptr), (i > j) - (i < j)) << i << j;
    }
  }
}

TEST(UTCUtils, GiveTheMomentOfADate) {
  std::pair<UTCDateTime, double> const cases[] = {
      {{0, 0, 0}, -3061152000.0},
      {{0, 2082844800u, 0}, -978307200.0},  // the start of 1970
      {{0, 3061152000u, 0x8000}, 0.5},
      {{1, 0, 0}, 1233815296.0},  // 2040-02-06 06:28:16
      {{0xFFFF, 0xFFFFFFFFu, 0}, 281474976710655.0 - 3061152000.0}};
  for (auto const& [date, at] : cases) {
    CFAbsoluteTime moment = 1;
    EXPECT_EQ(UCConvertUTCDateTimeToCFAbsoluteTime(&date, &moment), noErr);
    EXPECT_EQ(moment, at);
  }
  CFAbsoluteTime moment = 1;
  EXPECT_EQ(UCConvertUTCDateTimeToCFAbsoluteTime(nullptr, &moment), paramErr);
  EXPECT_EQ(UCConvertUTCDateTimeToCFAbsoluteTime(&cases[0].first, nullptr), paramErr);
  EXPECT_EQ(moment, 1);
}

TEST(TimeZones, AgreeWithTheSystem) {
  // The C library takes rules in TZ for those of 1970 before that year.
  for (std::string const name :
       {"America/New_York", "Europe/Berlin", "Asia/Kolkata", "Pacific/Apia", "Africa/Casablanca",
        "Australia/Lord_Howe", ":Asia/Tokyo", "", "No/Such", "<+0330>-3:30",
        "EST5EDT,M3.2.0,M11.1.0", "NZST-12NZDT,M9.5.0,M4.1.0/3"}) {
    SCOPED_TRACE(name);
    TimeZoneVariable const variable(name.c_str());
    bool const isRule = name.find(',') != std::string::npos;
    ExpectTheSystemsFields(Zone(CFTimeZoneCopySystem()).Get(), isRule ? kYear1971 : kYear1, 4000);
  }
}

TEST(TimeZones, ReadFieldsAtChanges) {
  struct Case {
    char const* zone;
    CFGregorianDate fields;
    char const* greenwich;
  };
  for (Case const& item : {
           Case{"America/New_York", {2026, 3, 8, 1, 59, 59}, "2026-03-08 06:59:59"},
           Case{"America/New_York", {2026, 3, 8, 2, 30, 0}, "2026-03-08 07:30:0"},  // left out
           Case{"America/New_York", {2026, 3, 8, 3, 0, 0}, "2026-03-08 07:00:0"},
           Case{"America/New_York", {2026, 11, 1, 1, 30, 0}, "2026-11-01 05:30:0"},  // twice
           Case{"America/New_York", {2026, 11, 1, 2, 0, 0}, "2026-11-01 07:00:0"},
           Case{"America/New_York", {2026, 3, 8, 1, 0, 7200}, "2026-03-08 07:00:0"},
           Case{"America/New_York", {9999, 7, 1, 12, 0, 0}, "9999-07-01 16:00:0"},
           Case{"America/New_York", {1, 1, 1, 0, 0, 0}, "1-01-01 04:56:2"},  // local mean time
           Case{"Europe/Berlin", {2026, 3, 29, 2, 0, 0}, "2026-03-29 01:00:0"},
           Case{"Europe/Berlin", {2026, 10, 25, 2, 59, 59}, "2026-10-25 00:59:59"},
           Case{"Europe/Berlin", {2026, 10, 25, 3, 0, 0}, "2026-10-25 02:00:0"},
           Case{"Pacific/Apia", {2011, 12, 29, 23, 59, 59}, "2011-12-30 09:59:59"},
           Case{"Pacific/Apia", {2011, 12, 30, 12, 0, 0}, "2011-12-30 22:00:0"},  // left out
           Case{"Pacific/Apia", {2011, 12, 31, 0, 0, 0}, "2011-12-30 10:00:0"},
       }) {
    TimeZoneVariable const variable(item.zone);
    Zone const zone(CFTimeZoneCopySystem());
    double const at = CFGregorianDateGetAbsoluteTime(item.fields, zone.Get());
    EXPECT_EQ(Show(CFAbsoluteTimeGetGregorianDate(at, nullptr)), item.greenwich)
        << item.zone << ' ' << Show(item.fields);
  }
}

TEST(TimeZones, OfFixedOffsetReachEighteenHours) {
  std::pair<double, char const*> const cases[] = {{0, "2001-01-01 00:00:0"},
                                                  {-0.9, "2001-01-01 00:00:0"},
                                                  {64800, "2001-01-01 18:00:0"},
                                                  {-16200.5, "2000-12-31 19:30:0"},
                                                  {-64800, "2000-12-31 06:00:0"}};
  for (auto const& [interval, expected] : cases) {
    Zone const zone(CFTimeZoneCreateWithTimeIntervalFromGMT(nullptr, interval));
    EXPECT_EQ(Show(CFAbsoluteTimeGetGregorianDate(0, zone.Get())), expected);
    EXPECT_EQ(MomentOf(FieldsAt(kEpoch, zone.Get()), zone.Get()), kEpoch);
  }
  for (double const interval : {64801.0, -64801.0, kNaN, 1e300, -kInfinity}) {
    EXPECT_EQ(CFTimeZoneCreateWithTimeIntervalFromGMT(nullptr, interval), nullptr) << interval;
  }
}

TEST(TimeZones, FollowTheVariable) {
  TimeZoneVariable const variable("Asia/Kolkata");
  Zone const before(CFTimeZoneCopySystem());
  for (char const* const name : {"Asia/Tokyo", "Asia/Kolkata", "America/New_York"}) {
    TimeZoneVariable::Set(name);
    tm expected = {};
    localtime_r(&kEpoch, &expected);
    EXPECT_EQ(Show(FieldsAt(kEpoch, Zone(CFTimeZoneCopySystem()).Get())), Show(expected)) << name;
  }
  EXPECT_EQ(Show(FieldsAt(kEpoch, before.Get())), "2001-01-01 05:30:0");
}

TEST(TimeZones, FollowTheFile) {
  std::string const hours = InChild([] {
    TimeZoneVariable::Set(nullptr);
    if (!OwnMountTable() || !MountMemory("/etc")) return std::string("no mount");
    std::string told;
    for (std::string const name : {"Asia/Tokyo", "Asia/Dubai", ""}) {
      unlink("/etc/localtime");
      std::string const target = "/usr/share/zoneinfo/" + name;
      if (!name.empty() && symlink(target.c_str(), "/etc/localtime") != 0) return target;
      usleep(1100000);
      told += std::to_string(FieldsAt(kEpoch, Zone(CFTimeZoneCopySystem()).Get()).hour) + ' ';
    }
    return told;
  });
  if (hours == "no mount") GTEST_SKIP() << "this user may not mount";
  EXPECT_EQ(hours, "9 4 0 ");
}

// The pattern that is written without ICU reads as by ICU, which the blank at its end asks for.
TEST(DateFormatters, WriteTheUsualPatternAsIcuDoes) {
  TimeZoneVariable const variable("Europe/Berlin");
  Zone const zone(CFTimeZoneCopySystem());
  std::mt19937_64 random(5);
  std::uniform_real_distribution<double> any(-8e12, 8e12);
  std::uniform_real_distribution<double> usual(-63e9, 252e9);
  for (int i = 0; i < 3000; ++i) {
    double const at = i % 4 == 0 ? any(random) : usual(random);
    ASSERT_EQ(Format(CFSTR("yyyy/MM/dd HH:mm:ss"), zone.Get(), at) + ' ',
              Format(CFSTR("yyyy/MM/dd HH:mm:ss "), zone.Get(), at))
        << at;
  }
  EXPECT_EQ(Format(CFSTR("yyyy/MM/dd HH:mm:ss"), zone.Get(), -0.5), "2001/01/01 00:59:59");
  EXPECT_EQ(Format(CFSTR("d.M.y G HH:mm:ss.SSS"), zone.Get(), -63113990400.0 - 0.25),
            "31.12.1 BC 00:53:27.750");
}

TEST(DateFormatters, GiveNoTextWhereThereIsNone) {
  Zone const zone(CFTimeZoneCreateWithTimeIntervalFromGMT(nullptr, 0));
  for (double const at : {kNaN, kInfinity, -kInfinity, 1e300, 8.64e12, -8.65e12}) {
    EXPECT_EQ(Format(CFSTR("yyyy/MM/dd HH:mm:ss"), zone.Get(), at), "<null>") << at;
    EXPECT_EQ(Format(CFSTR("yyyy"), zone.Get(), at), "<null>") << at;
  }
  EXPECT_EQ(Format(CFSTR("yyyy 'x"), zone.Get(), 0), "2001 x");
  EXPECT_EQ(Format(CFSTR(""), zone.Get(), 0), "");
  std::string const words(300, 'w');
  EXPECT_EQ(Format(*Make("'" + words + "'"), zone.Get(), 0), words);
  for (CFIndex const style : {-1, 5}) {
    auto const unknown = static_cast<CFDateFormatterStyle>(style);
    EXPECT_EQ(CFDateFormatterCreate(nullptr, nullptr, unknown, kCFDateFormatterNoStyle), nullptr);
    EXPECT_EQ(CFDateFormatterCreate(nullptr, nullptr, kCFDateFormatterNoStyle, unknown), nullptr);
  }
}

// More patterns than formats are kept, from threads that take them from each other.
TEST(DateFormatters, AndZonesServeManyThreads) {
  TimeZoneVariable const variable("America/New_York");
  std::atomic<int> faults{0};
  OnThreads(4, [&faults](int thread) {
    for (int i = 0; i < 400; ++i) {
      Zone const zone(CFTimeZoneCopySystem());
      double const at = (thread * 7 + i) * 86400.0 * 11;
      std::string const digits = std::to_string(i % 24);
      auto const pattern = Make("HH '" + digits + "'");
      time_t const utc = static_cast<time_t>(at) + kEpoch;
      tm expected = {};
      localtime_r(&utc, &expected);
      char hour[8];
      std::snprintf(hour, sizeof hour, "%02d ", expected.tm_hour);
      if (Format(*pattern, zone.Get(), at) != hour + digits) ++faults;
    }
  });
  EXPECT_EQ(faults, 0);
}
