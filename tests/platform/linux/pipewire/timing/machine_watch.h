#pragma once

#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <iterator>
#include <mutex>
#include <thread>
#include <vector>

namespace sonivo::test {

/// Notes when the machine itself is late: on each processor a thread, before those of the relay and behind those of the
/// server where real-time scheduling is granted, wants to run every millisecond. What holds it up would hold the relay
/// up.
class MachineWatch {
 public:
  using Clock = std::chrono::steady_clock;

  struct Lateness {
    Clock::time_point due;
    Clock::duration late{};
    unsigned processor = 0;
  };

  MachineWatch() {
    const unsigned count = std::max(1u, std::thread::hardware_concurrency());
    for (unsigned i = 0; i < count; ++i) threads_.emplace_back([this, i] { watch(i); });
  }
  ~MachineWatch() {
    ends_ = true;
    for (std::thread& each : threads_) each.join();
  }
  MachineWatch(const MachineWatch&) = delete;
  MachineWatch& operator=(const MachineWatch&) = delete;

  /// What is in the way of turns of this length, or of the relay, which does something every 5 ms.
  static Clock::duration harm(Clock::duration turn) { return std::min<Clock::duration>(kHarm, turn / 2); }

  /// Each time that it was later than the limit, which is a few tenths of a millisecond at least, from one moment to
  /// another.
  std::vector<Lateness> later_than(Clock::duration limit, Clock::time_point from, Clock::time_point to) const {
    std::scoped_lock lock(mutex_);
    std::vector<Lateness> found;
    std::copy_if(all_.begin(), all_.end(), std::back_inserter(found), [&](const Lateness& each) {
      return each.late > limit && each.due + each.late >= from && each.due <= to;
    });
    return found;
  }

 private:
  static constexpr std::chrono::milliseconds kTurn{1};
  static constexpr int kPriority = 11;
  static constexpr std::chrono::microseconds kWorthANote{300};
  static constexpr std::chrono::milliseconds kHarm{2};

  void watch(unsigned processor) {
    cpu_set_t own;
    CPU_ZERO(&own);
    CPU_SET(processor, &own);
    ::pthread_setaffinity_np(::pthread_self(), sizeof own, &own);
    const sched_param before_the_relay{.sched_priority = kPriority};
    ::pthread_setschedparam(::pthread_self(), SCHED_FIFO, &before_the_relay);
    for (auto due = Clock::now(); !ends_; due = std::max(due + kTurn, Clock::now())) {
      std::this_thread::sleep_until(due);
      const auto late = Clock::now() - due;
      if (late < kWorthANote) continue;
      std::scoped_lock lock(mutex_);
      all_.push_back({due, late, processor});
    }
  }

  std::atomic<bool> ends_ = false;
  mutable std::mutex mutex_;
  std::vector<Lateness> all_;
  std::vector<std::thread> threads_;
};

}  // namespace sonivo::test
