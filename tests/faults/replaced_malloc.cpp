// The process's malloc: that of the C library, but for what is to fail.

#include <cerrno>
#include <cstddef>

#include "faults/allocations.h"

using qvtest::MayAllocate;
using qvtest::NoteBlock;

// NOLINTBEGIN(bugprone-reserved-identifier): the names of the C library
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void __libc_free(void* block);

void* malloc(std::size_t size) {
  void* const block = MayAllocate() ? __libc_malloc(size) : nullptr;
  NoteBlock(block, 1);
  if (block == nullptr) errno = ENOMEM;
  return block;
}

void* calloc(std::size_t count, std::size_t size) {
  void* const block = MayAllocate() ? __libc_calloc(count, size) : nullptr;
  NoteBlock(block, 1);
  if (block == nullptr) errno = ENOMEM;
  return block;
}

void* realloc(void* block, std::size_t size) {
  if (block == nullptr) return malloc(size);
  if (size != 0 && !MayAllocate()) {
    errno = ENOMEM;
    return nullptr;
  }
  if (size == 0) NoteBlock(block, -1);
  return __libc_realloc(block, size);
}

void free(void* block) {
  NoteBlock(block, -1);
  __libc_free(block);
}
}
// NOLINTEND(bugprone-reserved-identifier)
