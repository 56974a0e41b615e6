#include "platform/sim/script.h"

#include <iterator>
#include <utility>

namespace sonivo::sim {
namespace {

constexpr const char* kNames[] = {
    "bus_interfaces",
    "device_probe",
    "device_open",
    "device_notify_removal",
    "device_wait_stream",
    "device_transfer",
    "device_feedback",
    "device_result",
    "device_cancel",
    "device_close",
    "filter_open",
    "filter_control",
    "endpoints_list",
    "endpoints_default",
    "endpoints_register",
    "endpoints_unregister",
    "endpoint_id",
    "endpoint_open_properties",
    "endpoint_property_value",
    "endpoint_activate_client",
    "endpoint_activate_volume",
    "volume_mute",
    "volume_set_mute",
    "volume_level",
    "volume_set_level",
    "volume_register",
    "volume_unregister",
    "client_initialize",
    "client_set_event",
    "client_capture_service",
    "client_render_service",
    "client_buffer_size",
    "client_padding",
    "client_start",
    "client_stop",
    "client_reset",
    "client_engine_period",
    "client_mix_format",
    "capture_get_buffer",
    "capture_release_buffer",
    "render_get_buffer",
    "render_release_buffer",
    "event_create",
    "wait_any",
    "sleep",
    "thread_start",
    "audio_class_enter",
    "process_session",
    "post_message",
    "fx_user_store",
    "fx_user_value",
    "fx_policy_config",
    "fx_policy_value",
    "fx_open_watch",
    "fx_arm",
};
static_assert(std::size(kNames) == kStepCount);

constexpr std::size_t index_of(Step step) { return static_cast<std::size_t>(step); }

}  // namespace

const char* to_string(Step step) { return kNames[index_of(step)]; }

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
