#pragma once

// CUObject, the root of nearly every class of the library: it carries the count by which
// CUSharedPtr owns an object.

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>

#include "QuillmereLib/core/CUExport.h"
#include "QuillmereLib/core/ObjectHooks.h"

class CUStringMac;
template <class T>
class CUSharedPtr;

// The process-wide object mutex and whether it is initialised. It stands ready for callers; the
// library itself never locks it and never destroys it.
extern QUILLMERE_API std::atomic<bool> initMutex_CUObject;
extern QUILLMERE_API pthread_mutex_t g_MutexHandle_CUObject;

// An object begins with a count of 0. Made with `new` and held by a CUSharedPtr, it dies with the
// last pointer. On the stack or as a member it keeps its count of 0, and no CUSharedPtr may ever be
// built over it. The count is atomic; nothing else of an object is safe to share between threads
// unless its class says so.
class QUILLMERE_API CUObject {
 public:
  CUObject() : m_refCount(0) {
    if (!initMutex_CUObject.load(std::memory_order_acquire)) InitObjectMutex();
    CUObjectBegins(this);
  }

  // The copy counts its own pointers: nothing is taken over.
  CUObject(CUObject const&) : m_refCount(0) { CUObjectBegins(this); }

  virtual ~CUObject() { CUObjectEnds(this); }

  // A text for diagnosis. By default the encoded run-time type name and the address, as in
  // "15CUSimpleMonitor(0x0x7f...)": the prefix stands twice where the platform prints its own.
  // Callers must include CUStringMac.h to use the result.
  virtual CUSharedPtr<CUStringMac> Description();

  // Assigns nothing: the count belongs to the object, not to its value.
  virtual CUObject& operator=(CUObject const&) { return *this; }

  // Objects come and go in great numbers, so `new` takes their memory from an allocator made for
  // that; the global form goes past it, and the last pointer could not give its memory back. A
  // class that derives from another with such operators of its own must choose.
  static void* operator new(std::size_t size);
  static void* operator new(std::size_t size, std::nothrow_t const&) noexcept;
  static void* operator new(std::size_t, void* place) noexcept { return place; }
  static void* operator new(std::size_t size, std::align_val_t alignment) {
    return ::operator new(size, alignment);
  }
  static void* operator new(std::size_t size, std::align_val_t alignment,
                            std::nothrow_t const&) noexcept {
    return ::operator new(size, alignment, std::nothrow);
  }
  static void operator delete(void* block) noexcept;
  static void operator delete(void* block, std::nothrow_t const&) noexcept;
  static void operator delete(void*, void*) noexcept {}
  static void operator delete(void* block, std::align_val_t alignment) noexcept {
    ::operator delete(block, alignment);
  }
  static void operator delete(void* block, std::align_val_t alignment,
                              std::nothrow_t const&) noexcept {
    ::operator delete(block, alignment);
  }

 private:
  template <class T>
  friend class CUSharedPtr;

  static void InitObjectMutex();

  std::atomic<std::int32_t> m_refCount;
};
