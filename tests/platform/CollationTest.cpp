// The locale is read once a process: these tests are run once for each of several locales.

#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>
#include <unicode/ucol.h>
#include <unicode/uloc.h>
#include <unicode/usearch.h>

#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "QuillmereLib/core/CFHolder.h"
#include "tests/support/Strings.h"
#include "tests/support/Threads.h"

namespace {

using String = CFHolder<CFStringRef>;

struct CloseCollator {
  void operator()(UCollator* collator) const { ucol_close(collator); }
};

// ICU called in the plainest way, as the judge of our shared collators and faster roads.
class Oracle {
 public:
  explicit Oracle(bool ignoreCase) {
    std::string const locale = uloc_getDefault();
    UErrorCode status = U_ZERO_ERROR;
    m_collator.reset(ucol_open(locale == "en_US_POSIX" ? "" : locale.c_str(), &status));
    ucol_setAttribute(m_collator.get(), UCOL_STRENGTH, ignoreCase ? UCOL_SECONDARY : UCOL_TERTIARY,
                      &status);
    ucol_setAttribute(m_collator.get(), UCOL_NORMALIZATION_MODE, UCOL_ON, &status);
    EXPECT_TRUE(U_SUCCESS(status)) << locale;
  }

  CFIndex Compare(std::u16string const& a, std::u16string const& b) const {
    return ucol_strcoll(m_collator.get(), a.data(), static_cast<int32_t>(a.size()), b.data(),
                        static_cast<int32_t>(b.size()));
  }

  CFRange Find(std::u16string const& text, std::u16string const& wanted) const {
    CFRange const none = CFRangeMake(kCFNotFound, 0);
    if (text.empty() || wanted.empty()) return none;
    UErrorCode status = U_ZERO_ERROR;
    UStringSearch* const search = usearch_openFromCollator(
        wanted.data(), static_cast<int32_t>(wanted.size()), text.data(),
        static_cast<int32_t>(text.size()), m_collator.get(), nullptr, &status);
    int32_t const at = usearch_first(search, &status);
    int32_t const length = usearch_getMatchedLength(search);
    EXPECT_TRUE(U_SUCCESS(status));
    usearch_close(search);
    return at == USEARCH_DONE || length == 0 ? none : CFRangeMake(at, length);
  }

 private:
  std::unique_ptr<UCollator, CloseCollator> m_collator;
};

CFStringCompareFlags Flags(bool ignoreCase) {
  return ignoreCase ? kCFCompareLocalized | kCFCompareCaseInsensitive : kCFCompareLocalized;
}

CFIndex Compare(std::u16string const& a, std::u16string const& b, bool ignoreCase = false) {
  return CFStringCompare(String(CreateString(a)).Get(), String(CreateString(b)).Get(),
                         Flags(ignoreCase));
}

std::string Shown(CFRange range) {
  return std::to_string(range.location) + "+" + std::to_string(range.length);
}

std::string Find(std::u16string const& text, std::u16string const& wanted,
                 bool ignoreCase = false) {
  return Shown(CFStringFind(String(CreateString(text)).Get(), String(CreateString(wanted)).Get(),
                            Flags(ignoreCase)));
}

// Texts among which all the rules of the locales tested have something to decide.
std::vector<std::u16string> const& Table() {
  static std::vector<std::u16string> const table = {
      // ASCII, cases, digits, punctuation, what the collation ignores
      u"", u"a", u"A", u"b", u"B", u"ab", u"aB", u"c", u"C", u"h", u"H", u"ch", u"cH", u"Ch", u"CH",
      u"cz", u"d", u"i", u"z", u"Z", u"ss", u"SS", u"1", u"2", u"10", u"_", u"-", u"a-b", u".",
      u"/", u" ", u"a b", u"\t", u"\n", u"\r\n", u"\r", u"\x01", u"\x7F", u"~", u"v", u"w",
      std::u16string(1, u'\0'),
      // accents in one piece, in two and in the wrong order; ligatures, the Nordic letters
      u"\u00e9", u"e\u0301", u"e", u"\u00c9", u"E\u0301", u"\u0301", u"a\u0323\u0302",
      u"a\u0302\u0323", u"\u1ead", u"\u00e4", u"a\u0308", u"\u00c4", u"\u00e5", u"A\u030a",
      u"\u212b", u"\u00f6", u"o", u"\u00d8", u"\u00df", u"\u1e9e", u"\u00e6", u"ae", u"\ufb01",
      u"fi", u"\u010d", u"\u010c", u"\u0159", u"\u0131", u"\u0130",
      // ignorables by themselves and inside a text
      u"\u00ad", u"a\u00adb", u"\u200b", u"\u200d", u"\ufeff", u"c\u00adh", u"c\u034fh",
      // other scripts, halves of pairs
      u"\u0436", u"\u0416", u"\u0439", u"\u0438\u0306", u"\u3042", u"\u30a2", u"\uff71", u"\u304c",
      u"\u304b\u3099", u"\u30ab", u"\u30fc", u"\u30ab\u30fc", u"\u4e00", u"\u4e9c", u"\uf900",
      u"\uac00", u"\u1100\u1161", u"\U0001F600", u"\U0001F468\u200d\U0001F469", u"\U0001F1E9",
      u"\U00020000", u"\xD83D", u"\xDE00", u"\uffff"};
  return table;
}

void ExpectSameOrder(Oracle const& oracle, std::u16string const& a, std::u16string const& b,
                     bool ignoreCase) {
  EXPECT_EQ(Compare(a, b, ignoreCase), oracle.Compare(a, b))
      << testing::PrintToString(a) << " " << testing::PrintToString(b);
}

void ExpectSameFind(Oracle const& oracle, std::u16string const& text, std::u16string const& wanted,
                    bool ignoreCase) {
  EXPECT_EQ(Find(text, wanted, ignoreCase), Shown(oracle.Find(text, wanted)))
      << testing::PrintToString(text) << " / " << testing::PrintToString(wanted);
}

}  // namespace

