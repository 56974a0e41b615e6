#include "host/registry_watch.h"

#include <array>

#include "base/text.h"
#include "base/trace.h"
#include "relay/effect_properties.h"

namespace sonivo {
namespace {

constexpr std::uint32_t kGuidCharacters = 260;
constexpr std::uint32_t kInactivePauseMs = 200;

constexpr std::uint32_t kNoStore = 1;
constexpr std::uint32_t kNoEndpointGuid = 3;

}  // namespace

std::uint32_t OpenRegistryWatch(HostState& host, std::unique_ptr<FxWatch>& watch) {
  std::array<char16_t, kGuidCharacters> guid{};
  std::uint32_t characters = kGuidCharacters;
  if (GetFxCapturePropertiesValue(host.machine, PKEY_AudioEndpoint_GUID, guid.data(), &characters) != kOk) {
    return kNoEndpointGuid;
  }
  guid.back() = u'\0';
  const Error why = host.machine.fx_properties.open_watch(to_utf8(guid.data()), watch);
  if (why == error::kNone) return 0;
  trace(TraceLevel::error, "Error in RegOpenKeyEx (%d).\n", static_cast<int>(why));
  return kNoStore;
}

std::uint32_t WatchRegistry(HostState& host, const EventPair& present, std::unique_ptr<FxWatch> watch,
                            const std::function<void()>& changed) {
  EventPair events;
  for (;;) {
    events.TakeMissing(present);
    const auto work = events.Get(EventPair::kWork);
    const Status status = work ? watch->arm(work.get()) : status_from_error(error::kInvalidHandle);
    if (failed(status)) {
      trace(TraceLevel::error, "Error in RegNotifyChangeKeyValue (%d).\n", static_cast<int>(status & 0xFFFF));
      break;
    }
    const WaitResult woken = events.Wait(host.machine.events);
    if (ConsoleSession(host.machine) != SessionState::active) {
      trace(TraceLevel::debug, "[WatchRegistry] Not active session\n");
      host.machine.clock.sleep_ms(kInactivePauseMs);
      continue;
    }
    if (woken.index != EventPair::kWork) {
      if (woken.index != EventPair::kStop) trace(TraceLevel::error, "ChangeRegistryThread ERROR.\n");
      break;
    }
    if (host.GateModeThreads()) changed();
    events.Reset(EventPair::kWork);
  }
  watch.reset();
  events.Reset(EventPair::kStop);
  return 0;
}

}  // namespace sonivo
