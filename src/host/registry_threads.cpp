#include "host/mode_rules.h"
#include "host/registry_watch.h"
#include "host/threads.h"
#include "host/voice_building.h"

namespace sonivo {
namespace {

/// Passes the model row on when it differs from the last one.
void FollowModelNo(HostState& host, std::uint32_t& last) {
  std::uint32_t value = 1;
  host.m_DriverAccess.GetAispeechenhanceModelNoMTG(&value);
  if (value == last) return;
  host.m_AudioControl.SetAISpeechEnhanceModelNo(static_cast<std::int32_t>(value));
  last = value;
}

}  // namespace

std::uint32_t ChangeRegistryThread(HostState& host) {
  std::unique_ptr<FxWatch> watch;
  if (const std::uint32_t status = OpenRegistryWatch(host, watch); status != 0) return status;
  std::uint32_t last_model_no = 0;
  if (host.AISpeech()) FollowModelNo(host, last_model_no);
  return WatchRegistry(host, host.m_hRegistryEvent, std::move(watch), [&] {
    BuildVoiceModel(host);
    FollowModelNo(host, last_model_no);
    FollowDevices(host);
  });
}

std::uint32_t ChangeRegistryThread_Quit(HostState& host) {
  std::unique_ptr<FxWatch> watch;
  if (const std::uint32_t status = OpenRegistryWatch(host, watch); status != 0) return status;
  return WatchRegistry(host, host.m_hRegistryEvent_Quit, std::move(watch), [&] { QuitVoiceModel(host); });
}

}  // namespace sonivo
