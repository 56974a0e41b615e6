#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "classic/param_blobs.h"

namespace sonivo::classic {

inline constexpr int kChannels = 4;
inline constexpr float kFullScale = 32768.0f;  ///< the chain works on the scale of 16-bit samples

/// One frame of every channel.
using Frames = std::array<std::array<float, kHop>, kChannels>;

/// Between the caller's interleaved blocks of any length and frames of 192 samples per channel. The output queues start
/// with as many zeros as keep them from ever running dry: that is the latency of this framing.
class BlockFraming {
 public:
  /// length: frames per block, not 0. Throws std::bad_alloc.
  explicit BlockFraming(std::uint16_t length) { resize(length); }

  /// Drops what waits in accumulators and queues. Throws std::bad_alloc and has changed nothing then.
  void resize(std::uint16_t length);
  std::uint16_t length() const { return length_; }
  std::size_t latency() const { return preroll_; }

  /// Zeros in front of blocks of this length: what 192 blocks, one after the other, find missing.
  static std::size_t preroll(std::uint16_t length);

  /// One block in place. process(in, out) computes all active channels of a frame; in holds one frame per channel on
  /// the 16-bit scale, of inactive channels what was collected there last. Allocates nothing.
  template <class Process>
  void execute(float* inout, std::uint16_t channels, Process&& process) {
    const float* in = inout;
    std::size_t left = length_;
    while (in_count_ + left >= kHop) {
      const std::size_t taken = kHop - in_count_;
      collect(in, taken, channels);
      in += taken * channels;
      left -= taken;
      process(static_cast<const Frames&>(in_), out_);
      queue_frame(channels);
      in_count_ = 0;
    }
    collect(in, left, channels);
    deliver(inout, channels);
  }

 private:
  void collect(const float* interleaved, std::size_t frames, std::uint16_t channels);
  void queue_frame(std::uint16_t channels);
  void deliver(float* interleaved, std::uint16_t channels);
  float* queue(std::size_t channel) { return queues_.get() + channel * capacity_; }

  std::uint16_t length_ = 0;
  std::size_t preroll_ = 0;  ///< of this length
  std::size_t in_count_ = 0;
  std::size_t out_count_ = 0;
  std::size_t capacity_ = 0;  ///< of a queue
  Frames in_{};
  Frames out_{};
  std::unique_ptr<float[]> queues_;  ///< one per channel
};

}  // namespace sonivo::classic
