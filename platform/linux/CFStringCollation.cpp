// Comparison and search by the collation of the user's locale, on ICU.

#include <unicode/uiter.h>
#include <unicode/uloc.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "platform/linux/CFStringObject.h"
#include "platform/linux/Handles.h"

namespace {

constexpr UniChar kFirstPrintable = 0x20;
constexpr int kAsciiCount = 0x80;

// A small number for each ASCII character; 0 for those of which a table says nothing.
using AsciiTable = std::array<UInt8, kAsciiCount>;

// The same for the letters of most European languages as well. Behind them come letters that few
// texts have, and then marks that combine with what stands before them.
constexpr int kLatinCount = 0x180;
using LatinTable = std::array<UInt16, kLatinCount>;

// Chinese characters, which no table need list: each differs from all others, unless the language
// has something else to say of them. Their punctuation has a table.
constexpr UniChar kFirstHan = 0x4E00;
constexpr UniChar kLastHan = 0x9FFF;
constexpr UniChar kFirstHanMark = 0x3000;
constexpr int kHanMarkCount = 0x40;
using ClassTable = std::array<UInt16, kLatinCount + kHanMarkCount>;

// The character of a place in a table, and the place of a character; -1 where it has none.
UniChar CharacterAt(std::size_t place) {
  return static_cast<UniChar>(place < kLatinCount ? place : place - kLatinCount + kFirstHanMark);
}
int PlaceOf(UniChar unit) {
  if (unit < kLatinCount) return unit;
  int const mark = unit - kFirstHanMark;
  return mark >= 0 && mark < kHanMarkCount ? kLatinCount + mark : -1;
}

bool IsHan(UniChar unit) { return unit >= kFirstHan && unit <= kLastHan; }

// Without a set locale ICU answers with one that orders like code points. People expect an order of
// words also there, which is that of no language.
char const* CollationLocale() {
  char const* const locale = uloc_getDefault();
  return std::strncmp(locale, "en_US_POSIX", 11) == 0 ? "" : locale;
}

CollatorHandle OpenCollator(UCollationStrength strength) {
  UErrorCode status = U_ZERO_ERROR;
  CollatorHandle collator(ucol_open(CollationLocale(), &status));
  ucol_setAttribute(collator.Get(), UCOL_STRENGTH, static_cast<UColAttributeValue>(strength),
                    &status);
  ucol_setAttribute(collator.Get(), UCOL_NORMALIZATION_MODE, UCOL_ON, &status);
  return U_SUCCESS(status) ? std::move(collator) : CollatorHandle();
}

enum class Level { kPrimary, kAll };

// Whether a character makes one collation element with a weight at the primary level, and no other;
// at the primary level those without a weight there, such as accents, are not counted.
bool MakesOneElement(UCollator* collator, UChar unit, Level level) {
  UErrorCode status = U_ZERO_ERROR;
  CollationElementsHandle const elements(ucol_openElements(collator, &unit, 1, &status));
  int primaries = 0;
  int others = 0;
  while (U_SUCCESS(status)) {
    int32_t const element = ucol_next(elements.Get(), &status);
    if (element == UCOL_NULLORDER) break;
    ++(ucol_primaryOrder(element) != 0 ? primaries : others);
  }
  return U_SUCCESS(status) && primaries == 1 && (level == Level::kPrimary || others == 0);
}

// The bytes by which the collator sorts one character, less the ending zero; empty for a character
// that it ignores, and for one that makes more than one element.
std::string SortKeyOfCharacter(UCollator* collator, UChar unit, Level level) {
  if (!MakesOneElement(collator, unit, level)) return {};
  char key[64];
  int32_t const size =
      ucol_getSortKey(collator, &unit, 1, reinterpret_cast<uint8_t*>(key), sizeof key);
  return size <= 1 || size > 64 ? std::string() : std::string(key, static_cast<size_t>(size) - 1);
}

// Numbers the characters from the first printable one by the order of the collator, equal ones
// alike, from 1.
template <class Table>
Table NumberByOrder(UCollator* collator, Level level) {
  std::map<std::string, std::vector<std::size_t>> byKey;
  for (std::size_t place = kFirstPrintable; place < std::tuple_size_v<Table>; ++place) {
    std::string key = SortKeyOfCharacter(collator, CharacterAt(place), level);
    if (!key.empty()) byKey[std::move(key)].push_back(place);
  }
  Table numbers = {};
  typename Table::value_type number = 0;
  for (auto const& [key, places] : byKey) {
    ++number;
    for (std::size_t const place : places) numbers[place] = number;
  }
  return numbers;
}

// What a collation says of printable characters, read off it once: so most texts are compared and
// searched without asking it again. The tables know the characters that the collation takes one by
// one, and say nothing of the others.
struct PlainCharacters {
  // Ranks at the first level, where letters differ: in texts of ASCII, and in any text as long as
  // none but these characters follows.
  LatinTable ranksAmongAscii = {};
  LatinTable ranksAnywhere = {};
  // Equal numbers for what is equal at the strengths with and without case.
  AsciiTable classes = {};
  AsciiTable classesWithoutCase = {};
};

// Gives `forget` each letter of several characters, as "c" and "h" are one in Czech. False where
// they cannot be learned.
template <class Forget>
bool ForEachContraction(UCollator* collator, Forget const& forget) {
  UErrorCode status = U_ZERO_ERROR;
  SetHandle const contractions(uset_openEmpty());
  ucol_getContractionsAndExpansions(collator, contractions.Get(), nullptr, true, &status);
  for (int32_t i = 0, count = uset_getItemCount(contractions.Get()); i < count; ++i) {
    UChar text[128];
    UChar32 first;
    UChar32 last;
    int32_t const length = uset_getItem(contractions.Get(), i, &first, &last, text, 128, &status);
    if (U_FAILURE(status)) return false;
    forget(std::u16string_view(text, static_cast<std::size_t>(length)));
  }
  return U_SUCCESS(status);
}

// Forgets the characters that are part of such a letter: all of them in `anywhere`, and in
// `amongAscii` those whose other parts are ASCII as well. False where that cannot be learned.
bool ForgetContractions(UCollator* collator, AsciiTable& amongAscii, LatinTable& anywhere) {
  return ForEachContraction(collator, [&](std::u16string_view text) {
    bool const ascii =
        std::all_of(text.begin(), text.end(), [](UChar unit) { return unit < kAsciiCount; });
    for (UChar const unit : text) {
      if (unit < kLatinCount) anywhere[unit] = 0;
      if (ascii) amongAscii[unit] = 0;
    }
  });
}

// Whether every character counts, and by itself: nothing is skipped, and digits are no numbers.
bool CountsCharacters(UCollator* collator) {
  UErrorCode status = U_ZERO_ERROR;
  bool const counts =
      ucol_getAttribute(collator, UCOL_ALTERNATE_HANDLING, &status) == UCOL_NON_IGNORABLE &&
      ucol_getAttribute(collator, UCOL_NUMERIC_COLLATION, &status) == UCOL_OFF &&
      ucol_getAttribute(collator, UCOL_CASE_LEVEL, &status) == UCOL_OFF;
  return counts && U_SUCCESS(status);
}

PlainCharacters ReadPlainCharacters() {
  CollatorHandle const primary = OpenCollator(UCOL_PRIMARY);
  CollatorHandle const secondary = OpenCollator(UCOL_SECONDARY);
  CollatorHandle const tertiary = OpenCollator(UCOL_TERTIARY);
  PlainCharacters plain;
  if (!primary || !secondary || !tertiary || !CountsCharacters(tertiary.Get())) return plain;
  plain.classes = NumberByOrder<AsciiTable>(tertiary.Get(), Level::kAll);
  plain.ranksAnywhere = NumberByOrder<LatinTable>(primary.Get(), Level::kPrimary);
  plain.ranksAmongAscii = plain.ranksAnywhere;
  if (!ForgetContractions(tertiary.Get(), plain.classes, plain.ranksAnywhere)) return {};
  plain.classesWithoutCase = NumberByOrder<AsciiTable>(secondary.Get(), Level::kAll);
  for (std::size_t i = 0; i < kAsciiCount; ++i) {
    if (plain.classes[i] != 0) continue;
    plain.classesWithoutCase[i] = 0;
    plain.ranksAmongAscii[i] = 0;
  }
  return plain;
}

// Made at the first comparison, in some milliseconds.
PlainCharacters const& Plain() {
  static PlainCharacters const none;
  try {
    static PlainCharacters const* const plain = new PlainCharacters(ReadPlainCharacters());
    return *plain;
  } catch (std::bad_alloc const&) {
    return none;  // the next comparison tries again
  }
}

// The collator of one strength, made at its first use, shared by all threads and never closed:
// strings are compared by static destructors too. Null where ICU could not open it.
UCollator* Collator(bool ignoreCase) {
  static std::atomic<UCollator*> collators[2];
  std::atomic<UCollator*>& place = collators[ignoreCase ? 1 : 0];
  UCollator* present = place.load(std::memory_order_acquire);
  if (present != nullptr) return present;
  CollatorHandle made = OpenCollator(ignoreCase ? UCOL_SECONDARY : UCOL_TERTIARY);
  return place.compare_exchange_strong(present, made.Get()) ? made.Release() : present;
}

// What is equal at one strength in texts that are not ASCII alone, with equal numbers, 0 for
// characters of which a text may have none.
struct WideClasses {
  ClassTable table = {};
  bool ofHan = false;  // whether each Chinese character is a class of its own

