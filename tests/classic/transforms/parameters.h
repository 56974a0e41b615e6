#pragma once

#include <cstddef>
#include <cstdint>

#include "classic/param_blocks.h"
#include "reference.h"

namespace sonivo::classic::test {

/// Hop and points of the two paths.
struct Frame {
  std::size_t hop, points;
};
inline constexpr Frame kNoiseFrame{192, 1024}, kPulseFrame{64, 128};

inline AnaBlock analysis_block(Frame frame, std::size_t base, std::size_t bins) {
  AnaBlock block{};
  block.hop = static_cast<std::int32_t>(frame.hop);
  block.fft = static_cast<std::int32_t>(frame.points);
  block.fnum_base_out = static_cast<std::int32_t>(base);
  block.fnum_out = static_cast<std::int32_t>(bins);
  const reference::Signal window = reference::analysis_window(frame.hop, frame.points);
  for (std::size_t i = 0; i < window.size(); ++i) block.window[i] = static_cast<float>(window[i]);
  return block;
}

inline SynBlock synthesis_block(Frame frame) {
  SynBlock block{};
  block.hop = static_cast<std::int16_t>(frame.hop);
  block.fft = static_cast<std::int16_t>(frame.points);
  const reference::Signal window = reference::synthesis_window(frame.hop, frame.points);
  for (std::size_t i = 0; i < window.size(); ++i) block.window[i] = static_cast<float>(window[i]);
  return block;
}

}  // namespace sonivo::classic::test
