#include "host/effective_settings.h"
#include "host/mode_rules.h"
#include "host/status_report.h"
#include "host/threads.h"

namespace sonivo {
namespace {

constexpr std::uint32_t kPollMs = 200;

/// Key cancel goes on where the user wants it; where not, it stays as it is.
void KeyboardCancelByUser(HostState& host) {
  if (!host.BeamForming()) return;
  CSonivoDriverAccess& driver = host.m_DriverAccess;
  if (UserSetting(driver, &CSonivoDriverAccess::GetKeyboardCancel_UI_MTG) != 0) driver.SetKeyboardCancelMTG(1);
}

void KeyboardCancelOff(HostState& host) {
  if (host.BeamForming()) host.m_DriverAccess.SetKeyboardCancelMTG(0);
}

void SetMode(HostState& host, std::int32_t p) {
  const bool headphones = host.m_dwHeadPhone != 0;
  if (!host.FourPositions()) {
    SetMeetingModeDriver(host, p);
  } else if (headphones && (p == 1 || p == 3)) {
    SetMeetingModeDriver(host, 1);
    KeyboardCancelByUser(host);
  } else {
    SetMeetingModeDriver(host, p);
    if (p == 0) {
      KeyboardCancelOff(host);
    } else if (!headphones) {
      KeyboardCancelByUser(host);
    }
  }
}

void SetBeamformingByMode(HostState& host, std::int32_t p) {
  CSonivoDriverAccess& driver = host.m_DriverAccess;
  if (p == 0 || p == 2) {
    driver.SetBeamformingMTG(0);
  } else if (p == 1 || p == 3) {
    if (UserSetting(driver, &CSonivoDriverAccess::GetBeamforming_UI_MTG) == 1) driver.SetBeamformingMTG(1);
  }
}

void SetSpeechByMode(HostState& host, std::int32_t p) {
  if (p < 0 || p > 3) return;
  SetEnhance(host.m_DriverAccess, p == 0 ? Effective::off : Effective::user);
  SetVoiceModel(host.m_DriverAccess, p == 0 || p == 2 ? Effective::off : Effective::user);
}

void ChangeMode(HostState& host) {
  std::uint32_t launched = 0;
  {
    const std::lock_guard lock(host.m_csDriver);
    host.m_DriverAccess.GetLaunchedMTGMode(&launched);
  }
  if (launched != 0) host.m_RoomCorrection = launched >= 3 ? 1 : 0;
  host.m_bModeChangeRequest = 0;

  const std::int32_t p = host.m_iMeetingModeTmp;
  SetMode(host, p);
  if (host.BeamForming()) SetBeamformingByMode(host, p);
  if (host.AISpeech()) SetSpeechByMode(host, p);
}

void PollHeadphones(HostState& host) {
  if (host.m_hWnd == WindowHandle::none || !host.machine.desktop.windows().visible(host.m_hWnd)) return;
  std::uint32_t plugged = 0;
  {
    const std::lock_guard lock(host.m_csDriver);
    host.m_DriverAccess.GetHeadphone(&plugged);
  }
  if (plugged == host.m_dwHeadPhone) return;
  if (host.GateModeThreads()) {
    host.m_bMicDeviceDirty = 1;  // and headphoneUpdate takes up the value
  } else {
    host.m_dwHeadPhone = plugged;
  }
  RepaintPanel(host);
}

void PollKeyCancel(HostState& host) {
  if (!host.KeyCancel()) return;
  std::uint32_t value = 1;
  host.m_DriverAccess.GetKeyboardCancelMTG(&value);
  host.m_AudioControl.UpdateKeyCancelState(value != 0);
}

}  // namespace

std::uint32_t SubThread(HostState& host) {
  host.machine.threads.set_current_priority(Priority::highest);
  StatusPublisher status(host);
  while (host.m_bThreadExit == 0) {
    ++host.m_dwSubThreadRounds;
    if (host.m_bModeChangeRequest != 0) ChangeMode(host);
    PollHeadphones(host);
    PollKeyCancel(host);
    status.Publish();
    host.machine.clock.sleep_ms(kPollMs);
  }
  if (host.GateModeThreads()) {
    host.m_hEvent.Set(EventPair::kStop);
    host.m_hRegistryEvent.Set(EventPair::kStop);
    host.m_hRegistryEvent_Quit.Set(EventPair::kStop);
  }
  return 0;
}

}  // namespace sonivo
