#pragma once

#include <CoreFoundation/CFBase.h>

#include <atomic>
#include <cstdlib>

// The common head of every object of the CoreFoundation seam. An object is one block from malloc,
// so that a payload may follow it in place.
class CFObject {
 public:
  CFObject() = default;
  CFObject(CFObject const&) = delete;
  CFObject& operator=(CFObject const&) = delete;
  virtual ~CFObject() = default;

  // The block is sized by its maker and not by its type.
  static void* operator new(std::size_t, void* block) noexcept { return block; }
  static void operator delete(void* block) noexcept { std::free(block); }
  static void operator delete(void*, void*) noexcept {}

  void Retain() const {
    if (!m_immortal) m_references.fetch_add(1, std::memory_order_relaxed);
  }
  void Release() const {
    if (m_immortal) return;
    if (m_references.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }

  // From now on the object outlives every release. To be called before it is shared.
  void MakeImmortal() { m_immortal = true; }

 private:
  mutable std::atomic<std::int32_t> m_references{1};
  bool m_immortal = false;
};

// A block for `Type` and `extraBytes` behind it, constructed; null when memory runs out.
template <class Type, class... Arguments>
Type* MakeCFObject(std::size_t extraBytes, Arguments&&... arguments) {
  void* const block = std::malloc(sizeof(Type) + extraBytes);
  if (block == nullptr) return nullptr;
  return new (block) Type(static_cast<Arguments&&>(arguments)...);
}
