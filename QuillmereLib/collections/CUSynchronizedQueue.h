#pragma once

// CUSynchronizedQueue, a locked first-in, first-out queue by which threads hand objects on. It
// stands here since it holds an array by value.

#include "QuillmereLib/collections/CUArray.h"
#include "QuillmereLib/core/CUExport.h"
#include "QuillmereLib/core/CULock.h"
#include "QuillmereLib/core/CUObject.h"
#include "QuillmereLib/core/CUSharedPtr.h"

// Never blocks: to wait for work, pair it with an event. Any thread may call any operation. Should
// one throw (std::bad_alloc), the lock stays held, and the queue must not be used again.
class QUILLMERE_API CUSynchronizedQueue : public CUObject {
 public:
  CUSynchronizedQueue();
  CUSynchronizedQueue(CUSynchronizedQueue const&) = delete;
  CUSynchronizedQueue& operator=(CUSynchronizedQueue const&) = delete;
  ~CUSynchronizedQueue() override;

  // Appends at the end; a null pointer like any other.
  void Enqueue(CUSharedPtr<CUObject> object);

  // Takes the oldest object, at a cost linear in the length. Null for an empty queue, and for a
  // null that was enqueued.
  CUSharedPtr<CUObject> Dequeue();

  void Clear();

 private:
  CUMutableArray m_items;
  CURecursiveLock m_lock;
};
