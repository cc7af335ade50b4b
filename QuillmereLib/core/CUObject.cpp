#include "QuillmereLib/core/CUObject.h"

#include <cstdio>
#include <mutex>
#include <string>
#include <typeinfo>

#include "Blocks.h"
#include "QuillmereLib/core/CUSharedPtr.h"
#include "QuillmereLib/strings/CUStringMac.h"

std::atomic<bool> initMutex_CUObject;
pthread_mutex_t g_MutexHandle_CUObject;

// Objects are made by static initialisers too, so the mutex is initialised by whoever comes first;
// threads that come together agree on one of them.
void CUObject::InitObjectMutex() {
  static std::once_flag once;
  std::call_once(once, [] {
    pthread_mutex_init(&g_MutexHandle_CUObject, nullptr);
    initMutex_CUObject.store(true, std::memory_order_release);
  });
}

CUSharedPtr<CUStringMac> CUObject::Description() {
  char address[32];
  std::snprintf(address, sizeof address, "(0x%p)", static_cast<void*>(this));
  std::string const text = typeid(*this).name() + std::string(address);
  return new CUStringMac(text.c_str(), CUString_CharCode_UTF8);
}

void* CUObject::operator new(std::size_t size) {
  void* const block = AllocateBlock(size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

void* CUObject::operator new(std::size_t size, std::nothrow_t const&) noexcept {
  return AllocateBlock(size);
}

void CUObject::operator delete(void* block) noexcept { FreeBlock(block); }

void CUObject::operator delete(void* block, std::nothrow_t const&) noexcept { FreeBlock(block); }
