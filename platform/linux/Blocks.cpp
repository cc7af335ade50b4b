// Blocks from mimalloc. It is called by its own names: what the program calls malloc stays as it
// is.

#include "Blocks.h"

#include <mimalloc.h>

void* AllocateBlock(std::size_t size) noexcept { return mi_malloc(size); }

void FreeBlock(void* block) noexcept { mi_free(block); }
