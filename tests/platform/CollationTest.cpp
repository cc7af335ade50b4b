// The locale is read once a process: these tests are run once for each of several locales.

#include <CoreFoundation/CoreFoundation.h>
#include <gtest/gtest.h>
#include <unicode/ucol.h>
#include <unicode/uloc.h>
#include <unicode/usearch.h>

#include <cstdlib>
#include <random>
#include <string>

#include "QuillmereLib/core/CFHolder.h"
#include "platform/linux/Handles.h"
#include "tests/support/Strings.h"
#include "tests/support/Threads.h"

namespace {

using String = CFHolder<CFStringRef>;
using namespace std::string_literals;

std::string Shown(CFRange range) {
  return std::to_string(range.location) + "+" + std::to_string(range.length);
}

int32_t SizeOf(std::u16string const& text) { return static_cast<int32_t>(text.size()); }

// ICU called in the plainest way, as the judge of our shared collators and faster roads.
class Oracle {
 public:
  explicit Oracle(bool ignoreCase) {
    std::string const locale = uloc_getDefault();
    UErrorCode status = U_ZERO_ERROR;
    m_collator = CollatorHandle(ucol_open(locale == "en_US_POSIX" ? "" : locale.c_str(), &status));
    ucol_setAttribute(m_collator.Get(), UCOL_STRENGTH, ignoreCase ? UCOL_SECONDARY : UCOL_TERTIARY,
                      &status);
    ucol_setAttribute(m_collator.Get(), UCOL_NORMALIZATION_MODE, UCOL_ON, &status);
    EXPECT_TRUE(U_SUCCESS(status)) << locale;
  }

  CFIndex Compare(std::u16string const& a, std::u16string const& b) const {
    return ucol_strcoll(m_collator.Get(), a.data(), SizeOf(a), b.data(), SizeOf(b));
  }

  std::string Find(std::u16string const& text, std::u16string const& wanted) const {
    if (text.empty() || wanted.empty()) return "-1+0";
    UErrorCode status = U_ZERO_ERROR;
    SearchHandle const search(usearch_openFromCollator(wanted.data(), SizeOf(wanted), text.data(),
                                                       SizeOf(text), m_collator.Get(), nullptr,
                                                       &status));
    int32_t const at = usearch_first(search.Get(), &status);
    int32_t const length = usearch_getMatchedLength(search.Get());
    EXPECT_TRUE(U_SUCCESS(status));
    return at == USEARCH_DONE || length == 0 ? "-1+0" : Shown(CFRangeMake(at, length));
  }

 private:
  CollatorHandle m_collator;
};

constexpr CFStringCompareFlags kFlags[] = {kCFCompareLocalized,
                                           kCFCompareLocalized | kCFCompareCaseInsensitive};

CFIndex Compare(std::u16string const& a, std::u16string const& b, bool ignoreCase = false) {
  return CFStringCompare(String(CreateString(a)).Get(), String(CreateString(b)).Get(),
                         kFlags[ignoreCase]);
}

std::string Find(std::u16string const& a, std::u16string const& b, bool ignoreCase = false) {
  return Shown(CFStringFind(String(CreateString(a)).Get(), String(CreateString(b)).Get(),
                            kFlags[ignoreCase]));
}

// Where the rules of the locales tested have something to decide: letters of several characters,
// accents in one piece, in two and in the wrong order, ignorables inside, halves of pairs.
std::u16string const kRare =
    u"chcHChCHczss10a-b\r\ne\u0301a\u0323\u0302a\u0302\u0323\u1eada\u0308A\u030a\u212b\ufb01"
    u"a\u00adbc\u00adhc\u034fh\u0416\u0439\u0438\u0306\u304c\u304b\u3099\u30ab\u30fc\u1100\u1161"
    u"\U0001F468\u200d\U0001F469\U0001F1E9\U00020000\xD83D\xDE00\uffff\ufeff\u200bi2_ \t\x01\x7F"
    u"vw\u00e9\u00c9\u00e5\u00d8\u00df\u00e6\u010d\u0159\u0131\u0130\u3042\u30a2\uff71\u4e00\u4e9c"
    u"\uf900\uac00";

std::u16string RarePiece(std::mt19937& random) {
  return kRare.substr(random() % kRare.size(), random() % 4);
}

void ExpectLikeIcu(Oracle const& oracle, std::u16string const& text, std::u16string const& other,
                   bool ignoreCase) {
  SCOPED_TRACE(testing::PrintToString(text) + " / " + testing::PrintToString(other));
  EXPECT_EQ(Compare(text, other, ignoreCase), oracle.Compare(text, other));
  EXPECT_EQ(Find(text, other, ignoreCase), oracle.Find(text, other));
}

}  // namespace

