#pragma once

#include "lib/kernels/element_loops.h"
#include "lib/kernels/kernels.h"
#include "lib/kernels/panel_product.h"
#include "lib/kernels/row_product.h"
#include "lib/kernels/tap_loops.h"

namespace meridane {
namespace {

template <std::size_t LaneCount, std::size_t PanelVectors>
struct FloatProduct {
  using Value = float;
  using Lanes = Vector<float, LaneCount>;
  static constexpr std::size_t kLanes = LaneCount, kPanelVectors = PanelVectors, kParts = 1;

  template <std::size_t>
  static MERIDANE_INLINE Lanes part(Lanes w) {
    return w;
  }
  static MERIDANE_INLINE Lanes factor(float x) { return broadcast<kLanes>(x); }
  static MERIDANE_INLINE Lanes multiply_add(Lanes sum, Lanes w, Lanes x) { return sum + w * x; }
};

template <std::size_t Lanes, std::size_t PanelVectors, std::size_t RowFrames>
constexpr Kernels kernels_of(const char* name) {
  using Elements = ElementLoops<Lanes>;
  return {.name = name,
          .lanes = Lanes,
          .panel_height = Lanes * PanelVectors,
          .multiply = PanelProduct<FloatProduct<Lanes, PanelVectors>>::multiply,
          .multiply_rows = RowProduct<Lanes, RowFrames>::multiply,
          .logistic = Elements::logistic,
          .hyperbolic_tangent = Elements::hyperbolic_tangent,
          .swish = Elements::swish,
          .gated = Elements::gated,
          .leaky_rectifier = Elements::leaky_rectifier,
          .softmax = Elements::softmax,
          .normalise = Elements::normalise,
          .normalise_by = Elements::normalise_by,
          .sum_from = Elements::sum_from,
          .squares_from = Elements::squares_from,
          .standardise = Elements::standardise,
          .add = Elements::add,
          .scale = Elements::scale,
          .tap_sum = TapLoops<Lanes>::tap_sum,
          .lstm_cell = Elements::lstm_cell};
}

}  // namespace
}  // namespace meridane
