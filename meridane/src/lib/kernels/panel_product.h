#pragma once

// The product of panels with frames, for the sources that hold kernels. A tile is a panel by 1 to 6 frames, its sums in
// registers; one or two frames take several panels at once, so that eight sums are always on their way.

#include "lib/kernels/panels.h"
#include "lib/kernels/vector_lanes.h"

namespace meridane {
namespace {

/// Arithmetic says what one step of the sums is:
///   Value; kLanes; kPanelVectors: vectors of the height of a panel;
///   kParts: a step has that many, each with a number of its own in x;
///   part<p>(w): what part p takes of a vector of weights; factor(x): a number of x in each lane;
///   multiply_add(sum, w, x).
template <class Arithmetic>
class PanelProduct {
  using Value = typename Arithmetic::Value;
  static constexpr std::size_t kVectors = Arithmetic::kPanelVectors;
  static constexpr std::size_t kFrames = 6, kSums = 8;
  // Weights are fetched that far ahead, as the machine itself looks no further than the end of a page: what 90 bytes a
  // nanosecond are while memory takes 90 ns. Not for one frame, which takes them as fast as they come: there it costs a
  // sixth of the speed.
  static constexpr std::size_t kLine = 64 / sizeof(Value), kAhead = 8192 / sizeof(Value);
  // What stays in the second-level cache: a block of a panel while the frames pass by, and the frames while all panels
  // pass by.
  static constexpr std::size_t kBlockBytes = 131072, kFrameBlock = 96;

 public:
  static constexpr std::size_t kLanes = Arithmetic::kLanes, kHeight = kLanes * kVectors, kParts = Arithmetic::kParts;

  static void multiply(const Product<Value>& product) {
    const std::size_t blocks = (product.frames + kFrameBlock - 1) / kFrameBlock;
    for (std::size_t b = 0, first = 0; b < blocks; ++b) {
      const std::size_t last = product.frames * (b + 1) / blocks;
      Product<Value> block = product;
      block.x += first * product.x_stride;
      block.y += first * product.y_stride;
      if (block.start) block.start += first * product.start_stride;
      block.frames = last - first;
      multiply_block(block);
      first = last;
    }
  }

 private:
  struct Tile {
    const Value* w;
    std::size_t column_stride, panel_stride, depth;
    const Value* x;
    std::size_t x_stride;
    const Value* start;
    std::size_t start_stride;
    Value* y;
    std::size_t y_stride;
  };
  using Run = void (*)(const Tile&);

  template <std::size_t Frames, std::size_t Panels, std::size_t Vectors>
  static __attribute__((noinline)) void run(const Tile& tile) {
    constexpr std::size_t kAll = Panels * Vectors;
    typename Arithmetic::Lanes sum[Frames][kAll];
    MERIDANE_UNROLL
    for (std::size_t t = 0; t < Frames; ++t) {
      MERIDANE_UNROLL
      for (std::size_t v = 0; v < kAll; ++v) sum[t][v] = load<kLanes>(tile.start + t * tile.start_stride + v * kLanes);
    }
    const Value* w = tile.w;
    const Value* x = tile.x;
    const std::size_t column_stride = tile.column_stride, panel_stride = tile.panel_stride, x_stride = tile.x_stride;
    for (std::size_t k = 0; k < tile.depth; ++k) {
      step<0>(w, panel_stride, x, x_stride, sum);
      if constexpr (kParts == 2) step<1>(w, panel_stride, x + 1, x_stride, sum);
      MERIDANE_UNROLL
      for (std::size_t p = 0; Frames > 1 && p < Panels; ++p) {
        MERIDANE_UNROLL
        for (std::size_t i = 0; i < Vectors * kLanes; i += kLine) {
          __builtin_prefetch(w + p * panel_stride + i + kAhead);
        }
      }
      w += column_stride;
      x += kParts;
    }
    Value* const y = tile.y;  // the stores might change the tile
    const std::size_t y_stride = tile.y_stride;
    MERIDANE_UNROLL
    for (std::size_t t = 0; t < Frames; ++t) {
      MERIDANE_UNROLL
      for (std::size_t v = 0; v < kAll; ++v) store<kLanes>(y + t * y_stride + v * kLanes, sum[t][v]);
    }
  }

  template <std::size_t Part, std::size_t Frames, std::size_t All>
  static MERIDANE_INLINE void step(const Value* w, std::size_t panel_stride, const Value* x, std::size_t x_stride,
                                   typename Arithmetic::Lanes (&sum)[Frames][All]) {
    constexpr std::size_t kInPanel = All < kVectors ? All : kVectors;
    typename Arithmetic::Lanes part[All];
    MERIDANE_UNROLL
    for (std::size_t v = 0; v < All; ++v) {
      part[v] = Arithmetic::template part<Part>(load<kLanes>(w + v / kInPanel * panel_stride + v % kInPanel * kLanes));
      if constexpr (Frames > 1) asm("" : "+v"(part[v]));  // loaded once, not with each frame
    }
    MERIDANE_UNROLL
    for (std::size_t t = 0; t < Frames; ++t) {
      const auto factor = Arithmetic::factor(x[t * x_stride]);
      MERIDANE_UNROLL
      for (std::size_t v = 0; v < All; ++v) sum[t][v] = Arithmetic::multiply_add(sum[t][v], part[v], factor);
    }
  }

