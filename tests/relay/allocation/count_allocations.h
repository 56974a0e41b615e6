#pragma once

#include <cstdint>

namespace sonivo::test {

/// Calls of malloc, calloc, realloc and the aligned forms in this process so far, operator new among them.
std::uint64_t allocations();

}  // namespace sonivo::test
