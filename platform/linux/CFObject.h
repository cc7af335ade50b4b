#pragma once

#include <CoreFoundation/CFBase.h>

#include <atomic>
#include <utility>

#include "Blocks.h"

// The common head of every object of the CoreFoundation seam. An object is one block, so that a
// payload may follow it in place.
class CFObject {
 public:
  CFObject() = default;
  CFObject(CFObject const&) = delete;
  CFObject& operator=(CFObject const&) = delete;
  virtual ~CFObject() = default;

  // The block is sized by its maker and not by its type.
  static void* operator new(std::size_t, void* block) noexcept { return block; }
  static void operator delete(void* block) noexcept { FreeBlock(block); }
  static void operator delete(void*, void*) noexcept {}

  void Retain() const {
    if (m_life == Life::Counted) {
      m_references.fetch_add(1, std::memory_order_relaxed);
    } else if (m_life == Life::Stored) {
      Store()->Retain();
    }
  }
  void Release() const {
    if (m_life == Life::Counted) {
      // Whoever holds the only reference needs no atomic subtraction.
      if (m_references.load(std::memory_order_acquire) == 1) {
        m_references.store(0, std::memory_order_relaxed);
      } else if (m_references.fetch_sub(1, std::memory_order_acq_rel) != 1) {
        return;
      }
      delete this;
    } else if (m_life == Life::Stored) {
      Store()->Release();
    }
  }

  // From now on the object outlives every release. To be called before it is shared.
  void MakeImmortal() { m_life = Life::Immortal; }
  bool IsImmortal() const { return m_life == Life::Immortal; }

 private:
  friend class ObjectStore;

  enum class Life : unsigned char { Counted, Immortal, Stored };

  // A stored object has no references of its own. In their place stands how far in front of it the
  // address of its store lies, in pointers.
  void BecomeStored(CFObject* const* store) {
    auto const distance = reinterpret_cast<CFObject* const*>(this) - store;
    m_references.store(static_cast<std::int32_t>(distance), std::memory_order_relaxed);
    m_life = Life::Stored;
  }
  CFObject* Store() const {
    return *(reinterpret_cast<CFObject* const*>(this) -
             m_references.load(std::memory_order_relaxed));
  }

  mutable std::atomic<std::int32_t> m_references{1};
  Life m_life = Life::Counted;
};

// What collections of objects call for each that enters or leaves.
void const* RetainObject(CFAllocatorRef allocator, void const* object);
void ReleaseObject(CFAllocatorRef allocator, void const* object);

// A block for `Type` and `extraBytes` behind it, constructed; null when memory runs out.
template <class Type, class... Arguments>
Type* MakeCFObject(std::size_t extraBytes, Arguments&&... arguments) {
  void* const block = AllocateBlock(sizeof(Type) + extraBytes);
  if (block == nullptr) return nullptr;
  return new (block) Type(std::forward<Arguments>(arguments)...);
}
