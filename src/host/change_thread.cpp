#include "base/trace.h"
#include "host/mode_rules.h"
#include "host/threads.h"

namespace sonivo {
namespace {

constexpr std::uint32_t kInactivePollMs = 200;
/// The event stays set: without a pause the thread would turn until somebody knows the session again.
constexpr std::uint32_t kUnknownPauseMs = 200;

}  // namespace

std::uint32_t ChangeThread(HostState& host) {
  EventPair events;
  for (;;) {
    events.TakeMissing(host.m_hEvent);
    const WaitResult woken = events.Wait(host.machine.events);
    const SessionState session = ConsoleSession(host.machine);
    if (session == SessionState::unknown) {
      trace(TraceLevel::error, "[ChangeThread] ProcessIdToSessionId err.\n");
      host.machine.clock.sleep_ms(kUnknownPauseMs);
      continue;
    }
    if (session == SessionState::inactive) {
      trace(TraceLevel::debug, "[ChangeThread] Not active session\n");
      host.machine.clock.sleep_ms(kInactivePollMs);
      continue;
    }
    if (woken.index != EventPair::kWork) {
      if (woken.index != EventPair::kStop) trace(TraceLevel::error, "ChangeThread ERROR.\n");
      events.Reset(EventPair::kStop);
      return 0;
    }
    if (host.BeamForming()) FollowDevices(host);
    if (host.AISpeech()) FollowDevices(host);
    events.Reset(EventPair::kWork);
  }
}

}  // namespace sonivo
