#pragma once

// An object that counts its lives and tells of its death.

#include <atomic>
#include <cstdint>
#include <cstring>
#include <string>

#include "QuillmereLib/core/CUObject.h"
#include "tests/support/EventLog.h"

class CountedObject : public CUObject {
 public:
  explicit CountedObject(int value = 0, EventLog* log = nullptr) : m_value(value), m_log(log) {
    ++Live;
  }
  CountedObject(CountedObject const& other)
      : CUObject(other), m_value(other.m_value), m_log(other.m_log) {
    ++Live;
  }
  CountedObject& operator=(CountedObject const&) = default;
  ~CountedObject() override {
    --Live;
    if (m_log != nullptr) m_log->Add("~" + std::to_string(m_value));
  }

  int Value() const { return m_value; }

  inline static std::atomic<int> Live{0};

 private:
  int m_value;
  EventLog* m_log;  // borrowed
};

// How many pointers hold an object. Its count is the field behind the pointer to the virtual table.
inline int CountOf(CUObject const& object) {
  std::int32_t count = 0;
  std::memcpy(&count, reinterpret_cast<char const*>(&object) + sizeof(void*), sizeof count);
  return count;
}
