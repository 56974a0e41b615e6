#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/sim/step.h"
#include "platform/sim/timeline.h"

namespace sonivo::sim {

/// Faults and actions that a test places at single operations of the machine. Any thread.
class Script {
 public:
  /// Lets the nth call from now fail with this Status or Error and do nothing else; 1 is the next call. Operations that
  /// answer no number fail in their own way (null, false, 0); those that can't fail ignore it.
  void fail(Step step, std::int64_t status_or_error, std::uint64_t nth = 1);
  /// Lets every call fail until pardon().
  void fail_always(Step step, std::int64_t status_or_error);
  void pardon(Step step);
  /// Takes back everything that was placed and hasn't happened.
  void clear_faults();
  /// Runs the action on the calling thread right before the nth call from now, with no lock of the machine held.
  void before(Step step, std::uint64_t nth, std::function<void()> action);

  /// Calls so far.
  std::uint64_t count(Step step) const;

  /// From here on every call is logged as "<virtual nanoseconds> <step>".
  void start_trace();
  std::vector<std::string> trace() const;

  /// For the models: counts a call, runs what was placed there, and answers the bits of the failure it shall have.
  std::optional<std::uint32_t> enter(Step step);
  /// Where the trace takes its times from; outlives this object.
  void follow(const std::atomic<Time>& now) { now_ = &now; }

 private:
  struct Entry {
    Step step;
    std::uint64_t at;  ///< number of the call
    std::optional<std::uint32_t> failure;
    std::function<void()> action;
  };
  void place(Entry entry);
  std::optional<std::uint32_t> enter_scripted(Step step, std::uint64_t call);

  std::array<std::atomic<std::uint64_t>, kStepCount> counts_{};
  std::atomic<bool> scripted_ = false;  ///< an entry, a lasting failure or the trace exists
  const std::atomic<Time>* now_ = nullptr;

  mutable std::mutex mutex_;  // guards all below
  std::vector<Entry> entries_;
  std::array<std::optional<std::uint32_t>, kStepCount> lasting_{};
  bool tracing_ = false;
  std::vector<std::string> trace_;
};

}  // namespace sonivo::sim
