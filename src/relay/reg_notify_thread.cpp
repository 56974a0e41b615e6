// Watches the stored parameters of the capture effect and has the capture stream take up new ones.

#include <array>

#include "base/text.h"
#include "base/trace.h"
#include "relay/audio_control.h"
#include "relay/effect_properties.h"
#include "relay/gates.h"

namespace sonivo {
namespace {

constexpr std::uint32_t kFlagBytes = 3;  // asked for with every chain, also where only two are stored
constexpr std::uint32_t kEndpointGuidLimit = 260;

}  // namespace

bool CAudioControl::ReadParameters(std::vector<std::byte>& blob) const {
  const bool key_cancel = GateKeyCancel(m_FunctionMic, m_dwGenerationMic);
  const bool others =
      GateBeamForming(m_FunctionMic, m_dwGenerationMic) || GateAISpeech(m_FunctionMic, m_dwGenerationMic);
  if (!key_cancel && !others) return false;
  const PropertyKey& key = key_cancel ? PKEY_NVC_MTGMIC_KC_Param : PKEY_NVC_MTGMIC_BF_KC_Param;
  return GetFxCaptureBytes(m_machine, key, blob) == kOk;
}

RegNotifyStatus CAudioControl::RegNotifyThread() {
  trace(TraceLevel::info, "[CAudioControl::RegNotifyThread] enter\n");
  m_machine.threads.set_current_priority(Priority::below_normal);

  const Chains chains = m_makeChains();  // only to be asked for their parameter size
  struct Gated {
    bool open;
    Chain& chain;
    const char* name;
  };
  const std::array<Gated, 3> gated{{
      {GateKeyCancel(m_FunctionMic, m_dwGenerationMic), *chains.key_cancel, "CKeyCancel"},
      {GateBeamForming(m_FunctionMic, m_dwGenerationMic), *chains.beam_forming, "CBeamFormingKeyCancel"},
      {GateAISpeech(m_FunctionMic, m_dwGenerationMic), *chains.ai_speech, "CAISpeechEnhance"},
  }};
  std::uint32_t size = 0;
  for (const Gated& gate : gated) {
    if (!gate.open) continue;
    if (const int status = gate.chain.GetParamSize(&size); status != 0) {
      trace(TraceLevel::error, "[CAudioControl::RegNotifyThread] %s::GetParamSize failed. (%d)\n", gate.name, status);
      return RegNotifyStatus::no_param_size;
    }
  }

  std::vector<std::byte> baseline(size + kFlagBytes);
  if (!ReadParameters(baseline)) return RegNotifyStatus::no_parameters;

  std::array<char16_t, kEndpointGuidLimit> guid{};
  std::uint32_t cb = kEndpointGuidLimit;
  if (GetFxCapturePropertiesValue(m_machine, PKEY_AudioEndpoint_GUID, guid.data(), &cb) != kOk) {
    return RegNotifyStatus::no_endpoint_id;
  }
  guid.back() = u'\0';

  std::unique_ptr<Event> changed;  // before the watch, which may set it for as long as it lives
  std::unique_ptr<FxWatch> watch;
  if (const Error why = m_machine.fx_properties.open_watch(to_utf8(guid.data()), watch); why != error::kNone) {
    trace(TraceLevel::error, "!!![CAudioControl::RegNotifyThread] Failed open registry: %ld.", static_cast<long>(why));
    return RegNotifyStatus::no_store;
  }
  changed = m_machine.events.create(Reset::manual);
  if (!changed) return RegNotifyStatus::no_event;

  std::vector<std::byte> latest(baseline.size());
  while (true) {
    changed->reset();
    if (failed(watch->arm(changed.get()))) return RegNotifyStatus::watch_failed;
    const std::array<Event*, 2> events{m_hRegNotifyStopEvent.get(), changed.get()};
    const WaitResult woken = m_machine.events.wait_any(events);
    if (woken.index == 0) return RegNotifyStatus::stopped;
    if (woken.index != 1) return RegNotifyStatus::wait_failed;
    if (!ReadParameters(latest)) return RegNotifyStatus::parameters_lost;
    if (latest == baseline) continue;
    baseline = latest;
    trace(TraceLevel::info, "[CAudioControl::RegNotifyThread] The registry changed.\n");
    m_Capture.RequestRestart();
  }
}

}  // namespace sonivo
