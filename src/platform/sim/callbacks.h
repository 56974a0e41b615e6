#pragma once

#include <functional>
#include <mutex>
#include <utility>

#include "platform/callbacks.h"
#include "platform/sim/scheduler.h"

namespace sonivo::sim {

/// Has callbacks called by the system thread, under the scheduler's mutex.
class SystemCaller {
 public:
  explicit SystemCaller(Scheduler& scheduler) : scheduler_(scheduler), call_ended_(scheduler, Reset::manual) {}

  std::mutex& mutex() { return scheduler_.mutex(); }
  bool on_own_thread() { return scheduler_.on_system_thread(); }
  void post(std::function<void()> call) { scheduler_.post_to_system(std::move(call)); }
  template <class Done>
  void wait(std::unique_lock<std::mutex>& lock, Done done) {
    scheduler_.block_until(lock, call_ended_, "the end of a callback", done);
  }
  void call_ended() { call_ended_.signal(); }

 private:
  Scheduler& scheduler_;
  SimEvent call_ended_;
};

template <class T>
using Callbacks = CallbackList<T, SystemCaller>;

}  // namespace sonivo::sim