  UInt16 Of(UniChar unit) const {
    int const place = PlaceOf(unit);
    if (place >= 0) return table[static_cast<std::size_t>(place)];
    return ofHan && IsHan(unit) ? unit : UInt16{0};  // above all numbers of the table
  }
};

// Whether the language leaves Chinese characters in the order of their numbers, each by itself.
bool LeavesHanAlone(UCollator* collator) {
  UErrorCode status = U_ZERO_ERROR;
  SetHandle const tailored(ucol_getTailoredSet(collator, &status));
  SetHandle const han(uset_open(kFirstHan, kLastHan));
  return U_SUCCESS(status) && uset_containsNone(tailored.Get(), han.Get());
}

WideClasses ReadWideClasses(UCollator* collator) {
  if (collator == nullptr || !CountsCharacters(collator)) return {};
  WideClasses classes = {NumberByOrder<ClassTable>(collator, Level::kPrimary),
                         LeavesHanAlone(collator)};
  // These hold for a text as a whole, so that of a letter of several characters it is enough to
  // forget the last, unless one of the others is unknown anyway.
  bool const learned = ForEachContraction(collator, [&classes](std::u16string_view text) {
    if (text.empty()) return;
    if (!std::all_of(text.begin(), text.end(), [&](UChar unit) { return classes.Of(unit) != 0; })) {
      return;
    }
    int const place = PlaceOf(text.back());
    if (place >= 0) {
      classes.table[static_cast<std::size_t>(place)] = 0;
    } else {
      classes.ofHan = false;
    }
  });
  return learned ? classes : WideClasses();
}

// Made at the first search that needs them.
WideClasses const& ClassesAnywhere(bool ignoreCase) {
  static WideClasses const none;
  try {
    if (ignoreCase) {
      static auto const* const withoutCase = new WideClasses(ReadWideClasses(Collator(true)));
      return *withoutCase;
    }
    static auto const* const withCase = new WideClasses(ReadWideClasses(Collator(false)));
    return *withCase;
  } catch (std::bad_alloc const&) {
    return none;
  }
}

// The units of a string of either width, in place or widened into a buffer.
class WideUnits {
 public:
  explicit WideUnits(CFStringRef string) : m_units(string->Wide()) {
    if (string->wide) return;
    std::size_t const length = static_cast<std::size_t>(string->length);
    UniChar* units = m_small;
    if (length > kSmall) {
      m_large.reset(new (std::nothrow) UniChar[length]);
      units = m_large.get();
    }
    if (units != nullptr) std::copy(string->Narrow(), string->Narrow() + length, units);
    m_units = units;
  }

