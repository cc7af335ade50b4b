#include "platform/linux/ObjectStore.h"

#include <algorithm>

ObjectStore::~ObjectStore() {
  for (Kept const* kept = m_kept; kept != nullptr; kept = kept->next) kept->object->Release();
  while (m_blocks != nullptr) FreeBlock(std::exchange(m_blocks, m_blocks->next));
}

// The first block is small, as are most documents. What would not fit well gets one of its own.
ObjectStore::Place ObjectStore::AllocateElsewhere(std::size_t size) {
  constexpr std::size_t kFirst = std::size_t{4} << 10;
  constexpr std::size_t kOthers = std::size_t{256} << 10;
  std::size_t const usual = (m_blocks == nullptr ? kFirst : kOthers) - sizeof(Block);
  std::size_t const room = std::max(size, usual);
  void* const memory = AllocateBlock(sizeof(Block) + room);
  if (memory == nullptr) return {};
  auto* const block = new (memory) Block{m_blocks, this};
  m_blocks = block;
  char* const start = reinterpret_cast<char*>(block + 1);
  if (room - size >= m_left) {
    m_free = start + size;
    m_left = room - size;
    m_filling = block;
  }
  return {start, block};
}

bool ObjectStore::Keep(CFObject const* object) {
  auto* const kept = static_cast<Kept*>(Allocate(sizeof(Kept)).memory);
  if (kept == nullptr) return false;
  *kept = {m_kept, object};
  m_kept = kept;
  return true;
}
