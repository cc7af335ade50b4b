// Comparison and search by the collation of the user's locale, on ICU.

#include <unicode/uiter.h>
#include <unicode/uloc.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>

#include "platform/linux/CFStringObject.h"
#include "platform/linux/Handles.h"

namespace {

constexpr UniChar kFirstPrintable = 0x20;
constexpr UniChar kLastPrintable = 0x7E;

// For each byte the class of printable ASCII characters that the collation takes as equal, named by
// its first character; 0 for what plain search must not touch.
using PlainClasses = std::array<char, 256>;

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

// Whether a text of this collation can be read character by character: nothing is skipped, numbers
// are no values, and no sequence of printable ASCII is a letter of its own (as "ch" is in Czech).
bool ReadsByCharacter(UCollator* collator) {
  UErrorCode status = U_ZERO_ERROR;
  if (ucol_getAttribute(collator, UCOL_ALTERNATE_HANDLING, &status) != UCOL_NON_IGNORABLE ||
      ucol_getAttribute(collator, UCOL_NUMERIC_COLLATION, &status) != UCOL_OFF ||
      ucol_getAttribute(collator, UCOL_CASE_LEVEL, &status) != UCOL_OFF) {
    return false;
  }
  SetHandle const contractions(uset_openEmpty());
  ucol_getContractionsAndExpansions(collator, contractions.Get(), nullptr, true, &status);
  if (U_FAILURE(status)) return false;
  for (int32_t i = 0, count = uset_getItemCount(contractions.Get()); i < count; ++i) {
    UChar text[64];
    UChar32 first;
    UChar32 last;
    int32_t const length = uset_getItem(contractions.Get(), i, &first, &last, text, 64, &status);
    if (U_FAILURE(status)) return false;
    bool const plain = std::all_of(text, text + length, [](UChar unit) {
      return unit >= kFirstPrintable && unit <= kLastPrintable;
    });
    if (length >= 2 && plain) return false;
  }
  return true;
}

// Reads the classes off the collation itself, by the sort keys of single characters. A character
// whose key is longer than one element needs, or empty, gets none.
PlainClasses ReadPlainClasses(UCollator* collator) {
  PlainClasses classes = {};
  if (collator == nullptr) return classes;
  static bool const byCharacter = ReadsByCharacter(collator);  // at every strength alike
  if (!byCharacter) return classes;
  std::array<std::array<uint8_t, 32>, kLastPrintable + 1> keys = {};
  for (UChar unit = kFirstPrintable; unit <= kLastPrintable; ++unit) {
    int32_t const size = ucol_getSortKey(collator, &unit, 1, keys[unit].data(), 32);
    UErrorCode status = U_ZERO_ERROR;
    CollationElementsHandle const elements(ucol_openElements(collator, &unit, 1, &status));
    bool const oneElement = U_SUCCESS(status) && size <= 32 &&
                            ucol_next(elements.Get(), &status) != UCOL_NULLORDER &&
                            ucol_next(elements.Get(), &status) == UCOL_NULLORDER;
    if (!oneElement || size <= 1) continue;
    UChar same = kFirstPrintable;
    while (keys[same] != keys[unit]) ++same;
    classes[unit] = static_cast<char>(same);
  }
  return classes;
}

// One strength of the collation of the process, made at its first use, shared by all threads and
// never closed: strings are compared by static destructors too.
class Collation {
 public:
  static Collation const& For(bool ignoreCase) {
    static Collation const* const withCase = new Collation(UCOL_TERTIARY);
    static Collation const* const withoutCase = new Collation(UCOL_SECONDARY);
    return ignoreCase ? *withoutCase : *withCase;
  }

  // Null where ICU could not open it.
  UCollator* Get() const { return m_collator.Get(); }

  // Read at the first search: it takes milliseconds.
  PlainClasses const& Classes() const {
    std::call_once(m_classesRead, [this] { m_classes = ReadPlainClasses(Get()); });
    return m_classes;
  }

 private:
  explicit Collation(UCollationStrength strength) : m_collator(OpenCollator(strength)) {}