  // Null when memory ran out.
  UChar const* Get() const { return reinterpret_cast<UChar const*>(m_units); }

 private:
  static constexpr std::size_t kSmall = 256;

  UniChar const* m_units;
  UniChar m_small[kSmall];
  std::unique_ptr<UniChar[]> m_large;
};

CFComparisonResult CompareUnits(CFStringRef first, CFStringRef second) {
  return CFStringCompare(first, second, 0);
}

CFComparisonResult CompareByIcu(UCollator* collator, CFStringRef first, CFStringRef second) {
  UErrorCode status = U_ZERO_ERROR;
  UCollationResult order = UCOL_EQUAL;
  int32_t const firstLength = static_cast<int32_t>(first->length);
  int32_t const secondLength = static_cast<int32_t>(second->length);
  if (!first->wide && !second->wide) {
    // ASCII is UTF-8, and need not be widened.
    order = ucol_strcollUTF8(collator, first->Narrow(), firstLength, second->Narrow(), secondLength,
                             &status);
  } else {
    WideUnits const a(first);
    WideUnits const b(second);
    if (a.Get() == nullptr || b.Get() == nullptr) return CompareUnits(first, second);
    order = ucol_strcoll(collator, a.Get(), firstLength, b.Get(), secondLength);
  }
  if (U_FAILURE(status)) return CompareUnits(first, second);
  return static_cast<CFComparisonResult>(order);
}

// Orders two texts by the ranks of their first characters that differ in rank. Nothing where they
// do not decide: ranks that are all equal (case, or nothing at all, makes the difference), a
// character without a rank, or one that what follows may still change.
template <class FirstUnit, class SecondUnit>
std::optional<CFComparisonResult> CompareByRank(LatinTable const& ranks, FirstUnit const* first,
                                                CFIndex firstLength, SecondUnit const* second,
                                                CFIndex secondLength) {
  auto const rankAt = [&ranks](auto const* text, CFIndex length, CFIndex i) {
    auto const isLatin = [](auto unit) { return UnitOf(unit) < kLatinCount; };
    bool const settled = isLatin(text[i]) && (i + 1 == length || isLatin(text[i + 1]));
    return settled ? ranks[UnitOf(text[i])] : UInt16{0};
  };
  CFIndex const shared = std::min(firstLength, secondLength);
  for (CFIndex i = 0; i < shared; ++i) {
    if (UnitOf(first[i]) == UnitOf(second[i])) continue;
    UInt16 const firstRank = rankAt(first, firstLength, i);
    UInt16 const secondRank = rankAt(second, secondLength, i);
    if (firstRank == 0 || secondRank == 0) return std::nullopt;
    if (firstRank != secondRank) {
      return firstRank < secondRank ? kCFCompareLessThan : kCFCompareGreaterThan;
    }
  }
  // One is the beginning of the other, whose next character must count.
  if (firstLength < secondLength && rankAt(second, secondLength, shared) != 0) {
    return kCFCompareLessThan;
  }
  if (firstLength > secondLength && rankAt(first, firstLength, shared) != 0) {
    return kCFCompareGreaterThan;
  }
  return std::nullopt;
}

std::optional<CFComparisonResult> ComparePlainly(CFStringRef first, CFStringRef second) {
  PlainCharacters const& plain = Plain();
  CFIndex const a = first->length;
  CFIndex const b = second->length;
  if (first->wide) {
    return second->wide ? CompareByRank(plain.ranksAnywhere, first->Wide(), a, second->Wide(), b)
                        : CompareByRank(plain.ranksAnywhere, first->Wide(), a, second->Narrow(), b);
  }
  return second->wide
             ? CompareByRank(plain.ranksAnywhere, first->Narrow(), a, second->Wide(), b)
             : CompareByRank(plain.ranksAmongAscii, first->Narrow(), a, second->Narrow(), b);
}

UInt8 const* FindClasses(UInt8 const* text, std::size_t length, UInt8 const* wanted,
                         std::size_t wantedLength) {
  return static_cast<UInt8 const*>(memmem(text, length, wanted, wantedLength));
}

UInt16 const* FindClasses(UInt16 const* text, std::size_t length, UInt16 const* wanted,
                          std::size_t wantedLength) {
  constexpr std::size_t kShort = 32;
  std::unique_ptr<std::size_t[]> borders;
  if (wantedLength > kShort) borders.reset(new (std::nothrow) std::size_t[wantedLength]);
  if (!borders) {
    UInt16 const* const end = text + length;
    UInt16 const* const at = std::search(text, end, wanted, wanted + wantedLength);
    return at == end ? nullptr : at;
  }

  // By Knuth, Morris and Pratt. For each beginning of what is wanted: how long a shorter one it
  // ends in. So no unit of the text is looked at again.
  auto const goOn = [&](std::size_t matched, UInt16 unit) {
    while (matched > 0 && wanted[matched] != unit) matched = borders[matched - 1];
    return wanted[matched] == unit ? matched + 1 : 0;
  };
  borders[0] = 0;
  for (std::size_t i = 1; i < wantedLength; ++i) borders[i] = goOn(borders[i - 1], wanted[i]);
  std::size_t matched = 0;
  for (std::size_t i = 0; i < length; ++i) {
    matched = goOn(matched, text[i]);
    if (matched == wantedLength) return text + i + 1 - wantedLength;
  }
  return nullptr;
}

// Plain search, where both texts consist of characters that the collation takes one by one: then a
// match is a run of characters of the same classes. Nothing where that does not hold; `classOf`
// then gives 0 for some character.
template <class Class, class ClassOf>
std::optional<CFRange> FindByClass(ClassOf const& classOf, CFStringRef string, CFStringRef wanted) {
  std::size_t const length = static_cast<std::size_t>(string->length);
  std::size_t const wantedLength = static_cast<std::size_t>(wanted->length);
  Class small[512];
  std::unique_ptr<Class[]> large;
  Class* folded = small;
  if (length + wantedLength > std::size(small)) {
    large.reset(new (std::nothrow) Class[length + wantedLength]);
    folded = large.get();
    if (folded == nullptr) return std::nullopt;
  }

  auto const foldUnits = [&classOf](auto const* units, std::size_t count, Class* target) {
    for (std::size_t i = 0; i < count; ++i) {
      target[i] = classOf(UnitOf(units[i]));
      if (target[i] == 0) return false;
    }
    return true;
  };
  auto const fold = [&foldUnits](CFStringRef text, std::size_t count, Class* target) {
    return text->wide ? foldUnits(text->Wide(), count, target)
                      : foldUnits(text->Narrow(), count, target);
  };
  if (!fold(wanted, wantedLength, folded + length) || !fold(string, length, folded)) {
    return std::nullopt;
  }
  Class const* const at = FindClasses(folded, length, folded + length, wantedLength);
  return at == nullptr ? CFRangeMake(kCFNotFound, 0) : CFRangeMake(at - folded, wanted->length);
}

std::optional<CFRange> FindPlainly(CFStringRef string, CFStringRef wanted, bool ignoreCase) {
  if (!string->wide && !wanted->wide) {
    AsciiTable const& classes = ignoreCase ? Plain().classesWithoutCase : Plain().classes;
    return FindByClass<UInt8>([&classes](UniChar unit) { return classes[unit]; }, string, wanted);
  }
  WideClasses const& classes = ClassesAnywhere(ignoreCase);
  return FindByClass<UInt16>([&classes](UniChar unit) { return classes.Of(unit); }, string, wanted);
}

// A search object with a pattern of its own, both kept from one search to the next: opening an
// object costs as much as a search, and so does another pattern.
class Search {
 public:
  // The search for `pattern`; null where ICU or memory fails.
  UStringSearch* For(UCollator* collator, WideUnits const& pattern, CFIndex length) noexcept {
    std::u16string_view const wanted(pattern.Get(), static_cast<std::size_t>(length));
    UErrorCode status = U_ZERO_ERROR;
    if (m_search && wanted == m_pattern) return m_search.Get();
    try {
      m_pattern = wanted;
    } catch (std::bad_alloc const&) {
      return nullptr;
    }
    int32_t const size = static_cast<int32_t>(length);
    if (m_search) {
      usearch_setPattern(m_search.Get(), m_pattern.data(), size, &status);
    } else {
      m_search = SearchHandle(usearch_openFromCollator(m_pattern.data(), size, m_pattern.data(),
                                                       size, collator, nullptr, &status));
    }
    if (U_FAILURE(status)) m_search = SearchHandle();
    return m_search.Get();
  }

