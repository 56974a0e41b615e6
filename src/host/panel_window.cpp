// The panel window: what the machine tells it of the session's end, the lock and the power.

#include <string>

#include "base/trace.h"
#include "host/host_windows.h"
#include "host/stopping.h"
#include "platform/window_messages.h"

namespace sonivo {
namespace {

constexpr std::int32_t kCell = 96;  // pixels
constexpr std::int32_t kPanelAboveBottom = 164;

void PostReboot(HostState& host) { host.machine.desktop.post_message(host.m_hWnd, WM_EVENT_MDN, 0); }

std::int32_t LaunchedPosition(HostState& host) {
  std::uint32_t launched = 0;
  host.m_DriverAccess.GetLaunchedMTG(&launched);
  return NormaliseLaunched(host, launched);
}

std::int64_t OnPowerBroadcast(HostState& host, const Message& message) {
  switch (message.wParam) {
    case kPowerSuspend:
      AutoExitUpdate(host);
      ShowWindowHide(host);
      PauseDriverThreads(host, Pause::asleep);
      return 1;
    case kPowerResumeAutomatic:
      host.m_bSonivoServiceLock = 0;
      host.SetMeetingModes(LaunchedPosition(host));
      AutoExitUpdate(host);
      return 1;
    case kPowerSettingChange: {
      const auto* setting = record_of<PowerSetting>(message);
      if (setting == nullptr) return 1;
      host.m_dwMonitorStatus = setting->data & 0xFFu;
      if (host.m_bModernStandby != 0 && host.m_dwMonitorStatus == kDisplayOn) {
        if (AutoExitUpdate(host) == 0) PostReboot(host);
        ShowWindowHide(host);
      }
      return 1;
    }
    default:
      return host.machine.desktop.windows().default_procedure(message);
  }
}

std::int64_t OnDeviceChange(HostState& host, const Message& message) {
  host.m_AudioControl.OnDeviceChange(static_cast<std::uint32_t>(message.wParam), record_of<DeviceBroadcast>(message));
  return 1;
}

std::int64_t PanelProcedure(HostState& host, const Message& message) {
  switch (message.message) {
    case kWmDestroy:
      host.m_hPanelBitmap.reset();
      host.m_hSessionNotify.reset();
      StopDriverThreads(host);
      host.machine.desktop.post_quit_message(0);
      return 0;
    case kWmQueryEndSession:
      AutoExitUpdate(host);
      ShowWindowHide(host);
      StopDriverThreads(host);
      host.machine.desktop.post_quit_message(0);
      return 1;
    case kWmEndSession:
      trace(TraceLevel::info, "[WindowProc] WM_ENDSESSION\n");
      break;
    case kWmSessionChange:
      if (message.wParam == kSessionLock) PauseDriverThreads(host, Pause::locked);
      if (message.wParam == kSessionUnlock) trace(TraceLevel::info, "[WindowProc] WTS_SESSION_UNLOCK\n");
      break;
    case kWmPowerBroadcast:
      return OnPowerBroadcast(host, message);
    case kWmDeviceChange:
      return OnDeviceChange(host, message);
    default:
      break;
  }
  return host.machine.desktop.windows().default_procedure(message);
}

/// The streams have the removal of their devices told to this window, the one they know.
std::int64_t MuteProcedure(HostState& host, const Message& message) {
  if (message.message == kWmDeviceChange) return OnDeviceChange(host, message);
  return host.machine.desktop.windows().default_procedure(message);
}

/// The machine keeps a procedure for as long as the window is there, which may be longer than the host.
WindowProcedure ProcedureOf(HostState& host, std::int64_t (*procedure)(HostState&, const Message&)) {
  return [held = host.weak_from_this(), &windows = host.machine.desktop.windows(), procedure](const Message& message) {
    const auto alive = held.lock();
    return alive ? procedure(*alive, message) : windows.default_procedure(message);
  };
}

std::filesystem::path BitmapFile(const HostState& host, std::uint32_t id) {
  return host.machine.folders.bitmap_folder() / (std::to_string(id) + ".bmp");
}

}  // namespace

bool CreateHostWindows(HostState& host) {
  constexpr const char* kMuteWindowClass = "{62518589-CDDC-4AF4-A7E9-0D3A8B86BC39}";
  constexpr std::uint32_t kMutePlainBitmap = 123;  // the one that sets the window's size
  constexpr std::int32_t kMuteFromRight = 400;
  Windows& windows = host.machine.desktop.windows();
  const Rect area = windows.work_area();

  const std::int32_t width = kCell * (host.FourPositions() ? 4 : 3);
  const Point panel{(area.right - width) / 2, area.bottom - kPanelAboveBottom};
  host.m_hWnd = windows.create("NorvellSonivoServiceWindow", {panel.x, panel.y, panel.x + width, panel.y + kCell},
                               ProcedureOf(host, PanelProcedure));
  if (host.m_hWnd == WindowHandle::none) return false;

  const auto bitmap = host.machine.desktop.painting().load_bitmap(BitmapFile(host, kMutePlainBitmap));
  const Size size = bitmap ? bitmap->size() : Size{};
  const Point mute{area.right - kMuteFromRight - size.width, area.bottom - size.height};
  host.m_hMuteWnd = windows.create(kMuteWindowClass, {mute.x, mute.y, mute.x + size.width, mute.y + size.height},
                                   ProcedureOf(host, MuteProcedure));
  return host.m_hMuteWnd.load() != WindowHandle::none;
}

std::uint32_t PanelBitmapId(const HostState& host) {
  if (host.m_dwGeneration == 9) return host.FourPositions() ? 304 : 101;
  return host.FourPositions() ? 303 : 200;
}

void LoadPanelBitmap(HostState& host) {
  host.m_hPanelBitmap = host.machine.desktop.painting().load_bitmap(BitmapFile(host, PanelBitmapId(host)));
  host.m_panelBitmapSize = host.m_hPanelBitmap ? host.m_hPanelBitmap->size() : Size{};
}

void ShowWindowHide(HostState& host) {
  host.m_bFocusFrame = 0;
  host.machine.desktop.windows().hide(host.m_hWnd);
  host.RemoveHooks();
}

std::uint32_t DeviceNotifyCallbackRoutine(HostState& host, std::uint64_t transition) {
  if (transition == kPowerSuspend) {
    ShowWindowHide(host);
    AutoExitUpdate(host);
    PauseDriverThreads(host, Pause::asleep);
  } else if (transition == kPowerResumeAutomatic) {
    LaunchedPosition(host);  // for what it says of the room correction
    if (AutoExitUpdate(host) == 0) PostReboot(host);
  }
  return 0;
}

}  // namespace sonivo
