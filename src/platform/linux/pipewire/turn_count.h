#pragma once

#include <cstdint>
#include <cstdlib>
#include <optional>

namespace sonivo::pipewire {

/// Tells the turns of the graph that a node had no part in: it was still busy, or not awake yet, when they came.
///
/// By the graph's clock so many frames have passed, and so many has the node moved; where its rate isn't the graph's,
/// the two differ by what its converter holds back.
class TurnCount {
 public:
  explicit TurnCount(std::uint32_t rate_hz) : rate_hz_(rate_hz), converted_(rate_hz / 500) {}

  void restart() { begin_.reset(); }

  /// A turn, of which the node moves `frames`, begins at `position`, in frames of the graph's rate. Returns how many
  /// frames of the node's rate it has missed since the one before; negative where the clock went back, as another does.
  std::int64_t turn(std::uint64_t position, std::uint32_t graph_rate_hz, std::uint32_t frames) {
    if (!begin_ || graph_rate_hz != graph_rate_hz_) {
      begin_ = position;
      graph_rate_hz_ = graph_rate_hz;
      moved_ = 0;
    }
    const auto passed = static_cast<std::int64_t>(position - *begin_);
    const std::int64_t due = passed / graph_rate_hz * rate_hz_ + passed % graph_rate_hz * rate_hz_ / graph_rate_hz;
    std::int64_t missed = due - moved_;
    if (std::llabs(missed) <= (graph_rate_hz == rate_hz_ ? 0 : converted_)) missed = 0;
    moved_ += missed + frames;
    return missed;
  }

 private:
  const std::int64_t rate_hz_;
  const std::int64_t converted_;
  std::optional<std::uint64_t> begin_;
  std::uint32_t graph_rate_hz_ = 0;
  std::int64_t moved_ = 0;
};

}  // namespace sonivo::pipewire
