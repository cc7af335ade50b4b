#pragma once

// The allocator of containers whose elements come and go in as great numbers as objects do.

#include <cstddef>
#include <limits>
#include <new>

#include "QuillmereLib/core/CUObject.h"

// Takes memory where CUObject's `new` takes it. For a container that nobody else changes: whoever
// lets an element go must use this allocator, too. It has no state; any thread may let go.
template <class T>
struct CUObjectAllocator {
  using value_type = T;

  CUObjectAllocator() noexcept = default;
  template <class U>
  CUObjectAllocator(CUObjectAllocator<U> const&) noexcept {}

  // Memory for `count` elements; throws std::bad_alloc.
  T* allocate(std::size_t count) {
    static_assert(alignof(T) <= alignof(std::max_align_t));
    if (count > std::numeric_limits<std::size_t>::max() / sizeof(T)) throw std::bad_alloc();
    return static_cast<T*>(CUObject::operator new(count * sizeof(T)));
  }
  void deallocate(T* elements, std::size_t) noexcept { CUObject::operator delete(elements); }

  template <class U>
  bool operator==(CUObjectAllocator<U> const&) const noexcept {
    return true;
  }
  template <class U>
  bool operator!=(CUObjectAllocator<U> const&) const noexcept {
    return false;
  }
};
