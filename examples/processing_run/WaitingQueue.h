#pragma once

// WaitingQueue, a queue at whose end threads wait for work.

#include <QuillmereLib/QuillmereLib.h>

#include <atomic>

// Keep it short: what is taken costs time in proportion to what is left.
class WaitingQueue {
 public:
  // One thread puts and closes.
  void Put(CUSharedPtr<CUObject> object);

  // Nothing is put any more.
  void Close();

  // The oldest object, for which it waits if need be; null once the queue is closed and empty. Any
  // number of threads.
  CUSharedPtr<CUObject> Take();

 private:
  CUSynchronizedQueue m_objects;
  CUAutoResetEvent m_changed{false};
  std::atomic<bool> m_closed{false};
};
