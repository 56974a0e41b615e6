#include "platform/sim/timeline.h"

#include <algorithm>
#include <utility>

namespace sonivo::sim {

bool Timeline::later(const Key& a, const Key& b) {
  return a.time != b.time ? a.time > b.time : a.sequence > b.sequence;
}

TimerId Timeline::at(Time time, std::function<void()> action) {
  if (free_slots_.empty()) {
    free_slots_.push_back(static_cast<std::uint32_t>(slots_.size()));
    slots_.emplace_back();
  }
  const std::uint32_t slot = free_slots_.back();
  free_slots_.pop_back();
  slots_[slot].action = std::move(action);
  heap_.push_back({time, next_sequence_++, slot, slots_[slot].generation});
  std::push_heap(heap_.begin(), heap_.end(), later);
  ++live_;
  return TimerId{slots_[slot].generation} << 32 | slot;
}

void Timeline::cancel(TimerId id) {
  const auto slot = static_cast<std::uint32_t>(id);
  const auto generation = static_cast<std::uint32_t>(id >> 32);
  if (slot >= slots_.size() || slots_[slot].generation != generation) return;
  release(slot);
  // Far cancelled entries must not pile up behind near ones.
  if (heap_.size() > 2 * live_ + 64) {
    std::erase_if(heap_, [this](const Key& key) { return stale(key); });
    std::make_heap(heap_.begin(), heap_.end(), later);
  }
}

void Timeline::release(std::uint32_t slot) {
  slots_[slot].action = nullptr;
  ++slots_[slot].generation;
  free_slots_.push_back(slot);
  --live_;
}

void Timeline::drop_stale_head() {
  while (stale(heap_.front())) {
    std::pop_heap(heap_.begin(), heap_.end(), later);
    heap_.pop_back();
  }
}

Time Timeline::next_time() {
  drop_stale_head();
  return heap_.front().time;
}

void Timeline::run_next() {
  drop_stale_head();
  const std::uint32_t slot = heap_.front().slot;
  std::pop_heap(heap_.begin(), heap_.end(), later);
  heap_.pop_back();
  const std::function<void()> action = std::move(slots_[slot].action);
  release(slot);
  action();
}

}  // namespace sonivo::sim
