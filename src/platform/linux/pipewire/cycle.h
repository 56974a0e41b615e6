#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>

namespace sonivo::pipewire {

/// One turn of the graph: so many frames of a stream passed at `start_ns`, and the next turn is `length_ns` later.
struct Cycle {
  std::uint32_t frames = 0;
  std::int64_t start_ns = 0;
  std::int64_t length_ns = 0;
  std::uint32_t untold = 0;  ///< frames of earlier turns that found no room in the queue
};

/// Turns on their way from the data thread to the pacer. Neither waits; turns that find no room are counted with the
/// next that does.
class CycleQueue {
 public:
  /// Data thread.
  void post(Cycle cycle) {
    const std::size_t at = posted_.load(std::memory_order_relaxed);
    if (at - taken_.load(std::memory_order_acquire) == cycles_.size()) {
      untold_ += cycle.frames;
      return;
    }
    cycle.untold = std::exchange(untold_, 0);
    cycles_[at % cycles_.size()] = cycle;
    posted_.store(at + 1, std::memory_order_release);
  }
  /// Pacer: the oldest, which stays.
  std::optional<Cycle> front() const {
    const std::size_t at = taken_.load(std::memory_order_relaxed);
    if (at == posted_.load(std::memory_order_acquire)) return std::nullopt;
    return cycles_[at % cycles_.size()];
  }
  /// Pacer.
  std::optional<Cycle> take() {
    const auto cycle = front();
    if (cycle) taken_.fetch_add(1, std::memory_order_release);
    return cycle;
  }

 private:
  std::array<Cycle, 64> cycles_{};
  std::atomic<std::size_t> posted_ = 0;
  std::atomic<std::size_t> taken_ = 0;
  std::uint32_t untold_ = 0;  ///< of the data thread
};

/// Cuts the turns of the graph into pieces of at most `max_piece` frames: ceil(frames / max_piece) nearly equal ones,
/// evenly spread from the start of the turn over its length. What is left when the next turn begins is due at once.
class CycleCutter {
 public:
  explicit CycleCutter(std::uint32_t max_piece) : max_piece_(max_piece) {}

  /// Frames that are still due of the turn before.
  std::uint32_t begin(const Cycle& cycle) {
    const std::uint32_t rest = cycle_.frames - released_;
    cycle_ = cycle;
    pieces_ = (cycle.frames + max_piece_ - 1) / max_piece_;
    next_ = 0;
    released_ = 0;
    return rest;
  }
  /// When the next piece is due; none before the next turn.
  std::optional<std::int64_t> due_ns() const {
    if (next_ == pieces_) return std::nullopt;
    return cycle_.start_ns + cycle_.length_ns * next_ / pieces_;
  }
  /// The next piece.
  std::uint32_t take() {
    ++next_;
    const auto end = static_cast<std::uint32_t>(std::uint64_t{next_} * cycle_.frames / pieces_);
    const std::uint32_t piece = end - released_;
    released_ = end;
    return piece;
  }

 private:
  const std::uint32_t max_piece_;
  Cycle cycle_;
  std::uint32_t pieces_ = 0;
  std::uint32_t next_ = 0;
  std::uint32_t released_ = 0;
};

}  // namespace sonivo::pipewire