  CollatorHandle m_collator;
  mutable std::once_flag m_classesRead;
  mutable PlainClasses m_classes;
};

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

// Plain search, where both texts consist of characters that the collation reads one by one: then a
// match is a run of characters of the same classes. False where that does not hold.
bool FindPlainly(PlainClasses const& classes, CFStringRef string, CFStringRef wanted,
                 CFRange& found) {
  std::size_t const length = static_cast<std::size_t>(string->length);
  std::size_t const wantedLength = static_cast<std::size_t>(wanted->length);
  char small[512];
  std::unique_ptr<char[]> large;
  char* folded = small;
  if (length + wantedLength > sizeof small) {
    large.reset(new (std::nothrow) char[length + wantedLength]);
    folded = large.get();
    if (folded == nullptr) return false;
  }

  bool plain = true;
  auto const fold = [&classes, &plain](char const* text, std::size_t count, char* target) {
    for (std::size_t i = 0; i < count; ++i) {
      target[i] = classes[static_cast<unsigned char>(text[i])];
      plain = plain && target[i] != 0;
    }
  };
  fold(string->Narrow(), length, folded);
  fold(wanted->Narrow(), wantedLength, folded + length);
  if (!plain) return false;

  void const* const at = memmem(folded, length, folded + length, wantedLength);
  found = at == nullptr ? CFRangeMake(kCFNotFound, 0)
                        : CFRangeMake(static_cast<char const*>(at) - folded, wanted->length);
  return true;
}

// A search object for each strength, kept by each thread: opening one costs as much as a search.
UStringSearch* KeptSearch(UCollator* collator, bool ignoreCase) {
  thread_local SearchHandle kept[2];
  SearchHandle& search = kept[ignoreCase ? 1 : 0];
  if (!search) {
    static UChar const any[] = {'x', 0};
    UErrorCode status = U_ZERO_ERROR;
    SearchHandle opened(usearch_openFromCollator(any, 1, any, 1, collator, nullptr, &status));
    if (U_FAILURE(status)) return nullptr;
    search = std::move(opened);
  }
  return search.Get();
}

CFRange FindByIcu(UCollator* collator, CFStringRef string, CFStringRef wanted, bool ignoreCase) {
  CFRange const notFound = CFRangeMake(kCFNotFound, 0);
  UStringSearch* const search = KeptSearch(collator, ignoreCase);
  WideUnits const text(string);
  WideUnits const pattern(wanted);
  if (search == nullptr || text.Get() == nullptr || pattern.Get() == nullptr) return notFound;

  UErrorCode status = U_ZERO_ERROR;
  usearch_setText(search, text.Get(), static_cast<int32_t>(string->length), &status);
  usearch_setPattern(search, pattern.Get(), static_cast<int32_t>(wanted->length), &status);
  int32_t const at = usearch_first(search, &status);
  int32_t const length = usearch_getMatchedLength(search);
  if (U_FAILURE(status) || at == USEARCH_DONE || length == 0) return notFound;
  return CFRangeMake(at, length);
}

}  // namespace

CFComparisonResult CompareLocalized(CFStringRef first, CFStringRef second, bool ignoreCase) {
  if (first->length == second->length && first->wide == second->wide) {
    std::size_t const unit = first->wide ? sizeof(UniChar) : 1;
    std::size_t const size = static_cast<std::size_t>(first->length) * unit;
    if (std::memcmp(first->Narrow(), second->Narrow(), size) == 0) return kCFCompareEqualTo;
  }
  UCollator* const collator = Collation::For(ignoreCase).Get();
  if (collator == nullptr || first->length > INT32_MAX || second->length > INT32_MAX) {
    return CompareUnits(first, second);
  }
  return CompareByIcu(collator, first, second);
}

CFRange FindLocalized(CFStringRef string, CFStringRef wanted, bool ignoreCase) {
  Collation const& collation = Collation::For(ignoreCase);
  if (collation.Get() == nullptr || string->length > INT32_MAX || wanted->length > INT32_MAX) {
    return CFRangeMake(kCFNotFound, 0);
  }
  if (!string->wide && !wanted->wide) {
    CFRange found;
    if (FindPlainly(collation.Classes(), string, wanted, found)) return found;
  }
  return FindByIcu(collation.Get(), string, wanted, ignoreCase);
}