 private:
  std::u16string m_pattern;
  SearchHandle m_search;
};

thread_local bool searchesAreGone = false;

// The searches of a thread, one a strength.
struct KeptSearches {
  ~KeptSearches() { searchesAreGone = true; }
  Search searches[2];
};

CFRange FindWith(Search& kept, UCollator* collator, CFStringRef string, CFStringRef wanted) {
  CFRange const notFound = CFRangeMake(kCFNotFound, 0);
  WideUnits const text(string);
  WideUnits const pattern(wanted);
  if (text.Get() == nullptr || pattern.Get() == nullptr) return notFound;
  UStringSearch* const search = kept.For(collator, pattern, wanted->length);
  if (search == nullptr) return notFound;

  UErrorCode status = U_ZERO_ERROR;
  usearch_setText(search, text.Get(), static_cast<int32_t>(string->length), &status);
  int32_t const at = usearch_first(search, &status);
  int32_t const length = usearch_getMatchedLength(search);
  if (U_FAILURE(status) || at == USEARCH_DONE || length == 0) return notFound;
  return CFRangeMake(at, length);
}

CFRange FindByIcu(UCollator* collator, CFStringRef string, CFStringRef wanted, bool ignoreCase) {
  // Static objects may search at exit, when what the thread kept is destroyed.
  if (searchesAreGone) {
    Search once;
    return FindWith(once, collator, string, wanted);
  }
  thread_local KeptSearches kept;
  return FindWith(kept.searches[ignoreCase ? 1 : 0], collator, string, wanted);
}

}  // namespace

CFComparisonResult CompareLocalized(CFStringRef first, CFStringRef second, bool ignoreCase) {
  if (first->length == second->length && first->wide == second->wide) {
    std::size_t const size = static_cast<std::size_t>(first->length) << (first->wide ? 1 : 0);
    if (std::memcmp(first->Narrow(), second->Narrow(), size) == 0) return kCFCompareEqualTo;
  }
  if (std::optional<CFComparisonResult> const order = ComparePlainly(first, second)) return *order;
  UCollator* const collator = Collator(ignoreCase);
  if (collator == nullptr || first->length > INT32_MAX || second->length > INT32_MAX) {
    return CompareUnits(first, second);
  }
  return CompareByIcu(collator, first, second);
}

CFRange FindLocalized(CFStringRef string, CFStringRef wanted, bool ignoreCase) {
  if (std::optional<CFRange> const found = FindPlainly(string, wanted, ignoreCase)) return *found;
  UCollator* const collator = Collator(ignoreCase);
  if (collator == nullptr || string->length > INT32_MAX || wanted->length > INT32_MAX) {
    return CFRangeMake(kCFNotFound, 0);
  }
  return FindByIcu(collator, string, wanted, ignoreCase);
}