TEST(Collation, FollowsTheLanguageOfTheLocale) {
  std::string const language = std::string(uloc_getDefault()).substr(0, 2);
  EXPECT_EQ(Compare(u"\u00e5", u"z") > 0, language == "sv");
  EXPECT_EQ(Compare(u"ch", u"hz") > 0, language == "cs");
  EXPECT_EQ(Compare(u"\u4e00", u"\u4e9c") > 0, language == "ja");
  EXPECT_EQ(Find(u"xch", u"h"), language == "cs" ? "-1+0" : "2+1");
}

// Of pieces that combine with each other or are ignored, so that a shortcut shows its faults.
TEST(Collation, RandomTextIsComparedAndFoundLikeByIcu) {
  std::u16string latin, chinese = u"a\u00e9\u4e00\u4e8c\u9fff\u5377 ";
  for (char16_t unit = u' '; unit <= u'\u017F'; ++unit) latin += unit;
  for (char16_t unit = u'\u3000'; unit <= u'\u303F'; ++unit) chinese += unit;
  Oracle const oracles[] = {Oracle(false), Oracle(true)};
  std::mt19937 random(2);
  for (std::u16string const& letters :
       {u"aAbB ch-"s, u"cChHz"s, u"aA"s, u"a\r\n \t"s, u"ab\x01\x7F"s, u"aB\0"s,
        latin.substr(0, '~' - ' ' + 1), latin, chinese, u"aA\u4e00\u4e8c\u3001\u3002\u3005"s,
        u"\u4e00\u4dff\u3400\uf900\u8c48\u3099\U00020000"s, u"aAe\u00E9E\u0301\u00ADlL\u00B7"s,
        u"cC\u010DhHz"s, u"aou\u00E4\u0308O\u00DFsS"s, u"a\u3042\u30FC\u3099-"s, kRare}) {
    for (unsigned round = 0; round < 6000 && !HasFailure(); ++round) {
      auto const make = [&](std::size_t most) {
        std::u16string text;
        for (auto count = random() % (most + 1); count > 0; --count) {
          bool const isRare = round % 4 > 1 && random() % 2 == 0;
          text += isRare ? RarePiece(random) : letters.substr(random() % letters.size(), 1);
        }
        return text;
      };
      bool const ignoreCase = round % 2 == 0;
      std::u16string const text = make(round % 50 == 0 ? 3000 : round % 3 == 0 ? 2 : 14);
      std::size_t const from = random() % (text.size() + 1);
      std::u16string const wanted = random() % 4 == 0 ? text.substr(from, 1 + round % 90) : make(3);
      ExpectLikeIcu(oracles[ignoreCase], text, wanted, ignoreCase);
      ExpectLikeIcu(oracles[ignoreCase], text, round % 8 < 4 ? make(14) : text + wanted,
                    ignoreCase);
    }
  }
}

// Threads share the collators, and each may keep a search of its own from one call to the next.
TEST(Collation, ThreadsCompareAndSearchAtOnce) {
  Oracle const oracles[] = {Oracle(false), Oracle(true)};
  OnThreads(4, [&oracles](int thread) {
    std::mt19937 random(static_cast<unsigned>(thread));
    for (int i = 0; i < 2500 && !testing::Test::HasFailure(); ++i) {
      std::u16string const wanted = RarePiece(random);
      std::u16string const text = RarePiece(random) + wanted;
      ExpectLikeIcu(oracles[i % 2], text, wanted, i % 2 == 1);
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
