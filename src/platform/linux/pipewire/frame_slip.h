#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/wave_format.h"

namespace sonivo::pipewire {

/// Moves a stream by single frames against its clock without cutting the signal: for the length of 1000 frames it is
/// read a thousandth faster or slower, by interpolation, until exactly one frame more or fewer has been taken in than
/// was given out. In between the frames pass unchanged, bit for bit. Packed integers of 16 or 24 bits.
///
/// A frame at t between two is the mean of the 16 nearest x[k] with the weights sinc(t - k) cos^2(pi (t - k) / 16),
/// which is x[t] where t is whole. Delay: 8 frames.
class FrameSlip {
 public:
  explicit FrameSlip(const WAVEFORMATEXTENSIBLE& format);

  /// As at the beginning, with what is wanted kept.
  void reset();
  /// Any thread: 1 takes in more than it gives out, -1 less, 0 as much. A slip that has begun is carried through.
  void want(std::int32_t direction) { wanted_ = direction; }

  struct Moved {
    std::size_t taken = 0;
    std::size_t given = 0;
    std::int32_t slipped = 0;  ///< 1: one more was taken than given, -1: one fewer
  };
  /// Gives out as many frames as there is room for and input suffices for, at most up to the end of a slip.
  Moved process(const std::byte* input, std::size_t input_frames, std::byte* output, std::size_t output_frames);

 private:
  static constexpr std::size_t kTaps = 16;
  using History = std::array<float, 2 * kTaps>;  ///< twice, so that the latest 16 always lie together

  void push(const std::byte* frame);
  void give(std::byte* frame) const;
  /// To the next frame; returns how many have to come in for it.
  int advance();

  const std::size_t frame_bytes_;
  const std::size_t sample_bytes_;
  std::vector<History> channels_;
  std::size_t oldest_ = 0;
  int phase_ = 0;      ///< thousandths of a frame
  int direction_ = 0;  ///< of the slip under way
  int missing_ = 1;    ///< frames to come in before the next is given
  std::atomic<std::int32_t> wanted_ = 0;
};

}  // namespace sonivo::pipewire
