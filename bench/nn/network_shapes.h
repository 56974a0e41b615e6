#pragma once

namespace meridane::bench {

// Networks as they are trained for streaming, and what one call computes of them.

/// Time-domain enhancement of about a million parameters: learned windows, dilated depthwise-separable blocks with
/// residual sums, a mask, and the transposed windows.
struct EnhancementShape {
  static constexpr long channels = 256, narrow = 128, blocks = 14, taps = 3;
  static constexpr long window = 32, hop = 16;
  static constexpr long frames = 50;  ///< of a call: 800 samples
  static constexpr double seconds = 0.05;
  static constexpr long dilation(long block) { return 1 << block % 7; }
  static constexpr double multiply_adds() {
    return frames * (2 * window * channels + 2 * narrow * channels + blocks * (2 * narrow + taps) * channels);
  }
};

/// Conformer blocks on frames of 10 ms.
struct ConformerShape {
  static constexpr long rows = 256, hidden = 1024, heads = 4, taps = 15;
  static constexpr long frames = 5, cached = 64;
  static constexpr long keys = cached + frames, distances = keys + frames - 1;
  static constexpr double seconds = 0.05;
  /// Of one block.
  static constexpr double multiply_adds() {
    return frames * rows * (4 * hidden + 4 * rows + 3 * rows + taps + 2 * keys + distances);
  }
};

/// A mask on spectra of windows of 512 samples that overlap by half, 16 ms apart, by two layers of LSTM.
struct MaskShape {
  static constexpr long rows = 257, cells = 512;
  static constexpr long frames = 5;
  static constexpr double seconds = 0.08;
  static constexpr double multiply_adds() { return frames * cells * (4 * (rows + 3 * cells) + rows); }
};

}  // namespace meridane::bench
