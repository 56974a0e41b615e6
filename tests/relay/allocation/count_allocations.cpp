// Stands before the C library's allocator in this program and counts.

#include "count_allocations.h"

#include <atomic>
#include <cstddef>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
}

namespace {
std::atomic<std::uint64_t> count{0};
}

extern "C" {
void* malloc(std::size_t size) {
  count.fetch_add(1, std::memory_order_relaxed);
  return __libc_malloc(size);
}
void* calloc(std::size_t n, std::size_t size) {
  count.fetch_add(1, std::memory_order_relaxed);
  return __libc_calloc(n, size);
}
void* realloc(void* block, std::size_t size) {
  count.fetch_add(1, std::memory_order_relaxed);
  return __libc_realloc(block, size);
}
void* aligned_alloc(std::size_t alignment, std::size_t size) {
  count.fetch_add(1, std::memory_order_relaxed);
  return __libc_memalign(alignment, size);
}
}

namespace sonivo::test {

std::uint64_t allocations() { return count.load(std::memory_order_relaxed); }

}  // namespace sonivo::test
