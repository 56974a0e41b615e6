#pragma once

#include <cstddef>

namespace sonivo::sim {

/// Calls of operator new on this thread so far.
std::size_t allocation_count();

}  // namespace sonivo::sim
