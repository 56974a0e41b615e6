#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "base/status.h"

namespace sonivo {

/// Registered callback objects of type T, called one at a time by the thread of a Caller. Holds a reference to each.
///
/// A Caller has a mutex(); post(call), which makes the call on its thread later, and call_ended(), both with the mutex
/// held; wait(lock, condition), which looks at the condition again at each call_ended(); and on_own_thread().
template <class T, class Caller>
class CallbackList {
 public:
  template <class... Arguments>
  explicit CallbackList(Arguments&... arguments) : caller_(arguments...) {}

  Status add(T* callback) {
    if (callback == nullptr) return kInvalidArgument;
    callback->AddRef();
    std::scoped_lock lock(caller_.mutex());
    registered_.push_back({callback, ++latest_});
    return kOk;
  }

  /// Afterwards no call is made, and none is under way unless made by the calling thread.
  Status remove(T* callback) {
    {
      std::unique_lock lock(caller_.mutex());
      const auto found = std::find_if(registered_.begin(), registered_.end(),
                                      [&](const Registered& each) { return each.callback == callback; });
      if (found == registered_.end()) return status_from_error(error::kNotFound);
      registered_.erase(found);
      if (!caller_.on_own_thread()) caller_.wait(lock, [&] { return in_call_ != callback; });
    }
    callback->Release();
    return kOk;
  }

  /// With the mutex held: has all called that are registered now and still are when their turn comes.
  void notify(std::function<void(T&)> call) {
    if (registered_.empty()) return;
    caller_.post([this, latest = latest_, call = std::move(call)] { call_all(latest, call); });
  }

  /// With the mutex held.
  std::size_t size() const { return registered_.size(); }

 protected:
  Caller caller_;

 private:
  struct Registered {
    T* callback;
    std::uint64_t number;
  };

  void call_all(std::uint64_t latest, const std::function<void(T&)>& call) {
    std::unique_lock lock(caller_.mutex());
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
      caller_.call_ended();
    }
  }

  std::vector<Registered> registered_;  ///< in the order of their numbers
  std::uint64_t latest_ = 0;
  T* in_call_ = nullptr;
};

}  // namespace sonivo