  template <std::size_t Vectors>
  static Run panel_run(std::size_t frames) {
    static constexpr Run runs[] = {run<1, 1, Vectors>, run<2, 1, Vectors>, run<3, 1, Vectors>,
                                   run<4, 1, Vectors>, run<5, 1, Vectors>, run<6, 1, Vectors>};
    return runs[frames - 1];
  }
  static Run panel_run(std::size_t frames, std::size_t vectors) {
    if constexpr (kVectors == 4) {
      if (vectors == 4) return panel_run<4>(frames);
      if (vectors == 3) return panel_run<3>(frames);
    }
    return vectors == 2 ? panel_run<2>(frames) : panel_run<1>(frames);
  }

  struct Group {
    std::size_t panels;
    Run run;  // null: one panel at a time
  };
  // What one or two frames take of that many whole panels.
  static Group group_of(std::size_t frames, std::size_t panels) {
    if constexpr (kSums / kVectors >= 4) {
      if (frames == 1 && panels >= 4) return {4, run<1, 4, kVectors>};
      if (frames == 2 && panels >= 2) return {2, run<2, 2, kVectors>};
    }
    if (frames == 1 && panels >= 2) return {2, run<1, 2, kVectors>};
    return {1, nullptr};
  }

  static void multiply_block(const Product<Value>& product) {
    for (std::size_t row = 0; row < product.rows;) {
      const std::size_t left = product.rows - row;
      const std::size_t vectors = left < kHeight ? (left + kLanes - 1) / kLanes : kVectors;
      const Group group = group_of(product.frames, left / kHeight);
      multiply_panels(product, row, vectors, group.run);
      row += group.panels * kHeight;
    }
  }

  // A panel of `vectors` vectors, or, if there is a group, the panels from `row` on that it takes.
  static void multiply_panels(const Product<Value>& product, std::size_t row, std::size_t vectors, Run group) {
    static constexpr Value zeros[kHeight * kSums] = {};
    const std::size_t tiles = (product.frames + kFrames - 1) / kFrames;
    const std::size_t depth_block = tiles > 1 ? kBlockBytes / (kHeight * sizeof(Value)) : product.end - product.begin;
    const std::size_t height = vectors * kLanes, real_height = product.rows - row;
    Tile tile{};
    tile.column_stride = real_height < height ? real_height : height;
    tile.panel_stride = kHeight * product.columns;
    tile.x_stride = product.x_stride;
    const Value* start = product.start ? product.start + row : zeros;
    std::size_t start_stride = product.start ? product.start_stride : 0;
    std::size_t k = product.begin;
    do {
      tile.depth = product.end - k < depth_block ? product.end - k : depth_block;
      tile.w = product.w + row * product.columns + k * tile.column_stride;
      for (std::size_t i = 0, first = 0; i < tiles; ++i) {
        const std::size_t last = product.frames * (i + 1) / tiles, frames = last - first;
        tile.x = product.x + first * product.x_stride + (k - product.begin) * kParts;
        tile.start = start + first * start_stride;
        tile.start_stride = start_stride;
        tile.y = product.y + first * product.y_stride + row;
        tile.y_stride = product.y_stride;
        const Run run = group ? group : panel_run(frames, vectors);
        if (real_height < height) {
          run_ragged(tile, run, frames, real_height, height);
        } else {
          run(tile);
        }
        first = last;
      }
      start = product.y + row;
      start_stride = product.y_stride;
      k += tile.depth;
    } while (k < product.end);
  }

  // For a panel that is higher than the rows that are left: nothing beside them is read or written.
  static void run_ragged(const Tile& tile, Run run, std::size_t frames, std::size_t rows, std::size_t height) {
    Value start[kFrames * kHeight] = {}, y[kFrames * kHeight];
    Tile whole = tile;
    whole.start = start;
    whole.y = y;
    whole.start_stride = whole.y_stride = height;
    for (std::size_t t = 0; t < frames; ++t) {
      for (std::size_t i = 0; i < rows; ++i) start[t * height + i] = tile.start[t * tile.start_stride + i];
    }
    run(whole);
    for (std::size_t t = 0; t < frames; ++t) {
      for (std::size_t i = 0; i < rows; ++i) tile.y[t * tile.y_stride + i] = y[t * height + i];
    }
  }
};

}  // namespace
}  // namespace meridane
