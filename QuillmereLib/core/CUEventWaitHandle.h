#pragma once

// Events: a flag that threads wait for. CUManualResetEvent keeps it until it is reset,
// CUAutoResetEvent hands it to one waiter.

#include <pthread.h>

#include "QuillmereLib/core/CUExport.h"
#include "QuillmereLib/core/CUSharedPtr.h"
#include "QuillmereLib/core/CUWaitHandle.h"

enum _CUEventWaitHandle_EventResetMode : unsigned int {
  CUEventWaitHandle_AutoReset = 0,   // a finished wait clears the flag; Set wakes one waiter
  CUEventWaitHandle_ManualReset = 1  // the flag stays until Reset; Set wakes all waiters
};

// All operations may be called from any threads at once. There is no wait with a time limit. The
// owner keeps the event alive until its waiters are gone: destroying it wakes them, and they return
// as if signalled, but nothing protects a waiter that is still inside.
class QUILLMERE_API CUEventWaitHandle : public CUWaitHandle {
 public:
  CUEventWaitHandle(bool initialState, _CUEventWaitHandle_EventResetMode mode);
  CUEventWaitHandle(CUEventWaitHandle const&) = delete;
  CUEventWaitHandle& operator=(CUEventWaitHandle const&) = delete;
  ~CUEventWaitHandle() override;

  // Returns at once if the event is signalled, else after one wake-up. It is a single wait: a
  // spurious wake-up, or one whose signal another thread has taken, ends it as well. Always true.
  bool WaitOne() override;

  // Clears the flag. Always true.
  virtual bool Reset();

  // Sets the flag and wakes; a flag that is set already wakes nobody. Always true.
  virtual bool Set();

 private:
  _CUEventWaitHandle_EventResetMode m_resetMode;
  pthread_cond_t m_condition;
  CUSharedPtr<CUMutex> m_lock;
  bool m_signaled;
};

class QUILLMERE_API CUManualResetEvent : public CUEventWaitHandle {
 public:
  explicit CUManualResetEvent(bool initialState);
  ~CUManualResetEvent() override;
};

class QUILLMERE_API CUAutoResetEvent : public CUEventWaitHandle {
 public:
  explicit CUAutoResetEvent(bool initialState);
  ~CUAutoResetEvent() override;
};
