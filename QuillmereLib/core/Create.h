#pragma once

#include "QuillmereLib/core/CUSharedPtr.h"

// A new object.
template <class T, class... Arguments>
CUSharedPtr<T> Create(Arguments&&... arguments) {
  return CUSharedPtr<T>::OfNew(new T(static_cast<Arguments&&>(arguments)...));
}

// A new object, or null, whatever keeps it from being made.
template <class T, class... Arguments>
CUSharedPtr<T> CreateOrNull(Arguments&&... arguments) {
  try {
    return Create<T>(static_cast<Arguments&&>(arguments)...);
  } catch (...) {
    return nullptr;
  }
}
