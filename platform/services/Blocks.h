#pragma once

// The memory of small objects, which come and go by the million: from an allocator that is made for
// that, or from malloc.

#include <cstddef>

// A block of at least `size` bytes, aligned for every type of usual alignment; null when memory
// runs out. Any thread may let it go.
void* AllocateBlock(std::size_t size) noexcept;

// Takes null, too.
void FreeBlock(void* block) noexcept;
