#pragma once

#include <cstdint>
#include <span>

namespace sonivo::classic {

/// Spreading along frequency: how far a strong band reaches into its neighbours, with one set of factors per coarse
/// band.
struct Spreading {
  std::span<const std::uint16_t> bounds;  ///< coarse band p covers the fine bands bounds[p] to bounds[p + 1] - 1
  const float* up;                        ///< decay per fine band towards higher bands
  const float* dn;                        ///< decay per fine band towards lower bands
  const float* coef;                      ///< gain of the result
};

/// M = level spread upward, then downward, then weighted. Fine bands outside of all coarse bands keep their level.
///
///   rising:  m = m * up[p]; M[k] = m = max(m, M[k])      m starts at 0
///   falling: m = m * dn[p]; M[k] = m = max(m, M[k])      m starts at 0 again
///   M[k] = M[k] * coef[p]
///
/// level and M hold as many values and don't overlap.
void spread(const Spreading& spreading, std::span<const float> level, std::span<float> M);

}  // namespace sonivo::classic
