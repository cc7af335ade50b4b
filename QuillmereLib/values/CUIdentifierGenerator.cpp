#include "QuillmereLib/values/CUIdentifierGenerator.h"

#include <mutex>

namespace {

CUSharedPtr<CUIdentifierGenerator> gs_sharedCUIdentifierGenerator;

// Held while the pointer above is read or written, and not from the one to the other.
std::mutex gs_slotLock;

}  // namespace

CUIdentifierGenerator::CUIdentifierGenerator() : m_lastIdentifier(0) {}

CUIdentifierGenerator::~CUIdentifierGenerator() = default;

CUSharedPtr<CUIdentifierGenerator> CUIdentifierGenerator::SharedInstance() {
  {
    std::lock_guard<std::mutex> const guard(gs_slotLock);
    if (gs_sharedCUIdentifierGenerator != nullptr) return gs_sharedCUIdentifierGenerator;
  }
  CUSharedPtr<CUIdentifierGenerator> made = new CUIdentifierGenerator;
  std::lock_guard<std::mutex> const guard(gs_slotLock);
  gs_sharedCUIdentifierGenerator = made;
  return made;
}

std::int64_t CUIdentifierGenerator::GenerateIdentifier() {
  CUAutoLock const guard(&m_lock);
  return ++m_lastIdentifier;
}
