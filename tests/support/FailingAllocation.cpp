#include "tests/support/FailingAllocation.h"

#include <cstddef>
#include <cstdlib>

// The linker's --wrap=malloc leads the library's calls of malloc here, too. Linked without it, this
// has no real one to call, and only `new` fails.
extern "C" void* __real_malloc(std::size_t size) __attribute__((weak));
extern "C" void* __wrap_malloc(std::size_t size);

namespace {

// Calls left until one fails; 0 when none shall, or when it has.
thread_local int callsLeft = 0;

bool FailsNow() { return callsLeft > 0 && --callsLeft == 0; }

void* Allocate(std::size_t size) noexcept {
  if (__real_malloc != nullptr) return __wrap_malloc(size);
  return FailsNow() ? nullptr : std::malloc(size);
}

}  // namespace

FailingAllocation::FailingAllocation(int nth) { callsLeft = nth; }

FailingAllocation::~FailingAllocation() { callsLeft = 0; }

bool FailingAllocation::Happened() const { return callsLeft == 0; }

extern "C" void* __wrap_malloc(std::size_t size) {
  return FailsNow() ? nullptr : __real_malloc(size);
}

// The forms for arrays come down to these, or are another pair of a sanitizer's own.
void* operator new(std::size_t size, std::nothrow_t const&) noexcept {
  return Allocate(size == 0 ? 1 : size);
}
void* operator new(std::size_t size) {
  void* const block = operator new(size, std::nothrow);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
