#include "tests/support/FailingAllocation.h"

#include <cstddef>
#include <cstdlib>

// The linker's --wrap leads the library's calls of malloc here, too, and of the allocator of its
// objects, where it has one: its blocks come from malloc then, so that all memory is seen.
extern "C" void* __real_malloc(std::size_t size);

namespace {

// Calls left until one fails; 0 when none shall, or when it has.
thread_local int callsLeft = 0;

}  // namespace

extern "C" void* __wrap_malloc(std::size_t size) {
  return callsLeft > 0 && --callsLeft == 0 ? nullptr : __real_malloc(size);
}
extern "C" void* __wrap_mi_malloc(std::size_t size) { return __wrap_malloc(size); }
extern "C" void __wrap_mi_free(void* block) { std::free(block); }

FailingAllocation::FailingAllocation(int nth) { callsLeft = nth; }

FailingAllocation::~FailingAllocation() { callsLeft = 0; }

bool FailingAllocation::Happened() const { return callsLeft == 0; }

// The forms for arrays, too: the allocator's library and the sanitizers offer a pair of their own.
void* operator new(std::size_t size, std::nothrow_t const&) noexcept {
  return __wrap_malloc(size == 0 ? 1 : size);
}
void* operator new(std::size_t size) {
  void* const block = operator new(size, std::nothrow);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void* operator new[](std::size_t size, std::nothrow_t const&) noexcept {
  return operator new(size, std::nothrow);
}
void* operator new[](std::size_t size) { return operator new(size); }
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t) noexcept { std::free(block); }
