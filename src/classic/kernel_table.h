#pragma once

#include "classic/biquad_loop.h"
#include "classic/fft_passes.h"
#include "classic/kernel_loops.h"

namespace sonivo::classic {
namespace {

/// Lanes: how many (kLanes, 4 to 16), and what the machine does across them:
///   reversed(v); interleave(a, b): a0 b0 a1 b1 ... over both; deinterleave(a, b): back;
///   gather_points(x, v): v[r] = x[r], x[r + 4], x[r + 8], ...; gather_runs(x, v): the same with runs of four for
///   points.
template <class Lanes>
constexpr Kernels kernels_of(const char* name) {
  using L = Loops<Lanes>;
  return {.name = name,
          .fft = fft<Lanes>,
          .weigh = L::weigh,
          .weigh_halves = L::weigh_halves,
          .separate = L::separate,
          .join = L::join,
          .untangle = L::untangle,
          .tangle = L::tangle,
          .overlap = L::overlap,
          .interleave = L::interleave,
          .beam = L::beam,
          .biquads = Cascade::process};
}

}  // namespace
}  // namespace sonivo::classic
