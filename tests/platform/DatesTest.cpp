#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <limits>
#include <random>
#include <string>
#include <tuple>

#include "QuillmereLib/core/CFHolder.h"
#include "tests/support/InChild.h"
#include "tests/support/Mounts.h"
#include "tests/support/Strings.h"
#include "tests/support/TimeZoneVariable.h"

namespace {

using Formatter = CFHolder<CFDateFormatterRef>;
using Zone = CFHolder<CFTimeZoneRef>;

constexpr time_t kEpoch = 978307200, kYear1 = -62135596800, kYear1971 = 31536000,
                 kYear10000 = 253402300800;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

std::string Show(CFGregorianDate const& date) {
  char text[128];
  std::snprintf(text, sizeof text, "%d-%02d-%02d %02d:%02d:%.17g", date.year, date.month, date.day,
                date.hour, date.minute, date.second);
  return text;
}

CFGregorianDate FieldsAt(time_t utc, CFTimeZoneRef zone) {
  return CFAbsoluteTimeGetGregorianDate(static_cast<double>(utc - kEpoch), zone);
}

// What the C library tells.
std::string ExpectedFields(time_t utc) {
  tm fields = {};
  localtime_r(&utc, &fields);
  auto const byte = [](int number) { return static_cast<SInt8>(number); };
  return Show({fields.tm_year + 1900, byte(fields.tm_mon + 1), byte(fields.tm_mday),
               byte(fields.tm_hour), byte(fields.tm_min), double(fields.tm_sec)});
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
  CFHolder<CFStringRef> const text(
      CFDateFormatterCreateStringWithAbsoluteTime(nullptr, formatter.Get(), at));
  return Utf8(text.Get());
}

}  // namespace

TEST(Dates, SurviveExtremes) {
  TimeZoneVariable const variable("America/New_York");
  Zone const zone(CFTimeZoneCopySystem());
  EXPECT_EQ(Show(CFAbsoluteTimeGetGregorianDate(kNaN, zone.Get())), "0-00-00 00:00:0");
  for (double const far : {1e17, kInfinity}) {
    EXPECT_GT(CFAbsoluteTimeGetGregorianDate(far, zone.Get()).year, 2123000000);
    EXPECT_LT(CFAbsoluteTimeGetGregorianDate(-far, zone.Get()).year, -2123000000);
  }
  double const ascending[] = {kNaN, -kInfinity, 0.0, 1e-300, kInfinity};
  for (double const& one : ascending) {
    for (double const& two : ascending) {
      CFHolder<CFDateRef> const a(CFDateCreate(nullptr, one)), b(CFDateCreate(nullptr, two));
      EXPECT_EQ(CFDateCompare(a.Get(), b.Get(), nullptr), (&one > &two) - (&one < &two));
    }
  }
  // No rounding makes a 60th second.
  EXPECT_EQ(Show(CFAbsoluteTimeGetGregorianDate(-1e-20, nullptr)),
            "2000-12-31 23:59:59.999999999999993");
}

// The fields are the C library's, and lead back to the first moment that has them. It takes rules
// in TZ for those of 1970 before that year.
TEST(TimeZones, AgreeWithTheSystem) {
  for (std::string const name :
       {"America/New_York", "Europe/Berlin", "Asia/Kolkata", "Pacific/Apia", "Africa/Casablanca",
        "Australia/Lord_Howe", ":Asia/Tokyo", "UTC0", "", "No/Such", "<+0330>-3:30",
        "EST5EDT,M3.2.0,M11.1.0", "NZST-12NZDT,M9.5.0,M4.1.0/3"}) {
    SCOPED_TRACE(name);
    TimeZoneVariable const variable(name.c_str());
    Zone const zone(CFTimeZoneCopySystem());
    bool const isRule = name.find(',') != std::string::npos;
    std::mt19937_64 random(7);
    std::uniform_int_distribution<time_t> any(isRule ? kYear1971 : kYear1, kYear10000 - 86401);
    std::uniform_int_distribution<time_t> near(kYear1971, kYear1971 * 130);
    for (int i = 0; i < 4000; ++i) {
      time_t const utc = i % 2 == 0 ? any(random) : near(random);
      CFGregorianDate const fields = FieldsAt(utc, zone.Get());
      ASSERT_EQ(Show(fields), ExpectedFields(utc)) << utc;
      time_t const back = MomentOf(fields, zone.Get());
      ASSERT_LE(back, utc);
      ASSERT_EQ(Show(FieldsAt(back, zone.Get())), Show(fields)) << utc;
    }
  }
}

TEST(TimeZones, ReadFieldsAtChanges) {
  std::tuple<char const*, CFGregorianDate, char const*> const cases[] = {
      {"America/New_York", {2026, 3, 8, 2, 30, 0}, "2026-03-08 07:30:0"},   // left out
      {"America/New_York", {2026, 11, 1, 1, 30, 0}, "2026-11-01 05:30:0"},  // twice
      {"America/New_York", {2026, 3, 8, 1, 0, 7200}, "2026-03-08 07:00:0"},
      {"Pacific/Apia", {2011, 12, 30, 12, 0, 0}, "2011-12-30 22:00:0"}};  // left out
  for (auto const& [name, fields, greenwich] : cases) {
    TimeZoneVariable const variable(name);
    Zone const zone(CFTimeZoneCopySystem());
    EXPECT_EQ(Show(FieldsAt(MomentOf(fields, zone.Get()), nullptr)), greenwich) << Show(fields);
  }
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
      told += Show(FieldsAt(kEpoch, Zone(CFTimeZoneCopySystem()).Get())).substr(11, 2) + ' ';
    }
    return told;
  });
  if (hours == "no mount") GTEST_SKIP() << "this user may not mount";
  EXPECT_EQ(hours, "09 04 00 ");
}

// The pattern that is written without ICU reads as by ICU, which the blank at its end asks for.
TEST(DateFormatters, WriteWhatIcuDoes) {
  TimeZoneVariable const variable("Europe/Berlin");
  Zone const zone(CFTimeZoneCopySystem());
  std::mt19937_64 random(5);
  std::uniform_real_distribution<double> any(-8e12, 8e12);
  std::uniform_real_distribution<double> usual(-63e9, 252e9);
  for (int i = 0; i < 3000; ++i) {
    double const at = i == 0 ? -0.5 : i % 4 == 0 ? any(random) : usual(random);
    ASSERT_EQ(Format(CFSTR("yyyy/MM/dd HH:mm:ss"), zone.Get(), at) + ' ',
              Format(CFSTR("yyyy/MM/dd HH:mm:ss "), zone.Get(), at))
        << at;
  }
  EXPECT_EQ(Format(CFSTR("d.M.y G HH:mm:ss.SSS"), zone.Get(), -63113990400.0 - 0.25),
            "31.12.1 BC 00:53:27.750");
  std::string const words(300, 'w');
  EXPECT_EQ(Format(*Make("yyyy '" + words), zone.Get(), 0), "2001 " + words);
  EXPECT_EQ(Format(CFSTR("yyyy/MM/dd HH:mm:ss"), zone.Get(), kNaN), "<null>");
}
