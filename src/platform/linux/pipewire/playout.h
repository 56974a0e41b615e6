#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

#include "platform/linux/pipewire/frame_fifo.h"

namespace sonivo::pipewire {

/// Frames on their way into the graph, and how many of them wait there longer than they need to.
///
/// Frames come in at the pace of the graph's turns. A turn that finds too few of them, since it is longer than the one
/// before or the frames came late, is filled with silence in front: from then on that many more frames lie in stock,
/// and the next turns find enough. What a longer turn needed and a shorter one doesn't is dropped with the change,
/// which is heard in any case. Any other stock that no turn of the latest second has needed goes again by letting fewer
/// frames in, one in a thousand, so that nothing is cut out of the signal.
class Playout {
 public:
  /// `spare`: frames that may be left over by each turn, for those that come late.
  Playout(std::size_t frame_bytes, std::size_t capacity, std::uint32_t rate_hz, std::uint32_t spare)
      : fifo_(frame_bytes, capacity), window_(rate_hz), spare_(spare) {}

  /// Writer: appends frames; those that don't fit are lost.
  void write(const std::byte* frames, std::size_t count) { fifo_.write(frames, count); }
  /// Writer: of `count` frames that the graph has turned, how many are to be let in.
  std::uint32_t admitted(std::uint32_t count) {
    std::uint32_t excess = excess_.load(std::memory_order_relaxed);
    turned_ += count;
    if (turned_ < kTrim) return count;
    turned_ -= kTrim;
    if (excess == 0) return count;
    excess_.store(--excess, std::memory_order_relaxed);
    return count - 1;
  }
  /// Writer: what was written so far isn't to be heard any more.
  void flush() { flushed_.store(fifo_.written(), std::memory_order_release); }

  /// Data thread. Returns by how many frames of silence all that follows is heard later.
  std::size_t read(std::byte* frames, std::size_t count) {
    const std::uint64_t flushed = flushed_.load(std::memory_order_acquire);
    if (flushed > fifo_.taken()) fifo_.drop(static_cast<std::size_t>(flushed - fifo_.taken()));
    shorten(count);
    const std::size_t there = fifo_.available();
    const std::size_t silent = there < count ? std::min(count, count - there + spare_) : 0;
    std::memset(frames, 0, silent * fifo_.frame_bytes());
    fifo_.read(frames + silent * fifo_.frame_bytes(), count - silent);
    note_left(there - (count - silent), count);
    return silent;
  }

 private:
  static constexpr std::uint32_t kTrim = 1000;  ///< frames for one that is kept out
  static constexpr std::size_t kChange = 8;     ///< turns differ by rate conversion alone, by less than this part

  /// Drops what only turns as long as the latest one needed, at the first that is shorter.
  void shorten(std::size_t count) {
    const std::size_t longer = std::exchange(latest_, count);
    if (longer <= count + longer / kChange) return;
    const std::size_t needed = count + spare_;
    const std::size_t there = fifo_.available();
    if (there > needed) fifo_.drop(std::min(there - needed, longer - count));
    excess_.store(0, std::memory_order_relaxed);
    least_ = SIZE_MAX;
    seen_ = 0;
  }

  void note_left(std::size_t left, std::size_t count) {
    least_ = std::min(least_, left);
    seen_ += count;
    if (seen_ < window_) return;
    excess_.store(least_ > spare_ ? static_cast<std::uint32_t>(least_ - spare_) : 0, std::memory_order_relaxed);
    least_ = SIZE_MAX;
    seen_ = 0;
  }

  FrameFifo fifo_;
  const std::size_t window_;
  const std::size_t spare_;
  std::atomic<std::uint32_t> excess_ = 0;
  std::atomic<std::uint64_t> flushed_ = 0;
  std::uint32_t turned_ = 0;  ///< of the writer
  std::size_t latest_ = 0;    ///< length of a turn; this and the next of the data thread
  std::size_t least_ = SIZE_MAX;
  std::size_t seen_ = 0;
};

}  // namespace sonivo::pipewire
