#include "WaitingQueue.h"

#include <utility>

void WaitingQueue::Put(CUSharedPtr<CUObject> object) {
  m_objects.Enqueue(std::move(object));
  m_changed.Set();
}

void WaitingQueue::Close() {
  m_closed = true;
  m_changed.Set();
}

// The event wakes one thread, however many objects came in the meantime. So whoever finds something
// wakes the next one.
CUSharedPtr<CUObject> WaitingQueue::Take() {
  while (true) {
    bool const closed = m_closed;
    CUSharedPtr<CUObject> object = m_objects.Dequeue();
    if (object != nullptr || closed) {
      m_changed.Set();
      return object;
    }
    m_changed.WaitOne();
  }
}
