#pragma once

#include <cstddef>

#include "meridane/matrix.h"

namespace meridane {

/// A size or an index, as the kernels count.
inline std::size_t count(Eigen::Index size) { return static_cast<std::size_t>(size); }

}  // namespace meridane
