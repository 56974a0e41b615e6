#pragma once

#include <cstddef>

namespace sonivo::sim {

/// Calls of operator new on this thread so far; none is counted under the thread sanitizer.
std::size_t allocation_count();

}  // namespace sonivo::sim
