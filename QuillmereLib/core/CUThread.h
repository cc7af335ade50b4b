#pragma once

// CUThread, one POSIX thread, and the two free-standing helpers of its surroundings.

#include <pthread.h>

#include "QuillmereLib/core/CUExport.h"
#include "QuillmereLib/core/CUWaitHandle.h"

// Derive from it, override ThreadFunc and call Start. The destructor waits for the thread to end,
// but runs when the derived class is gone already: a class whose ThreadFunc uses its own fields
// joins in its own destructor. Start, Join, WaitOne and the destructor of one object must not race
// each other.
class QUILLMERE_API CUThread : public CUWaitHandle {
 public:
  CUThread();
  CUThread(CUThread const&) = delete;
  CUThread& operator=(CUThread const&) = delete;
  ~CUThread() override;

  // Waits for the thread to end, if it was started and not joined yet. Always true.
  bool WaitOne() override;

  // Starts the thread with default attributes. `data` is lent to it, see GetData. The result is
  // that of pthread_create: 0, or an errno value, after which the object counts as started all the
  // same and there is nothing to wait for. A second Start forgets the first thread.
  virtual int Start(void* data);

  // The thread's body; what it returns is thrown away. The base returns null at once.
  virtual void* ThreadFunc();

  // WaitOne without a result.
  void Join();

  void* GetData() { return m_data; }

  // Entries for pthread_create: run ThreadFunc of `thread`, a CUThread*; null returns null.
  static void* ThreadFunc_static(void* thread);
  static void* ThreadFunc_static_Common(void* thread);

 private:
  void* m_data;  // borrowed
  pthread_t m_thread;
  bool m_started;
  bool m_joined;  // joined, or a join is under way
};

// Sleeps for a time in milliseconds, computed in microseconds of 32 bits: 4294968 and above wrap.
// The result is that of usleep: 0, or -1 when a signal ended the sleep.
QUILLMERE_API int CUSleep(unsigned int milliseconds);

class QUILLMERE_API CUEnvironment {
 public:
  CUEnvironment() = delete;

  // The processors that this process may run on; at least 1, also when they cannot be counted.
  static int ProcessorCount();
};
