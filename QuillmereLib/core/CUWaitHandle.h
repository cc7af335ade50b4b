#pragma once

// CUWaitHandle, the base of everything a thread can wait on, and CUMutex.

#include <pthread.h>

#include "QuillmereLib/core/CUExport.h"
#include "QuillmereLib/core/CUObject.h"

class QUILLMERE_API CUWaitHandle : public virtual CUObject {
 public:
  ~CUWaitHandle() override;

  // Returns false at once; derived classes wait.
  virtual bool WaitOne();
};

// A recursive mutex: its owner may take it again, and must release it as many times. Any thread may
// use it. A mutex that the system could not initialise is not detected.
class QUILLMERE_API CUMutex : public CUWaitHandle {
 public:
  CUMutex();
  CUMutex(CUMutex const&) = delete;
  CUMutex& operator=(CUMutex const&) = delete;
  ~CUMutex() override;

  // Takes the mutex, waiting as long as it takes. Always true.
  bool WaitOne() override;

  // Lets go once. The result is that of pthread_mutex_unlock: 0, or an errno value.
  virtual int ReleaseMutex();

  // The mutex itself, lent, to wait on a condition variable with.
  pthread_mutex_t* GetMutex() { return &m_handle; }

 private:
  pthread_mutex_t m_handle;
  pthread_mutexattr_t m_attributes;
};
