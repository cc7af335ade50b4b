#pragma once

// CUSharedPtr<T>, the owning pointer over the count inside CUObject.

#include <atomic>
#include <cstddef>
#include <type_traits>
#include <utility>

#include "QuillmereLib/core/CUExport.h"
#include "QuillmereLib/core/CUObject.h"

// Holds one unit of its object's count, or is null. Nothing here throws, allocates or tests for
// null on use. Threads may hold pointers to one object, but must not assign to one pointer.
// A cast down the tree goes through Get() and dynamic_cast, and gives null where it fails:
//   CUSharedPtr<CUStringMac> text(dynamic_cast<CUStringMac*>(object.Get()));
template <class T>
class QUILLMERE_API CUSharedPtr {
 public:
  constexpr CUSharedPtr() noexcept : m_ptr(nullptr) {}

  // Shares `object`, which must come from `new`, or is null.
  CUSharedPtr(T* object) noexcept : m_ptr(object) { Add(m_ptr); }

  CUSharedPtr(CUSharedPtr const& other) noexcept : m_ptr(other.m_ptr) { Add(m_ptr); }

  // Shares `object`, straight from `new`: as nothing else can hold it yet, the first unit needs no
  // atomic step.
  static CUSharedPtr OfNew(T* object) noexcept {
    CUSharedPtr pointer;
    pointer.m_ptr = object;
    std::atomic<std::int32_t>& count = static_cast<CUObject&>(*object).m_refCount;
    count.store(count.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    return pointer;
  }

  // Takes over the unit of `other`, which becomes null.
  CUSharedPtr(CUSharedPtr&& other) noexcept : m_ptr(std::exchange(other.m_ptr, nullptr)) {}

  // From a pointer to a derived class, as it enters a collection.
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  CUSharedPtr(CUSharedPtr<U> const& other) noexcept : m_ptr(other.m_ptr) {
    Add(m_ptr);
  }
  template <class U, class = std::enable_if_t<std::is_convertible_v<U*, T*>>>
  CUSharedPtr(CUSharedPtr<U>&& other) noexcept : m_ptr(std::exchange(other.m_ptr, nullptr)) {}

  virtual ~CUSharedPtr() {
    if (m_ptr != nullptr) {
      Release(m_ptr);
      m_ptr = nullptr;
    }
  }

  // The new object is counted before the old one is let go, so that assigning a pointer to itself,
  // or to another pointer at the same object, is safe.
  CUSharedPtr& operator=(CUSharedPtr const& other) noexcept {
    T* const object = other.m_ptr;
    Add(object);
    if (m_ptr != nullptr) Release(m_ptr);
    m_ptr = object;
    return *this;
  }
  CUSharedPtr& operator=(CUSharedPtr&& other) noexcept {
    T* const object = std::exchange(other.m_ptr, nullptr);
    if (m_ptr != nullptr) Release(m_ptr);
    m_ptr = object;
    return *this;
  }

  T* operator->() const noexcept { return m_ptr; }
  T& operator*() const noexcept { return *m_ptr; }

  // The raw pointer, lent, or null.
  T* Get() const noexcept { return m_ptr; }

  explicit operator bool() const noexcept { return m_ptr != nullptr; }

 private:
  template <class U>
  friend class CUSharedPtr;

  // The object is reached through CUObject and destroyed there, since T may have it as a virtual
  // base. Only the end of a life costs a call.
  static void Add(T* object) noexcept {
    if (object != nullptr) static_cast<CUObject&>(*object).m_refCount.fetch_add(1);
  }
  // The last pointer sees that it is, and needs no atomic subtraction.
  static void Release(T* object) noexcept {
    CUObject& counted = *object;
    if (counted.m_refCount.load(std::memory_order_acquire) == 1) {
      counted.m_refCount.store(0, std::memory_order_relaxed);
    } else if (counted.m_refCount.fetch_sub(1) > 1) {
      return;
    }
    delete &counted;
  }

  T* m_ptr;
};

// Pointers are equal when they hold the same object; what the object says is never asked.
template <class T, class U>
bool operator==(CUSharedPtr<T> const& first, CUSharedPtr<U> const& second) noexcept {
  return first.Get() == second.Get();
}
template <class T, class U>
bool operator!=(CUSharedPtr<T> const& first, CUSharedPtr<U> const& second) noexcept {
  return first.Get() != second.Get();
}
template <class T>
bool operator==(CUSharedPtr<T> const& pointer, std::nullptr_t) noexcept {
  return pointer.Get() == nullptr;
}
template <class T>
bool operator!=(CUSharedPtr<T> const& pointer, std::nullptr_t) noexcept {
  return pointer.Get() != nullptr;
}
template <class T>
bool operator==(std::nullptr_t, CUSharedPtr<T> const& pointer) noexcept {
  return pointer.Get() == nullptr;
}
template <class T>
bool operator!=(std::nullptr_t, CUSharedPtr<T> const& pointer) noexcept {
  return pointer.Get() != nullptr;
}
