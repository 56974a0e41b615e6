#include "apps/service/host_heartbeat.h"

#include <array>
#include <utility>

namespace sonivo {

HostHeartbeat::HostHeartbeat(HostState& host, std::uint32_t period_ms, std::function<void()> beat)
    : host_(host),
      period_ms_(period_ms),
      beat_(std::move(beat)),
      quit_(host.machine.events.create(Reset::manual)),
      thread_(host.machine.threads.start("heartbeat", [this] { Run(); })) {}

HostHeartbeat::~HostHeartbeat() {
  quit_->set();
  if (thread_) thread_->join();
}

void HostHeartbeat::Run() {
  const std::array<Event*, 1> quit{quit_.get()};
  std::uint32_t seen = 0;
  while (!host_.machine.events.wait_any(quit, period_ms_).index) {
    const std::uint32_t rounds = host_.m_dwSubThreadRounds;
    if (rounds != seen || host_.m_bThreadExit != 0) beat_();
    seen = rounds;
  }
}

}  // namespace sonivo
