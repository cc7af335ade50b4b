#include "QuillmereLib/values/CUIdentifierGenerator.h"

#include <mutex>
#include <utility>

namespace {

// Threads, and the destructors of other libraries, run on while the process exits: the pointer is
// there for them until the end, and null once it has been emptied.
union Slot {
  constexpr Slot() : gs_sharedCUIdentifierGenerator() {}
  ~Slot() {}

  CUSharedPtr<CUIdentifierGenerator> gs_sharedCUIdentifierGenerator;
} g_slot;

// Held while the pointer above is read or written, and not from the one to the other.
std::mutex gs_slotLock;

struct EmptySlotAtExit {
  ~EmptySlotAtExit() {
    CUSharedPtr<CUIdentifierGenerator> last;
    std::lock_guard<std::mutex> const guard(gs_slotLock);
    last = std::move(g_slot.gs_sharedCUIdentifierGenerator);
  }
} const g_emptySlotAtExit;

}  // namespace

CUIdentifierGenerator::CUIdentifierGenerator() : m_lastIdentifier(0) {}

CUIdentifierGenerator::~CUIdentifierGenerator() = default;

CUSharedPtr<CUIdentifierGenerator> CUIdentifierGenerator::SharedInstance() {
  {
    std::lock_guard<std::mutex> const guard(gs_slotLock);
    if (g_slot.gs_sharedCUIdentifierGenerator != nullptr) {
      return g_slot.gs_sharedCUIdentifierGenerator;
    }
  }
  CUSharedPtr<CUIdentifierGenerator> made = new CUIdentifierGenerator;
  std::lock_guard<std::mutex> const guard(gs_slotLock);
  g_slot.gs_sharedCUIdentifierGenerator = made;
  return made;
}

std::int64_t CUIdentifierGenerator::GenerateIdentifier() {
  CUAutoLock const guard(&m_lock);
  return ++m_lastIdentifier;
}
