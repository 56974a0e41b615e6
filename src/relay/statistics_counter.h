#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>

#include "relay/stream_statistics.h"

namespace sonivo {

/// Gathers StreamStatistics on the stream thread; any thread may take a snapshot, which is exact once the stream rests.
class StatisticsCounter {
 public:
  using Count = std::atomic<std::uint64_t>;
  Count streams{0}, virtual_transfers{0}, physical_packets{0}, blocks{0}, underruns{0}, overruns{0}, silenced{0},
      unenhanced{0};
  std::atomic<std::uint32_t> chain_latency{0};

  static void add(Count& count) { count.store(count.load(relaxed) + 1, relaxed); }

  void note_feedback(std::int32_t value) {
    add(feedback_changes_);
    feedback_.store(value, relaxed);
  }
  void note_fill(std::uint32_t frames) {
    add(fill_count_);
    fill_sum_.store(fill_sum_.load(relaxed) + frames, relaxed);
    fill_min_.store(std::min(fill_min_.load(relaxed), frames), relaxed);
    fill_max_.store(std::max(fill_max_.load(relaxed), frames), relaxed);
  }

  void note_execution(std::uint64_t ns) {
    add(executions_);
    execute_sum_ns_.store(execute_sum_ns_.load(relaxed) + ns, relaxed);
    execute_max_ns_.store(std::max(execute_max_ns_.load(relaxed), ns), relaxed);
  }

  StreamStatistics Snapshot() const {
    return {.streams = streams.load(relaxed),
            .virtual_transfers = virtual_transfers.load(relaxed),
            .physical_packets = physical_packets.load(relaxed),
            .blocks = blocks.load(relaxed),
            .underruns = underruns.load(relaxed),
            .overruns = overruns.load(relaxed),
            .silenced = silenced.load(relaxed),
            .unenhanced = unenhanced.load(relaxed),
            .executions = executions_.load(relaxed),
            .execute_sum_ns = execute_sum_ns_.load(relaxed),
            .execute_max_ns = execute_max_ns_.load(relaxed),
            .chain_latency = chain_latency.load(relaxed),
            .feedback_changes = feedback_changes_.load(relaxed),
            .feedback = feedback_.load(relaxed),
            .fill_count = fill_count_.load(relaxed),
            .fill_sum = fill_sum_.load(relaxed),
            .fill_min = fill_min_.load(relaxed),
            .fill_max = fill_max_.load(relaxed)};
  }

 private:
  static constexpr auto relaxed = std::memory_order_relaxed;

  Count feedback_changes_{0}, fill_count_{0}, fill_sum_{0};
  Count executions_{0}, execute_sum_ns_{0}, execute_max_ns_{0};
  std::atomic<std::int32_t> feedback_{0};
  std::atomic<std::uint32_t> fill_min_{StreamStatistics{}.fill_min}, fill_max_{0};
};

}  // namespace sonivo
