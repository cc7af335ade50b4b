// Strings compare and search as ICU does by itself, without the library's short cuts and with
// nothing kept from one search to the next; and no order is two ways at once.

#include <CoreFoundation/CoreFoundation.h>
#include <unicode/ucol.h>
#include <unicode/usearch.h>

#include "fuzz/Texts.h"

namespace {

// Danish takes "aa", and an "a" with a ring of its own, for one letter. The library reads the
// locale once, later than this.
UCollator* Open(UCollationStrength strength) {
  setenv("LC_ALL", "da_DK", 1);
  UErrorCode status = U_ZERO_ERROR;
  UCollator* const collator = ucol_open("da_DK", &status);
  ucol_setAttribute(collator, UCOL_STRENGTH, static_cast<UColAttributeValue>(strength), &status);
  ucol_setAttribute(collator, UCOL_NORMALIZATION_MODE, UCOL_ON, &status);
  Require(U_SUCCESS(status));
  return collator;
}

// By the library's numbers of the comparisons.
UCollator* const g_collators[] = {Open(UCOL_TERTIARY), Open(UCOL_SECONDARY)};

UCollationResult Order(UCollator* collator, std::u16string const& a, std::u16string const& b) {
  return ucol_strcoll(collator, a.data(), static_cast<int32_t>(a.size()), b.data(),
                      static_cast<int32_t>(b.size()));
}

_CURange Found(UCollator* collator, std::u16string const& text, std::u16string const& needle) {
  UErrorCode status = U_ZERO_ERROR;
  UStringSearch* const search =
      usearch_openFromCollator(needle.data(), static_cast<int32_t>(needle.size()), text.data(),
                               static_cast<int32_t>(text.size()), collator, nullptr, &status);
  int32_t const at = usearch_first(search, &status);
  int32_t const length = usearch_getMatchedLength(search);
  if (search != nullptr) usearch_close(search);
  if (U_FAILURE(status) || at == USEARCH_DONE || length == 0) return {CURange_NoLocation, 0};
  return {static_cast<unsigned long long>(at), static_cast<unsigned long long>(length)};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
  Input input(bytes, size);
  unsigned int const codes = input.TakeByte();
  CUSharedPtr<CUStringMac> const needle = MakeText(input.TakeLine().substr(0, 64), codes % 4);
  CUSharedPtr<CUStringMac> const text = MakeText(input.TakeText(512), codes / 4 % 4);
  CUStringMac& a = *text;
  CUStringMac& b = *needle;
  bool const areTexts =
      static_cast<CFStringRef>(a) != nullptr && static_cast<CFStringRef>(b) != nullptr;
  Require(a == b ? !(a < b) && !(b < a) : (a < b) != (b < a) || !areTexts);

  for (auto const comparison : {CUStringComparison_CaseSensitive, CUStringComparison_IgnoreCase}) {
    _CURange const found = text->Find(needle, comparison);
    bool const areEqual = a.Equals(b, comparison);
    Require(areEqual == b.Equals(a, comparison));
    if (!areTexts) {
      Require(!areEqual && found.location == CURange_NoLocation && found.length == 0);
      continue;
    }
    std::u16string const units = UnitsOf(a);
    std::u16string const needed = UnitsOf(b);
    UCollator* const collator = g_collators[comparison];
    UCollationResult const order = Order(collator, units, needed);
    Require(areEqual == (order == UCOL_EQUAL));
    if (comparison == CUStringComparison_CaseSensitive) {
      Require((a < b) == (order == UCOL_LESS) && (b < a) == (order == UCOL_GREATER));
    }
    _CURange const expected = Found(collator, units, needed);
    Require(found.location == expected.location && found.length == expected.length);
    if (found.location == CURange_NoLocation) continue;
    Require(found.length > 0 && found.location + found.length <= units.size());
  }
  return 0;
}
