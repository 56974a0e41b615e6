// Stands before the C library's allocator in this program and counts.

#include "count_allocations.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <array>
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
std::atomic<std::uint64_t> failing{0};  // number of the call that is to fail

/// A thread's count, for others to read.
struct ThreadCount {
  std::atomic<pid_t> thread{0};
  std::atomic<std::uint64_t> count{0};
};
std::array<ThreadCount, 4096> thread_counts;  // more threads than a program of tests ever starts
std::atomic<std::size_t> threads_counted{0};

ThreadCount& own_count() {
  static thread_local ThreadCount& own = []() -> ThreadCount& {
    const std::size_t place = threads_counted.fetch_add(1, relaxed);
    if (place >= thread_counts.size()) __builtin_trap();
    thread_counts[place].thread.store(static_cast<pid_t>(::syscall(SYS_gettid)), relaxed);
    return thread_counts[place];
  }();
  return own;
}

/// Whether the call may go on.
bool note(std::size_t size) {
  bytes.fetch_add(size, relaxed);
  own_count().count.fetch_add(1, relaxed);
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
std::uint64_t own_allocations() { return own_count().count.load(relaxed); }
std::uint64_t allocations_of(pid_t thread) {
  std::uint64_t sum = 0;
  for (const ThreadCount& each : thread_counts) {
    if (each.thread.load(relaxed) == thread) sum += each.count.load(relaxed);
  }
  return sum;
}

std::uint64_t allocated_bytes() { return bytes.load(relaxed); }

void fail_allocation(std::uint64_t nth) { failing.store(count.load(relaxed) + nth, relaxed); }

bool allocation_failed() {
  const bool failed = count.load(relaxed) >= failing.load(relaxed);
  failing.store(0, relaxed);
  return failed;
}

}  // namespace sonivo::test
