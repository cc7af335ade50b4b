#pragma once

#include <CoreFoundation/CFLocale.h>

#include <string>

#include "platform/linux/CFObject.h"

struct __CFLocale final : CFObject {
  explicit __CFLocale(std::string&& name) : identifier(std::move(name)) {}

  std::string const identifier;  // as ICU names it
};
