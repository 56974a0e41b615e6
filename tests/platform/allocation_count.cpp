#include "allocation_count.h"

#include <cstdlib>
#include <new>

namespace {
thread_local std::size_t count = 0;
}

#ifndef SONIVO_TSAN  // whose operators nobody replaces
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  ++count;
  return std::malloc(size);
}
void* operator new(std::size_t size) {
  if (void* memory = operator new(size, std::nothrow)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
#endif

namespace sonivo::sim {

std::size_t allocation_count() { return count; }

}  // namespace sonivo::sim
