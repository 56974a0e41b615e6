#pragma once

#include <atomic>
#include <string>

#include "base/thread.h"

namespace sonivo::linux {

/// Has threads of the process scheduled in real time, by what an unprivileged program may ask: the portal, RealtimeKit,
/// then the process's own limits. The first two let no thread compute for long without a wait: one that does falls back
/// to ordinary scheduling, before the system would end the process.
class RealTime {
 public:
  struct Options {
    std::string user_bus = {};    ///< address; empty: the user's own
    std::string system_bus = {};  ///< the same
    RealTimeGrant own_limits = set_real_time;
  };
  explicit RealTime(Options options) : options_(std::move(options)) {}

  /// For the calling thread. May wait up to a second for those it asks, where they hang. A notice tells of the first
  /// refusal.
  bool grant(int priority) {
    std::string ignored;
    return grant(priority, ignored);
  }
  /// `refusal`: in the words of the one who was asked last; empty: nobody is there who could be asked.
  bool grant(int priority, std::string& refusal);

  /// By the process's own limits.
  static bool set_real_time(int priority);

 private:
  const Options options_;
  std::atomic<bool> refused_ = false;
};

}  // namespace sonivo::linux
