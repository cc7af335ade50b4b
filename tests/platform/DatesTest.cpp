#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <limits>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "QuillmereLib/core/CFHolder.h"
#include "tests/support/InChild.h"
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

std::string Utf8(CFStringRef string) {
  if (string == nullptr) return "<null>";
  std::string text(static_cast<std::size_t>(CFStringGetLength(string)) * 3, '\0');
  CFIndex used = 0;
  CFStringGetBytes(string, CFRangeMake(0, CFStringGetLength(string)), kCFStringEncodingUTF8, 0,
                   false, reinterpret_cast<UInt8*>(text.data()), static_cast<CFIndex>(text.size()),
                   &used);
  return text.substr(0, static_cast<std::size_t>(used));
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
  struct Case {
    CFGregorianDate fields;
    char const* expected;
  };
  for (Case const& item : {
           Case{{2001, 1, 0, 0, 0, 0}, "2000-12-31 00:00:0"},
           Case{{2001, 1, 1, 25, 0, 0}, "2001-01-02 01:00:0"},
           Case{{2001, 1, 1, -56, 0, 0}, "2000-12-29 16:00:0"},
           Case{{2001, 44, 1, 0, 0, 0}, "2004-08-01 00:00:0"},
           Case{{2001, 0, 1, 0, 0, 0}, "2000-12-01 00:00:0"},
           Case{{2001, -128, 1, 0, 0, 0}, "1990-04-01 00:00:0"},
           Case{{2001, 2, 29, 0, -1, 3600.5}, "2001-03-01 00:59:0.5"},
           Case{{0, 3, 0, 0, 0, 0}, "0-02-29 00:00:0"},
           Case{{-1, 127, 127, 127, 127, 127}, "9-11-09 09:09:7"},
       }) {
    double const at = CFGregorianDateGetAbsoluteTime(item.fields, nullptr);
    EXPECT_EQ(Show(CFAbsoluteTimeGetGregorianDate(at, nullptr)), item.expected);
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

TEST(TimeZones, AgreeWithTheSystem) {
  // The C library takes rules in TZ for those of 1970 before that year.
  struct Case {
    char const* name;
    time_t first;
  };
  for (Case const& item : {Case{"America/New_York", kYear1}, Case{"Europe/Berlin", kYear1},
                           Case{"Asia/Kolkata", kYear1}, Case{"Pacific/Apia", kYear1},
                           Case{"Africa/Casablanca", kYear1}, Case{"Australia/Lord_Howe", kYear1},
                           Case{":Asia/Tokyo", kYear1}, Case{"", kYear1}, Case{"No/Such", kYear1},
                           Case{"<+0330>-3:30", kYear1}, Case{"EST5EDT,M3.2.0,M11.1.0", kYear1971},
                           Case{"NZST-12NZDT,M9.5.0,M4.1.0/3", kYear1971}}) {
    SCOPED_TRACE(item.name);
    TimeZoneVariable const variable(item.name);
    Zone const zone(CFTimeZoneCopySystem());
    ExpectTheSystemsFields(zone.Get(), item.first, 4000);
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
  struct Case {
    double interval;
    char const* expected;
  };
  for (Case const& item : {Case{0, "2001-01-01 00:00:0"}, Case{-0.9, "2001-01-01 00:00:0"},
                           Case{-16200.5, "2000-12-31 19:30:0"}, Case{64800, "2001-01-01 18:00:0"},
                           Case{-64800, "2000-12-31 06:00:0"}, Case{64801, ""}, Case{-64801, ""},
                           Case{kNaN, ""}, Case{-kInfinity, ""}, Case{1e300, ""}}) {
    Zone const zone(CFTimeZoneCreateWithTimeIntervalFromGMT(nullptr, item.interval));
    EXPECT_EQ(zone ? Show(CFAbsoluteTimeGetGregorianDate(0, zone.Get())) : "", item.expected);
    if (!zone) continue;
    EXPECT_EQ(MomentOf(FieldsAt(kEpoch, zone.Get()), zone.Get()), kEpoch);
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
  if (InChild([] { return unshare(CLONE_NEWNS) == 0 ? "yes" : "no"; }) != "yes") {
    GTEST_SKIP() << "no mount namespace of its own for this process";
  }
  EXPECT_EQ(InChild([] {
              TimeZoneVariable::Set(nullptr);
              if (unshare(CLONE_NEWNS) != 0 ||
                  mount("", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
                  mount("none", "/etc", "tmpfs", 0, nullptr) != 0) {
                return std::string("no tmpfs over /etc");
              }
              std::string hours;
              for (char const* const name : {"Asia/Tokyo", "Asia/Dubai", ""}) {
                unlink("/etc/localtime");
                if (*name != '\0') {
                  std::string const target = std::string("/usr/share/zoneinfo/") + name;
                  if (symlink(target.c_str(), "/etc/localtime") != 0) return std::string("no link");
                }
                usleep(1100000);
                hours +=
                    std::to_string(FieldsAt(kEpoch, Zone(CFTimeZoneCopySystem()).Get()).hour) + ' ';
              }
              return hours;
            }),
            "9 4 0 ");
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
  Text const longPattern(
      CFStringCreateWithBytes(nullptr, reinterpret_cast<UInt8 const*>(("'" + words + "'").data()),
                              302, kCFStringEncodingASCII, false));
  EXPECT_EQ(Format(longPattern.Get(), zone.Get(), 0), words);
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
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&faults, t] {
      for (int i = 0; i < 400; ++i) {
        Zone const zone(CFTimeZoneCopySystem());
        double const at = (t * 7 + i) * 86400.0 * 11;
        std::string const digits = std::to_string(i % 24);
        std::string const pattern = "HH '" + digits + "'";
        Text const format(CFStringCreateWithBytes(
            nullptr, reinterpret_cast<UInt8 const*>(pattern.data()),
            static_cast<CFIndex>(pattern.size()), kCFStringEncodingASCII, false));
        time_t const utc = static_cast<time_t>(at) + kEpoch;
        tm expected = {};
        localtime_r(&utc, &expected);
        char hour[8];
        std::snprintf(hour, sizeof hour, "%02d ", expected.tm_hour);
        if (Format(format.Get(), zone.Get(), at) != hour + digits) ++faults;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(faults, 0);
}
