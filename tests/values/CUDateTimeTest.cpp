#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>
#include <time.h>
#include <unicode/udat.h>
#include <unicode/uloc.h>

#include <cmath>
#include <cstdlib>
#include <string>

#include "QuillmereLib/core/CUErrorContents.h"
#include "QuillmereLib/values/CUDateTime.h"
#include "tests/support/Strings.h"
#include "tests/support/Threads.h"
#include "tests/support/ThrownCode.h"
#include "tests/support/TimeZoneVariable.h"

namespace {

std::string Fields(CUDateTime& date, bool local) {
  std::string text;
  for (int const field : {date.GetYear(local), date.GetMonth(local), date.GetDay(local),
                          date.GetHour(local), date.GetMinute(local), date.GetSecond(local)}) {
    text += std::to_string(field) + ' ';
  }
  return text;
}

}  // namespace

TEST(CUDateTime, IsMadeFromFields) {
  TimeZoneVariable const variable("America/New_York");
  CUDateTime summer(2026, 7, 4, 9, 5, 7);
  EXPECT_EQ(Fields(summer, true), "2026 7 4 9 5 7 ");
  EXPECT_EQ(Fields(summer, false), "2026 7 4 13 5 7 ");
  EXPECT_EQ(Utf8(summer.Description()), "2026/07/04 09:05:07");

  // Low eight bits: a month of 44, an hour of -56, and a minute of 0 from 256. The second is whole.
  CUDateTime packed(2000, 300, 257, 200, 256, 3601);
  EXPECT_EQ(Fields(packed, true), "2003 7 29 17 0 1 ");

  CUDateTime before(-0.25);
  EXPECT_EQ(Fields(before, false), "2000 12 31 23 59 59 ") << "seconds are cut";
  EXPECT_EQ(before.GregorianDate(false).second, 59.75);
  _DateTimeInfo zoned = {1, 1, 1, 1, 0, 0, 3600, true}, other = {1, 1, 1, 1, 0, 0, 7200, false};
  CUDateTime withDaylight(zoned);
  EXPECT_EQ(Fields(withDaylight, false), "0 12 31 23 0 0 ");
  EXPECT_TRUE(CUDateTime(other) == withDaylight);

  // Seconds are added and nothing of the calendar: the clocks go forward in the night.
  CUDateTime date(2026, 3, 7, 12, 0, 0);
  EXPECT_EQ(Fields(*date.AddDays(1), true), "2026 3 8 13 0 0 ");
  EXPECT_TRUE(*date.AddDays(1.5) == *date.AddSeconds(129600));
  EXPECT_TRUE(*date.AddHours(-1.5) == *date.AddMinutes(-90));
}

TEST(CUDateTime, IsThePresentByDefaultOrNone) {
  // That clock may be a moment behind; 2001 is so many seconds after 1970.
  CUDateTime before(CFAbsoluteTimeGetCurrent()), now;
  CUDateTime after(static_cast<double>(::time(nullptr)) - 978307200 + 2);
  EXPECT_TRUE(!(now < before) && now < after);
  _DateTimeInfo tooFar = {2001, 1, 1, 0, 0, 0, 64801, false};
  EXPECT_EQ(ThrownCode([&] { CUDateTime date(tooFar); }), CUError_InvalidArgument);
  EXPECT_EQ(CUDateTime::Create(tooFar), nullptr);
}

TEST(CUDateTime, MayHoldNoValueOrAnExtremeOne) {
  CUDateTime date(5.0), some(0.0);
  CUDateTime& itself = date;
  date = itself;  // not supported, but safe
  CUDateTime none(date);
  EXPECT_FALSE(none == none || none < none);
  EXPECT_FALSE(none == some || some == none || none < some || some < none);
  EXPECT_EQ(Fields(none, true) + Fields(none, false), "0 0 0 0 0 0 0 0 0 0 0 0 ");
  EXPECT_EQ(Utf8(none.Description()) + Utf8(none.GetString(true)), "(NULL)(NULL)");
  EXPECT_EQ(none.AddSeconds(1), nullptr);
  date = some;
  EXPECT_TRUE(date == some);

  // What the platform makes of such numbers is tested there.
  for (double const at : {std::nan(""), HUGE_VAL, -1e300}) {
    CUDateTime extreme(at);
    EXPECT_TRUE(extreme == CUDateTime(extreme)) << at;
    EXPECT_EQ(Utf8(extreme.Description()), "(NULL)") << at;
    EXPECT_TRUE(extreme.GetString(true) != nullptr && extreme.AddDays(-at) != nullptr) << at;
  }
}

TEST(CUDateTime, IsReadByManyThreads) {
  TimeZoneVariable const variable("Europe/Berlin");
  CUDateTime date(2026, 10, 25, 2, 30, 0);
  auto const tell = [&] { return Fields(date, true) + Utf8(date.GetString(true)); };
  std::string const told = tell();
  OnThreads(4, [&](int) {
    for (int i = 0; i < 300; ++i) EXPECT_EQ(tell(), told);
  });
}

// The locale is read once a process: this test is run once for each of several locales. In each of
// them the texts are ICU's, of the fields as they stand in the zone.
TEST(LocalizedDates, AreThoseOfTheLocale) {
  TimeZoneVariable const variable("America/New_York");
  char const* locale = "C";
  for (char const* const name : {"LANG", "LC_TIME", "LC_ALL"}) {
    char const* const value = std::getenv(name);
    if (value != nullptr && *value != '\0') locale = value;
  }
  bool const plain = *locale == 'C';
  char canonical[ULOC_FULLNAME_CAPACITY] = "en_US_POSIX";
  UErrorCode status = U_ZERO_ERROR;
  if (!plain) uloc_canonicalize(locale, canonical, ULOC_FULLNAME_CAPACITY, &status);
  CUDateTime moment(2026, 7, 4, 21, 5, 7);
  double const asInGreenwich = 1783199107;
  UDateFormatStyle const styles[] = {UDAT_NONE, UDAT_SHORT, UDAT_MEDIUM, UDAT_LONG, UDAT_FULL};
  for (int both = 1; both < 25; ++both) {
    int const date = both / 5, time = both % 5;
    UDateFormat* const format =
        udat_open(styles[time], styles[date], canonical, u"GMT", -1, nullptr, 0, &status);
    std::u16string text(256, u'\0');
    int32_t const length =
        udat_format(format, asInGreenwich * 1000, text.data(), 256, nullptr, &status);
    udat_close(format);
    ASSERT_TRUE(U_SUCCESS(status)) << canonical;
    text.resize(static_cast<std::size_t>(length));
    EXPECT_EQ(Utf8(moment.GetString(true, static_cast<CFDateFormatterStyle>(date),
                                    static_cast<CFDateFormatterStyle>(time))),
              Utf8(Make(text)))
        << canonical;
  }
  if (!plain) return;
  EXPECT_EQ(Utf8(moment.GetDateString(false)), "Jul 5, 2026");
  EXPECT_EQ(Utf8(moment.GetTimeString(true)).substr(0, 7), "9:05:07");
}
