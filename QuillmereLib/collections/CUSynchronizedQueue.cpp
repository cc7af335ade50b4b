#include "QuillmereLib/collections/CUSynchronizedQueue.h"

#include <utility>

CUSynchronizedQueue::CUSynchronizedQueue() { Clear(); }

CUSynchronizedQueue::~CUSynchronizedQueue() = default;

void CUSynchronizedQueue::Enqueue(CUSharedPtr<CUObject> object) {
  m_lock.Lock();
  m_items.AddObject(std::move(object));
  m_lock.Unlock();
}

CUSharedPtr<CUObject> CUSynchronizedQueue::Dequeue() {
  CUSharedPtr<CUObject> object;
  m_lock.Lock();
  if (m_items.Count() != 0) {
    object = std::move(m_items.GetInternalArray()->front());
    m_items.RemoveObjectAtIndex(0);
  }
  m_lock.Unlock();
  return object;
}

void CUSynchronizedQueue::Clear() {
  m_lock.Lock();
  m_items.RemoveAllObjects();
  m_lock.Unlock();
}
