#include "QuillmereLib/core/CUEventWaitHandle.h"

CUEventWaitHandle::CUEventWaitHandle(bool initialState, _CUEventWaitHandle_EventResetMode mode)
    : m_resetMode(mode), m_condition(), m_lock(new CUMutex), m_signaled(initialState) {
  pthread_cond_init(&m_condition, nullptr);
}

// Waiters must not sleep on a dying event. A lock that throws takes the rest of the work with it:
// what it guards cannot be touched any more.
CUEventWaitHandle::~CUEventWaitHandle() {
  try {
    m_lock->WaitOne();
    if (!m_signaled) pthread_cond_broadcast(&m_condition);
    m_lock->ReleaseMutex();
    pthread_cond_destroy(&m_condition);
  } catch (...) {
  }
}

bool CUEventWaitHandle::WaitOne() {
  // What is needed after the wait is held by then: the wake-up may be that of the event's end.
  CUSharedPtr<CUMutex> const lock = m_lock;
  bool const resets = m_resetMode == CUEventWaitHandle_AutoReset;
  lock->WaitOne();
  // One wait and no loop: callers rely on coming back from every wake-up.
  if (!m_signaled) pthread_cond_wait(&m_condition, lock->GetMutex());
  if (resets) m_signaled = false;
  lock->ReleaseMutex();
  return true;
}

bool CUEventWaitHandle::Reset() {
  m_lock->WaitOne();
  m_signaled = false;
  m_lock->ReleaseMutex();
  return true;
}

bool CUEventWaitHandle::Set() {
  m_lock->WaitOne();
  if (!m_signaled) {
    m_signaled = true;
    if (m_resetMode == CUEventWaitHandle_AutoReset) {
      pthread_cond_signal(&m_condition);
    } else {
      pthread_cond_broadcast(&m_condition);
    }
  }
  m_lock->ReleaseMutex();
  return true;
}

CUManualResetEvent::CUManualResetEvent(bool initialState)
    : CUEventWaitHandle(initialState, CUEventWaitHandle_ManualReset) {}

CUManualResetEvent::~CUManualResetEvent() = default;

CUAutoResetEvent::CUAutoResetEvent(bool initialState)
    : CUEventWaitHandle(initialState, CUEventWaitHandle_AutoReset) {}

CUAutoResetEvent::~CUAutoResetEvent() = default;
