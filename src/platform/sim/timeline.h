#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace sonivo::sim {

/// Virtual time in nanoseconds.
using Time = std::int64_t;

inline constexpr Time kMillisecond = 1'000'000;
inline constexpr Time kSecond = 1'000'000'000;

/// Names one entry of a timeline; 0 names none.
using TimerId = std::uint64_t;

/// What is to happen when, ordered by time and, within an instant, by the order of entering. Not locked.
class Timeline {
 public:
  TimerId at(Time time, std::function<void()> action);
  /// Does nothing for an entry that has run or was cancelled.
  void cancel(TimerId id);

  bool empty() const { return live_ == 0; }
  /// Time of the first entry; only when not empty.
  Time next_time();
  /// Takes the first entry out and runs it; only when not empty.
  void run_next();

 private:
  struct Key {
    Time time;
    std::uint64_t sequence;
    std::uint32_t slot;
    std::uint32_t generation;
  };
  struct Slot {
    std::function<void()> action;
    std::uint32_t generation = 1;
  };
  static bool later(const Key& a, const Key& b);
  bool stale(const Key& key) const { return slots_[key.slot].generation != key.generation; }
  void release(std::uint32_t slot);
  void drop_stale_head();

  std::vector<Key> heap_;
  std::vector<Slot> slots_;
  std::vector<std::uint32_t> free_slots_;
  std::uint64_t next_sequence_ = 0;
  std::size_t live_ = 0;
};

}  // namespace sonivo::sim
