#pragma once

#include <CoreFoundation/CFBase.h>

// Owns one reference on a platform object: the one that a Create or Copy call returned, or none.
template <class Ref>
class CFHolder {
 public:
  explicit CFHolder(Ref object) : m_object(object) {}
  CFHolder(CFHolder const&) = delete;
  CFHolder& operator=(CFHolder const&) = delete;
  ~CFHolder() { Reset(nullptr); }

  // The object, lent, or null.
  Ref Get() const { return m_object; }
  explicit operator bool() const { return m_object != nullptr; }

  // Hands the reference to the caller.
  Ref Release() {
    Ref const object = m_object;
    m_object = nullptr;
    return object;
  }

  // Lets the object go and owns `object` from here on.
  void Reset(Ref object) {
    if (m_object != nullptr) CFRelease(m_object);
    m_object = object;
  }

 private:
  Ref m_object;
};
