#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>

namespace sonivo::pipewire {

/// How many frames a client has written to be played, and how many of them have passed as it is told: evenly, not by
/// turns, and never more than it has written.
class PlayPosition {
 public:
  /// Client.
  void write(std::uint32_t frames) { written_ += frames; }
  /// Client: what was written so far isn't to be heard any more.
  void drop() { played_ = written_.load(); }
  /// Pacer.
  void pass(std::uint32_t frames) {
    std::uint64_t played = played_;
    while (!played_.compare_exchange_weak(played, std::min<std::uint64_t>(played + frames, written_))) {
    }
  }
  /// Frames that are still to be played.
  std::uint32_t waiting() const { return static_cast<std::uint32_t>(written_ - played_); }

 private:
  std::atomic<std::uint64_t> written_ = 0;
  std::atomic<std::uint64_t> played_ = 0;
};

}  // namespace sonivo::pipewire