TEST(Collation, FollowsTheLanguageOfTheLocale) {
  struct Fact {
    std::string languages;
    std::u16string lesser;
    std::u16string greater;
  } const facts[] = {{"en de sv cs ja", u"a", u"B"},
                     {"en de sv cs ja", u"_", u"1"},
                     {"en de sv cs ja", u"ss", u"\u00df"},
                     {"en de cs ja", u"\u00e4", u"b"},
                     {"en de cs ja", u"\u00e5", u"\u00e4z"},
                     {"sv", u"z", u"\u00e5"},
                     {"sv", u"\u00e5", u"\u00e4"},
                     {"sv", u"\u00e4", u"\u00f6"},
                     {"cs", u"hz", u"ch"},
                     {"cs", u"ch", u"i"},
                     {"cs", u"cz", u"\u010d"},
                     {"en de sv ja", u"ch", u"cz"},
                     {"en de sv ja", u"\u010d", u"cz"},
                     {"en de sv cs", u"\u4e00", u"\u4e9c"},
                     {"ja", u"\u4e9c", u"\u4e00"}};
  std::string const language = std::string(uloc_getDefault()).substr(0, 2);
  for (Fact const& fact : facts) {
    if (fact.languages.find(language) == std::string::npos) continue;
    EXPECT_EQ(Compare(fact.lesser, fact.greater), kCFCompareLessThan)
        << testing::PrintToString(fact.lesser) << " " << testing::PrintToString(fact.greater);
  }
  EXPECT_EQ(Compare(u"\u00e9", u"e\u0301"), kCFCompareEqualTo);
  EXPECT_EQ(Compare(u"ab", u"a\u00adb"), kCFCompareEqualTo);
  EXPECT_EQ(Compare(u"a\x01", u"a"), kCFCompareEqualTo);
  EXPECT_EQ(Compare(u"\u00c9", u"e\u0301", true), kCFCompareEqualTo);
  EXPECT_NE(Compare(u"e", u"\u00e9", true), kCFCompareEqualTo);
}

TEST(Collation, FindsCharactersOfTheLanguage) {
  EXPECT_EQ(Find(u"a\u00adb", u"ab"), "0+3");
  EXPECT_EQ(Find(u"cafe\u0301", u"\u00e9"), "3+2");
  EXPECT_EQ(Find(u"cafe\u0301", u"e"), "-1+0");
  EXPECT_EQ(Find(u"a\r\n", u"\n"), "-1+0");
  EXPECT_EQ(Find(u"xAbx", u"aB"), "-1+0");
  EXPECT_EQ(Find(u"xAbx", u"aB", true), "1+2");
  EXPECT_EQ(Find(u"abc", u"\u00ad"), "-1+0");
  bool const czech = std::string(uloc_getDefault()).rfind("cs", 0) == 0;
  EXPECT_EQ(Find(u"xch", u"c"), czech ? "-1+0" : "1+1");
  EXPECT_EQ(Find(u"xch", u"h"), czech ? "-1+0" : "2+1");
}

