#include <CoreFoundation/CFLocale.h>
#include <unicode/uloc.h>

#include <cstdlib>
#include <new>
#include <string>

#include "platform/linux/CFLocaleObject.h"

namespace {

char const* NameInEnvironment() {
  for (char const* const variable : {"LC_ALL", "LC_TIME", "LANG"}) {
    char const* const name = std::getenv(variable);
    if (name != nullptr && *name != '\0') return name;
  }
  return "C";
}

// From a name such as "de_DE.UTF-8@euro".
std::string Identifier(std::string const& name) {
  std::string const plain = name.substr(0, name.find_first_of(".@"));
  if (plain == "C" || plain == "POSIX") return "en_US_POSIX";
  UErrorCode status = U_ZERO_ERROR;
  char identifier[ULOC_FULLNAME_CAPACITY];
  int32_t const length =
      uloc_canonicalize(name.c_str(), identifier, ULOC_FULLNAME_CAPACITY, &status);
  if (U_FAILURE(status) || length <= 0) return "en_US_POSIX";
  return std::string(identifier, static_cast<std::size_t>(length));
}

CFLocaleRef MakeCurrent() {
  try {
    __CFLocale* const locale = MakeCFObject<__CFLocale>(0, Identifier(NameInEnvironment()));
    if (locale != nullptr) locale->MakeImmortal();
    return locale;
  } catch (std::bad_alloc const&) {
    return nullptr;
  }
}

}  // namespace

CFLocaleRef CFLocaleCopyCurrent() {
  static CFLocaleRef const current = MakeCurrent();
  return current;
}
