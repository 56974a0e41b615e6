#include "base/trace.h"
#include "host/companions.h"
#include "host/endpoint_ids.h"
#include "host/mode_rules.h"
#include "host/threads.h"

namespace sonivo {
namespace {

constexpr std::uint32_t kReconnectRounds = 10;
constexpr std::uint32_t kReconnectPauseMs = 200;
constexpr std::uint32_t kUnloadPauseMs = 5000;  // so as not to open the driver again while it goes

void Reconnect(HostState& host) {
  for (std::uint32_t round = 0; round < kReconnectRounds; ++round) {
    if (host.m_bThreadExit != 0 || host.m_bSonivoServiceLock != 0) break;
    trace(TraceLevel::debug, "[MainThread] NorvellSonivoDriver Do nothing.\n");
    host.machine.clock.sleep_ms(kReconnectPauseMs);
  }
  host.m_csDriver.lock();
  const SessionState session = ConsoleSession(host.machine);
  if (session == SessionState::unknown) {
    trace(TraceLevel::error, "[MainThread] ProcessIdToSessionId err.\n");
    return;  // with the lock: this thread enters it again, nobody else ever does
  }
  // Who stops the threads sets the lock before closing the driver: it isn't opened again behind that.
  const bool held = host.m_bSonivoServiceLock != 0;
  if (session == SessionState::active && !held && !host.m_DriverAccess.GetDriverHandle()) {
    host.m_DriverAccess.InitDriverInfo(control::kControlInterface);
    trace(TraceLevel::info, "[MainThread] m_hDriver.InitDriverInfo.\n");
  }
  host.m_csDriver.unlock();
}

void ReadGeneration(HostState& host) {
  CSonivoDriverAccess& driver = host.m_DriverAccess;
  std::uint32_t value = 0;
  driver.GetSonivoDrvGeneration(&value);
  host.m_dwGeneration = value;
  if (value >= 8 && value != 9) {
    driver.GetFunction(&value);
    host.m_Function = value;
    driver.GetGenerationMic(&value);
    host.m_dwGenerationMic = value;
  }
  if (host.m_dwGenerationMic != 0) {
    driver.GetFunctionMic(&value);
    host.m_FunctionMic = value;
  }
  host.m_AudioControl.SetGenAndFunction(host.m_dwGeneration, host.m_Function, host.m_dwGenerationMic,
                                        host.m_FunctionMic);
}

void ReadEffectiveSettings(HostState& host) {
  CSonivoDriverAccess& driver = host.m_DriverAccess;
  CAudioControl& audio = host.m_AudioControl;
  std::uint32_t value = 1;
  if (host.KeyCancel()) {
    driver.GetKeyboardCancelMTG(&value);
    audio.UpdateKeyCancelState(value != 0);
  }
  if (host.BeamForming()) {
    value = 1;
    driver.GetKeyboardCancelMTG(&value);
    audio.UpdateBeamFormingKeyCancelState(value != 0);
    value = 1;
    driver.GetBeamformingMTG(&value);
    audio.UpdateBeamFormingState(value != 0);
    host.m_bMicDeviceDirty = 1;
  }
  if (host.AISpeech()) {
    value = 1;
    driver.GetAispeechenhanceMTG(&value);
    audio.UpdateAISpeechEnhanceState(value != 0);
    value = 1;
    driver.GetAispeechenhanceSetAiModelMTG(&value);
    if (audio.UpdateAISpeechEnhanceSetAiModelState(value != 0) == 0) {
      trace(TraceLevel::error, "[MainThread] UpdateAISpeechEnhanceSetAiModelState ERROR\n");
      GiveUpVoiceModel(host);
    }
    host.m_bMicDeviceDirty = 1;
  }
}

void HideMuteWindow(HostState& host) { host.machine.desktop.windows().hide(host.m_hMuteWnd); }

void ReadAutoMute(HostState& host) {
  std::uint32_t value = 0;
  if (host.m_DriverAccess.GetAutoMuteMTG(&value) == 0 || value == host.m_dwAutoMute) return;
  host.m_dwAutoMute = value;
  if (value != 1) {
    HideMuteWindow(host);
    host.m_AudioControl.SetMuteAction(false);
  } else if (host.m_bRecording == 1) {
    trace(TraceLevel::debug, "[MainThread] auto mute waits for the next recording\n");
  }
}

void Synchronise(HostState& host) {
  host.m_bDriverReady = 1;
  if (host.m_DriverAccess.GetDriverHandle()) {
    host.m_DriverAccess.SetEventIoControl_Cancel();  // ends a request left over from a former connection
    trace(TraceLevel::info, "[MainThread] First NSV_SERVICE_EVENT_CANCEL\n");
  }
  ReadGeneration(host);
  const std::string capture = FindEndpointId(host, DataFlow::capture);
  const std::string render = FindEndpointId(host, DataFlow::render);
  host.m_AudioControl.SetEndpoint(DataFlow::capture, capture);
  host.m_AudioControl.SetEndpoint(DataFlow::render, render);
  ReadEffectiveSettings(host);
  ReadAutoMute(host);
}

void NudgePointer(HostState& host) {
  host.machine.power.require_display();
  if (host.m_dwMonitorStatus == kDisplayOff) host.machine.desktop.input().move_pointer(0, 0);
}

void FollowEndpoint(HostState& host, DataFlow flow) {
  host.m_AudioControl.SetEndpoint(flow, ReadEndpointId(host, flow));
}

void WaitForEvent(HostState& host) {
  control::EventRecord record;
  host.m_DriverAccess.SetEventIoControl(&record);
  switch (record.command) {
    case control::kPlayerIsOn:
      EvtPLYCTRL_PlayerIsOn(host.machine);
      break;
    case control::kPlayerIsOff:
      EvtPLYCTRL_PlayerIsOff(host.machine);
      break;
    case control::kMonitorWake:
      NudgePointer(host);
      break;
    case control::NSVDRV_CMD_AUTOMUTE_ON:
      if (host.m_dwAutoMute != 1) host.m_dwAutoMute = 1;
      break;
    case control::NSVDRV_CMD_AUTOMUTE_OFF:
      if (host.m_dwAutoMute == 0) break;
      host.m_dwAutoMute = 0;
      if (host.m_bAutoMuteOff == 0) HideMuteWindow(host);
      host.m_AudioControl.SetMuteAction(false);
      break;
    case control::NSVDRV_CMD_DEV_MIC:
      FollowEndpoint(host, DataFlow::capture);
      break;
    case control::NSVDRV_CMD_DEV_SPK:
      FollowEndpoint(host, DataFlow::render);
      break;
    case control::kNothing:
      break;
    case control::NSVPLAY_CMD_EXIT:
      trace(TraceLevel::info, "[MainThread] NSVPLAY_CMD_EXIT\n");
      host.m_bDriverReady = 0;
      host.m_DriverAccess.CloseDriverHandles();
      host.machine.clock.sleep_ms(kUnloadPauseMs);
      break;
    default:
      trace(TraceLevel::debug, "[MainThread] DEFAULT Command = (%d).\n", static_cast<int>(record.command));
      trace(TraceLevel::debug, "[MainThread] DEFAULT Do nothing.\n");
      break;
  }
}

}  // namespace

std::uint32_t MainThread(HostState& host) {
  host.m_bSonivoServiceLock = 0;
  host.m_dwMonitorStatus = kDisplayOff;
  while (host.m_bThreadExit == 0) {
    if (!host.m_DriverAccess.GetDriverHandle()) {
      host.m_bDriverReady = 0;
      Reconnect(host);
    } else if (host.m_bDriverReady == 0 && host.m_bSonivoServiceLock == 0) {
      Synchronise(host);
    } else if (host.m_bSonivoServiceLock == 0) {
      WaitForEvent(host);
    } else {
      host.machine.clock.sleep_ms(0);
    }
  }
  return 0;
}

}  // namespace sonivo
