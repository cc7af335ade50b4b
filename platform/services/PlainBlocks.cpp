// Blocks from malloc: where no other allocator is at hand, and where a sanitizer watches over them.

#include <cstdlib>

#include "Blocks.h"

void* AllocateBlock(std::size_t size) noexcept { return std::malloc(size); }

void FreeBlock(void* block) noexcept { std::free(block); }
