#pragma once

// CUIdentifierGenerator, which hands out numbers that are unique within one run of the process.

#include <cstdint>

#include "QuillmereLib/core/CUExport.h"
#include "QuillmereLib/core/CULock.h"
#include "QuillmereLib/core/CUObject.h"
#include "QuillmereLib/core/CUSharedPtr.h"

// Any thread may use it.
class QUILLMERE_API CUIdentifierGenerator : public CUObject {
 public:
  CUIdentifierGenerator();
  CUIdentifierGenerator(CUIdentifierGenerator const&) = delete;
  CUIdentifierGenerator& operator=(CUIdentifierGenerator const&) = delete;
  ~CUIdentifierGenerator() override;

  // The one of the process, made at the first call. Threads whose first calls coincide may each
  // get one of their own, and the one made last stays: call it once before there are others.
  static CUSharedPtr<CUIdentifierGenerator> SharedInstance();

  // The next number; the first is 1.
  std::int64_t GenerateIdentifier();

 private:
  std::int64_t m_lastIdentifier;
  CURecursiveLock m_lock;
};
