#pragma once

#include <pipewire/pipewire.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <utility>

#include "platform/linux/pipewire/connection.h"

namespace sonivo::pipewire {

/// A call that comes later, once for each start, on the loop's thread with the loop locked.
class LoopTimer {
 public:
  LoopTimer(Connection& connection, std::function<void()> call) : connection_(connection), call_(std::move(call)) {
    const Connection::Lock lock(connection_);
    source_ = pw_loop_add_timer(
        &connection_.loop(), [](void* self, std::uint64_t) { static_cast<LoopTimer*>(self)->call_(); }, this);
  }
  /// Also within the call.
  ~LoopTimer() {
    const Connection::Lock lock(connection_);
    pw_loop_destroy_source(&connection_.loop(), source_);
  }
  LoopTimer(const LoopTimer&) = delete;
  LoopTimer& operator=(const LoopTimer&) = delete;

  /// With the loop locked. In place of a call that is still to come; in no time: as soon as the loop turns.
  void start(std::chrono::nanoseconds wait) {
    const long ns = std::max<long>(wait.count(), 1);
    timespec once{.tv_sec = ns / 1'000'000'000, .tv_nsec = ns % 1'000'000'000};
    timespec never{};
    pw_loop_update_timer(&connection_.loop(), source_, &once, &never, false);
  }

 private:
  Connection& connection_;
  const std::function<void()> call_;
  spa_source* source_ = nullptr;
};

}  // namespace sonivo::pipewire
