#pragma once

#include <cstddef>
#include <memory>

namespace meridane {

/// Memory for so many floats, at least one, that begins where the widest vector may. Throws std::bad_alloc.
std::shared_ptr<float> aligned_floats(std::size_t count);

}  // namespace meridane
