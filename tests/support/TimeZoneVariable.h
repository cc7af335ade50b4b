#pragma once

// Sets TZ for a test, or takes it out, and puts it back afterwards. The C library follows.

#include <cstdlib>
#include <ctime>
#include <string>

class TimeZoneVariable {
 public:
  explicit TimeZoneVariable(char const* value) {
    char const* const before = std::getenv("TZ");
    m_wasSet = before != nullptr;
    if (m_wasSet) m_before = before;
    Set(value);
  }
  TimeZoneVariable(TimeZoneVariable const&) = delete;
  TimeZoneVariable& operator=(TimeZoneVariable const&) = delete;
  ~TimeZoneVariable() { Set(m_wasSet ? m_before.c_str() : nullptr); }

  static void Set(char const* value) {
    if (value == nullptr) {
      unsetenv("TZ");
    } else {
      setenv("TZ", value, 1);
    }
    tzset();
  }

 private:
  bool m_wasSet;
  std::string m_before;
};
