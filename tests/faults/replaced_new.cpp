// The process's operator new where a sanitizer has its own malloc.

#include <cstdlib>
#include <new>

#include "faults/allocations.h"

void* operator new(std::size_t size) {
  void* const block = qvtest::MayAllocate() ? std::malloc(size != 0 ? size : 1) : nullptr;
  if (block == nullptr) throw std::bad_alloc();
  qvtest::NoteBlock(block, 1);
  return block;
}

void operator delete(void* block) noexcept {
  qvtest::NoteBlock(block, -1);
  std::free(block);
}

void operator delete(void* block, std::size_t /*size*/) noexcept { operator delete(block); }
