#pragma once

// Locks and the scope that holds one:
//   CUAutoLock guard(m_lock);  // entered here, left at the end of the block

#include <utility>

#include "QuillmereLib/core/CUExport.h"
#include "QuillmereLib/core/CUObject.h"
#include "QuillmereLib/core/CUSharedPtr.h"

class CUMutex;

// What can be entered and left. This class itself locks nothing and never fails.
class QUILLMERE_API CULockAbstract : public virtual CUObject {
 public:
  ~CULockAbstract() override;

  virtual void Lock();
  virtual void Unlock();
};

// The one lock of the library. Any thread may use it, and one thread may take it repeatedly and
// must leave it as many times.
class QUILLMERE_API CURecursiveLock : public CULockAbstract {
 public:
  CURecursiveLock();
  CURecursiveLock(CURecursiveLock const&) = delete;
  CURecursiveLock& operator=(CURecursiveLock const&) = delete;
  ~CURecursiveLock() override;

  void Lock() override;
  void Unlock() override;

 private:
  CUMutex* m_mutex;  // owned
};

// The calls by which every lock is entered and left. A null lock is legal and does nothing. What
// the lock throws passes through.
class QUILLMERE_API CUSimpleMonitor : public CUObject {
 public:
  static void Enter(CULockAbstract* lock) {
    if (lock != nullptr) lock->Lock();
  }
  static void Enter(CUSharedPtr<CULockAbstract> lock) { Enter(lock.Get()); }
  static void Exit(CULockAbstract* lock) {
    if (lock != nullptr) lock->Unlock();
  }
  static void Exit(CUSharedPtr<CULockAbstract> lock) { Exit(lock.Get()); }
};

// Holds a lock for its own life; there is no early release. A null lock is legal: code may guard
// optionally. The two forms differ on purpose when the lock throws on entry.
class QUILLMERE_API CUAutoLock : public CUObject {
 public:
  // The caller keeps the lock alive. An exception of its Lock leaves the constructor.
  explicit CUAutoLock(CULockAbstract* lock) : m_rawLock(lock) {
    if (lock != nullptr) CallEnter();
  }

  // Keeps the lock alive. An exception of its Lock is swallowed, and the scope goes on as if the
  // lock were held.
  explicit CUAutoLock(CUSharedPtr<CULockAbstract> lock) : m_rawLock(nullptr) {
    if (lock == nullptr) return;
    try {
      m_sharedLock = std::move(lock);
      CallEnter();
    } catch (...) {
    }
  }

  CUAutoLock(CUAutoLock const&) = delete;
  CUAutoLock& operator=(CUAutoLock const&) = delete;

  // An exception of the lock's Unlock is swallowed.
  ~CUAutoLock() override {
    try {
      CallExit();
    } catch (...) {
    }
  }

  // The raw lock first, the shared one second. The shared one is entered through its raw pointer:
  // this object holds it for longer than the call.
  void CallEnter() {
    CUSimpleMonitor::Enter(m_rawLock);
    CUSimpleMonitor::Enter(m_sharedLock.Get());
  }
  void CallExit() {
    CUSimpleMonitor::Exit(m_rawLock);
    CUSimpleMonitor::Exit(m_sharedLock.Get());
  }

 private:
  CULockAbstract* m_rawLock;  // borrowed
  CUSharedPtr<CULockAbstract> m_sharedLock;
};
