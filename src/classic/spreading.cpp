#include "classic/spreading.h"

#include <algorithm>
#include <cstddef>

namespace sonivo::classic {

void spread(const Spreading& spreading, std::span<const float> level, std::span<float> M) {
  const auto& bounds = spreading.bounds;
  const std::size_t coarse = bounds.size() - 1;
  std::copy(level.begin(), level.end(), M.begin());
  float m = 0.0f;
  for (std::size_t p = 0; p < coarse; ++p) {
    for (std::size_t k = bounds[p]; k < bounds[p + 1]; ++k) {
      m *= spreading.up[p];
      if (m > M[k]) {
        M[k] = m;
      } else {
        m = M[k];
      }
    }
  }
  m = 0.0f;
  for (std::size_t p = coarse; p-- > 0;) {
    for (std::size_t k = bounds[p + 1]; k-- > bounds[p];) {
      m *= spreading.dn[p];
      if (m > M[k]) {
        M[k] = m;
      } else {
        m = M[k];
      }
    }
  }
  for (std::size_t p = 0; p < coarse; ++p) {
    for (std::size_t k = bounds[p]; k < bounds[p + 1]; ++k) M[k] *= spreading.coef[p];
  }
}

}  // namespace sonivo::classic
