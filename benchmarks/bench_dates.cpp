// Moments beside their peers: the present one with its fields, and the texts of one.

#include <Poco/DateTimeFormatter.h>
#include <Poco/LocalDateTime.h>
#include <Poco/Timestamp.h>
#include <glib.h>
#include <time.h>
#include <unicode/udat.h>
#include <unicode/ustring.h>

#include <QDateTime>
#include <QLocale>
#include <array>
#include <cstdlib>
#include <iostream>
#include <memory>

#include "QuillmereLib/strings/CUStringMac.h"
#include "QuillmereLib/values/CUDateTime.h"
#include "benchmarks/Cases.h"

namespace {

// 2024-07-03 17:28:09 in Greenwich, in summer time; in seconds from 1970, and from 2001.
constexpr time_t kUnixTime = 1720027689;
constexpr double kAbsoluteTime = static_cast<double>(kUnixTime) - 978307200.0;

using DateTimeOfGLib = std::unique_ptr<GDateTime, void (*)(GDateTime*)>;

// The present moment and its six fields in local time.
void RegisterNow() {
  std::string const prefix = "dates/now_fields/";
  Measure(prefix + "quillmere", [] {
    CUDateTime now;
    return std::array<int, 6>{now.GetYear(true), now.GetMonth(true),  now.GetDay(true),
                              now.GetHour(true), now.GetMinute(true), now.GetSecond(true)};
  });
  Measure(prefix + "localtime_r", [] {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    tm fields;
    localtime_r(&now.tv_sec, &fields);
    return std::array<int, 6>{fields.tm_year + 1900, fields.tm_mon + 1, fields.tm_mday,
                              fields.tm_hour,        fields.tm_min,     fields.tm_sec};
  });
  Measure(prefix + "qdatetime", [] {
    QDateTime const now = QDateTime::currentDateTime();
    QDate const date = now.date();
    QTime const time = now.time();
    return std::array<int, 6>{date.year(), date.month(),  date.day(),
                              time.hour(), time.minute(), time.second()};
  });
  Measure(prefix + "poco_localdatetime", [] {
    Poco::LocalDateTime const now;
    return std::array<int, 6>{now.year(), now.month(),  now.day(),
                              now.hour(), now.minute(), now.second()};
  });
  Measure(prefix + "gdatetime", [] {
    DateTimeOfGLib const now(g_date_time_new_now_local(), g_date_time_unref);
    return std::array<int, 6>{
        g_date_time_get_year(now.get()),         g_date_time_get_month(now.get()),
        g_date_time_get_day_of_month(now.get()), g_date_time_get_hour(now.get()),
        g_date_time_get_minute(now.get()),       g_date_time_get_second(now.get())};
  });
}

std::string Utf8(CUSharedPtr<CUStringMac> const& text) { return static_cast<char const*>(*text); }
std::string Utf8(QString const& text) { return text.toStdString(); }
std::string Utf8(std::string const& text) { return text; }

// A case of which the text is seen to be the expected one before anything is measured.
template <class Operation>
void RegisterText(std::string const& name, std::string const& expected, Operation operation) {
  std::string const text = Utf8(operation());
  if (text != expected) {
    std::cerr << name << " gives \"" << text << "\" and not \"" << expected << "\"\n";
    std::exit(1);
  }
  Measure(name, operation);
}

void RegisterFixedText() {
  std::string const prefix = "dates/fixed_text/";
  std::string const expected = "2024/07/03 13:28:09";
  auto const ours = std::make_shared<CUDateTime>(kAbsoluteTime);
  RegisterText(prefix + "quillmere", expected, [ours] { return ours->Description(); });
  RegisterText(prefix + "strftime", expected, [] {
    tm fields;
    localtime_r(&kUnixTime, &fields);
    char text[32];
    return std::string(text, strftime(text, sizeof text, "%Y/%m/%d %H:%M:%S", &fields));
  });
  RegisterText(prefix + "qdatetime", expected,
               [qt = QDateTime::fromSecsSinceEpoch(kUnixTime),
                format = QString("yyyy/MM/dd HH:mm:ss")] { return qt.toString(format); });
  RegisterText(prefix + "poco_formatter", expected, [] {
    return Poco::DateTimeFormatter::format(
        Poco::LocalDateTime(Poco::DateTime(Poco::Timestamp::fromEpochTime(kUnixTime))),
        "%Y/%m/%d %H:%M:%S");
  });
  std::shared_ptr<GDateTime> const glib(g_date_time_new_from_unix_local(kUnixTime),
                                        g_date_time_unref);
  RegisterText(prefix + "gdatetime", expected, [glib]() -> std::string {
    std::unique_ptr<char, void (*)(void*)> const text(
        g_date_time_format(glib.get(), "%Y/%m/%d %H:%M:%S"), g_free);
    return text.get();
  });
}

using IcuFormat = std::shared_ptr<UDateFormat*>;

IcuFormat OpenIcuFormat() {
  UErrorCode status = U_ZERO_ERROR;
  UDateFormat* const format =
      udat_open(UDAT_MEDIUM, UDAT_MEDIUM, "en_US", nullptr, -1, nullptr, 0, &status);
  if (U_FAILURE(status)) std::abort();
  return IcuFormat(new UDateFormat*(format), [](UDateFormat** opened) {
    udat_close(*opened);
    delete opened;
  });
}

// Date and time in medium style. What ICU writes stays in a buffer on the stack, and its text is
// that which ours must be.
void RegisterLocalisedText() {
  std::string const prefix = "dates/localised_text/";
  IcuFormat const format = OpenIcuFormat();
  auto const formatted = [format](UChar* buffer, int32_t size) {
    UErrorCode status = U_ZERO_ERROR;
    return udat_format(*format, kUnixTime * 1000.0, buffer, size, nullptr, &status);
  };
  UChar units[128];
  std::string const expected =
      QString(reinterpret_cast<QChar const*>(units), formatted(units, 128)).toStdString();

  auto const ours = std::make_shared<CUDateTime>(kAbsoluteTime);
  RegisterText(prefix + "quillmere", expected, [ours] { return ours->GetString(true); });
  Measure(prefix + "icu_kept_format", [formatted] {
    UChar buffer[128];
    int32_t const length = formatted(buffer, 128);
    benchmark::DoNotOptimize(buffer);
    return length;
  });
  // Qt has no medium style.
  Measure(prefix + "qlocale_short",
          [locale = QLocale(), qt = QDateTime::fromSecsSinceEpoch(kUnixTime)] {
            return locale.toString(qt, QLocale::ShortFormat);
          });
  std::shared_ptr<GDateTime> const glib(g_date_time_new_from_unix_local(kUnixTime),
                                        g_date_time_unref);
  Measure(prefix + "gdatetime_c", [glib] {
    return std::unique_ptr<char, void (*)(void*)>(g_date_time_format(glib.get(), "%c"), g_free);
  });
}

void RegisterAll() {
  RegisterNow();
  RegisterFixedText();
  RegisterLocalisedText();
}

}  // namespace

// The zone has summer time and is the same on every machine. It is named by TZ, as without that
// every library would look in its own way, and at its own times, whether the system's has changed.
int main(int argc, char** argv) {
  setenv("TZ", "America/New_York", 1);
  tzset();
  return RunCases(argc, argv, RegisterAll);
}
