#pragma once

#include <type_traits>

#include "platform/linux/CFObject.h"

// Objects that are made together and go together, one behind the other in a few large blocks. A
// reference to any of them is one to the store, and with the last one all are gone. Their
// destructors are not called: they hold memory and references of the store alone.
//
// The store begins with one reference, which is the maker's.
class ObjectStore final : public CFObject {
 public:
  ~ObjectStore() override;

  // A `Type` and `extraBytes` behind it; null when memory runs out.
  template <class Type, class... Arguments>
  Type* Make(std::size_t extraBytes, Arguments&&... arguments) {
    static_assert(alignof(Type) <= kAlignment && std::is_base_of_v<CFObject, Type>);
    Place const place = Allocate(sizeof(Type) + extraBytes);
    if (place.memory == nullptr) return nullptr;
    auto* const made = new (place.memory) Type(std::forward<Arguments>(arguments)...);
    made->BecomeStored(&place.block->store);
    return made;
  }

  // Takes over one reference on an object that lies elsewhere, to be let go with the store. False,
  // with the reference still the caller's, when memory runs out.
  bool Keep(CFObject const* object);

 private:
  static constexpr std::size_t kAlignment = alignof(void*);

  struct Block {
    Block* next;
    CFObject* store;
  };
  struct Place {
    void* memory;  // or null
    Block* block;
  };
  struct Kept {
    Kept* next;
    CFObject const* object;
  };

  Place Allocate(std::size_t size) {
    size = (size + kAlignment - 1) & ~(kAlignment - 1);
    if (size > m_left) return AllocateElsewhere(size);
    Place const place = {m_free, m_filling};
    m_free += size;
    m_left -= size;
    return place;
  }
  Place AllocateElsewhere(std::size_t size);

  char* m_free = nullptr;
  std::size_t m_left = 0;
  Block* m_filling = nullptr;  // the one in which there is room
  Block* m_blocks = nullptr;
  Kept* m_kept = nullptr;
};

// In the store, or by itself where there is none.
template <class Type, class... Arguments>
Type* MakeCFObjectIn(ObjectStore* store, std::size_t extraBytes, Arguments&&... arguments) {
  return store != nullptr ? store->Make<Type>(extraBytes, std::forward<Arguments>(arguments)...)
                          : MakeCFObject<Type>(extraBytes, std::forward<Arguments>(arguments)...);
}
