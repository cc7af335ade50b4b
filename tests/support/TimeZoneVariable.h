#pragma once

// Sets TZ for a test, or takes it out, and puts it back afterwards. The C library follows.

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

class TimeZoneVariable {
 public:
  explicit TimeZoneVariable(char const* value) {
    if (char const* const before = std::getenv("TZ")) m_before = before;
    Set(value);
  }
  TimeZoneVariable(TimeZoneVariable const&) = delete;
  TimeZoneVariable& operator=(TimeZoneVariable const&) = delete;
  ~TimeZoneVariable() { Set(m_before ? m_before->c_str() : nullptr); }

  static void Set(char const* value) {
    value == nullptr ? unsetenv("TZ") : setenv("TZ", value, 1);
    tzset();
  }

 private:
  std::optional<std::string> m_before;
};
