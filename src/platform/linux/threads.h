#pragma once

#include <utility>

#include "base/thread.h"
#include "platform/linux/real_time.h"

namespace sonivo::linux {

/// Threads of the process. Priorities other than normal are nice values and, for time_critical and the audio class,
/// real-time scheduling; what isn't granted leaves the thread as it was.
class ProcessThreads final : public Threads {
 public:
  explicit ProcessThreads(RealTimeGrant real_time = RealTime::set_real_time) : real_time_(std::move(real_time)) {}

  std::unique_ptr<Thread> start(const char* name, std::function<void()> body) override;
  void set_current_priority(Priority priority) override;
  std::uint64_t enter_audio_class() override;
  void leave_audio_class(std::uint64_t token) override;

 private:
  const RealTimeGrant real_time_;
};

}  // namespace sonivo::linux
