#pragma once

#include <cstdint>
#include <limits>

namespace sonivo {

/// What one direction has done since it was constructed. Fill is that of the stream ring, in frames, noted after each
/// read that took all it asked for.
struct StreamStatistics {
  std::uint64_t streams = 0;            ///< times that audio began to flow
  std::uint64_t virtual_transfers = 0;  ///< buffers exchanged with the virtual endpoint
  std::uint64_t physical_packets = 0;   ///< packets exchanged with the physical endpoint
  std::uint64_t blocks = 0;             ///< 10 ms blocks that went through the chain (capture)
  std::uint64_t underruns = 0;          ///< reads that found too little in the ring
  std::uint64_t overruns = 0;           ///< writes that did not fit into a ring whole
  std::uint64_t silenced = 0;           ///< blocks in which a chain left a sample that is no number (capture)
  std::uint64_t unenhanced = 0;         ///< blocks that the third chain let pass without its enhancement (capture)
  std::uint64_t executions = 0;         ///< blocks that a chain processed, and the time that it took for them (capture)
  std::uint64_t execute_sum_ns = 0;
  std::uint64_t execute_max_ns = 0;
  std::uint32_t chain_latency = 0;     ///< frames by which the chain of the running stream is late (capture)
  std::uint64_t feedback_changes = 0;  ///< values sent to the driver
  std::int32_t feedback = 0;           ///< the latest of them
  std::uint64_t fill_count = 0;
  std::uint64_t fill_sum = 0;
  std::uint32_t fill_min = std::numeric_limits<std::uint32_t>::max();
  std::uint32_t fill_max = 0;
  /// What the feedback steers by: the lowest fill of the last full second; the largest number before there was one.
  std::uint32_t ring_minimum = std::numeric_limits<std::uint32_t>::max();
};

}  // namespace sonivo
