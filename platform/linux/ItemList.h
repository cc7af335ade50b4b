#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "Blocks.h"

// A list of plain items whose first ones lie behind the object that holds it, in its own block.
template <class Item>
class ItemList {
  static_assert(std::is_trivially_copyable_v<Item>);

 public:
  // With room for `count` items from `behind`.
  ItemList(void* behind, std::size_t count)
      : m_behind(static_cast<Item*>(behind)), m_items(m_behind), m_room(count) {}
  ItemList(ItemList const&) = delete;
  ItemList& operator=(ItemList const&) = delete;
  ~ItemList() {
    if (m_items != m_behind) FreeBlock(m_items);
  }

  // Room for `count` items more; false when memory runs out.
  bool Reserve(std::size_t count) {
    if (count <= m_room - m_count) return true;
    std::size_t needed = 0;
    std::size_t size = 0;
    if (__builtin_add_overflow(m_count, count, &needed)) return false;
    if (needed < 2 * m_room) needed = 2 * m_room;
    if (__builtin_mul_overflow(needed, sizeof(Item), &size)) return false;
    auto* const larger = static_cast<Item*>(AllocateBlock(size));
    if (larger == nullptr) return false;
    if (m_count != 0) std::memcpy(larger, m_items, m_count * sizeof(Item));
    if (m_items != m_behind) FreeBlock(m_items);
    m_items = larger;
    m_room = needed;
    return true;
  }

  // Within what is reserved.
  void Append(Item const& item) { m_items[m_count++] = item; }

  std::size_t size() const { return m_count; }
  Item& operator[](std::size_t index) { return m_items[index]; }
  Item const& operator[](std::size_t index) const { return m_items[index]; }
  Item* begin() { return m_items; }
  Item* end() { return m_items + m_count; }
  Item const* begin() const { return m_items; }
  Item const* end() const { return m_items + m_count; }

 private:
  Item* const m_behind;
  Item* m_items;
  std::size_t m_room;
  std::size_t m_count = 0;
};

// How many items to put behind an object that is said to get `count`: a number from a caller may be
// no more than a guess.
inline std::size_t RoomBehind(std::ptrdiff_t count) {
  constexpr std::ptrdiff_t kMost = 64;
  return static_cast<std::size_t>(count < 0 ? 0 : count > kMost ? kMost : count);
}
