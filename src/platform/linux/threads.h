#pragma once

#include "base/thread.h"

namespace sonivo::linux {

/// Threads of the process. Priorities other than normal are nice values and, for time_critical and the audio class,
/// round-robin scheduling; what the system doesn't permit leaves the thread as it was.
class ProcessThreads final : public Threads {
 public:
  std::unique_ptr<Thread> start(const char* name, std::function<void()> body) override;
  void set_current_priority(Priority priority) override;
  std::uint64_t enter_audio_class() override;
  void leave_audio_class(std::uint64_t token) override;
};

}  // namespace sonivo::linux
