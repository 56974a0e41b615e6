#pragma once

#include <algorithm>
#include <functional>
#include <mutex>
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
    registered_.push_back(callback);
    return kOk;
  }

  /// Afterwards no call is made, and none is under way unless made by the calling thread.
  Status remove(T* callback) {
    {
      std::unique_lock lock(scheduler_.mutex());
      const auto found = std::find(registered_.begin(), registered_.end(), callback);
      if (found == registered_.end()) return status_from_error(error::kNotFound);
      registered_.erase(found);
      if (!scheduler_.on_system_thread()) {
        scheduler_.block_until(lock, call_ended_, "the end of a callback", [&] { return in_call_ != callback; });
      }
    }
    callback->Release();
    return kOk;
  }

  /// With the mutex held: has the system thread call all that are registered when their turn comes.
  void notify(std::function<void(T&)> call) {
    scheduler_.post_to_system([this, call = std::move(call)] { call_all(call); });
  }

  /// With the mutex held.
  std::size_t size() const { return registered_.size(); }

 private:
  bool registered(T* callback) const {
    return std::find(registered_.begin(), registered_.end(), callback) != registered_.end();
  }

  void call_all(const std::function<void(T&)>& call) {
    std::unique_lock lock(scheduler_.mutex());
    const std::vector<T*> now_registered = registered_;
    for (T* callback : now_registered) {
      if (!registered(callback)) continue;
      in_call_ = callback;
      lock.unlock();
      call(*callback);
      lock.lock();
      in_call_ = nullptr;
      call_ended_.signal();
    }
  }

  Scheduler& scheduler_;
  std::vector<T*> registered_;
  T* in_call_ = nullptr;
  SimEvent call_ended_;
};

}  // namespace sonivo::sim
