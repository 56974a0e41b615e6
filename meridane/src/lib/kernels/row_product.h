#pragma once

// The product of rows, as they are stored, with frames, for the sources that hold kernels: vectors run along a row. A
// tile is 4 rows by some frames, its sums in registers.

#include "lib/kernels/panels.h"
#include "lib/kernels/vector_lanes.h"

namespace meridane {
namespace {

template <std::size_t L, std::size_t MostFrames>
class RowProduct {
  using V = Vector<float, L>;
  static constexpr std::size_t kRows = 4;

 public:
  static void multiply(const Product<float>& product) {
    for (std::size_t i = 0; i < product.rows;) {
      const std::size_t rows = product.rows - i < kRows ? 1 : kRows;
      for (std::size_t t = 0; t < product.frames;) {
        const std::size_t left = product.frames - t, frames = left < MostFrames ? left : MostFrames;
        run_of(rows, frames)(product, i, t);
        t += frames;
      }
      i += rows;
    }
  }

 private:
  using Run = void (*)(const Product<float>& product, std::size_t row, std::size_t frame);

  static Run run_of(std::size_t rows, std::size_t frames) {
    static constexpr auto runs = []<std::size_t... F>(std::index_sequence<F...>) {
      return RunTable<MostFrames>{{run<1, F + 1>...}, {run<kRows, F + 1>...}};
    }
    (std::make_index_sequence<MostFrames>());
    return rows == 1 ? runs.of_one[frames - 1] : runs.of_all[frames - 1];
  }
  template <std::size_t Count>
  struct RunTable {
    Run of_one[Count], of_all[Count];
  };

  template <std::size_t Rows, std::size_t Frames>
  static __attribute__((noinline)) void run(const Product<float>& product, std::size_t row, std::size_t frame) {
    const float* const w = product.w + row * product.columns;
    const float* const x = product.x + frame * product.x_stride;
    V sum[Rows][Frames] = {};
    std::size_t k = product.begin;
    for (; k + L <= product.end; k += L) {
      add<Rows, Frames>(
          sum, [&](std::size_t i) { return load<L>(w + i * product.columns + k); },
          [&](std::size_t t) { return load<L>(x + t * product.x_stride + k - product.begin); });
    }
    if (const std::size_t rest = product.end - k; rest > 0) {
      add<Rows, Frames>(
          sum, [&](std::size_t i) { return load_first<L>(w + i * product.columns + k, rest, 0.0f); },
          [&](std::size_t t) { return load_first<L>(x + t * product.x_stride + k - product.begin, rest, 0.0f); });
    }
    MERIDANE_UNROLL
    for (std::size_t t = 0; t < Frames; ++t) {
      MERIDANE_UNROLL
      for (std::size_t i = 0; i < Rows; ++i) {
        const float start = product.start ? product.start[(frame + t) * product.start_stride + row + i] : 0.0f;
        product.y[(frame + t) * product.y_stride + row + i] =
            start + fold(sum[i][t], [](auto a, auto b) { return a + b; });
      }
    }
  }

  template <std::size_t Rows, std::size_t Frames, class W, class X>
  static MERIDANE_INLINE void add(V (&sum)[Rows][Frames], W w, X x) {
    V of_x[Frames];
    MERIDANE_UNROLL
    for (std::size_t t = 0; t < Frames; ++t) of_x[t] = x(t);
    MERIDANE_UNROLL
    for (std::size_t i = 0; i < Rows; ++i) {
      const V of_w = w(i);
      MERIDANE_UNROLL
      for (std::size_t t = 0; t < Frames; ++t) sum[i][t] += of_w * of_x[t];
    }
  }
};

}  // namespace
}  // namespace meridane
