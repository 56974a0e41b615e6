#include "host/mode_rules.h"

#include <array>

#include "base/trace.h"
#include "host/effective_settings.h"

namespace sonivo {
namespace {

/// A kind of built-in microphone: how traces call it, and what its friendly name contains.
struct BuiltIn {
  const char* trace_name;
  const char* text;
};
constexpr std::array kBuiltIn{
    BuiltIn{"DEVICE_BUILT_IN", "内蔵マイク"},
    BuiltIn{"DEVICE_BUILT_IN_INTEL", "マイク配列 (デジタルマイク向けインテル"},
    BuiltIn{"DEVICE_BUILT_IN_INTEL_ENG", "Microphone Array (デジタルマイク向けインテル"},
};

enum class Microphone { built_in, built_in_intel, built_in_intel_eng, other };

Microphone PhysicalMicrophone(HostState& host) {
  for (std::size_t i = 0; i < kBuiltIn.size(); ++i) {
    const bool found = !failed(host.m_AudioControl.CheckDeviceName(kBuiltIn[i].text));
    trace(TraceLevel::debug, "[deviceNameChange] %s %d\n", kBuiltIn[i].trace_name, found ? 1 : 0);
    if (found) return static_cast<Microphone>(i);
  }
  return Microphone::other;
}

void SetBeamforming(CSonivoDriverAccess& driver, Effective effective) {
  const bool on = effective == Effective::user && UserSetting(driver, &CSonivoDriverAccess::GetBeamforming_UI_MTG) == 1;
  driver.SetBeamformingMTG(on ? 1 : 0);
}

}  // namespace

void RepaintPanel(HostState& host) {
  Windows& windows = host.machine.desktop.windows();
  if (windows.visible(host.m_hWnd)) windows.invalidate(host.m_hWnd);
}

int SetMeetingModeDriver(HostState& host, std::int32_t position) {
  const std::lock_guard lock(host.m_csDriver);
  const bool room_correction = host.m_RoomCorrection != 0;
  if (position == 0) return host.m_DriverAccess.SetLaunchedMTGOff(room_correction);
  const std::int32_t launched = position + (room_correction ? 2 : 0);
  return host.m_DriverAccess.SetLaunchedMTG(static_cast<std::uint32_t>(launched - 1));
}

std::uint32_t headphoneUpdate(HostState& host) {
  CSonivoDriverAccess& driver = host.m_DriverAccess;
  std::uint32_t launched = 0;  // as the driver has it, room correction included
  std::uint32_t headphone = 0;
  {
    const std::lock_guard lock(host.m_csDriver);
    driver.GetLaunchedMTG(&launched);
  }
  {
    const std::lock_guard lock(host.m_csDriver);
    driver.GetHeadphone(&headphone);
  }
  if (headphone == host.m_dwHeadPhone || launched > 4) return headphone;

  const bool to_speakers = headphone == 0;
  const bool second_mode = launched == 2 || launched == 4;
  const Effective enhance = launched == 0 ? Effective::off : Effective::user;
  const Effective others = launched == 0 || (to_speakers && second_mode) ? Effective::off : Effective::user;
  if (host.BeamForming()) SetBeamforming(driver, others);
  if (host.AISpeech()) {
    SetEnhance(driver, enhance);
    SetVoiceModel(driver, others);
  }
  return headphone;
}

void SetHeadphoneState(HostState& host, std::uint32_t value) {
  if (value == host.m_dwHeadPhone) return;
  host.m_dwHeadPhone = value;
  host.m_bMicDeviceDirty = 1;
  RepaintPanel(host);
}

void ApplyVoiceModel(HostState& host, bool on) {
  if (host.m_AudioControl.UpdateAISpeechEnhanceSetAiModelState(on) == 0) GiveUpVoiceModel(host);
}

void GiveUpVoiceModel(HostState& host) {
  host.m_LastTrouble.Note("the enrolled voice model is missing", host.machine.clock.tick_ms());
  host.m_DriverAccess.SetAispeechenhanceSetAiModelMTG(0);
  host.m_DriverAccess.SetAispeechenhanceSetAiModel_UI_MTG(0);
}

void deviceNameChange(HostState& host) {
  CSonivoDriverAccess& driver = host.m_DriverAccess;
  CAudioControl& audio = host.m_AudioControl;

  std::uint32_t key_cancel = 1;
  driver.GetKeyboardCancelMTG(&key_cancel);
  const bool keyState = key_cancel != 0;

  std::uint32_t beamforming = 1;
  if (host.BeamForming()) {
    audio.UpdateBeamFormingKeyCancelState(keyState);
    driver.GetBeamformingMTG(&beamforming);
    trace(TraceLevel::debug, "[deviceNameChange] GetBeamformingMTG %u\n", beamforming);
  }
  std::uint32_t aiState = 1;
  std::uint32_t aiModel = 1;
  if (host.AISpeech()) {
    audio.UpdateAISpeechEnhanceBeamFormingKeyCancelState(keyState);
    driver.GetBeamformingMTG(&beamforming);
    trace(TraceLevel::debug, "[deviceNameChange] GetBeamformingMTG %u\n", beamforming);
    driver.GetAispeechenhanceMTG(&aiState);
    driver.GetAispeechenhanceSetAiModelMTG(&aiModel);
  }

  const Microphone microphone = PhysicalMicrophone(host);
  if (microphone == Microphone::other) {
    const auto conclude = [&] {
      if (host.m_bMicDeviceDirty == 0) return;
      driver.SetBeamformingMTG(0);
      host.m_bMicDeviceDirty = 0;
    };
    if (host.BeamForming()) {
      audio.UpdateBeamFormingState(false);
      conclude();
    }
    if (host.AISpeech()) {
      audio.UpdateAISpeechEnhanceBeamFormingState(false);
      conclude();
    }
  } else {
    beamforming = 1;
    driver.GetBeamformingMTG(&beamforming);
    const bool bf = beamforming != 0;
    if (host.BeamForming()) audio.UpdateBeamFormingState(bf);
    if (host.AISpeech() && microphone == Microphone::built_in) {
      audio.UpdateBeamFormingState(bf);  // the second chain's, also here
    } else if (host.AISpeech()) {
      audio.UpdateAISpeechEnhanceBeamFormingState(bf);
      ApplyVoiceModel(host, aiModel != 0);
      audio.UpdateAISpeechEnhanceState(aiState != 0);
    }
    if (microphone != Microphone::built_in_intel_eng || host.GateModeThreads()) host.m_bMicDeviceDirty = 0;
  }

  if (host.AISpeech()) {
    audio.UpdateAISpeechEnhanceState(aiState != 0);
    ApplyVoiceModel(host, aiModel != 0);
  }
}

}  // namespace sonivo
