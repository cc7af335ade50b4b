#pragma once

// Objects that tell of their lives.

#include <atomic>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <utility>

#include "QuillmereLib/core/CUObject.h"
#include "QuillmereLib/strings/CUStringMac.h"

// What happened, in order: the text of it is the assertion.
class EventLog {
 public:
  void Add(std::string const& event) { m_text += (m_text.empty() ? "" : " ") + event; }

  // Everything since the last call, with blanks between.
  std::string Take() { return std::exchange(m_text, std::string()); }

 private:
  std::string m_text;
};

class CountedObject : public CUObject {
 public:
  explicit CountedObject(int value = 0, EventLog* log = nullptr) : m_value(value), m_log(log) {
    ++Live;
  }
  CountedObject(CountedObject const& other) : CountedObject(other.m_value, other.m_log) {}
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

// Does something as it dies, and describes itself by whatever a function gives.
struct Scripted : CUObject {
  explicit Scripted(std::function<CUSharedPtr<CUStringMac>()> text, std::function<void()> end = {})
      : description(std::move(text)), atDeath(std::move(end)) {}
  ~Scripted() override {
    if (atDeath) atDeath();
  }
  CUSharedPtr<CUStringMac> Description() override { return description(); }

  std::function<CUSharedPtr<CUStringMac>()> const description;
  std::function<void()> const atDeath;
};

// How many pointers hold an object. Its count is the field behind the pointer to the virtual table.
inline int CountOf(CUObject const& object) {
  std::int32_t count = 0;
  std::memcpy(&count, reinterpret_cast<char const*>(&object) + sizeof(void*), sizeof count);
  return count;
}
