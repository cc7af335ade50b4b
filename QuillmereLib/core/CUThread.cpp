#include "QuillmereLib/core/CUThread.h"

#include <sys/sysctl.h>
#include <unistd.h>

CUThread::CUThread() : m_data(nullptr), m_thread(), m_started(false), m_joined(false) {}

CUThread::~CUThread() {
  try {
    Join();
  } catch (...) {
  }
}

bool CUThread::WaitOne() {
  Join();
  return true;
}

int CUThread::Start(void* data) {
  m_data = data;
  pthread_t created{};
  int const result = pthread_create(&created, nullptr, ThreadFunc_static, this);
  m_thread = result == 0 ? created : pthread_t{};  // a failure leaves anything there
  m_started = true;
  return result;
}

void* CUThread::ThreadFunc() { return nullptr; }

void CUThread::Join() {
  if (!m_started || m_joined) return;
  m_joined = true;
  // Joining a thread that could not be created is no business of the system's.
  if (m_thread != pthread_t{}) pthread_join(m_thread, nullptr);
}

void* CUThread::ThreadFunc_static(void* thread) {
  return thread == nullptr ? nullptr : static_cast<CUThread*>(thread)->ThreadFunc();
}

void* CUThread::ThreadFunc_static_Common(void* thread) { return ThreadFunc_static(thread); }

int CUSleep(unsigned int milliseconds) { return usleep(milliseconds * 1000u); }

int CUEnvironment::ProcessorCount() {
  int count = 1;
  size_t size = sizeof count;
  sysctlbyname("hw.activecpu", &count, &size, nullptr, 0);
  return count < 2 ? 1 : count;
}
