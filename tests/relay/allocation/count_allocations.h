#pragma once

#include <sys/types.h>

#include <cstdint>

namespace sonivo::test {

/// Calls of malloc, calloc, realloc and the aligned forms in this process so far, operator new among them.
std::uint64_t allocations();
/// Those of the calling thread alone.
std::uint64_t own_allocations();
/// Those of any thread, by its id.
std::uint64_t allocations_of(pid_t thread);
/// Bytes that they asked for.
std::uint64_t allocated_bytes();

/// Lets the nth of them from now fail, and no other; 1 is the next.
void fail_allocation(std::uint64_t nth);
/// Takes that back when it hasn't happened yet; true when it has.
bool allocation_failed();

}  // namespace sonivo::test
