#include "QuillmereLib/core/CUWaitHandle.h"

CUWaitHandle::~CUWaitHandle() = default;

bool CUWaitHandle::WaitOne() { return false; }

CUMutex::CUMutex() : m_handle(), m_attributes() {
  if (pthread_mutexattr_init(&m_attributes) != 0) return;
  if (pthread_mutexattr_settype(&m_attributes, PTHREAD_MUTEX_RECURSIVE) != 0) return;
  pthread_mutex_init(&m_handle, &m_attributes);
}

CUMutex::~CUMutex() {
  pthread_mutex_destroy(&m_handle);
  pthread_mutexattr_destroy(&m_attributes);
}

bool CUMutex::WaitOne() {
  pthread_mutex_lock(&m_handle);
  return true;
}

int CUMutex::ReleaseMutex() { return pthread_mutex_unlock(&m_handle); }
