#pragma once

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "base/status.h"
#include "platform/linux/pipewire/dispatcher.h"

namespace sonivo::pipewire {

/// Registered callback objects of type T, called one at a time by the dispatcher's thread. Holds a reference to each.
/// Outlives the dispatcher's run.
template <class T>
class Callbacks {
 public:
  explicit Callbacks(Dispatcher& dispatcher) : dispatcher_(dispatcher) {}

  Status add(T* callback) {
    if (callback == nullptr) return kInvalidArgument;
    callback->AddRef();
    std::scoped_lock lock(mutex_);
    registered_.push_back({callback, ++latest_});
    return kOk;
  }

  /// Afterwards no call is made, and none is under way unless made by the calling thread.
  Status remove(T* callback) {
    {
      std::unique_lock lock(mutex_);
      const auto found = std::find_if(registered_.begin(), registered_.end(),
                                      [&](const Registered& each) { return each.callback == callback; });
      if (found == registered_.end()) return status_from_error(error::kNotFound);
      registered_.erase(found);
      if (!dispatcher_.on_own_thread()) call_ended_.wait(lock, [&] { return in_call_ != callback; });
    }
    callback->Release();
    return kOk;
  }

  /// Has all called that are registered now and still are when their turn comes.
  void notify(std::function<void(T&)> call) {
    std::scoped_lock lock(mutex_);
    if (registered_.empty()) return;
    dispatcher_.post([this, latest = latest_, call = std::move(call)] { call_all(latest, call); });
  }

 private:
  struct Registered {
    T* callback;
    std::uint64_t number;
  };

  void call_all(std::uint64_t latest, const std::function<void(T&)>& call) {
    std::unique_lock lock(mutex_);
    for (std::uint64_t done = 0;;) {
      const auto next = std::find_if(registered_.begin(), registered_.end(), [&](const Registered& each) {
        return each.number > done && each.number <= latest;
      });
      if (next == registered_.end()) return;
      done = next->number;
      in_call_ = next->callback;
      lock.unlock();
      call(*in_call_);
      lock.lock();
      in_call_ = nullptr;
      call_ended_.notify_all();
    }
  }

  Dispatcher& dispatcher_;
  std::mutex mutex_;
  std::condition_variable call_ended_;
  std::vector<Registered> registered_;  ///< in the order of their numbers
  std::uint64_t latest_ = 0;
  T* in_call_ = nullptr;
};

}  // namespace sonivo::pipewire
