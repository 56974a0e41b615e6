#include "platform/sim/script.h"

#include <utility>

namespace sonivo::sim {
namespace {

constexpr std::size_t index_of(Step step) { return static_cast<std::size_t>(step); }

}  // namespace

void Script::fail(Step step, std::int64_t status_or_error, std::uint64_t nth) {
  place({step, count(step) + nth, static_cast<std::uint32_t>(status_or_error), nullptr});
}

void Script::fail_always(Step step, std::int64_t status_or_error) {
  std::scoped_lock lock(mutex_);
  lasting_[index_of(step)] = static_cast<std::uint32_t>(status_or_error);
  scripted_ = true;
}

void Script::clear_faults() {
  const std::lock_guard lock(mutex_);
  entries_.clear();
  lasting_ = {};
}

void Script::pardon(Step step) {
  std::scoped_lock lock(mutex_);
  lasting_[index_of(step)].reset();
}

void Script::before(Step step, std::uint64_t nth, std::function<void()> action) {
  place({step, count(step) + nth, std::nullopt, std::move(action)});
}

std::uint64_t Script::count(Step step) const { return counts_[index_of(step)].load(std::memory_order_relaxed); }

void Script::start_trace() {
  std::scoped_lock lock(mutex_);
  tracing_ = true;
  scripted_ = true;
}

std::vector<std::string> Script::trace() const {
  std::scoped_lock lock(mutex_);
  return trace_;
}

void Script::place(Entry entry) {
  std::scoped_lock lock(mutex_);
  entries_.push_back(std::move(entry));
  scripted_ = true;
}

std::optional<std::uint32_t> Script::enter(Step step) {
  const std::uint64_t call = counts_[index_of(step)].fetch_add(1, std::memory_order_relaxed) + 1;
  if (!scripted_.load(std::memory_order_relaxed)) return std::nullopt;
  return enter_scripted(step, call);
}

std::optional<std::uint32_t> Script::enter_scripted(Step step, std::uint64_t call) {
  std::vector<Entry> due;
  std::optional<std::uint32_t> failure;
  {
    std::scoped_lock lock(mutex_);
    if (tracing_) trace_.push_back(std::to_string(now_ != nullptr ? now_->load() : 0) + " " + to_string(step));
    failure = lasting_[index_of(step)];
    for (auto entry = entries_.begin(); entry != entries_.end();) {
      const bool is_due = entry->step == step && entry->at == call;
      if (is_due) due.push_back(std::move(*entry));
      entry = is_due ? entries_.erase(entry) : entry + 1;
    }
  }
  for (const Entry& entry : due) {
    if (entry.action) entry.action();
    if (entry.failure) failure = entry.failure;
  }
  return failure;
}

}  // namespace sonivo::sim
