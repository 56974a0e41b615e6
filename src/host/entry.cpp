#include "host/entry.h"

#include <system_error>
#include <utility>

#include "base/trace.h"
#include "host/endpoint_ids.h"
#include "host/host_state.h"
#include "host/host_windows.h"
#include "host/mode_rules.h"
#include "host/thread_set.h"
#include "platform/window_messages.h"

namespace sonivo {
namespace {

void ReadDriver(HostState& host) {
  CSonivoDriverAccess& driver = host.m_DriverAccess;
  driver.InitDriverInfo(control::kControlInterface);

  std::uint32_t value = 0;
  host.m_dwGeneration = driver.GetSonivoDrvGeneration(&value) != 0 ? value : 8;

  host.m_RoomCorrection = 0;
  driver.GetLaunchedMTG(&value);
  const std::int32_t position = NormaliseLaunched(host, value);

  if (host.m_dwGeneration >= 8 && host.m_dwGeneration != 9) {
    driver.GetFunction(&value);
    host.m_Function = value;
    const std::uint32_t unanswered = driver.GetDriverSyncHandle() ? 2 : 0;
    host.m_dwGenerationMic = driver.GetGenerationMic(&value) != 0 ? value : unanswered;
  }
  if (host.m_dwGenerationMic != 0) {
    driver.GetFunctionMic(&value);
    host.m_FunctionMic = value;
  }
  host.SetMeetingModes(position);
}

void RegisterPower(HostState& host) {
  Power& power = host.machine.power;
  host.m_hSuspendResume = power.register_suspend_resume(
      [&host](std::uint64_t transition) { return DeviceNotifyCallbackRoutine(host, transition); });
  host.m_hPowerSetting = power.register_setting(host.m_hWnd, kConsoleDisplayState);
  host.m_bModernStandby = 0;
  PowerCapabilities capabilities;
  if (power.capabilities(capabilities) && capabilities.AoAc) {
    host.m_bModernStandby = 1;
    host.m_hPowerSetting = power.register_setting(host.m_hWnd, kConsoleDisplayState);
  }
}

void TellAudioControl(HostState& host) {
  CAudioControl& audio = host.m_AudioControl;
  audio.SetGenAndFunction(host.m_dwGeneration, host.m_Function, host.m_dwGenerationMic, host.m_FunctionMic);
  audio.SetMuteWindow(host.m_hMuteWnd);

  audio.SetEndpointForce(DataFlow::capture, FindEndpointId(host, DataFlow::capture));
  audio.SetEndpointForce(DataFlow::render, FindEndpointId(host, DataFlow::render));

  if (host.KeyCancel()) audio.ChangeKeyCancelState(true);
  if (host.BeamForming()) {
    audio.ChangeBeamFormingKeyCancelState(true);
    audio.ChangeBeamFormingState(true);
  }
  if (host.AISpeech()) {
    audio.ChangeAISpeechEnhanceBeamFormingKeyCancelState(false);
    audio.ChangeAISpeechEnhanceBeamFormingState(false);
    audio.ChangeAISpeechEnhanceState(true);
    trace(TraceLevel::debug, "[Main] AISpeechEnhanceState false\n");
  }
}

void OpenSpeechEnhancement(HostState& host) {
  if (!host.AISpeech()) return;
  const std::filesystem::path folder = host.machine.folders.user_data_folder() / "NorvellSonivo";
  std::error_code why;
  std::filesystem::create_directory(folder, why);
  if (!why || why == std::errc::file_exists) host.m_szEnhanceModelFolder = folder;
  host.m_szEnhanceModelPath = (host.m_szEnhanceModelFolder / "EnhanceModel.bin").string();
  host.m_AudioControl.SetAISpeechEnhancePmodel(host.m_szEnhanceModelPath.c_str());
  host.m_AudioControl.ChangeAISpeechEnhanceSetAiModelState(false);
  host.m_AudioControl.SetAISpeechEnhanceOpen();
}

void RunMessageLoop(HostState& host, ThreadSet& threads) {
  MessageQueue& queue = host.machine.desktop;
  Message message;
  for (Got got = queue.get_message(message); got != Got::quit; got = queue.get_message(message)) {
    if (got == Got::failed) continue;  // without the loop nothing could end the threads any more
    if (host.m_bThreadExit != 0) {
      if (message.message == kWmPowerBroadcast) continue;  // the reboot waits for the next other message
      threads.Reboot();
    }
    queue.dispatch_message(message);
  }
}

void LetGo(HostState& host) {
  host.RemoveHooks();
  host.m_hPowerSetting.reset();
  host.m_hSuspendResume.reset();
  host.m_hPanelBitmap.reset();
}

}  // namespace

int RunService(HostState& host) {
  const Machine& machine = host.machine;
  ThreadSet threads(host);
  ReadDriver(host);
  if (!CreateHostWindows(host)) return 1;
  machine.desktop.windows().hide(host.m_hWnd);
  LoadPanelBitmap(host);
  RegisterPower(host);
  host.m_hSessionNotify = machine.session.notify(host.m_hWnd);
  threads.CreateEvents();
  TellAudioControl(host);
  host.m_AudioControl.Start();
  OpenSpeechEnhancement(host);
  if (host.GateModeThreads()) FollowDevices(host);
  threads.Start();

  RunMessageLoop(host, threads);

  threads.Finish();
  host.m_AudioControl.SetAISpeechEnhanceClose();
  host.m_AudioControl.Stop();
  LetGo(host);
  return 0;
}

int SonivoServiceMain(const Machine& machine, ChainFactory make_chains) {
  return RunService(*std::make_shared<HostState>(machine, std::move(make_chains)));
}

}  // namespace sonivo
