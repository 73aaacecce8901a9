#include <atomic>
#include <cstddef>

#include "bench.h"

// The allocation functions of the whole process, the shared library's calls included, are these: each counts
// and goes on to that of the C library. operator new comes here through malloc.
// NOLINTBEGIN(bugprone-reserved-identifier): the names are the C library's
namespace {
std::atomic<std::size_t> allocationCount = 0;
}
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t nmemb, std::size_t size);
void* __libc_realloc(void* ptr, std::size_t size);

void* malloc(std::size_t size) {
  ++allocationCount;
  return __libc_malloc(size);
}
void* calloc(std::size_t nmemb, std::size_t size) {
  ++allocationCount;
  return __libc_calloc(nmemb, size);
}
void* realloc(void* ptr, std::size_t size) {
  ++allocationCount;
  return __libc_realloc(ptr, size);
}
}
// NOLINTEND(bugprone-reserved-identifier)

double qvbench::Allocations() { return static_cast<double>(allocationCount); }