TEST(Collation, ComparesAndFindsAllPairsLikeIcu) {
  std::mt19937 random(1);
  auto const any = [&random] { return Table()[random() % Table().size()]; };
  for (bool const ignoreCase : {false, true}) {
    Oracle const oracle(ignoreCase);
    for (std::u16string const& a : Table()) {
      for (std::u16string const& b : Table()) {
        ExpectSameOrder(oracle, a, b, ignoreCase);
        ASSERT_EQ(Compare(a, b, ignoreCase), -Compare(b, a, ignoreCase));
        ExpectSameFind(oracle, a, b, ignoreCase);
        ExpectSameFind(oracle, a + b, b, ignoreCase);
        ExpectSameFind(oracle, any() + a + b + any(), a + b, ignoreCase);
        if (HasFailure()) return;
      }
    }
  }
}

// Letters that combine with each other or are ignored, so that a shortcut shows its faults.
TEST(Collation, RandomTextIsComparedAndFoundLikeByIcu) {
  std::u16string printable;
  for (char16_t unit = u' '; unit <= u'~'; ++unit) printable += unit;
  std::u16string latin;
  for (char16_t unit = u' '; unit <= u'\u017F'; ++unit) latin += unit;
  std::u16string chinese = u"a\u00e9\u4e00\u4e8c\u9fff\u5377 ";
  for (char16_t unit = u'\u3000'; unit <= u'\u303F'; ++unit) chinese += unit;
  std::u16string const alphabets[] = {u"aAbB ch-",
                                      u"cChHz",
                                      u"aA",
                                      u"a\r\n \t",
                                      u"ab\x01\x7F",
                                      std::u16string(u"aB\0", 3),
                                      printable,
                                      latin,
                                      chinese,
                                      u"aA\u4e00\u4e8c\u3001\u3002\u3005",
                                      u"\u4e00\u4dff\u3400\uf900\u8c48\u3099\U00020000",
                                      u"aAe\u00E9E\u0301\u00ADlL\u00B7",
                                      u"cC\u010DhHz",
                                      u"aou\u00E4\u0308O\u00DFsS",
                                      u"a\u3042\u30FC\u3099-"};
  std::mt19937 random(2);
  for (bool const ignoreCase : {false, true}) {
    Oracle const oracle(ignoreCase);
    for (unsigned round = 0; round < 20000 && !HasFailure(); ++round) {
      std::u16string const& alphabet = alphabets[random() % std::size(alphabets)];
      auto const make = [&](std::size_t most) {
        std::u16string text;
        for (auto count = random() % (most + 1); count > 0; --count) {
          text += alphabet[random() % alphabet.size()];
        }
        return text;
      };
      std::u16string const text = make(round % 50 == 0 ? 3000 : 14);
      std::size_t const from = random() % (text.size() + 1);
      std::u16string const wanted = round % 4 == 0 ? text.substr(from, 1 + round % 7) : make(3);
      ExpectSameFind(oracle, text, wanted, ignoreCase);
      ExpectSameOrder(oracle, text, round % 2 == 0 ? make(14) : text + wanted, ignoreCase);
    }
  }
}

// Threads share the collators, and each may keep a search of its own from one call to the next.
TEST(Collation, ThreadsCompareAndSearchAtOnce) {
  std::mt19937 random(3);
  Oracle const oracles[] = {Oracle(false), Oracle(true)};
  struct Case {
    std::u16string text;
    std::u16string wanted;
    CFIndex order;
    std::string found;
  };
  std::vector<Case> cases(1000);
  for (std::size_t i = 0; i < cases.size(); ++i) {
    std::u16string const wanted = Table()[random() % Table().size()];
    std::u16string const text = Table()[random() % Table().size()] + wanted;
    Oracle const& oracle = oracles[i % 2];
    cases[i] = {text, wanted, oracle.Compare(text, wanted), Shown(oracle.Find(text, wanted))};
  }
  OnThreads(4, [&cases](int start) {
    for (auto i = static_cast<std::size_t>(start); i < 10 * cases.size(); ++i) {
      Case const& test = cases[i % cases.size()];
      if (testing::Test::HasFailure()) break;
      EXPECT_EQ(Compare(test.text, test.wanted, i % 2 == 1), test.order);
      EXPECT_EQ(Find(test.text, test.wanted, i % 2 == 1), test.found);
    }
  });
}

// Static objects of a client may still search at exit, when what the thread kept is gone.
TEST(Collation, SearchesInStaticDestructors) {
  struct SearchAtExit {
    ~SearchAtExit() { std::_Exit(Find(u"caf\u00e9", u"\u00e9") == "3+1" ? 0 : 1); }
  };
  auto const work = [] {
    static SearchAtExit late;
    Find(u"caf\u00e9", u"\u00e9");
    std::exit(2);
  };
  EXPECT_EXIT(work(), testing::ExitedWithCode(0), "");
}
