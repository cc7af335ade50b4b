#pragma once

#include "QuillmereLib/core/CUSharedPtr.h"

// A new object, or null, whatever keeps it from being made.
template <class T, class... Arguments>
CUSharedPtr<T> CreateOrNull(Arguments&&... arguments) {
  try {
    return new T(static_cast<Arguments&&>(arguments)...);
  } catch (...) {
    return nullptr;
  }
}
