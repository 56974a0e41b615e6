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

constexpr auto relaxed = std::memory_order_relaxed;
std::atomic<std::uint64_t> count{0};
std::atomic<std::uint64_t> bytes{0};
thread_local std::uint64_t own_count = 0;
std::atomic<std::uint64_t> failing{0};  // number of the call that is to fail

/// Whether the call may go on.
bool note(std::size_t size) {
  bytes.fetch_add(size, relaxed);
  ++own_count;
  return count.fetch_add(1, relaxed) + 1 != failing.load(relaxed);
}

}  // namespace

extern "C" {
void* malloc(std::size_t size) { return note(size) ? __libc_malloc(size) : nullptr; }
void* calloc(std::size_t n, std::size_t size) { return note(n * size) ? __libc_calloc(n, size) : nullptr; }
void* realloc(void* block, std::size_t size) { return note(size) ? __libc_realloc(block, size) : nullptr; }
void* aligned_alloc(std::size_t alignment, std::size_t size) {
  return note(size) ? __libc_memalign(alignment, size) : nullptr;
}
}

namespace sonivo::test {

std::uint64_t allocations() { return count.load(relaxed); }
std::uint64_t own_allocations() { return own_count; }
std::uint64_t allocated_bytes() { return bytes.load(relaxed); }

void fail_allocation(std::uint64_t nth) { failing.store(count.load(relaxed) + nth, relaxed); }

bool allocation_failed() {
  const bool failed = count.load(relaxed) >= failing.load(relaxed);
  failing.store(0, relaxed);
  return failed;
}

}  // namespace sonivo::test
