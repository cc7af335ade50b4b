// Text beside its peers: in and out of UTF-8, order, equality and search in the user's language.

#include <glib.h>
#include <unicode/coll.h>
#include <unicode/ucol.h>
#include <unicode/unistr.h>
#include <unicode/usearch.h>

#include <QCollator>
#include <QString>
#include <clocale>
#include <cstring>
#include <functional>
#include <memory>
#include <numeric>

#include "QuillmereLib/strings/CUStringMac.h"
#include "benchmarks/Cases.h"

namespace {

QString Detached(QString const& text) { return QString(text.constData(), text.size()); }

using Collator = std::shared_ptr<UCollator>;

Collator OpenCollator(UCollationStrength strength) {
  UErrorCode status = U_ZERO_ERROR;
  Collator collator(ucol_open("en_US", &status), ucol_close);
  ucol_setStrength(collator.get(), strength);
  return collator;
}

// Each step by itself, and the whole way: from UTF-8, an independent copy, back to UTF-8.
void RegisterRoundTrip(std::string const& name, std::string const& bytes) {
  CUStringMac const ours = Ours(bytes);
  Measure("strings/from_utf8_" + name + "/quillmere", [bytes] { return Ours(bytes); });
  Measure("strings/copy_" + name + "/quillmere", [ours] { return CUStringMac(ours); });
  Measure("strings/to_utf8_" + name + "/quillmere",
          [ours = CUStringMac(ours)]() mutable { return static_cast<char const*>(ours); });
  Measure("strings/round_trip_" + name + "/quillmere", [bytes] {
    CUStringMac const text = Ours(bytes);
    CUStringMac copy(text);
    char const* const rendered = copy;
    benchmark::DoNotOptimize(rendered);
    benchmark::ClobberMemory();
    return 0;
  });

  QString const qt = QString::fromStdString(bytes);
  auto const fromUtf8 = [](std::string const& text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
  };
  Measure("strings/from_utf8_" + name + "/qstring", [=] { return fromUtf8(bytes); });
  Measure("strings/copy_" + name + "/qstring", [qt] { return Detached(qt); });
  Measure("strings/to_utf8_" + name + "/qstring", [qt] { return qt.toUtf8(); });
  Measure("strings/round_trip_" + name + "/qstring", [=] {
    QString const text = fromUtf8(bytes);
    QString const copy = Detached(text);
    QByteArray const rendered = copy.toUtf8();
    benchmark::DoNotOptimize(rendered.constData());
    benchmark::ClobberMemory();
    return 0;
  });

  // Only the copies of the bytes: nothing is decoded.
  Measure("strings/from_utf8_" + name + "/std_string",
          [bytes] { return std::string(bytes.data(), bytes.size()); });
  Measure("strings/copy_" + name + "/std_string", [bytes] { return std::string(bytes); });
  Measure("strings/round_trip_" + name + "/std_string", [bytes] {
    std::string const text(bytes.data(), bytes.size());
    std::string const copy(text);
    std::string const rendered(copy.data(), copy.size());
    benchmark::DoNotOptimize(rendered.data());
    benchmark::ClobberMemory();
    return 0;
  });

  Measure("strings/round_trip_" + name + "/icu_unicodestring", [bytes] {
    icu::UnicodeString const text = icu::UnicodeString::fromUTF8(bytes);
    icu::UnicodeString const copy(text.getBuffer(), text.length());
    std::string rendered;
    copy.toUTF8String(rendered);
    benchmark::DoNotOptimize(rendered.data());
    benchmark::ClobberMemory();
    return 0;
  });
}

using Order = std::vector<int>;

template <class Less>
Order Sorted(Order order, Less const& less) {
  std::sort(order.begin(), order.end(), std::cref(less));
  return order;
}

// `less(i, j)` compares two names by their numbers. One pair at a time, of names that differ early
// (as they come) and late (neighbours in order), and a sort of all of them.
template <class Less>
void RegisterOrder(std::string const& language, std::string const& peer, Order const& expected,
                   Less less) {
  Order unsorted(expected.size());
  std::iota(unsorted.begin(), unsorted.end(), 0);
  auto const pairs = [less](Order const& order) {
    return [less, order, i = std::size_t{0}]() mutable {
      i = (i + 1) % 64;
      return less(order[i], order[i + 1]);
    };
  };
  Measure("strings/order_" + language + "/" + peer, pairs(unsorted));
  Measure("strings/order_near_" + language + "/" + peer, pairs(expected));
  MeasureChecked("strings/sort_1000_" + language + "/" + peer, expected,
                 [unsorted, less] { return Sorted(unsorted, less); });
}

template <class Text, class Convert>
std::shared_ptr<std::vector<Text>> Converted(std::vector<std::string> const& names,
                                             Convert convert) {
  auto texts = std::make_shared<std::vector<Text>>();
  for (std::string const& name : names) texts->push_back(convert(name));
  return texts;
}

auto LessByIcu(std::vector<std::string> const& names) {
  return [names = std::make_shared<std::vector<std::string>>(names),
          collator = OpenCollator(UCOL_TERTIARY)](int i, int j) {
    std::string const& a = (*names)[static_cast<std::size_t>(i)];
    std::string const& b = (*names)[static_cast<std::size_t>(j)];
    UErrorCode status = U_ZERO_ERROR;
    return ucol_strcollUTF8(collator.get(), a.data(), static_cast<int32_t>(a.size()), b.data(),
                            static_cast<int32_t>(b.size()), &status) == UCOL_LESS;
  };
}

void RegisterOrders(std::string const& language, std::vector<std::string> const& names) {
  auto const byIcu = LessByIcu(names);
  Order order(names.size());
  std::iota(order.begin(), order.end(), 0);
  order = Sorted(order, byIcu);

  auto const ours = Converted<CUStringMac>(names, Ours);
  RegisterOrder(language, "quillmere", order, [ours](int i, int j) {
    return (*ours)[static_cast<std::size_t>(i)] < (*ours)[static_cast<std::size_t>(j)];
  });

  RegisterOrder(language, "icu_utf8", order, byIcu);

  auto const wide = Converted<icu::UnicodeString>(
      names, [](std::string const& name) { return icu::UnicodeString::fromUTF8(name); });
  RegisterOrder(
      language, "icu_utf16", order, [wide, collator = OpenCollator(UCOL_TERTIARY)](int i, int j) {
        icu::UnicodeString const& a = (*wide)[static_cast<std::size_t>(i)];
        icu::UnicodeString const& b = (*wide)[static_cast<std::size_t>(j)];
        return ucol_strcoll(collator.get(), a.getBuffer(), a.length(), b.getBuffer(), b.length()) ==
               UCOL_LESS;
      });

  auto const qt = Converted<QString>(
      names, [](std::string const& name) { return QString::fromStdString(name); });
  QCollator const collator(QLocale(QLocale::English, QLocale::UnitedStates));
  RegisterOrder(language, "qcollator", order, [qt, collator](int i, int j) {
    return collator.compare((*qt)[static_cast<std::size_t>(i)],
                            (*qt)[static_cast<std::size_t>(j)]) < 0;
  });

  // GLib asks the C library, which orders by language only where the locale is installed; its order
  // differs from ICU's in details.
  if (std::setlocale(LC_COLLATE, "en_US.UTF-8") == nullptr) return;
  auto const byGlib = [names = std::make_shared<std::vector<std::string>>(names)](int i, int j) {
    return g_utf8_collate((*names)[static_cast<std::size_t>(i)].c_str(),
                          (*names)[static_cast<std::size_t>(j)].c_str()) < 0;
  };
  Order glibOrder(names.size());
  std::iota(glibOrder.begin(), glibOrder.end(), 0);
  RegisterOrder(language, "g_utf8_collate", Sorted(glibOrder, byGlib), byGlib);
}

void RegisterEqual(std::string const& name, std::string const& text) {
  std::string const same = text;
  MeasureChecked("strings/equal_" + name + "/quillmere", true,
                 [a = Ours(text), b = Ours(same)]() mutable { return a == b; });
  MeasureChecked("strings/equal_" + name + "/memcmp", true,
                 [text, same] { return std::memcmp(text.data(), same.data(), text.size()) == 0; });
  MeasureChecked("strings/equal_" + name + "/std_string", true,
                 [text, same] { return text == same; });
  QString const qt = QString::fromStdString(text);
  MeasureChecked("strings/equal_" + name + "/qstring", true,
                 [a = Detached(qt), b = Detached(qt)] { return a == b; });
}

using CloseSearch = void (*)(UStringSearch*);
using Search = std::unique_ptr<UStringSearch, CloseSearch>;

// Each call finds `needle` in `text` (Unicode characters of one UTF-16 unit), by the collation of
// the language. `location` is where it must be found, or -1.
void RegisterFind(std::string const& name, std::string const& text, std::string const& needle,
                  _CUStringComparison comparison, int location) {
  bool const sensitive = comparison == CUStringComparison_CaseSensitive;
  CUSharedPtr<CUStringMac> const ourNeedle(new CUStringMac(Ours(needle)));
  MeasureChecked("strings/find_" + name + "/quillmere",
                 location < 0 ? CURange_NoLocation : static_cast<unsigned long long>(location),
                 [ours = Ours(text), ourNeedle, comparison]() mutable {
                   return ours.Find(ourNeedle, comparison).location;
                 });

  auto const wideText = icu::UnicodeString::fromUTF8(text);
  auto const wideNeedle = icu::UnicodeString::fromUTF8(needle);
  MeasureChecked("strings/find_" + name + "/icu_kept_collator", location,
                 [=, collator = OpenCollator(sensitive ? UCOL_TERTIARY : UCOL_SECONDARY)] {
                   UErrorCode status = U_ZERO_ERROR;
                   Search const search(
                       usearch_openFromCollator(wideNeedle.getBuffer(), wideNeedle.length(),
                                                wideText.getBuffer(), wideText.length(),
                                                collator.get(), nullptr, &status),
                       usearch_close);
                   return usearch_first(search.get(), &status);
                 });
  MeasureChecked("strings/find_" + name + "/icu_by_locale", location, [=] {
    UErrorCode status = U_ZERO_ERROR;
    Search const search(
        usearch_open(wideNeedle.getBuffer(), wideNeedle.length(), wideText.getBuffer(),
                     wideText.length(), "en_US", nullptr, &status),
        usearch_close);
    if (!sensitive) {
      ucol_setStrength(usearch_getCollator(search.get()), UCOL_SECONDARY);
      usearch_reset(search.get());
    }
    return usearch_first(search.get(), &status);
  });

  // Unit by unit: knows nothing of the language.
  MeasureChecked(
      "strings/find_" + name + "/qstring_unlocalized", qsizetype{location},
      [qt = QString::fromStdString(text), qtNeedle = QString::fromStdString(needle), sensitive] {
        return qt.indexOf(qtNeedle, 0, sensitive ? Qt::CaseSensitive : Qt::CaseInsensitive);
      });
}

void RegisterFinds() {
  for (int const characters : {100, 1000}) {
    int const location = characters - 10;
    std::string const count = std::to_string(characters);
    std::string const ascii = AsciiText(static_cast<std::size_t>(location)) + "trim marks";
    RegisterFind("ascii_" + count, ascii, "trim marks", CUStringComparison_CaseSensitive, location);
    RegisterFind("ascii_nocase_" + count, ascii, "TRIM MARKS", CUStringComparison_IgnoreCase,
                 location);
    RegisterFind("ascii_absent_" + count, ascii, "trip marks", CUStringComparison_CaseSensitive,
                 -1);

    std::string const mixed = MixedText(static_cast<std::size_t>(location)) + "změřená 修复";
    RegisterFind("mixed_" + count, mixed, "změřená 修复", CUStringComparison_CaseSensitive,
                 location);
    RegisterFind("mixed_nocase_" + count, mixed, "ZMĚŘENÁ 修复", CUStringComparison_IgnoreCase,
                 location);
    RegisterFind("mixed_absent_" + count, mixed, "změřené 修复", CUStringComparison_CaseSensitive,
                 -1);
  }
}

void RegisterAll() {
  RegisterRoundTrip("ascii", AsciiText(200));
  RegisterRoundTrip("mixed", MixedText(150));
  RegisterOrders("ascii", Names(Language::Ascii));
  RegisterOrders("german", Names(Language::German));
  RegisterOrders("czech", Names(Language::Czech));
  RegisterEqual("200", AsciiText(200));
  RegisterEqual("4096", AsciiText(4096));
  RegisterEqual("mixed_200", MixedText(150));
  RegisterFinds();
}

}  // namespace

int main(int argc, char** argv) { return RunCases(argc, argv, RegisterAll); }
