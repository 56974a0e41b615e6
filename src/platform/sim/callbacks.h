#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "base/status.h"
#include "platform/sim/scheduler.h"

namespace sonivo::sim {

/// Registered callback objects of type T, called one at a time by the system thread. Holds a reference to each.
template <class T>
class Callbacks {
 public:
  explicit Callbacks(Scheduler& scheduler) : scheduler_(scheduler), call_ended_(scheduler, Reset::manual) {}

  Status add(T* callback) {
    if (callback == nullptr) return kInvalidArgument;
    callback->AddRef();
    std::scoped_lock lock(scheduler_.mutex());
    registered_.push_back({callback, ++latest_});
    return kOk;
  }

  /// Afterwards no call is made, and none is under way unless made by the calling thread.
  Status remove(T* callback) {
    {
      std::unique_lock lock(scheduler_.mutex());
      const auto found = std::find_if(registered_.begin(), registered_.end(),
                                      [&](const Registration& each) { return each.callback == callback; });
      if (found == registered_.end()) return status_from_error(error::kNotFound);
      registered_.erase(found);
      if (!scheduler_.on_system_thread()) {
        scheduler_.block_until(lock, call_ended_, "the end of a callback", [&] { return in_call_ != callback; });
      }
    }
    callback->Release();
    return kOk;
  }

  /// With the mutex held: has the system thread call all that are registered now and still are when their turn comes.
  void notify(std::function<void(T&)> call) {
    if (registered_.empty()) return;
    scheduler_.post_to_system([this, latest = latest_, call = std::move(call)] { call_all(latest, call); });
  }

  /// With the mutex held.
  std::size_t size() const { return registered_.size(); }

 private:
  struct Registration {
    T* callback;
    std::uint64_t number;
  };

  void call_all(std::uint64_t latest, const std::function<void(T&)>& call) {
    std::unique_lock lock(scheduler_.mutex());
    for (std::uint64_t done = 0;;) {
      const auto next = std::find_if(registered_.begin(), registered_.end(), [&](const Registration& each) {
        return each.number > done && each.number <= latest;
      });
      if (next == registered_.end()) return;
      done = next->number;
      in_call_ = next->callback;
      lock.unlock();
      call(*in_call_);
      lock.lock();
      in_call_ = nullptr;
      call_ended_.signal();
    }
  }

  Scheduler& scheduler_;
  std::vector<Registration> registered_;  ///< in the order of their numbers
  std::uint64_t latest_ = 0;
  T* in_call_ = nullptr;
  SimEvent call_ended_;
};

}  // namespace sonivo::sim
