#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <utility>

#include "platform/callbacks.h"
#include "platform/linux/pipewire/dispatcher.h"

namespace sonivo::pipewire {

/// Has callbacks called by the dispatcher's thread.
class DispatchedCaller {
 public:
  explicit DispatchedCaller(Dispatcher& dispatcher) : dispatcher_(dispatcher) {}

  std::mutex& mutex() { return mutex_; }
  bool on_own_thread() const { return dispatcher_.on_own_thread(); }
  void post(std::function<void()> call) { dispatcher_.post(std::move(call)); }
  template <class Done>
  void wait(std::unique_lock<std::mutex>& lock, Done done) {
    call_ended_.wait(lock, done);
  }
  void call_ended() { call_ended_.notify_all(); }

 private:
  Dispatcher& dispatcher_;
  std::mutex mutex_;
  std::condition_variable call_ended_;
};

/// Outlives the dispatcher's run.
template <class T>
class Callbacks : public CallbackList<T, DispatchedCaller> {
 public:
  using CallbackList<T, DispatchedCaller>::CallbackList;

  void notify(std::function<void(T&)> call) {
    std::scoped_lock lock(this->caller_.mutex());
    CallbackList<T, DispatchedCaller>::notify(std::move(call));
  }
};

}  // namespace sonivo::pipewire
