#include "QuillmereLib/core/CULock.h"

#include "QuillmereLib/core/CUWaitHandle.h"

CULockAbstract::~CULockAbstract() = default;

void CULockAbstract::Lock() {}

void CULockAbstract::Unlock() {}

CURecursiveLock::CURecursiveLock() : m_mutex(new CUMutex) {}

CURecursiveLock::~CURecursiveLock() {
  delete m_mutex;
  m_mutex = nullptr;
}

void CURecursiveLock::Lock() {
  if (m_mutex != nullptr) m_mutex->WaitOne();
}

void CURecursiveLock::Unlock() {
  if (m_mutex != nullptr) m_mutex->ReleaseMutex();
}
